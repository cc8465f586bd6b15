// ferrotip: repair and declick audio files with the ferrotip module.
#include <cstdio>
#include <string>

#include "CliError.h"
#include "Commands.h"

int main(int argc, char** argv)
{
    // Named here, not from argv[0], so the help (and the man page made from it) says "ferrotip".
    CLI::App app{"ferrotip: repair clicks, crackle and dropouts in audio files", "ferrotip"};
    app.set_version_flag("--version", "ferrotip " FERROTIP_VERSION);
    app.require_subcommand(1);
    addMethodsCommand(app);
    addRepairCommand(app);
    addDemoCommand(app);
    addScanCommand(app);
#ifdef FERROTIP_HAS_DECLICK
    addDeclickCommand(app);
#endif
    addDeclipCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::RequiredError& error) {
        // A word that is no command leaves no command at all: name the word.
        if (app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-') {
            std::string commands;
            for (const CLI::App* command : app.get_subcommands({}))
                commands += (commands.empty() ? "" : ", ") + command->get_name();
            std::fprintf(stderr, "ferrotip: unknown command '%s'; choose one of %s\n", argv[1], commands.c_str());
            return 1;
        }
        return app.exit(error);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const CliError& error) {
        std::fprintf(stderr, "ferrotip: %s\n", error.what());
        return 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ferrotip: %s\n", error.what());
        return 2;
    }
    return 0;
}
