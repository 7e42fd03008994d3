#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ado/cell_text.hpp"
#include "ado/odbc/odbc_execution.hpp"
#include "ado/odbc/odbc_rows.hpp"
#include "ado/row_spool.hpp"

namespace halvtiv::ado {

/// The rows of one result of an execution, until they are set aside out of the driver's own memory.
class OdbcCursor final : public Cursor {
public:
    /// target: null where the rows cannot be changed; visibleCount: the columns that are not there for it.
    OdbcCursor(std::shared_ptr<OdbcExecution> execution, std::vector<OdbcColumn> columns,
               std::shared_ptr<const ChangeTarget> target, std::size_t visibleCount);
    ~OdbcCursor() override;

    std::span<const ColumnInfo> Columns() const override { return std::span(infos_).first(visibleCount_); }
    std::shared_ptr<const ChangeTarget> Target() const override { return target_; }
    void Finish() override;
    bool Next() override;
    bool IsNull(std::int32_t column) override;
    CellValue Value(std::int32_t column) override;
    std::string_view Text(std::int32_t column) override;
    std::int64_t Size(std::int32_t column) override;
    std::size_t Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) override;

    /// Keeps the current row and reads those that are left, so that the driver can do something else. Where
    /// that fails, whoever reads on here gets the same error.
    void SetAside();
    /// The connection has gone, or the result.
    void Drop() noexcept;

private:
    bool NextOfDriver();
    /// Lets go of the driver's rows and of what is bound to the statement for them.
    void Leave() noexcept;
    OdbcRows& Rows() const;
    bool HasOwnText(std::int32_t column) const;
    std::int32_t TypeOf(std::int32_t column) const { return infos_[static_cast<std::size_t>(column)].type; }
    OdbcForm FormOf(std::int32_t column) const { return columns_[static_cast<std::size_t>(column)].form; }

    std::shared_ptr<OdbcExecution> execution_;  // null once set aside
    std::vector<OdbcColumn> columns_;
    std::vector<ColumnInfo> infos_;
    std::shared_ptr<const ChangeTarget> target_;
    std::size_t visibleCount_;
    std::unique_ptr<OdbcRows> rows_;   // null before the first row and after the last
    std::unique_ptr<RowSpool> spool_;  // null unless set aside
    std::exception_ptr failure_;       // of setting aside
    bool onRow_ = false;
    bool ended_ = false;
    CellBuffer buffer_;
};

}  // namespace halvtiv::ado
