// Runs the ferrotip program (FERROTIP_CLI_PATH) as a user would, capturing what
// it prints on stdout and stderr together and its exit status.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <memory>
#include <string>

namespace testsupport {

struct CommandOutcome {
    int status;          // exit status, -1 when killed by a signal
    std::string output;  // stdout and stderr together
};

// Runs a shell command line; program() names the ferrotip program in it.
inline CommandOutcome shell(const std::string& commandLine)
{
    const std::string command = "{ " + commandLine + "; } 2>&1";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    char buffer[4096];
    while (std::fgets(buffer, sizeof buffer, pipe.get())) output += buffer;
    const int status = pclose(pipe.release());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

inline std::string program() { return FERROTIP_CLI_PATH; }

inline CommandOutcome ferrotip(const std::string& arguments) { return shell(program() + " " + arguments); }

}  // namespace testsupport
