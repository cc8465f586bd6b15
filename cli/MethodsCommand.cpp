// `ferrotip methods`: the module's method table as a host shows it.
#include <ferrotip/ferrotip.h>

#include <cstdio>

#include "Commands.h"

namespace {

void printMethods()
{
    std::printf("%-3s %-27s %9s %8s %8s  %s\n", "#", "name", "max gap", "before", "after",
                "description");
    for (int index = 0; index < FERROTIP_METHOD_COUNT; ++index) {
        MethodDescription row{};
        row.index = index;
        getMethodDescription(&row);
        std::printf("%-3d %-27s %6d ms %5d ms %5d ms  %s\n", row.index, row.name, row.maxGapMs,
                    row.contextBeforeMs, row.contextAfterMs, row.description);
    }
}

}  // namespace

void addMethodsCommand(CLI::App& app)
{
    app.add_subcommand("methods", "List the repair methods with their limits and reach")
        ->callback(printMethods);
}
