#pragma once

#include <string_view>

namespace halvtiv::platform {

/// Tells the person at the machine: a modal box where there is a desktop of the system's own, else a line on
/// standard error.
void ShowMessage(std::string_view title, std::string_view text);

}  // namespace halvtiv::platform
