#pragma once

#include <string>

#include "options.hpp"

namespace halvtiv::cli {

/// The request that the words behind `call` describe, as XML text: a parameter for each PARAM=VALUE; a block
/// "data" of the `--set`s and `--set-file`s in their order, if there are any. A text that XML cannot carry
/// raises `CommandError` (not run) or, as the function's name, `ErrorInfo`.
std::string BuildRequest(const Options& options);

}  // namespace halvtiv::cli
