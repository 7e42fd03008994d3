#pragma once

#include "command_error.hpp"
#include "options.hpp"

namespace halvtiv::cli {

// Both run a request and write its result. They raise `CommandError` and `BrokenPipe`.

/// `halvtiv run`: the request stands in a file.
ExitStatus RunRequestFile(const Options& options);

/// `halvtiv call`: the request is built from the options.
ExitStatus RunCall(const Options& options);

}  // namespace halvtiv::cli
