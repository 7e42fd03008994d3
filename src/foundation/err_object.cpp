#include "foundation/err_object.hpp"

#include <exception>
#include <new>
#include <utility>

#include "platform/message_box.hpp"
#include "platform/number.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv {

namespace {

/// The exception being handled, as an error.
ErrorInfo CurrentError() {
    try {
        throw;
    } catch (const ErrorInfo& error) {
        ErrorInfo info = error;
        // A client's own may lack its number. With 0 it would be none, and the failure a success.
        if (info.Number == 0) info.Number = kUnspecifiedError;
        return info;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        return {kUnspecifiedError, error.what(), std::string(kProductName)};
    } catch (...) {
        return {kUnspecifiedError, "Unexpected error.", std::string(kProductName)};
    }
}

}  // namespace

ErrorInfo OwnError(std::string_view className, std::string description) {
    std::string source(kProductName);
    source += '.';
    source += className;
    return {-1, std::move(description), std::move(source)};
}

std::string clsZorbErrObject::Description() const {
    if (number_ == 0) return {};
    std::string description(label_);
    description += ':';
    description += preface_;
    description += Words();
    return description;
}

std::string_view clsZorbErrObject::Words() const noexcept {
    return outOfMemory_ ? platform::RunTimeErrorText(platform::RunTimeError::OutOfMemory) : words_;
}

void clsZorbErrObject::ShowError() const {
    if (number_ != 0) platform::ShowMessage(kProductName, GetErrorMsg());
}

void clsZorbErrObject::SetError(const ErrorInfo* error) noexcept {
    try {
        const ErrorInfo info = error != nullptr ? *error : CurrentError();
        SetError2(info.Number, info.Description, std::to_string(info.HelpContext), info.HelpFile,
                  info.Source);
    } catch (...) {
        SetOutOfMemory();
    }
}

void clsZorbErrObject::SetOutOfMemory() noexcept {
    Clear();
    number_ = static_cast<std::int32_t>(platform::RunTimeError::OutOfMemory);
    outOfMemory_ = true;
    source_ = std::string();
}

void clsZorbErrObject::SetError2(std::int32_t number, std::string_view description,
                                 std::string_view helpContext, std::string_view helpFile,
                                 const std::optional<std::string>& source) {
    Clear();
    words_ = description;
    helpContext_ = helpContext;
    helpFile_ = helpFile;
    source_ = source ? *source : std::string(defaultSource_);
    number_ = number;
}

std::string clsZorbErrObject::GetErrorMsg() const {
    if (number_ == 0) return {};
    return Description() + "(ERR#: " + std::to_string(number_) + ")";
}

void clsZorbErrObject::Clear() noexcept {
    if (number_ == 0 && !source_) return;
    number_ = 0;
    outOfMemory_ = false;
    preface_ = {};
    words_.clear();
    source_.reset();
    helpFile_.clear();
    helpContext_.clear();
}

bool clsZorbErrObject::Raise() const {
    if (number_ == 0) return false;
    ErrorInfo error(number_, Description(), source_.value_or(std::string()));
    error.HelpFile = helpFile_;
    error.HelpContext = platform::TextToInt32(helpContext_.empty() ? "0" : helpContext_);
    throw error;
}

}  // namespace halvtiv
