// make_declick_material: the seeded damage of the declick quality checks, for the
// benchmark script.
//   make_declick_material damage clicks|crackle|none SEED IN[,IN...] START SECONDS OUT
//       an excerpt (seconds) of the recordings one after another with the damage
//       laid on, as a float WAV;
//   make_declick_material snr CLEAN TEST
//       prints the signal-to-noise ratio of TEST against CLEAN in dB.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "declick/DamageMaterial.h"

namespace dm = declickmaterial;

namespace {

std::vector<std::string> splitList(const std::string& list)
{
    std::vector<std::string> items;
    std::size_t from = 0;
    for (std::size_t comma; (comma = list.find(',', from)) != std::string::npos; from = comma + 1)
        items.push_back(list.substr(from, comma - from));
    items.push_back(list.substr(from));
    return items;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        const std::string command = argc > 1 ? argv[1] : "";
        if (command == "damage" && argc == 8) {
            const std::string kind = argv[2];
            dm::Audio audio = dm::excerpt(dm::readConcatenated(splitList(argv[4])), std::atof(argv[5]), std::atof(argv[6]));
            if (kind == "clicks") dm::addDamage(audio, dm::clicks, std::strtoull(argv[3], nullptr, 10));
            else if (kind == "crackle") dm::addDamage(audio, dm::crackle, std::strtoull(argv[3], nullptr, 10));
            else if (kind != "none") throw std::runtime_error("unknown damage '" + kind + "'");
            dm::writeAudio(argv[7], audio);
            return 0;
        }
        if (command == "snr" && argc == 4) {
            std::printf("%.1f\n", dm::snrDb(dm::readAudio(argv[2]), dm::readAudio(argv[3])));
            return 0;
        }
        std::fprintf(stderr, "usage: %s damage clicks|crackle|none SEED IN START SECONDS OUT | snr CLEAN TEST\n", argv[0]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_declick_material: %s\n", error.what());
    }
    return 1;
}
