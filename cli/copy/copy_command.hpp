#pragma once

#include "command_error.hpp"
#include "options.hpp"

namespace halvtiv::cli {

/// `halvtiv copy`: moves tables from one database to another. What has been copied stays when it fails or is
/// interrupted, and the same options go on from there.
ExitStatus RunCopy(const Options& options);

}  // namespace halvtiv::cli
