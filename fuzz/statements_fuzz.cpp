// SQL as applications write it, taken apart in the manner of each database; and values put into it.

#include <array>
#include <string>

#include "ado/odbc/odbc_script.hpp"
#include "ado/postgresql/postgresql_text.hpp"
#include "ado/select_text.hpp"
#include "ado/sql_scanner.hpp"
#include "ado/table_name.hpp"
#include "foundation/this_utils.hpp"
#include "property.hpp"

namespace halvtiv::fuzz {
namespace {

using namespace ado;

constexpr std::array kDialects{OdbcDialect::Sqlite,     OdbcDialect::Access,    OdbcDialect::MariaDb,
                               OdbcDialect::PostgreSql, OdbcDialect::SqlServer, OdbcDialect::Other};

bool IsWithin(std::string_view part, std::string_view whole) {
    return part.empty() ||
           (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

void Scan(std::string_view text, SqlDialect dialect) {
    SqlScanner scanner(text, dialect);
    std::size_t end = 0;
    for (auto token = scanner.Next(); token.kind != SqlToken::Kind::End; token = scanner.Next()) {
        Require(!token.text.empty() && IsWithin(token.text, text), "a token is not of the text");
        Require(token.position >= end, "tokens overlap");
        end = token.position + token.text.size();
        if (token.IsName()) (void)token.Name();
    }
    Require(scanner.Next().kind == SqlToken::Kind::End, "the end is not the end");

    const auto select = ReadSelectText(text, dialect);
    if (!select) return;
    Require(!select->items.empty() && IsWithin(select->tail, text), "a query has no list");
    for (const auto item : select->items) {
        Require(IsWithin(item, text), "an item is not of the text");
        (void)(HoldsQuery(item) || IsStarItem(item) || select->TailNames(item));
    }
}

void Split(std::string_view text) {
    for (std::size_t position = 0; position < text.size();) {
        const auto statement = NextPostgresqlStatement(text, position);
        Require(IsWithin(statement.text, text), "a statement is not of the text");
        Require(statement.next > position && statement.next <= text.size(), "splitting stands still");
        (void)OnlyReads(statement.text);
        position = statement.next;
    }
    for (const auto dialect : kDialects) {
        for (auto rest = text; !rest.empty() && !IsEmptyScript(rest, dialect);) {
            const auto length = FirstStatementLength(rest, dialect);
            Require(length > 0 && length <= rest.size(), "splitting stands still");
            rest.remove_prefix(length);
        }
    }
}

/// A value whose quotes are doubled ends where its text ends, whatever is in it.
void Quote(std::string_view value) {
    const std::string statement = "select '" + EscapeSqlQuotes(value) + "';";
    const std::string script = statement + " select 2";
    for (const auto dialect : kDialects) {
        Require(FirstStatementLength(script, dialect) == statement.size(), "a value ends its text");
    }
    Require(NextPostgresqlStatement(script, 0).text.size() + 1 == statement.size(), "a value ends its text");
    for (const auto dialect : {SqlDialect::Common, SqlDialect::Postgresql}) {
        SqlScanner scanner(script, dialect);
        scanner.Next();
        const auto literal = scanner.Next();
        Require(literal.kind == SqlToken::Kind::String, "a value is no text");
        Require(literal.text == std::string_view(statement).substr(7, statement.size() - 8),
                "a value ends its text");
    }
}

}  // namespace
}  // namespace halvtiv::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace halvtiv;
    const auto text = fuzz::TextOf(data, size);
    fuzz::Scan(text, ado::SqlDialect::Common);
    fuzz::Scan(text, ado::SqlDialect::Postgresql);
    fuzz::Split(text);
    fuzz::Quote(text);
    (void)ado::CommandTextOf(text);
    return 0;
}
