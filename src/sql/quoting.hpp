#pragma once

#include <string>
#include <string_view>

#include "sql/dialect.hpp"

namespace halvtiv::sql {

/// The text between two quotes, each quote inside doubled.
std::string Quoted(std::string_view text, char quote);

/// A name as it stands in a statement, whatever characters it holds.
std::string QuotedName(std::string_view name, Dialect dialect);
/// The same of a table in a schema; an empty schema is left out.
std::string QuotedName(std::string_view schema, std::string_view table, Dialect dialect);

/// A string literal. The value must not hold NUL.
std::string StringLiteral(std::string_view value, Dialect dialect);

}  // namespace halvtiv::sql
