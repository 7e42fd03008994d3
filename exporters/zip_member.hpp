#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace halvtiv::exporters {

/// The unpacked size of a member of a ZIP file, as its directory says; 0 when it is not there.
std::uint64_t ZipMemberSize(const std::string& path, std::string_view member);

}  // namespace halvtiv::exporters
