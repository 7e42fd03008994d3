#include "ado/odbc/odbc_catalog.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <span>

#include "ado/odbc/odbc_text.hpp"

namespace halvtiv::ado {
namespace {

/// The rows of a catalog call. What cannot be found out counts as absent.
class CatalogRows {
public:
    explicit CatalogRows(OdbcSession& session)
        : isWide_(session.Traits().isWide), statement_(session.NewStatement()) {}

    SQLHSTMT Handle() const noexcept { return statement_.Get(); }
    bool Next() { return SQL_SUCCEEDED(SQLFetch(statement_.Get())); }
    // Asked for in the order of the columns, each once.
    std::string Text(SQLUSMALLINT column) {
        SQLLEN length = 0;
        std::string text;
        if (isWide_) {
            std::array<SQLWCHAR, 512> wide{};
            if (!SQL_SUCCEEDED(
                    SQLGetData(statement_.Get(), column, SQL_C_WCHAR, wide.data(), sizeof wide, &length)) ||
                length < 0) {
                return text;
            }
            const auto* const end = std::find(wide.begin(), wide.end() - 1, SQLWCHAR{0});
            AppendUtf8(text, std::span<const SQLWCHAR>(wide.data(), end));
        } else {
            std::array<char, 512> narrow{};
            if (SQL_SUCCEEDED(SQLGetData(statement_.Get(), column, SQL_C_CHAR, narrow.data(), narrow.size(),
                                         &length)) &&
                length >= 0) {
                text = narrow.data();
            }
        }
        return text;
    }
    int Integer(SQLUSMALLINT column) {
        SQLINTEGER value = 0;
        SQLLEN length = 0;
        SQLGetData(statement_.Get(), column, SQL_C_LONG, &value, sizeof value, &length);
        return length == SQL_NULL_DATA ? 0 : value;
    }

private:
    bool isWide_;
    OdbcHandle statement_;
};

/// A name for a catalog call, in the driver's form; null where it is not known.
class NameArgument {
public:
    NameArgument(const std::string& name, bool isWide) : narrow_(name), isThere_(!name.empty()) {
        if (isWide) wide_ = ToWide(name);
    }
    SQLCHAR* Narrow() { return isThere_ ? reinterpret_cast<SQLCHAR*>(narrow_.data()) : nullptr; }
    SQLWCHAR* Wide() { return isThere_ ? wide_.data() : nullptr; }
    SQLSMALLINT Length() const noexcept { return isThere_ ? SQL_NTS : SQLSMALLINT{0}; }

private:
    std::string narrow_;
    std::vector<SQLWCHAR> wide_;
    bool isThere_;
};

struct TableArguments {
    TableArguments(const OdbcTableName& name, bool isWide)
        : catalog(name.catalog, isWide), schema(name.schema, isWide), table(name.table, isWide) {}
    NameArgument catalog;
    NameArgument schema;
    NameArgument table;
};

std::vector<std::string> PrimaryKey(OdbcSession& session, const OdbcTableName& name) {
    CatalogRows rows(session);
    const bool isWide = session.Traits().isWide;
    TableArguments of(name, isWide);
    const auto status =
        isWide ? SQLPrimaryKeysW(rows.Handle(), of.catalog.Wide(), of.catalog.Length(), of.schema.Wide(),
                                 of.schema.Length(), of.table.Wide(), of.table.Length())
               : SQLPrimaryKeys(rows.Handle(), of.catalog.Narrow(), of.catalog.Length(), of.schema.Narrow(),
                                of.schema.Length(), of.table.Narrow(), of.table.Length());
    std::map<int, std::string> byPosition;
    while (SQL_SUCCEEDED(status) && rows.Next()) {
        auto column = rows.Text(4);
        byPosition[rows.Integer(5)] = std::move(column);
    }
    std::vector<std::string> key;
    key.reserve(byPosition.size());
    for (auto& [position, column] : byPosition) key.push_back(std::move(column));
    return key;
}

struct ColumnFacts {
    std::string name;
    bool isNullable = true;
};

std::vector<ColumnFacts> ColumnsOf(OdbcSession& session, const OdbcTableName& name) {
    CatalogRows rows(session);
    const bool isWide = session.Traits().isWide;
    TableArguments of(name, isWide);
    const auto status =
        isWide ? SQLColumnsW(rows.Handle(), of.catalog.Wide(), of.catalog.Length(), of.schema.Wide(),
                             of.schema.Length(), of.table.Wide(), of.table.Length(), nullptr, 0)
               : SQLColumns(rows.Handle(), of.catalog.Narrow(), of.catalog.Length(), of.schema.Narrow(),
                            of.schema.Length(), of.table.Narrow(), of.table.Length(), nullptr, 0);
    std::vector<ColumnFacts> columns;
    while (SQL_SUCCEEDED(status) && rows.Next()) {
        // The name is a pattern there, in which "_" stands for any character.
        if (rows.Text(3) != name.table) continue;
        auto column = rows.Text(4);
        columns.push_back({std::move(column), rows.Integer(11) != SQL_NO_NULLS});
    }
    return columns;
}

// The first unique index whose columns are all filled.
std::vector<std::string> UniqueKey(OdbcSession& session, const OdbcTableName& name) {
    std::map<std::string, std::vector<std::string>> indexes;
    {
        CatalogRows rows(session);
        const bool isWide = session.Traits().isWide;
        TableArguments of(name, isWide);
        const auto status = isWide ? SQLStatisticsW(rows.Handle(), of.catalog.Wide(), of.catalog.Length(),
                                                    of.schema.Wide(), of.schema.Length(), of.table.Wide(),
                                                    of.table.Length(), SQL_INDEX_UNIQUE, SQL_QUICK)
                                   : SQLStatistics(rows.Handle(), of.catalog.Narrow(), of.catalog.Length(),
                                                   of.schema.Narrow(), of.schema.Length(), of.table.Narrow(),
                                                   of.table.Length(), SQL_INDEX_UNIQUE, SQL_QUICK);
        while (SQL_SUCCEEDED(status) && rows.Next()) {
            auto index = rows.Text(6);
            const bool isIndex = rows.Integer(7) != SQL_TABLE_STAT;
            auto column = rows.Text(9);
            if (isIndex && !column.empty()) indexes[index].push_back(std::move(column));
        }
    }
    const auto columns = indexes.empty() ? std::vector<ColumnFacts>() : ColumnsOf(session, name);
    const auto isFilled = [&](const std::string& wanted) {
        return std::any_of(columns.begin(), columns.end(),
                           [&](const auto& column) { return column.name == wanted && !column.isNullable; });
    };
    for (const auto& [index, key] : indexes) {
        if (std::all_of(key.begin(), key.end(), isFilled)) return key;
    }
    return {};
}

}  // namespace

std::vector<std::string> FindOdbcKey(OdbcSession& session, const OdbcTableName& table) {
    auto key = PrimaryKey(session, table);
    return key.empty() ? UniqueKey(session, table) : key;
}

bool IsOdbcTable(OdbcSession& session, const OdbcTableName& table) {
    CatalogRows rows(session);
    const bool isWide = session.Traits().isWide;
    TableArguments of(table, isWide);
    NameArgument kind("TABLE", isWide);
    const auto status =
        isWide ? SQLTablesW(rows.Handle(), of.catalog.Wide(), of.catalog.Length(), of.schema.Wide(),
                            of.schema.Length(), of.table.Wide(), of.table.Length(), kind.Wide(), SQL_NTS)
               : SQLTables(rows.Handle(), of.catalog.Narrow(), of.catalog.Length(), of.schema.Narrow(),
                           of.schema.Length(), of.table.Narrow(), of.table.Length(), kind.Narrow(), SQL_NTS);
    while (SQL_SUCCEEDED(status) && rows.Next()) {
        if (rows.Text(3) == table.table) return true;  // the name is a pattern there, too
    }
    return false;
}

bool HasOdbcTables(OdbcSession& session) {
    CatalogRows rows(session);
    return SQL_SUCCEEDED(SQLTables(rows.Handle(), nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0)) &&
           rows.Next();
}

std::vector<std::string> FindOdbcColumns(OdbcSession& session, const OdbcTableName& table) {
    std::vector<std::string> names;
    for (auto& column : ColumnsOf(session, table)) names.push_back(std::move(column.name));
    return names;
}

std::string QuotedOdbcName(const OdbcTraits& traits, std::string_view name) {
    std::string quoted = traits.nameQuote;
    for (const char c : name) {
        quoted += c;
        if (!traits.nameQuote.empty() && c == traits.nameQuote.front()) quoted += c;
    }
    return quoted + traits.nameQuote;
}

std::string QuotedOdbcName(const OdbcTraits& traits, const OdbcTableName& table) {
    std::string name;
    for (const auto& part : {table.catalog, table.schema}) {
        if (!part.empty()) name += QuotedOdbcName(traits, part) + ".";
    }
    return name + QuotedOdbcName(traits, table.table);
}

}  // namespace halvtiv::ado
