// ferrotip: repair and declick audio files with the ferrotip module.
#include <cstdio>
#include <string>

#include "CliError.h"
#include "Commands.h"

namespace {

std::string commandNames(CLI::App& app)
{
    std::string names;
    for (const CLI::App* command : app.get_subcommands({}))
        names += (names.empty() ? "" : ", ") + command->get_name();
    return names;
}

// No command was parsed: name what stood in its place.
int missingCommand(CLI::App& app, int argc, char** argv)
{
    const std::string commands = commandNames(app);
    if (argc <= 1)
        std::fprintf(stderr, "ferrotip: a command is required: one of %s (ferrotip --help for more)\n",
                     commands.c_str());
    else if (argv[1][0] == '-')
        std::fprintf(stderr, "ferrotip: unknown option '%s'; a command comes first: one of %s\n", argv[1],
                     commands.c_str());
    else
        std::fprintf(stderr, "ferrotip: unknown command '%s'; choose one of %s\n", argv[1], commands.c_str());
    return 1;
}

}  // namespace

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
        if (app.get_subcommands().empty()) return missingCommand(app, argc, argv);
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
