#include "ado/sqlite/sqlite_batch.hpp"

#include <sqlite3.h>

#include <utility>

#include "ado/sqlite/sqlite_cursor.hpp"

namespace halvtiv::ado {

SqliteBatch::SqliteBatch(std::shared_ptr<SqliteSession> session, std::string commandText)
    : session_(std::move(session)), text_(std::move(commandText)) {}

std::optional<StatementResult> SqliteBatch::RunNext() {
    // Behind the last statement there are mostly blanks, which need no parser.
    const auto position = text_.find_first_not_of(" \t\r\n\f;", position_);
    position_ = text_.size();  // holds when the statement fails
    if (position == std::string::npos) return std::nullopt;
    return RunAt(position);
}

std::optional<StatementResult> SqliteBatch::RunAt(std::size_t position) {
    auto statement = session_->Acquire(std::string_view(text_).substr(position));
    if (!statement) return std::nullopt;
    const auto changesBefore = session_->TotalChanges();
    const bool hasRow = session_->Step(*statement);
    position_ = position + statement->Consumed();

    StatementResult result;
    if (sqlite3_column_count(statement->Handle()) > 0) {
        statement->RefreshColumns(hasRow);
        result.rows = std::make_unique<SqliteCursor>(std::move(statement), hasRow);
    } else {
        // The database's own count stays as it is when a statement changes nothing.
        result.affectedRows = session_->TotalChanges() == changesBefore ? 0 : session_->LastChanges();
    }
    return result;
}

}  // namespace halvtiv::ado
