#pragma once

#include "ado/cell_text.hpp"
#include "ado/provider.hpp"
#include "ado/sqlite/sqlite_session.hpp"

struct sqlite3_value;

namespace halvtiv::ado {

/// The rows of one statement, straight out of the database's own row.
class SqliteCursor final : public Cursor {
public:
    /// The statement has been stepped once; hasRow is what came of it.
    SqliteCursor(SqliteSession::Lease statement, bool hasRow);
    /// The statement is yet to run.
    explicit SqliteCursor(SqliteSession::Lease statement);
    ~SqliteCursor() override;

    std::span<const ColumnInfo> Columns() const override { return statement_->Columns(); }
    std::int32_t RowWidth() const override;
    std::shared_ptr<const RowLayout>& Layout() override { return statement_->Layout(); }
    std::shared_ptr<const ChangeTarget> Target() const override;
    std::shared_ptr<DeferredValues> Deferred() override { return deferred_; }
    void Finish() override;
    bool Next() override;
    bool IsNull(std::int32_t column) override;
    CellValue Value(std::int32_t column) override;
    std::string_view Text(std::int32_t column) override;
    std::int64_t Size(std::int32_t column) override;
    std::size_t Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) override;

private:
    /// After the first step of a query that was opened before. Raises when its columns are others by now.
    void RefreshColumns();
    sqlite3_value* ValueAt(std::int32_t column) const;
    /// Whether the cell's text or bytes stay in the database until they are asked for.
    bool IsDeferred(std::int32_t column, int kind) const;

    SqliteSession::Lease statement_;
    const ColumnInfo* columns_;
    std::shared_ptr<DeferredValues> deferred_;  // null where every value comes with its row
    bool firstRowIsDue_ = false;                // already stepped to
    bool isFirstStep_ = false;                  // still to come
    bool ended_ = false;
    CellBuffer buffer_;
    std::string wholeValue_;
};

}  // namespace halvtiv::ado
