#include "ado/sqlite/sqlite_batch.hpp"

#include <sqlite3.h>

#include <utility>

#include "ado/sqlite/sqlite_cursor.hpp"

namespace halvtiv::ado {

SqliteBatch::SqliteBatch(std::shared_ptr<SqliteSession> session, std::string commandText, Purpose purpose)
    : session_(std::move(session)), text_(std::move(commandText)), purpose_(purpose) {}

std::optional<StatementResult> SqliteBatch::RunNext() {
    // Behind the last statement there are mostly blanks, which need no parser.
    const auto position = text_.find_first_not_of(" \t\r\n\f;", position_);
    position_ = text_.size();  // holds when the statement fails
    if (position == std::string::npos) return std::nullopt;
    return RunAt(position);
}

std::optional<StatementResult> SqliteBatch::RunAt(std::size_t position) {
    const auto purpose = std::exchange(purpose_, Purpose::Read);
    const auto text = std::string_view(text_).substr(position);
    constexpr int kMostPlans = 3;  // the tables may be altered at any time, but hardly that often
    for (int plans = 1;; ++plans) {
        auto statement = session_->Acquire(text, purpose);
        if (!statement) return std::nullopt;
        if (plans < kMostPlans && session_->IsOutdated(*statement)) {
            statement.Discard();
            continue;
        }
        const bool hasRows = sqlite3_column_count(statement->Handle()) > 0;
        const auto next = position + statement->Consumed();
        CheckFirst(purpose, hasRows, !sqlite3_stmt_readonly(statement->Handle()));
        StatementResult result;
        if (purpose == Purpose::Change && hasRows && sqlite3_stmt_readonly(statement->Handle())) {
            position_ = next;
            statement->RefreshColumns(false);
            result.rows = std::make_unique<SqliteCursor>(std::move(statement));
            return result;
        }
        const auto changesBefore = session_->TotalChanges();
        const bool wasInTransaction = session_->InTransaction();
        const bool hasRow = session_->Step(*statement);
        if (wasInTransaction && !session_->InTransaction()) session_->CountEndedTransaction();
        if (hasRows && !statement->RefreshColumns(hasRow)) {
            statement.Discard();  // a query that has only begun to read: it begins again
            continue;
        }
        position_ = next;
        if (hasRows) {
            result.rows = std::make_unique<SqliteCursor>(std::move(statement), hasRow);
        } else {
            // The database's own count stays as it is when a statement changes nothing.
            result.affectedRows = session_->TotalChanges() == changesBefore ? 0 : session_->LastChanges();
        }
        return result;
    }
}

}  // namespace halvtiv::ado
