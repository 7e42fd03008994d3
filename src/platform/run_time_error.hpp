#pragma once

#include <string_view>

#include <halvtiv/error_info.hpp>

namespace halvtiv::platform {

/// The numbers of conversions, collections and files: errors that are the platform's, not HalvTiv's own.
enum class RunTimeError : std::int32_t {
    InvalidArgument = 5,
    Overflow = 6,
    OutOfMemory = 7,
    SubscriptOutOfRange = 9,
    TypeMismatch = 13,
    FileNotFound = 53,
    DeviceIo = 57,
    DiskFull = 61,
    PermissionDenied = 70,
    PathAccess = 75,
    PathNotFound = 76,
    ObjectNotSet = 91,
    DuplicateKey = 457
};

/// The fixed words of a run-time error, such as "Overflow.". Never allocates.
std::string_view RunTimeErrorText(RunTimeError error) noexcept;

/// The error, ready to throw; what it concerns (a path, a name) follows the words in brackets.
ErrorInfo MakeRunTimeError(RunTimeError error, std::string_view concerns = {});

/// Raises it.
[[noreturn]] void RaiseRunTimeError(RunTimeError error, std::string_view concerns = {});

/// The file error that fits an `errno` value: 53, 76, 75, 70, 61 or 57.
RunTimeError FileErrorFromErrno(int error) noexcept;

}  // namespace halvtiv::platform
