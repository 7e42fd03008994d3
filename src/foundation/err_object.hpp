#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <halvtiv/error_info.hpp>

namespace halvtiv {

/// The name that stands as the default source of errors.
inline constexpr std::string_view kProductName = "HalvTiv";

/// The number of an error that has none of its own.
inline constexpr std::int32_t kUnspecifiedError = -2147467259;

/// An error that a class of HalvTiv detects itself: number -1, the class in its source.
ErrorInfo OwnError(std::string_view className, std::string description);

/// The last error of one object.
///
/// Its owner gives it a label once; every description recorded carries the label and ":" in front. Making one
/// allocates nothing, for every document and definition has one.
class clsZorbErrObject {
public:
    clsZorbErrObject(std::string_view defaultSource, std::string_view label) noexcept {
        SetDefaultErrorInfo(defaultSource, label);
    }

    /// 0 when there is no error.
    std::int32_t Number() const noexcept { return number_; }
    /// With the owner's label in front.
    std::string Description() const;
    /// Nothing after `Clear`.
    const std::optional<std::string>& Source() const noexcept { return source_; }
    /// The description without the owner's label and what prefaces it.
    std::string_view Words() const noexcept;

    /// Shows the error to the person at the machine and waits for it to be read; nothing without an error.
    void ShowError() const;
    /// Records an error; null stands for the exception being handled, whatever its type. Never fails: short
    /// of memory it records just that.
    void SetError(const ErrorInfo* error) noexcept;
    /// Records an error from its parts; without a source the default one is taken.
    void SetError2(std::int32_t number, std::string_view description, std::string_view helpContext,
                   std::string_view helpFile, const std::optional<std::string>& source = std::nullopt);
    /// Puts words before those of the recorded error. They must outlive this object.
    void Preface(std::string_view words) noexcept { preface_ = words; }
    /// "LABEL:WORDS(ERR#: NUMBER)"; "" when there is no error.
    std::string GetErrorMsg() const;
    /// Forgets the error; label and default source stay.
    void Clear() noexcept;
    /// Raises the error as it is recorded; false when there is none.
    bool Raise() const;
    /// Both texts must outlive this object.
    void SetDefaultErrorInfo(std::string_view defaultSource, std::string_view label) noexcept {
        defaultSource_ = defaultSource;
        label_ = label;
    }

private:
    void SetOutOfMemory() noexcept;

    std::int32_t number_ = 0;
    bool outOfMemory_ = false;  // the words are fixed then: there is no memory to keep them
    std::string_view preface_;
    std::string words_;
    std::optional<std::string> source_;
    std::string helpFile_;
    std::string helpContext_;
    std::string_view label_;
    std::string_view defaultSource_;
};

}  // namespace halvtiv
