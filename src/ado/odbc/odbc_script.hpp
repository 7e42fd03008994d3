#pragma once

#include <cstddef>
#include <string_view>

#include "ado/odbc/odbc_traits.hpp"

namespace halvtiv::ado {

/// The length of the first statement of a script, its ";" included. Those inside texts, names, comments and
/// the body of a routine or trigger do not end it.
std::size_t FirstStatementLength(std::string_view script, OdbcDialect dialect);

/// Whether a script holds nothing but blanks, comments and ";".
bool IsEmptyScript(std::string_view script, OdbcDialect dialect);

/// Whether a statement for which MariaDB announces no columns may give rows all the same: its driver loses
/// its place in the server's answers then.
bool MayHideItsRows(std::string_view statement);

/// Whether one statement may give more than one result on MariaDB.
bool MayGiveSeveralResults(std::string_view statement);

}  // namespace halvtiv::ado
