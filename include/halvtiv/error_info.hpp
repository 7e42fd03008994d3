#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include <halvtiv/export.hpp>

namespace halvtiv {

/// The one exception type of the library: what every raised error carries.
///
/// Errors that HalvTiv detects itself have `Number` -1 and a fixed English `Description`. Errors of a
/// database, of the file system or of a conversion keep their own number, as do their words.
/// A plain value: copy it, keep it, hand it to another thread.
struct HALVTIV_API ErrorInfo : std::exception {
    ErrorInfo() = default;
    /// An error without a reference to help.
    ErrorInfo(std::int32_t number, std::string description, std::string source = {});
    ErrorInfo(const ErrorInfo&) = default;
    ErrorInfo(ErrorInfo&&) = default;
    ErrorInfo& operator=(const ErrorInfo&) = default;
    ErrorInfo& operator=(ErrorInfo&&) = default;
    ~ErrorInfo() override;

    /// The `Description`, valid as long as this object is unchanged.
    const char* what() const noexcept override;

    /// -1 for HalvTiv's own errors. 0 only where `ZorbFunctionResult::RaiseResultError` raises an entry that
    /// says so.
    std::int32_t Number = 0;
    std::string Description;       ///< what went wrong, UTF-8
    std::string Source;            ///< who found it: "HalvTiv." and a class, or the provider's name
    std::string HelpFile;          ///< usually empty
    std::int32_t HelpContext = 0;  ///< usually 0
};

}  // namespace halvtiv
