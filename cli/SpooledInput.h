// An input that can be read only once (a pipe, standard input given as '-', a
// character device or a socket) is copied into a temporary file the first time it is
// opened, and every later opening in this process reads that copy: the commands read
// their input in several passes (level, decode, the pass after a gain), and a pipe
// would be empty for all but the first. The copy lies in the temporary folder under a
// random name, is removed when the process ends and, like a partial output, when
// SIGINT, SIGTERM or SIGHUP arrives. A regular file is read where it is.
#pragma once

#include <string>

// Whether `path` names standard input.
bool namesStandardInput(const std::string& path);

// The file to open for reading `path`: `path` itself when it can be read again, else
// the copy of what it held (made on the first call). Throws CliError naming `path`
// when it does not exist, is a directory, or cannot be copied.
std::string rereadablePath(const std::string& path);
