#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "ado/provider.hpp"

namespace halvtiv::ado {

/// Told how far a copy between a file and a value is, in bytes.
using CopyProgress = std::function<void(std::int64_t done, std::int64_t total)>;

/// Puts a value's bytes into a file, which is empty for a null or empty value. An earlier file of that name
/// stays until the new one is complete. Raises the file errors 53 to 76 and those of reading.
void CopyValueToFile(RowSource& row, std::int32_t column, std::string_view path,
                     const CopyProgress& progress = {});

/// A file's bytes as a new value, read when it is written. What has no size of its own, such as a pipe, is
/// read to its end here. Raises the file errors 53 to 76.
std::shared_ptr<ByteSource> OpenFileAsValue(std::string_view path, CopyProgress progress = {});

}  // namespace halvtiv::ado
