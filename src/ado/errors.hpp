#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <halvtiv/error_info.hpp>

namespace halvtiv::ado {

/// The numbers of this layer's errors.
enum class AdoError : std::int32_t {
    ConstraintViolation = -2147217873,
    SqlError = -2147217900,
    NoSuchTable = -2147217865,
    LoginFailed = -2147217843,
    Cancelled = -2147217842,
    CommandTimeout = -2147217871,
    Unspecified = -2147467259,  ///< a broken connection, a missing file, what has no number of its own
    ObjectClosed = -2146824584,
    ObjectOpen = -2146824583,
    ProviderNotFound = -2146824582,
    InvalidConnection = -2146824579,  ///< no connection, or a closed one, under a recordset
    NoCurrentRecord = -2146825267,
    ItemNotFound = -2146825023,  ///< unknown field or position
    NotSupported = -2146825037,  ///< what this cursor or recordset cannot do
    WrongType = -2146824867,     ///< a text that does not convert to the column's type
    RowChanged = -2147217864,
    NoTransaction = -2147168242
};

/// An error of this layer in its own fixed words, or of a provider in the database's words.
ErrorInfo MakeAdoError(AdoError error);
ErrorInfo MakeProviderError(AdoError error, std::string_view words, std::string_view providerName);
[[noreturn]] void RaiseAdoError(AdoError error);

/// What is said of a connection that is not there any more, where the database says nothing itself.
inline constexpr std::string_view kConnectionLost = "The connection to the server has been lost.";

/// What is said of PostgreSQL's COPY, which needs somebody who takes or gives its data.
inline constexpr std::string_view kNoCopy =
    "COPY is not supported here: it does not return rows, but data of its own.";
/// What is said of a statement with a bind marker, for which nothing gives a value.
std::string UnboundMarker(std::string_view marker);
/// What is said of statements that no provider sends.
inline constexpr std::string_view kNulInCommand = "The command text holds a NUL character.";
inline constexpr std::string_view kCommandTooLong = "The command text is too long.";

/// Whether something was cancelled: who goes on after a failure does not go on after that one.
inline bool IsCancelled(const ErrorInfo& error) noexcept {
    return error.Number == static_cast<std::int32_t>(AdoError::Cancelled);
}

}  // namespace halvtiv::ado
