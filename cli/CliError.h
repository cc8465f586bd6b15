// The one error type of the command line: a message for the user, printed on one
// line to stderr, and a non-zero exit.
#pragma once

#include <stdexcept>
#include <string>

struct CliError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
