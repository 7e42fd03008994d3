// SQL as applications write it, taken apart in the manner of each database; and values put into it.

#include <array>
#include <string>
#include <vector>

#include "ado/odbc/odbc_script.hpp"
#include "ado/postgresql/postgresql_text.hpp"
#include "ado/select_text.hpp"
#include "ado/sql_scanner.hpp"
#include "ado/table_name.hpp"
#include "foundation/this_utils.hpp"
#include "property.hpp"
#include "sql/lexer.hpp"
#include "sql/quoting.hpp"
#include "sql/script.hpp"
#include "sql/select_query.hpp"
#include "sql/shape.hpp"
#include "sql/transaction_words.hpp"

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

constexpr std::array kAllDialects{sql::Dialect::Sqlite,    sql::Dialect::PostgreSql, sql::Dialect::MariaDb,
                                  sql::Dialect::SqlServer, sql::Dialect::Access,     sql::Dialect::Generic};

/// Tokens are pieces of the text, in order.
void Lex(std::string_view text, sql::Dialect dialect) {
    sql::Lexer lexer(text, dialect);
    std::size_t end = 0;
    for (auto token = lexer.Next(); !token.IsEnd(); token = lexer.Next()) {
        Require(!token.text.empty() && token.position >= end, "tokens overlap");
        Require(text.substr(token.position, token.text.size()) == token.text, "a token is not of the text");
        end = token.End();
        if (token.IsName()) Require(token.Names(token.Name()), "a name is not its own");
    }
    Require(lexer.Next().IsEnd(), "the end is not the end");
}

/// A query stays the same when its own items are put back.
void TakeApart(std::string_view text, sql::Dialect dialect) {
    (void)sql::CausesImplicitCommit(text, dialect);
    (void)sql::FormOfSource(text, dialect);
    const auto query = sql::ReadSelectQuery(text, dialect);
    if (!query) return;
    Require(!query->items.empty() && !query->levels.empty(), "a query has no list");
    Require(IsWithin(query->tail, text), "a query is not of the text");
    std::vector<std::string> items;
    for (const auto& item : query->items) items.emplace_back(item.text);
    const auto again = query->WithItems(items);
    const auto reread = sql::ReadSelectQuery(again, dialect);
    Require(reread && reread->items.size() == items.size() && reread->tables.size() == query->tables.size(),
            "a query changes when its own items are put back");
    for (const auto& level : query->levels) {
        Require(level.conditionEnd <= level.end && level.end <= query->text.size(), "a level has no end");
    }
}

/// The pieces of a script follow each other up to its end.
void Cut(std::string_view script, sql::Dialect dialect) {
    for (std::size_t position = 0; position < script.size();) {
        const auto statement = sql::NextStatement(script, position, dialect);
        Require(statement.next > position && statement.next <= script.size(), "splitting stands still");
        Require(IsWithin(statement.text, script.substr(position, statement.next - position)),
                "a statement is not of its piece");
        position = statement.next;
    }
}

/// A shape with its literals put back is the statement.
void Lift(std::string_view statement, sql::Dialect dialect) {
    const auto shape = sql::ReadShape(statement, dialect);
    if (!shape) return;
    std::string text;
    std::size_t read = 0;
    std::size_t copied = 0;
    for (std::size_t i = 0; i < shape->literals.size(); ++i) {
        const auto& literal = shape->literals[i];
        const auto marker =
            dialect == sql::Dialect::PostgreSql ? "$" + std::to_string(i + 1) : std::string("?");
        Require(literal.position >= copied, "literals overlap");
        const auto between = literal.position - copied;
        text += shape->text.substr(read, between);
        Require(shape->text.substr(read + between, marker.size()) == marker, "a literal has no marker");
        text += literal.text;
        read += between + marker.size();
        copied = literal.position + literal.text.size();
        const auto value = literal.Value();
        Require(sql::Quoted(value, '\'') == literal.text || value == literal.text,
                "a literal has another value");
    }
    text += shape->text.substr(read);
    Require(text == statement, "a shape is not that of its statement");
}

/// A value whose quotes are doubled ends where its text ends, whatever is in it.
void Quote(std::string_view value) {
    for (const auto dialect : kAllDialects) {
        const auto name = sql::QuotedName(value, dialect);
        const bool isPlain = dialect != sql::Dialect::Access || value.find(']') == std::string_view::npos;
        Require(!isPlain || sql::Lexer(name + " x", dialect).Next().text == name, "a name ends too early");
        const auto literal = "'" + EscapeSqlQuotes(value) + "'";
        Require(sql::Lexer(literal + " x", dialect).Next().text == literal, "a value ends its text");
    }
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
    for (const auto dialect : fuzz::kAllDialects) {
        fuzz::Lex(text, dialect);
        fuzz::TakeApart(text, dialect);
        fuzz::Cut(text, dialect);
        fuzz::Lift(text, dialect);
    }
    return 0;
}
