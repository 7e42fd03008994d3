#pragma once

#include <cstddef>
#include <string_view>

#include "sql/dialect.hpp"

namespace halvtiv::sql {

/// One statement of a script.
struct ScriptStatement {
    /// With the comments before it and without the ";" behind it; "" where the script holds no more.
    std::string_view text;
    std::size_t next = 0;  ///< where the script goes on: an offset, beyond the ";"
};

/// The first statement at or behind an offset of a script. A ";" inside brackets or inside the body of a
/// routine does not end a statement. Text that holds nothing but blanks, comments and ";" is no statement.
///
/// For SQL Server and `Generic`, the rest of the script counts as one statement: its statements need no ";"
/// between them there, or share variables.
ScriptStatement NextStatement(std::string_view script, std::size_t position, Dialect dialect);

}  // namespace halvtiv::sql
