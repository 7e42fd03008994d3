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
    ~SqliteCursor() override;

    std::span<const ColumnInfo> Columns() const override { return statement_->Columns(); }
    std::shared_ptr<const RowLayout>& Layout() override { return statement_->Layout(); }
    void Finish() override;
    bool Next() override;
    bool IsNull(std::int32_t column) override;
    std::string_view Text(std::int32_t column) override;
    std::int64_t Size(std::int32_t column) override;
    std::size_t Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) override;

private:
    sqlite3_value* ValueAt(std::int32_t column) const;

    SqliteSession::Lease statement_;
    const ColumnInfo* columns_;
    bool firstRowIsDue_;  // already stepped to
    bool ended_;
    CellBuffer buffer_;
};

}  // namespace halvtiv::ado
