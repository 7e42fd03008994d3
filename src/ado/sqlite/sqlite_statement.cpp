#include "ado/sqlite/sqlite_statement.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <functional>
#include <utility>

#include <halvtiv/ado.hpp>

#include "ado/data_type_traits.hpp"
#include "ado/sqlite/sqlite_types.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::size_t kMostStatements = 64;

bool IsDeclaredNotNull(sqlite3_stmt* statement, int column) {
    int notNull = 0;
    const int status = sqlite3_table_column_metadata(
        sqlite3_db_handle(statement), sqlite3_column_database_name(statement, column),
        sqlite3_column_table_name(statement, column), sqlite3_column_origin_name(statement, column), nullptr,
        nullptr, &notNull, nullptr, nullptr);
    if (status == SQLITE_NOMEM) platform::RaiseRunTimeError(platform::RunTimeError::OutOfMemory);
    return status == SQLITE_OK && notNull != 0;
}

// A column of an outer join may be null whatever its table says, so every column may be found null.
std::int32_t AttributesOfOrigin(sqlite3_stmt* statement, int column) {
    std::int32_t attributes = adFldMayBeNull;
    if (!sqlite3_column_origin_name(statement, column)) return attributes | adFldIsNullable;
    attributes |= adFldUpdatable;
    if (!IsDeclaredNotNull(statement, column)) attributes |= adFldIsNullable;
    return attributes;
}

void SetType(ColumnInfo& column, DeclaredType declared, sqlite3_stmt* statement) {
    column.type = declared.type;
    column.attributes = (column.attributes & ~(adFldFixed | adFldLong)) | AttributesOfType(declared.type);
    column.definedSize =
        DefinedSizeOf(declared, sqlite3_limit(sqlite3_db_handle(statement), SQLITE_LIMIT_LENGTH, -1));
}

}  // namespace

void FinalizeSqliteStatement::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

SqliteStatement::SqliteStatement(SqliteStatementHandle handle, std::string text, std::size_t consumed,
                                 Purpose purpose)
    : handle_(std::move(handle)), text_(std::move(text)), consumed_(consumed), purpose_(purpose) {}

int SqliteStatement::TimesPrepared() const noexcept {
    return 1 + sqlite3_stmt_status(Handle(), SQLITE_STMTSTATUS_REPREPARE, 0);
}

bool SqliteStatement::RefreshColumns(bool hasRow) {
    const int timesPrepared = TimesPrepared();
    const int count = plan_ ? static_cast<int>(columns_.size()) : sqlite3_column_count(Handle());
    if (timesPrepared != timesPrepared_ || static_cast<std::size_t>(count) != columns_.size()) {
        if (plan_) return false;
        ReadColumns(count);
        timesPrepared_ = timesPrepared;
    }
    for (const int column : untyped_) {
        const std::int32_t type = hasRow ? TypeOfValue(Handle(), column) : adVarWChar;
        auto& info = columns_[static_cast<std::size_t>(column)];
        if (info.type == type) continue;
        SetType(info, {type, 0}, Handle());
        layout_.reset();
    }
    return true;
}

void SqliteStatement::Follow(SqlitePlan plan, SqliteStatementHandle planned, SqliteStatementHandle guard) {
    plan_ = std::move(plan);
    handle_ = std::move(planned);
    guard_ = std::move(guard);
    timesPrepared_ = TimesPrepared();
}

void SqliteStatement::ReadColumns(int count) {
    layout_.reset();
    columns_.assign(static_cast<std::size_t>(count), {});
    untyped_.clear();
    for (int i = 0; i < count; ++i) {
        auto& column = columns_[static_cast<std::size_t>(i)];
        if (const char* name = sqlite3_column_name(Handle(), i)) column.name = name;
        column.attributes = AttributesOfOrigin(Handle(), i);
        const char* text = sqlite3_column_decltype(Handle(), i);
        const auto declared = text ? ReadDeclaredType(text) : DeclaredType{};
        if (declared.type == 0) {
            untyped_.push_back(i);
        } else {
            SetType(column, declared, Handle());
        }
    }
}

std::unique_ptr<SqliteStatement> SqliteStatementCache::Take(std::string_view text, Purpose purpose) {
    if (text.size() > kLongestText) return nullptr;
    const auto hash = std::hash<std::string_view>{}(text);
    const auto found = std::find_if(entries_.rbegin(), entries_.rend(), [&](const Entry& entry) {
        return entry.hash == hash && entry.statement->PreparedFor() == purpose &&
               entry.statement->Text() == text;
    });
    if (found == entries_.rend()) return nullptr;
    auto statement = std::move(found->statement);
    entries_.erase(std::next(found).base());
    return statement;
}

void SqliteStatementCache::Keep(std::unique_ptr<SqliteStatement> statement) {
    const auto& text = statement->Text();
    // Without a plan nothing tells whether there would be one by now.
    const bool mayAge = statement->PreparedFor() == Purpose::Change && !statement->Plan();
    if (text.empty() || mayAge) return;
    if (entries_.size() == kMostStatements) entries_.erase(entries_.begin());
    const auto hash = std::hash<std::string_view>{}(text);
    entries_.push_back({hash, std::move(statement)});
}

}  // namespace halvtiv::ado
