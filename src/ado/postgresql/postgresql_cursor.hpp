#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "ado/cell_text.hpp"
#include "ado/postgresql/postgresql_link.hpp"
#include "ado/postgresql/postgresql_session.hpp"
#include "ado/postgresql/postgresql_statement.hpp"
#include "ado/provider.hpp"
#include "ado/row_spool.hpp"

namespace halvtiv::ado {

/// One row as the server sent it. Texts are views into it wherever its form is the fixed one.
class PostgresqlRow final : public RowSource {
public:
    /// The formats live longer than this object.
    PostgresqlRow(std::span<const PostgresqlColumn> formats, std::shared_ptr<DeferredValues> deferred);

    void Take(PostgresqlResult row) noexcept { row_ = std::move(row); }
    bool Next() override { return false; }
    bool IsNull(std::int32_t column) override;
    CellValue Value(std::int32_t column) override;
    std::string_view Text(std::int32_t column) override;
    std::int64_t Size(std::int32_t column) override;
    std::size_t Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) override;

private:
    std::string_view Raw(std::int32_t column) const {
        return {PQgetvalue(row_.get(), 0, column),
                static_cast<std::size_t>(PQgetlength(row_.get(), 0, column))};
    }
    const PostgresqlColumn& FormatOf(std::int32_t column) const {
        return formats_[static_cast<std::size_t>(column)];
    }
    /// Whether the cell holds bytes that have not come with the row.
    bool IsDeferred(std::int32_t column) const;

    std::span<const PostgresqlColumn> formats_;
    std::shared_ptr<DeferredValues> deferred_;  // null where every value comes with its row
    PostgresqlResult row_;
    CellBuffer buffer_;
    std::string wholeValue_;
};

/// The rows of one statement, as the server produces them. Where the line is wanted for another statement,
/// the rows that are left are kept here.
class PostgresqlCursor final : public Cursor {
public:
    /// The statement is yet to run.
    PostgresqlCursor(std::shared_ptr<PostgresqlSession> session,
                     std::shared_ptr<PostgresqlStatement> statement);
    /// The statement runs; first is its first result.
    PostgresqlCursor(std::shared_ptr<PostgresqlSession> session,
                     std::shared_ptr<PostgresqlStatement> statement, PostgresqlResult first);
    ~PostgresqlCursor() override;
    PostgresqlCursor(const PostgresqlCursor&) = delete;
    PostgresqlCursor& operator=(const PostgresqlCursor&) = delete;

    /// Receives the rows that are left, to be read later; a failure is raised to whoever reads so far. Raises
    /// only that it was cancelled: what needs the line is to stop as well.
    void KeepRest();

    std::span<const ColumnInfo> Columns() const override { return statement_->columns; }
    std::int32_t RowWidth() const override { return static_cast<std::int32_t>(statement_->formats.size()); }
    std::shared_ptr<const RowLayout>& Layout() override { return statement_->layout; }
    std::shared_ptr<const ChangeTarget> Target() const override;
    std::shared_ptr<DeferredValues> Deferred() override { return deferred_; }
    void Finish() override;
    bool Next() override;
    bool IsNull(std::int32_t column) override { return Current().IsNull(column); }
    CellValue Value(std::int32_t column) override { return Current().Value(column); }
    std::string_view Text(std::int32_t column) override {
        return onKept_ ? kept_->Text(column) : row_.Text(column);
    }
    std::int64_t Size(std::int32_t column) override { return Current().Size(column); }
    std::size_t Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) override {
        return Current().Read(column, offset, piece);
    }

private:
    RowSource& Current() noexcept {
        if (onKept_) return *kept_;
        return row_;
    }
    std::shared_ptr<DeferredValues> MakeDeferred() const;
    /// The next row from the line; null at the end, the line free then.
    PostgresqlResult Receive();
    void GiveUpRest() noexcept;
    bool IsReading() const noexcept { return session_->IsReader(this); }

    std::shared_ptr<PostgresqlSession> session_;
    std::shared_ptr<PostgresqlStatement> statement_;
    std::shared_ptr<DeferredValues> deferred_;
    PostgresqlRow row_;
    PostgresqlResult first_;  // received already, and not given out
    bool isDue_ = false;      // the statement is yet to run
    std::unique_ptr<RowSpool> kept_;
    std::exception_ptr keptFailure_;  // behind the rows kept
    bool onKept_ = false;
};

}  // namespace halvtiv::ado
