#include "sql/quoting.hpp"

namespace halvtiv::sql {
namespace {

std::string Enclosed(std::string_view text, char open, char close) {
    std::string quoted(1, open);
    quoted.reserve(text.size() + 2);
    for (const char c : text) {
        quoted += c;
        if (c == close) quoted += c;
    }
    quoted += close;
    return quoted;
}

}  // namespace

std::string Quoted(std::string_view text, char quote) {
    return Enclosed(text, quote, quote);
}

std::string QuotedName(std::string_view name, Dialect dialect) {
    switch (dialect) {
        case Dialect::MariaDb:  // independent of ANSI_QUOTES
            return Quoted(name, '`');
        case Dialect::SqlServer:
        case Dialect::Access:
            return Enclosed(name, '[', ']');
        case Dialect::Sqlite:
        case Dialect::PostgreSql:
        case Dialect::Generic:
            break;
    }
    return Quoted(name, '"');
}

std::string QuotedName(std::string_view schema, std::string_view table, Dialect dialect) {
    if (schema.empty()) return QuotedName(table, dialect);
    return QuotedName(schema, dialect) + '.' + QuotedName(table, dialect);
}

std::string StringLiteral(std::string_view value, Dialect dialect) {
    auto literal = Quoted(value, '\'');
    // Without the prefix, SQL Server converts the text to the database's code page.
    return dialect == Dialect::SqlServer ? 'N' + literal : literal;
}

}  // namespace halvtiv::sql
