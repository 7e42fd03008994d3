#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace halvtiv::ado {

/// One statement of a command text.
struct PostgresqlStatementText {
    std::string_view text;  ///< from its first word to its end, without the ";"; "" behind the last one
    std::string verb;       ///< its first word, lower-cased
    std::size_t next = 0;   ///< where the one behind it begins
};

/// The first statement from a position on. Several statements sent as one would be one transaction.
PostgresqlStatementText NextPostgresqlStatement(std::string_view text, std::size_t position);

/// Whether a query only reads, as far as its text tells: it calls nothing but well-known functions that
/// change nothing. It may then be stopped half-way.
bool OnlyReads(std::string_view statement);

/// A name as it stands in a statement.
std::string QuotedPostgresqlName(std::string_view name);

}  // namespace halvtiv::ado
