#include "sql/transaction_words.hpp"

#include "sql/lexer.hpp"
#include "sql/words.hpp"

namespace halvtiv::sql {
namespace {

/// The first words of a statement, behind SET STATEMENT ... FOR.
Token FirstWord(Lexer& lexer) {
    auto first = lexer.Next();
    if (!first.IsWord("set") || !lexer.Peek().IsWord("statement")) return first;
    while (!first.IsEnd() && !first.IsWord("for")) first = lexer.Next();
    return lexer.Next();
}

bool MariaDbCommits(std::string_view statement) {
    Lexer lexer(statement, Dialect::MariaDb);
    const auto first = FirstWord(lexer);
    if (IsAnyWord(first, {"alter", "change", "check", "flush", "grant", "install", "optimize", "rename",
                          "repair", "reset", "revoke", "truncate", "uninstall"})) {
        return true;
    }
    const auto second = lexer.Next();
    if (first.IsWord("create")) {
        const bool replaces = second.IsWord("or");
        if (replaces) lexer.Next();
        return !(replaces ? lexer.Next() : second).IsWord("temporary");
    }
    if (first.IsWord("drop")) return !IsAnyWord(second, {"temporary", "prepare"});
    if (first.IsWord("begin")) return !second.IsWord("not");  // BEGIN NOT ATOMIC opens a block
    if (first.IsWord("start")) return IsAnyWord(second, {"transaction", "slave", "replica", "all"});
    if (first.IsWord("stop")) return true;
    // ANALYZE SELECT explains a query.
    if (first.IsWord("analyze")) return IsAnyWord(second, {"table", "local", "no_write_to_binlog"});
    if (IsAnyWord(first, {"lock", "unlock"})) return IsAnyWord(second, {"table", "tables"});
    return (first.IsWord("load") && second.IsWord("index")) ||
           (first.IsWord("cache") && second.IsWord("index")) ||
           (first.IsWord("set") && second.IsWord("password")) ||
           (first.IsWord("backup") && second.IsWord("stage"));
}

}  // namespace

// The others fail, warn or count the levels when a transaction begins in another one, and their DDL is a part
// of the transaction.
bool CausesImplicitCommit(std::string_view statement, Dialect dialect) {
    return dialect == Dialect::MariaDb && MariaDbCommits(statement);
}

}  // namespace halvtiv::sql
