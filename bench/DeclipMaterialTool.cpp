// Helper of scripts/bench-declip.sh (not a benchmark):
//   declip_material make music|speech|speech44|voices44|dialogue SECONDS SDR DIR [SEED]
//       writes DIR/clean.wav and DIR/clipped.wav (mono float), a seeded excerpt
//       (seed 20 unless given: other seeds give held-out material) hard clipped to SDR dB;
//   declip_material sdr CLEAN TEST   prints SDR(TEST, CLEAN) in dB;
//   declip_material loop IN SECONDS OUT
//       writes OUT (stereo float): IN repeated to SECONDS in the first channel, and
//       in the second the same started from the middle of IN, so that the two
//       channels differ; a file of the length the speed is compared on.
#include <sndfile.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "declip/DeclipMaterial.h"
#include "declip/HardClipper.h"

namespace {

bool write(const std::string& path, const std::vector<float>& samples, int rate, int channels)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) return false;
    sf_writef_float(file, samples.data(), static_cast<sf_count_t>(samples.size() / channels));
    sf_close(file);
    return true;
}

bool writeMono(const std::string& path, const std::vector<float>& samples, int rate)
{
    return write(path, samples, rate, 1);
}

declipmaterial::Excerpt readMono(const std::string& path)
{
    declipmaterial::Excerpt excerpt;
    declipmaterial::appendFile(path, excerpt);
    return excerpt;
}

int loop(const std::string& in, double seconds, const std::string& out)
{
    const auto excerpt = readMono(in);
    const std::size_t length = excerpt.samples.size();
    if (length == 0) return std::fprintf(stderr, "cannot read %s\n", in.c_str()), 1;
    const auto frames = static_cast<std::size_t>(seconds * excerpt.sampleRate);
    std::vector<float> stereo(2 * frames);
    for (std::size_t i = 0; i < frames; ++i) {
        stereo[2 * i] = excerpt.samples[i % length];
        stereo[2 * i + 1] = excerpt.samples[(i + length / 2) % length];
    }
    return write(out, stereo, excerpt.sampleRate, 2) ? 0 : 1;
}

int make(const std::string& material, double seconds, double sdr, const std::string& dir, unsigned seed)
{
    const auto excerpt = declipmaterial::excerptOf(material, seed, seconds);
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
    if ((args.size() == 5 || args.size() == 6) && args[0] == "make") {
        const auto seed = args.size() == 6 ? static_cast<unsigned>(std::strtoul(args[5].c_str(), nullptr, 10)) : 20u;
        return make(args[1], std::atof(args[2].c_str()), std::atof(args[3].c_str()), args[4], seed);
    }
    if (args.size() == 3 && args[0] == "sdr") {
        const auto clean = readMono(args[1]).samples;
        const auto test = readMono(args[2]).samples;
        if (clean.empty() || clean.size() != test.size()) return std::fprintf(stderr, "length mismatch\n"), 1;
        std::printf("%.2f\n", hardclip::sdr(clean.data(), test.data(), clean.size()));
        return 0;
    }
    if (args.size() == 4 && args[0] == "loop") return loop(args[1], std::atof(args[2].c_str()), args[3]);
    std::fprintf(stderr,
                 "usage: declip_material make music|speech|speech44|voices44|dialogue SECONDS SDR DIR [SEED] | sdr CLEAN TEST | "
                 "loop IN SECONDS OUT\n");
    return 2;
}
