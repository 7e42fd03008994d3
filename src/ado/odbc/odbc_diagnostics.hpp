#pragma once

#include <sql.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ado/errors.hpp"

namespace halvtiv::ado {

/// One message that a driver has left at a handle.
struct OdbcDiagnostic {
    std::string state;  ///< five characters
    std::int32_t nativeCode = 0;
    std::string words;  ///< without the names of the components that passed it on
};

/// What the last call on a handle has left; isWide: the driver speaks UTF-16.
std::vector<OdbcDiagnostic> ReadOdbcDiagnostics(SQLSMALLINT handleType, SQLHANDLE handle, bool isWide);

/// The number that a state stands for.
AdoError KindOfOdbcState(const OdbcDiagnostic& diagnostic);
/// Whether the connection has gone with the error.
bool IsConnectionLost(const OdbcDiagnostic& diagnostic);

/// The first message that tells an error, with its state and code at the end:
/// "Duplicate entry '1' for key 'PRIMARY' (SQLSTATE 23000, code 1062)".
ErrorInfo MakeOdbcError(const std::vector<OdbcDiagnostic>& diagnostics, std::string_view source);

}  // namespace halvtiv::ado
