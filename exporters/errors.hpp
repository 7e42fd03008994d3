#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <halvtiv/error_info.hpp>

namespace halvtiv::exporters {

/// The numbers of errors that are not of an exporter's own finding.
enum class ErrorNumber : std::int32_t {
    Own = -1,
    OutOfMemory = 7,
    FileNotFound = 53,
    DeviceIo = 57,
    DiskFull = 61,
    PermissionDenied = 70,
    PathAccess = 75,
    PathNotFound = 76,
    ObjectNotSet = 91,
    ConstraintViolation = -2147217873,
    SqlError = -2147217900,
    Unspecified = -2147467259
};

[[noreturn]] void Raise(ErrorNumber number, std::string description);

/// Raises 75 for a path where no such file can be.
[[noreturn]] void RaisePathAccess(std::string_view path);

/// The exception being handled, whatever its type.
ErrorInfo CurrentError();

}  // namespace halvtiv::exporters
