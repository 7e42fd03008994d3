#include "ado/postgresql/postgresql_cursor.hpp"

#include <utility>

#include "ado/errors.hpp"
#include "ado/postgresql/postgresql_values.hpp"

namespace halvtiv::ado {

PostgresqlRow::PostgresqlRow(std::span<const PostgresqlColumn> formats,
                             std::shared_ptr<DeferredValues> deferred)
    : formats_(formats), deferred_(std::move(deferred)) {}

bool PostgresqlRow::IsNull(std::int32_t column) {
    const auto size = FormatOf(column).sizeColumn;
    return PQgetisnull(row_.get(), 0, size < 0 ? column : size) != 0;
}

bool PostgresqlRow::IsDeferred(std::int32_t column) const {
    const auto size = FormatOf(column).sizeColumn;
    return size >= 0 && PQgetisnull(row_.get(), 0, size) == 0 && PQgetisnull(row_.get(), 0, column) != 0;
}

CellValue PostgresqlRow::Value(std::int32_t column) {
    if (IsNull(column)) return {};
    const auto kind = FormatOf(column).form == PostgresqlForm::Binary ? CellKind::Blob : CellKind::Text;
    return {kind, 0, 0, IsDeferred(column) ? std::string_view() : Text(column)};
}

std::string_view PostgresqlRow::Text(std::int32_t column) {
    const auto& format = FormatOf(column);
    if (format.form == PostgresqlForm::Plain) return Raw(column);
    if (IsDeferred(column)) return ReadWholeValue(*this, column, wholeValue_);
    return PostgresqlText(Raw(column), format.form, buffer_, wholeValue_);
}

std::int64_t PostgresqlRow::Size(std::int32_t column) {
    if (IsDeferred(column)) return deferred_->Size(*this, column);
    if (FormatOf(column).form == PostgresqlForm::Binary) return SizeOfHex(Raw(column));
    return static_cast<std::int64_t>(Text(column).size());
}

std::size_t PostgresqlRow::Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) {
    if (IsDeferred(column)) return deferred_->Read(*this, column, offset, piece);
    if (FormatOf(column).form == PostgresqlForm::Binary) return ReadHex(Raw(column), offset, piece);
    return CopyPiece(Text(column), offset, piece);
}

PostgresqlCursor::PostgresqlCursor(std::shared_ptr<PostgresqlSession> session,
                                   std::shared_ptr<PostgresqlStatement> statement)
    : session_(std::move(session)),
      statement_(std::move(statement)),
      deferred_(MakeDeferred()),
      row_(statement_->formats, deferred_),
      isDue_(true) {}

PostgresqlCursor::PostgresqlCursor(std::shared_ptr<PostgresqlSession> session,
                                   std::shared_ptr<PostgresqlStatement> statement, PostgresqlResult first)
    : PostgresqlCursor(std::move(session), std::move(statement)) {
    isDue_ = false;
    first_ = std::move(first);
    session_->SetReader(this);
}

PostgresqlCursor::~PostgresqlCursor() {
    try {
        Finish();
    } catch (...) {
        // Who wants to hear of it finishes the cursor.
    }
}

std::shared_ptr<DeferredValues> PostgresqlCursor::MakeDeferred() const {
    const auto& plan = statement_->plan;
    if (!plan || !plan->HasDeferred()) return nullptr;
    return std::make_shared<PostgresqlDeferredValues>(session_, *plan);
}

std::shared_ptr<const ChangeTarget> PostgresqlCursor::Target() const {
    return statement_->plan ? statement_->plan->target : nullptr;
}

PostgresqlResult PostgresqlCursor::Receive() {
    auto result = first_ ? std::move(first_) : session_->Link().Receive();
    if (result && PQresultStatus(result.get()) == PGRES_SINGLE_TUPLE) return result;
    session_->SetReader(nullptr);
    session_->Link().ReceiveAll();
    return nullptr;
}

bool PostgresqlCursor::Next() {
    if (std::exchange(isDue_, false)) {
        auto statement = statement_;
        auto first = session_->Start(statement);
        if (statement != statement_ && !statement_->Fits(first.get())) {
            session_->Link().GiveUp(true);
            throw MakeProviderError(AdoError::Unspecified,
                                    "The table has been altered since the recordset was opened.",
                                    kPostgresqlName);
        }
        first_ = std::move(first);
        session_->SetReader(this);
    }
    if (kept_) {
        onKept_ = kept_->Next();
        if (!onKept_ && keptFailure_) std::rethrow_exception(std::exchange(keptFailure_, nullptr));
        return onKept_;
    }
    if (keptFailure_) std::rethrow_exception(std::exchange(keptFailure_, nullptr));
    if (!IsReading()) return false;
    try {
        auto row = Receive();
        const bool isRow = row != nullptr;
        if (isRow) row_.Take(std::move(row));
        return isRow;
    } catch (...) {
        if (IsReading()) session_->SetReader(nullptr);
        throw;
    }
}

void PostgresqlCursor::KeepRest() {
    bool isCancelled = false;
    try {
        PostgresqlRow row(statement_->formats, deferred_);
        kept_ = std::make_unique<RowSpool>(Columns(), RowWidth(), deferred_);
        while (auto result = Receive()) {
            row.Take(std::move(result));
            kept_->Append(row);
        }
    } catch (const ErrorInfo& error) {
        keptFailure_ = std::current_exception();
        isCancelled = ado::IsCancelled(error);
        GiveUpRest();
    } catch (...) {
        keptFailure_ = std::current_exception();
        GiveUpRest();
    }
    if (kept_) kept_->Rewind();
    if (isCancelled) std::rethrow_exception(keptFailure_);
}

void PostgresqlCursor::GiveUpRest() noexcept {
    try {
        session_->Link().GiveUp(statement_->onlyReads);
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is a failure to be raised already
    }
}

void PostgresqlCursor::Finish() {
    if (deferred_) deferred_->Release();
    isDue_ = false;
    kept_.reset();
    if (keptFailure_) std::rethrow_exception(std::exchange(keptFailure_, nullptr));
    if (!IsReading()) return;
    session_->SetReader(nullptr);
    const bool isOver = first_ && PQresultStatus(first_.get()) != PGRES_SINGLE_TUPLE;
    first_.reset();
    if (isOver) {
        session_->Link().ReceiveAll();
    } else {
        session_->Link().GiveUp(statement_->onlyReads);
    }
}

}  // namespace halvtiv::ado
