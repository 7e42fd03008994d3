#pragma once

#include <string_view>

namespace halvtiv::ado {

/// Whether an Access database stands at that path, by its first bytes; false where nothing can be read.
bool IsAccessFile(std::string_view path);

}  // namespace halvtiv::ado
