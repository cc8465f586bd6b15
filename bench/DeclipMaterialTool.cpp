// Helper of scripts/bench-declip.sh (not a benchmark):
//   declip_material make music|speech|dialogue SECONDS SDR DIR
//       writes DIR/clean.wav and DIR/clipped.wav (mono float), a seeded excerpt
//       hard clipped to SDR dB;
//   declip_material sdr CLEAN TEST   prints SDR(TEST, CLEAN) in dB.
#include <sndfile.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "declip/DeclipMaterial.h"
#include "declip/HardClipper.h"

namespace {

bool writeMono(const std::string& path, const std::vector<float>& samples, int rate)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) return false;
    sf_writef_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
    return true;
}

std::vector<float> readMono(const std::string& path)
{
    declipmaterial::Excerpt excerpt;
    declipmaterial::appendFile(path, excerpt);
    return excerpt.samples;
}

int make(const std::string& material, double seconds, double sdr, const std::string& dir)
{
    const auto files = declipmaterial::filesOf(material);
    const auto excerpt = declipmaterial::excerpt(files, 20, seconds);
    if (excerpt.samples.empty()) return std::fprintf(stderr, "no %s recordings installed\n", material.c_str()), 1;
    const auto clipped = hardclip::clip(excerpt.samples, hardclip::levelForSdr(excerpt.samples, sdr));
    return writeMono(dir + "/clean.wav", excerpt.samples, excerpt.sampleRate) &&
                   writeMono(dir + "/clipped.wav", clipped, excerpt.sampleRate)
               ? 0
               : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 5 && args[0] == "make")
        return make(args[1], std::atof(args[2].c_str()), std::atof(args[3].c_str()), args[4]);
    if (args.size() == 3 && args[0] == "sdr") {
        const auto clean = readMono(args[1]);
        const auto test = readMono(args[2]);
        if (clean.empty() || clean.size() != test.size()) return std::fprintf(stderr, "length mismatch\n"), 1;
        std::printf("%.2f\n", hardclip::sdr(clean.data(), test.data(), clean.size()));
        return 0;
    }
    std::fprintf(stderr, "usage: declip_material make music|speech|dialogue SECONDS SDR DIR | sdr CLEAN TEST\n");
    return 2;
}
