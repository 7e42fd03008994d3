#include "ado/postgresql/postgresql_text.hpp"

#include <algorithm>
#include <array>

#include "ado/sql_scanner.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

// What may stand before a bracket in a query without changing anything.
constexpr std::array<std::string_view, 49> kHarmless{
    "all",      "and",      "any",     "array",    "as",        "avg",       "between", "by",      "cast",
    "coalesce", "concat",   "count",   "distinct", "else",      "except",    "exists",  "extract", "filter",
    "from",     "greatest", "having",  "in",       "intersect", "join",      "lateral", "least",   "left",
    "length",   "like",     "lower",   "max",      "min",       "not",       "nullif",  "numeric", "on",
    "or",       "over",     "replace", "row",      "select",    "substring", "sum",     "then",    "union",
    "upper",    "using",    "values",  "varchar"};
constexpr std::array<std::string_view, 6> kMoreHarmless{"generate_series", "md5",  "repeat",
                                                        "round",           "when", "where"};

bool IsHarmless(const SqlToken& word) {
    const auto isIt = [&](std::string_view known) { return word.IsWord(known); };
    return std::any_of(kHarmless.begin(), kHarmless.end(), isIt) ||
           std::any_of(kMoreHarmless.begin(), kMoreHarmless.end(), isIt);
}

/// Follows a statement to its end: a ";" in brackets, or in a routine's body, is a part of it.
class StatementEnd {
public:
    /// Whether the token is the ";" behind the statement.
    bool IsAt(const SqlToken& token) {
        if (token.IsSymbol(';')) return brackets_ <= 0 && blocks_ <= 0;
        if (token.IsSymbol('(')) ++brackets_;
        if (token.IsSymbol(')')) --brackets_;
        if (token.kind == SqlToken::Kind::Word) Read(token);
        return false;
    }

private:
    void Read(const SqlToken& word) {
        if (words_ == 0) isCreating_ = word.IsWord("create");
        const bool isBetween = words_ == 1 ? word.IsWord("or") : words_ == 2 && word.IsWord("replace");
        if (isCreating_ && !isRoutine_ && words_ > 0) {
            isRoutine_ = word.IsWord("function") || word.IsWord("procedure");
            isCreating_ = isBetween;
        }
        ++words_;
        if (!isRoutine_) return;
        const bool opens = word.IsWord("begin") || (blocks_ > 0 && word.IsWord("case"));
        if (opens) ++blocks_;
        if (blocks_ > 0 && word.IsWord("end")) --blocks_;
    }

    int brackets_ = 0;
    int blocks_ = 0;
    int words_ = 0;
    bool isCreating_ = false;  // only CREATE [OR REPLACE] so far
    bool isRoutine_ = false;
};

}  // namespace

PostgresqlStatementText NextPostgresqlStatement(std::string_view text, std::size_t position) {
    SqlScanner scanner(text.substr(position), SqlDialect::Postgresql);
    auto token = scanner.Next();
    while (token.IsSymbol(';')) token = scanner.Next();
    if (token.kind == SqlToken::Kind::End) return {{}, {}, text.size()};
    const auto begin = position + token.position;
    PostgresqlStatementText result;
    auto first = token;
    while (first.IsSymbol('(')) first = scanner.Next();
    result.verb = platform::ToLower(first.text);
    scanner = SqlScanner(text.substr(begin), SqlDialect::Postgresql);
    StatementEnd end;
    for (token = scanner.Next(); token.kind != SqlToken::Kind::End && !end.IsAt(token);) {
        token = scanner.Next();
    }
    const auto stop = begin + token.position;
    result.text = text.substr(begin, stop - begin);
    result.next = std::min(stop + 1, text.size());
    return result;
}

bool OnlyReads(std::string_view statement) {
    SqlScanner scanner(statement, SqlDialect::Postgresql);
    SqlToken before;
    for (auto token = scanner.Next(); token.kind != SqlToken::Kind::End; token = scanner.Next()) {
        if (token.IsSymbol('(') && before.IsName() && !IsHarmless(before)) return false;
        for (const std::string_view verb : {"insert", "update", "delete", "merge", "into"}) {
            if (token.IsWord(verb)) return false;
        }
        before = token;
    }
    return true;
}

std::string QuotedPostgresqlName(std::string_view name) {
    std::string quoted = "\"";
    for (const char c : name) {
        quoted += c;
        if (c == '"') quoted += c;
    }
    return quoted + '"';
}

}  // namespace halvtiv::ado
