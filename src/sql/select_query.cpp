#include "sql/select_query.hpp"

#include <algorithm>
#include <utility>

#include "sql/lexer.hpp"
#include "sql/words.hpp"

namespace halvtiv::sql {
namespace {

// More than any query that is changed through, so that CTEs that name each other cannot multiply.
constexpr std::size_t kMostLevels = 64;

// What makes other rows than the tables have.
bool Reshapes(const Token& token) {
    return IsAnyWord(token, {"group", "having", "union", "except", "intersect", "window", "into"});
}

bool BeginsQuery(const Token& token) {
    return IsAnyWord(token, {"select", "with", "values"});
}

bool BeginsClauseBehindTables(const Token& token) {
    return token.IsWord("where") || Reshapes(token) ||
           IsAnyWord(token, {"order", "limit", "offset", "fetch", "for", "lock"});
}

/// The tokens of a text, with the one before the current one.
class TokenReader {
public:
    TokenReader(std::string_view text, Dialect dialect, std::size_t position = 0)
        : lexer_(text, dialect, position) {
        Advance();
    }
    void Advance() {
        before_ = current_;
        current_ = lexer_.Next();
    }
    const Token& Current() const noexcept { return current_; }
    const Token& Before() const noexcept { return before_; }
    Token Peek() const { return lexer_.Peek(); }
    bool AtEnd() const noexcept { return current_.IsEnd() || current_.IsSymbol(';'); }
    /// Moves behind the bracket that closes the current one.
    void SkipBrackets() {
        int depth = 0;
        do {
            if (current_.IsSymbol('(')) ++depth;
            if (current_.IsSymbol(')')) --depth;
            Advance();
        } while (depth > 0 && !AtEnd());
    }

private:
    Lexer lexer_;
    Token before_;
    Token current_;
};

class QueryReader {
public:
    QueryReader(std::string_view statement, Dialect dialect) {
        query_.dialect = dialect;
        query_.text = statement;
    }

    std::optional<SelectQuery> Read() {
        const bool mayBeConditional = SyntaxOf(query_.dialect).hasExecutableComments &&
                                      (query_.text.find("/*!") != std::string_view::npos ||
                                       query_.text.find("/*M!") != std::string_view::npos);
        if (mayBeConditional) return std::nullopt;
        TokenReader tokens(query_.text, query_.dialect);
        if (tokens.Current().IsWord("with") && !ReadCommonTables(tokens)) return std::nullopt;
        if (!ReadLevel(tokens, true, commonTables_.size()) || !tokens.AtEnd()) return std::nullopt;
        query_.text = query_.text.substr(0, query_.levels.back().end);
        while (tokens.Current().IsSymbol(';')) tokens.Advance();
        if (!tokens.Current().IsEnd()) return std::nullopt;
        return std::move(query_);
    }

private:
    struct CommonTable {
        Token name;
        std::size_t begin = 0;  // of its SELECT
    };

    // WITH name [(columns)] AS [NOT] [MATERIALIZED] (query), ...
    bool ReadCommonTables(TokenReader& tokens) {
        tokens.Advance();
        if (tokens.Current().IsWord("recursive")) tokens.Advance();
        for (;;) {
            if (!tokens.Current().IsName()) return false;
            CommonTable table{tokens.Current()};
            tokens.Advance();
            if (tokens.Current().IsSymbol('(')) tokens.SkipBrackets();
            if (!tokens.Current().IsWord("as")) return false;
            tokens.Advance();
            while (IsAnyWord(tokens.Current(), {"not", "materialized"})) tokens.Advance();
            if (!tokens.Current().IsSymbol('(')) return false;
            const auto first = tokens.Peek();
            if (!BeginsQuery(first)) return false;  // it may change data
            table.begin = first.position;
            commonTables_.push_back(table);
            tokens.SkipBrackets();
            if (!tokens.Current().IsSymbol(',')) return true;
            tokens.Advance();
        }
    }

    // One SELECT, up to the end of the text or the bracket that closes it. Of the CTEs, those before
    // `visible` may be named in it.
    bool ReadLevel(TokenReader& tokens, bool isOutermost, std::size_t visible) {
        if (!tokens.Current().IsWord("select") || ++levelsBegun_ > kMostLevels) return false;
        tokens.Advance();
        SkipModifiers(tokens);
        if (IsAnyWord(tokens.Current(), {"distinct", "distinctrow", "unique"}) || IsTop(tokens)) return false;
        SelectQuery::Level level;
        const auto begin = tokens.Current().position;
        if (!ReadItems(tokens, isOutermost, level)) return false;
        const auto tailBegin = tokens.Current().position;
        tokens.Advance();
        if (!ReadTables(tokens, visible) || !ReadRest(tokens, isOutermost, level)) return false;
        query_.levels.push_back(level);
        if (isOutermost) {
            query_.opening = query_.text.substr(0, begin);
            query_.tail = query_.text.substr(tailBegin, level.end - tailBegin);
        }
        return true;
    }

    void SkipModifiers(TokenReader& tokens) const {
        const auto isModifier = [this](const Token& token) {
            return token.IsWord("all") ||
                   (query_.dialect == Dialect::MariaDb &&
                    IsAnyWord(token, {"high_priority", "straight_join", "sql_small_result", "sql_big_result",
                                      "sql_buffer_result", "sql_cache", "sql_no_cache"}));
        };
        while (isModifier(tokens.Current())) tokens.Advance();
    }

    // TOP 5; without a number it is a column's name.
    static bool IsTop(const TokenReader& tokens) {
        if (!tokens.Current().IsWord("top")) return false;
        const auto next = tokens.Peek();
        return next.kind == Token::Kind::Number || next.IsSymbol('(');
    }

    // Up to FROM; false where there is none.
    bool ReadItems(TokenReader& tokens, bool isOutermost, SelectQuery::Level& level) {
        ItemReader item;
        int depth = 0;
        for (; !tokens.AtEnd() && depth >= 0; tokens.Advance()) {
            const auto& token = tokens.Current();
            const bool isFrom = token.IsWord("from") && !tokens.Before().IsWord("distinct");
            if (depth == 0 && (isFrom || token.IsSymbol(','))) {
                if (isOutermost) query_.items.push_back(item.Finish(query_.text, token.position));
                item = {};
                if (isFrom) return true;
                continue;
            }
            if (token.IsSymbol('(')) {
                ++depth;
                level.hasCall = level.hasCall || tokens.Before().IsName();
            }
            if (token.IsSymbol(')')) --depth;
            if (depth == 0 && Reshapes(token) && !tokens.Before().IsSymbol('.')) return false;
            item.Add(token);
        }
        return false;
    }

    /// Follows one item of a select list.
    class ItemReader {
    public:
        void Add(const Token& token) {
            if (count_ == 0) begin_ = token.position;
            hasQuery_ = hasQuery_ || token.IsWord("select");
            ReadReference(token);
            before_ = last_;
            last_ = token;
            ++count_;
        }
        SelectQuery::Item Finish(std::string_view text, std::size_t end) const {
            SelectQuery::Item item;
            if (count_ == 0) return item;
            item.text = text.substr(begin_, end - begin_);
            item.text = item.text.substr(0, item.text.find_last_not_of(" \t\r\n") + 1);
            item.isStar = last_.IsSymbol('*') && (count_ == 1 || before_.IsSymbol('.'));
            item.hasQuery = hasQuery_;
            if (stage_ == Stage::Name || stage_ == Stage::Alias) item.column = column_.Name();
            return item;
        }

    private:
        // name.name [AS] alias
        enum class Stage { Begin, Name, Point, As, Alias, Other };

        void ReadReference(const Token& token) {
            const bool mayBeName = token.IsName() && !token.text.starts_with('@');
            if (mayBeName && (stage_ == Stage::Begin || stage_ == Stage::Point)) {
                column_ = token;
                stage_ = Stage::Name;
            } else if (stage_ == Stage::Name && token.IsSymbol('.')) {
                stage_ = Stage::Point;
            } else if (stage_ == Stage::Name && token.IsWord("as")) {
                stage_ = Stage::As;
            } else if (mayBeName && (stage_ == Stage::Name || stage_ == Stage::As)) {
                stage_ = Stage::Alias;
            } else {
                stage_ = Stage::Other;
            }
        }

        Stage stage_ = Stage::Begin;
        Token column_;
        Token before_;
        Token last_;
        std::size_t begin_ = 0;
        std::size_t count_ = 0;
        bool hasQuery_ = false;
    };

    // The tables of FROM, up to the clause behind them.
    bool ReadTables(TokenReader& tokens, std::size_t visible) {
        bool expectsTable = true;
        int depth = 0;
        for (;;) {
            const auto& token = tokens.Current();
            if (tokens.AtEnd() || (token.IsSymbol(')') && depth == 0)) return !expectsTable;
            if (token.IsWord("select") || token.IsSymbol('{')) return false;
            if (expectsTable) {
                if (token.IsSymbol('(') && !BeginsQuery(tokens.Peek())) {
                    ++depth;  // tables in brackets
                    tokens.Advance();
                } else if (IsAnyWord(token, {"only", "lateral"}) && query_.dialect != Dialect::Sqlite) {
                    tokens.Advance();
                } else {
                    if (!ReadTable(tokens, visible)) return false;
                    expectsTable = false;
                }
                continue;
            }
            if (depth == 0 && BeginsClauseBehindTables(token)) return true;
            if (token.IsSymbol('(')) {  // a condition, or names
                query_.renamesColumns = query_.renamesColumns || IsAliasBefore(tokens);
                tokens.SkipBrackets();
                continue;
            }
            if (token.IsSymbol(')')) --depth;
            expectsTable = token.IsSymbol(',') || token.IsWord("join") || token.IsWord("straight_join");
            if (token.IsWord("apply")) query_.hasOtherSources = true;
            tokens.Advance();
        }
    }

    // Whether names of columns stand in the brackets that open: behind an alias, not behind USING or ON.
    static bool IsAliasBefore(const TokenReader& tokens) {
        return tokens.Before().IsName() && !IsAnyWord(tokens.Before(), {"using", "on", "and", "or", "not"});
    }

    // A name, a table function, or a derived table.
    bool ReadTable(TokenReader& tokens, std::size_t visible) {
        if (tokens.Current().IsSymbol('(')) {
            query_.renamesColumns = true;
            tokens.Advance();
            if (!ReadLevel(tokens, false, visible) || !tokens.Current().IsSymbol(')')) return false;
            tokens.Advance();
            return true;
        }
        if (!tokens.Current().IsName()) return false;
        TableName table{"", tokens.Current().Name()};
        bool isQualified = false;
        for (tokens.Advance(); tokens.Current().IsSymbol('.'); tokens.Advance()) {
            tokens.Advance();
            if (!tokens.Current().IsName()) return false;
            table = {std::move(table.name), tokens.Current().Name()};
            isQualified = true;
        }
        if (tokens.Current().IsSymbol('(')) {
            query_.hasOtherSources = true;
            tokens.SkipBrackets();
            return true;
        }
        const auto common = std::find_if(commonTables_.begin(), commonTables_.end(), [&](const auto& any) {
            return !isQualified && any.name.Names(table.name);
        });
        if (common == commonTables_.end()) {
            query_.tables.push_back(std::move(table));
            return true;
        }
        // Databases differ in whether a CTE sees itself and those behind it.
        const auto before = static_cast<std::size_t>(common - commonTables_.begin());
        if (before >= visible) return false;
        query_.renamesColumns = true;
        TokenReader inside(query_.text, query_.dialect, common->begin);
        return ReadLevel(inside, false, before) && inside.Current().IsSymbol(')');
    }

    // WHERE and what follows, up to the end of the level.
    bool ReadRest(TokenReader& tokens, bool isOutermost, SelectQuery::Level& level) {
        int depth = 0;
        bool isOrdering = false;
        bool isCondition = true;
        for (;; tokens.Advance()) {
            const auto& token = tokens.Current();
            const bool ends = tokens.AtEnd() || (token.IsSymbol(')') && depth == 0);
            const bool endsCondition =
                ends || (depth == 0 && !token.IsWord("where") && BeginsClauseBehindTables(token));
            if (endsCondition && std::exchange(isCondition, false))
                level.conditionEnd = tokens.Before().End();
            if (ends) {
                level.end = tokens.Before().End();
                return true;
            }
            if (token.IsSymbol('(')) ++depth;
            if (token.IsSymbol(')')) --depth;
            // A column's number may have a sign, or stand in brackets.
            if (isOrdering && isOutermost && token.kind == Token::Kind::Number) query_.ordersByNumber = true;
            if (depth != 0) continue;
            if (token.IsWord("select") || (Reshapes(token) && !tokens.Before().IsSymbol('.'))) return false;
            // FOR SYSTEM_TIME shows rows that are gone.
            if (token.IsWord("for") && !IsAnyWord(tokens.Peek(), {"update", "share", "no", "key", "read"})) {
                return false;
            }
            if (token.IsWord("by") && tokens.Before().IsWord("order")) isOrdering = true;
            if (token.IsWord("limit")) isOrdering = false;
        }
    }

    SelectQuery query_;
    std::vector<CommonTable> commonTables_;
    std::size_t levelsBegun_ = 0;
};

}  // namespace

bool SelectQuery::TailNames(std::string_view name) const {
    Lexer lexer(tail, dialect);
    for (auto token = lexer.Next(); !token.IsEnd(); token = lexer.Next()) {
        if (token.Names(name)) return true;
    }
    return false;
}

std::string SelectQuery::WithItems(std::span<const std::string> newItems) const {
    std::string result(opening);
    for (const auto& item : newItems) {
        if (&item != &newItems.front()) result += "\n, ";
        result += item;
    }
    result += '\n';
    result += tail;
    return result;
}

std::string SelectQuery::OrderedBy(const Level& level, std::string_view expression) const {
    std::string result(text.substr(0, level.conditionEnd));
    result += "\nORDER BY ";
    result += expression;
    result += '\n';
    result += text.substr(level.end);
    return result;
}

std::optional<SelectQuery> ReadSelectQuery(std::string_view statement, Dialect dialect) {
    return QueryReader(statement, dialect).Read();
}

SourceForm FormOfSource(std::string_view source, Dialect dialect) {
    Lexer lexer(source, dialect);
    const auto first = lexer.Next();
    auto form = first.kind == Token::Kind::Word ? SourceForm::Word : SourceForm::TableName;
    auto name = first;
    for (;;) {
        if (!name.IsName() || name.isConditional || name.text.starts_with('@')) return SourceForm::Statement;
        const auto next = lexer.Next();
        if (next.IsEnd()) return form;
        if (!next.IsSymbol('.')) return SourceForm::Statement;
        form = SourceForm::TableName;
        name = lexer.Next();
    }
}

std::string SelectAllFrom(std::string_view tableName) {
    return "select * from " + std::string(tableName);
}

}  // namespace halvtiv::sql
