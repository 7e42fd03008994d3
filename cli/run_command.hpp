#pragma once

#include "command_error.hpp"
#include "options.hpp"

namespace halvtiv::cli {

// Each runs a request and writes its result. Ctrl-C cancels what runs; a second one ends the program. They
// raise `CommandError` and `BrokenPipe`.

/// `halvtiv run`: the request stands in a file.
ExitStatus RunRequestFile(const Options& options);

/// `halvtiv call`: the request is built from the options.
ExitStatus RunCall(const Options& options);

/// `halvtiv export`: a request from either, whose rows go into a file.
ExitStatus RunExport(const Options& options);

}  // namespace halvtiv::cli
