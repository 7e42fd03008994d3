#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace halvtiv::platform {

/// A text that is UTF-8 unless its first bytes show UTF-16, as UTF-8 and without its byte order mark: a view
/// of the text itself or of `converted`. Nothing when it is UTF-16 that does not decode.
std::optional<std::string_view> XmlTextAsUtf8(std::string_view text, std::string& converted);

}  // namespace halvtiv::platform
