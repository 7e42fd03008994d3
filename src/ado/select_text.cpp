#include "ado/select_text.hpp"

#include <algorithm>
#include <array>

#include "ado/sql_scanner.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

template <std::size_t Count>
bool IsOneOf(const SqlToken& token, const std::array<std::string_view, Count>& words) {
    return std::any_of(words.begin(), words.end(), [&](std::string_view word) { return token.IsWord(word); });
}

// A function's name may stand in quotes.
bool CallsOneOf(const SqlToken& token, const auto& names) {
    return token.IsName() && std::any_of(names.begin(), names.end(), [&](std::string_view name) {
               return platform::EqualIgnoringCase(token.Name(), name);
           });
}

// Functions that make one row of many, unless OVER follows.
constexpr std::array<std::string_view, 17> kAggregates{"avg",
                                                       "bit_and",
                                                       "bit_or",
                                                       "count",
                                                       "every",
                                                       "group_concat",
                                                       "max",
                                                       "min",
                                                       "json_group_array",
                                                       "json_arrayagg",
                                                       "string_agg",
                                                       "stddev",
                                                       "array_agg",
                                                       "json_group_object",
                                                       "sum",
                                                       "total",
                                                       "variance"};

// What makes other rows than the tables have.
constexpr std::array<std::string_view, 7> kReshaping{"group",     "having", "union", "except",
                                                     "intersect", "window", "into"};
constexpr std::array<std::string_view, 6> kAfterTables{"where", "order", "limit", "offset", "fetch", "for"};

class Reader {
public:
    Reader(std::string_view statement, SqlDialect dialect)
        : statement_(statement), scanner_(statement, dialect) {
        select_.dialect = dialect;
        Advance();
    }

    std::optional<SelectText> Read() {
        if (!token_.IsWord("select")) return std::nullopt;
        Advance();
        if (token_.IsWord("all")) Advance();
        if (token_.IsWord("distinct") || token_.IsWord("distinctrow") || IsTop()) return std::nullopt;
        select_.opening = statement_.substr(0, token_.position);
        if (!ReadItems()) return std::nullopt;
        const auto tailBegin = token_.position;
        Advance();
        ReadTables();
        if (!ReadRest()) return std::nullopt;
        select_.tail = statement_.substr(tailBegin, token_.position - tailBegin);
        return select_;
    }

private:
    void Advance() {
        before_ = token_;
        token_ = scanner_.Next();
    }

    // TOP 5; without a number it is a column's name.
    bool IsTop() const {
        SqlScanner ahead(statement_.substr(token_.position));
        if (!ahead.Next().IsWord("top")) return false;
        const SqlToken next = ahead.Next();
        return next.kind == SqlToken::Kind::Number || next.IsSymbol('(');
    }

    bool AtEnd() const { return token_.kind == SqlToken::Kind::End || token_.IsSymbol(';'); }

    // Up to FROM; false where there is none, or the list makes one row of many.
    bool ReadItems() {
        auto itemBegin = token_.position;
        const auto endItem = [&] {
            auto item = statement_.substr(itemBegin, token_.position - itemBegin);
            select_.items.push_back(item.substr(0, item.find_last_not_of(" \t\r\n") + 1));
            itemBegin = token_.position + 1;
        };
        int depth = 0;
        int subqueryDepth = 0;  // of the outermost subquery; 0 outside
        for (; !AtEnd(); Advance()) {
            if (token_.IsSymbol('(')) {
                if (subqueryDepth == 0 && CallsOneOf(before_, kAggregates) && !IsWindowFunction())
                    return false;
                ++depth;
            } else if (token_.IsSymbol(')')) {
                if (depth-- == subqueryDepth) subqueryDepth = 0;
            } else if (token_.IsWord("select") && subqueryDepth == 0) {
                subqueryDepth = depth;
            } else if (depth == 0 && token_.IsSymbol(',')) {
                endItem();
            } else if (depth == 0 && token_.IsWord("from") && !before_.IsWord("distinct")) {
                endItem();
                return true;
            } else if (depth == 0 && IsOneOf(token_, kReshaping)) {
                return false;
            }
        }
        return false;
    }

    // Whether OVER or FILTER ... OVER follows the brackets that open here.
    bool IsWindowFunction() const {
        SqlScanner ahead(statement_.substr(token_.position), select_.dialect);
        int depth = 0;
        for (SqlToken token = ahead.Next(); token.kind != SqlToken::Kind::End; token = ahead.Next()) {
            if (token.IsSymbol('(')) ++depth;
            if (token.IsSymbol(')') && --depth == 0) {
                const SqlToken next = ahead.Next();
                return next.IsWord("over");
            }
        }
        return false;
    }

    // The tables of FROM up to the clause behind them; none remain where one is no plain name.
    void ReadTables() {
        bool allPlain = true;
        bool expectsTable = true;
        int depth = 0;
        while (!AtEnd() && !(depth == 0 && (IsOneOf(token_, kAfterTables) || IsOneOf(token_, kReshaping)))) {
            if (expectsTable && token_.IsName()) {
                expectsTable = false;
                allPlain = ReadTableRef() && allPlain;
                continue;
            }
            if (expectsTable) allPlain = false;  // a subquery, or tables in brackets
            expectsTable = false;
            if (token_.IsSymbol('(')) ++depth;
            if (token_.IsSymbol(')')) --depth;
            if (depth == 0 && (token_.IsSymbol(',') || token_.IsWord("join"))) expectsTable = true;
            Advance();
        }
        if (!allPlain) select_.tables.clear();
    }

    // A name, or two with a point between, and not the call of a function.
    bool ReadTableRef() {
        SelectText::TableRef table{"", token_.Name()};
        Advance();
        while (token_.IsSymbol('.')) {
            Advance();
            if (!token_.IsName()) return false;
            table = {std::move(table.name), token_.Name()};
            Advance();
        }
        select_.tables.push_back(std::move(table));
        return !token_.IsSymbol('(');
    }

    // To the end of the statement; false where it does not end here, or its rows are not those of its tables.
    bool ReadRest() {
        int depth = 0;
        bool ordering = false;
        for (; !AtEnd(); Advance()) {
            if (token_.IsSymbol('(')) ++depth;
            if (token_.IsSymbol(')')) --depth;
            // A column's number may have a sign, or stand in brackets.
            if (ordering && token_.kind == SqlToken::Kind::Number) select_.ordersByNumber = true;
            if (depth != 0) continue;
            if (IsOneOf(token_, kReshaping)) return false;
            if (token_.IsWord("by") && before_.IsWord("order")) ordering = true;
            if (token_.IsWord("limit")) ordering = false;
        }
        return true;
    }

    std::string_view statement_;
    SqlScanner scanner_;
    SqlToken before_;
    SqlToken token_;
    SelectText select_;
};

}  // namespace

bool SelectText::TailNames(std::string_view name) const {
    SqlScanner scanner(tail, dialect);
    for (SqlToken token = scanner.Next(); token.kind != SqlToken::Kind::End; token = scanner.Next()) {
        if (token.IsName() && platform::EqualIgnoringCase(token.Name(), name)) return true;
    }
    return false;
}

std::optional<SelectText> ReadSelectText(std::string_view statement, SqlDialect dialect) {
    return Reader(statement, dialect).Read();
}

bool HoldsQuery(std::string_view item) {
    SqlScanner scanner(item);
    for (SqlToken token = scanner.Next(); token.kind != SqlToken::Kind::End; token = scanner.Next()) {
        if (token.IsWord("select")) return true;
    }
    return false;
}

bool IsStarItem(std::string_view item) {
    SqlScanner scanner(item);
    SqlToken last;
    for (SqlToken token = scanner.Next(); token.kind != SqlToken::Kind::End; token = scanner.Next()) {
        last = token;
    }
    return last.IsSymbol('*');
}

}  // namespace halvtiv::ado
