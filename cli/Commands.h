// The subcommands of the ferrotip command line. Each adds itself to the app and
// does its work in its callback; errors leave as CliError.
#pragma once

#include <CLI/CLI.hpp>

void addMethodsCommand(CLI::App& app);
void addRepairCommand(CLI::App& app);
void addDemoCommand(CLI::App& app);
void addDeclickCommand(CLI::App& app);
void addScanCommand(CLI::App& app);
void addDeclipCommand(CLI::App& app);
