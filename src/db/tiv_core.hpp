#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <halvtiv/ado.hpp>
#include <halvtiv/column_data_items.hpp>

#include "ado/recordset_state.hpp"
#include "ado/value_file.hpp"
#include "db/row_loops.hpp"
#include "foundation/err_object.hpp"
#include "foundation/guarded.hpp"

namespace halvtiv {

/// Does the engine's database work, over the one connection that it holds.
///
/// Guarded as all classes, but for `IsConnectionOK`, `DisConnect`, `GetDatabaseConnection`,
/// `DatabaseName`, `InTransaction`, `BeginCall` and `Cancel`. It never reconnects by itself.
class clsZorbTivCore {
public:
    /// Whether there is a connection and it is not closed.
    bool IsConnectionOK() const;
    /// `SetDatabaseConnectionString`, but for an empty text: "ConnectionString is not set.", the connection
    /// stays.
    bool ReConnect(std::string_view connectionString);
    /// Closes the connection and drops it, ignoring errors.
    void DisConnect() noexcept;
    /// Closes the current connection and opens another: 3 seconds to connect, no limit for a command. Null
    /// when it fails; what is left then is a connection that is not open.
    ado::ConnectionPtr SetDatabaseConnectionString(std::string_view connectionString);
    /// The connection as it is: null, closed or open.
    ado::ConnectionPtr GetDatabaseConnection() const { return connection_; }

    /// Opens a read-only recordset on a query; null when it fails.
    bool GetData(std::string_view sql, ado::RecordsetPtr& recordset, std::int32_t cursorType);
    /// Runs a query, and before it a counting query unless that is empty. count is its first value (0 for
    /// none or null); -1 without a counting query and when it fails, which is no error.
    bool GetDataAndCount(std::string_view sql, std::string_view countSql, ado::RecordsetPtr& recordset,
                         std::int32_t& count);
    /// Runs any statements. The first one's recordset goes to `recordset`; without that, all of them run to
    /// their end here. The second argument is not used.
    bool ExecuteSQL(std::string_view sql, std::string_view reserved, ado::RecordsetPtr* recordset = nullptr);

    // Changing rows. `sql` selects them from one table, or is a table's name. Columns get the value of the
    // item with their name: the text of an item of type 0, the file that an item of type 1 names; items of
    // another type, and columns without one, are left alone. Each answers how many rows it has changed, -1
    // when it fails. The rows of one call are committed together, those before a failure, too.

    /// Inserts one row; items with an empty value leave the column at its default. Answers 1.
    std::int32_t AddData(std::string_view sql, const ZorbColumnDataItems* items);
    /// Changes every row; an empty value makes its column null.
    std::int32_t UpdateData(std::string_view sql, const ZorbColumnDataItems* items);
    /// `UpdateData`; where no row matches, `AddData`.
    std::int32_t UpdateDataEx(std::string_view sql, const ZorbColumnDataItems* items);
    /// `UpdateDataEx` that adds to one column instead of replacing its value, unless that is null.
    std::int32_t UpdateDataColAdd(std::string_view sql, std::string_view addColumn,
                                  const ZorbColumnDataItems* items);
    std::int32_t DeleteData(std::string_view sql);

    /// The columns of the query's rows; the query is prepared but not run. Empty unless `sql` is a single
    /// SELECT. Raises the database's error.
    std::vector<std::string> ColumnsToChange(std::string_view sql) const;

    // Binary and long columns. The column is found without regard to case and blanks around its name.

    /// Writes the column of the first row into a file; 1.
    std::int32_t GetBinaryData(std::string_view sql, std::string_view fieldName, std::string_view filePath);
    /// Loads a file into the column of every row, or null where no file is named, in a transaction of its
    /// own: all rows or none.
    std::int32_t SetBinaryData(std::string_view sql, std::string_view fieldName, std::string_view filePath);
    /// Makes the column null in every row.
    std::int32_t DeleteBinaryData(std::string_view sql, std::string_view fieldName);

    /// Who is told how far a long value's copy to or from a file is.
    void SetCopyProgress(ado::CopyProgress progress) { copyProgress_ = std::move(progress); }

    /// Joins several uses of the connection into one call, which `Cancel` stops also between two of them.
    ado::CancelSwitch::Call BeginCall() const noexcept { return ado::CancelSwitch::Call(*cancelSwitch_); }
    /// From any thread: the call under way fails with -2147217842.
    void Cancel() noexcept { cancelSwitch_->Throw(); }

    /// What the connection leads to: "SQLite", "PostgreSQL", "MariaDB", "SQLServer", ...; "" without an open
    /// one. Not guarded.
    std::string_view DatabaseName() const;
    /// Whether the database has a transaction open. Not guarded.
    bool InTransaction() const;
    bool BeginTrans();
    bool CommitTrans();
    bool RollbackTrans();

    bool RaiseLastError() const { return errors_.Raise(); }
    std::string GetLastError() const { return errors_.GetErrorMsg(); }

private:
    /// A column and what it gets.
    struct Assignment {
        std::int32_t column;
        ZorbColumnDataItemPtr item;
    };
    using Assignments = std::vector<Assignment>;

    /// The connection; raises 91 when there is none.
    ado::Connection& RequireConnection() const;
    std::int32_t RunCountQuery(std::string_view countSql) const;

    /// A recordset for changes; it reads nothing yet.
    ado::RecordsetPtr OpenToChange(std::string_view sql) const;
    /// Runs a loop over the rows that `sql` selects, committed together. Guarded.
    template <typename Loop>
    std::int32_t ChangeRows(std::string_view sql, Loop&& loop) {
        return Guarded(errors_, -1, [&] {
            const auto open = [&] { return OpenToChange(sql); };
            return InOneCommit(RequireConnection(), open, loop);
        });
    }
    /// Which columns get something, in the order of the columns.
    static Assignments Match(const ado::RecordsetState& rows, const ZorbColumnDataItems& items);
    /// Assigns to the current row as an update does; the value of `addColumn` (-1: none) is added to.
    void AssignAll(ado::RecordsetState& rows, const Assignments& assignments, std::int32_t addColumn);
    /// Loads the file; raises what went wrong.
    void AssignFile(ado::RecordsetState& rows, std::int32_t column, std::string_view filePath);
    /// Updates the rows that are left.
    void UpdateRows(ado::RecordsetState& rows, const ZorbColumnDataItems* items, std::string_view addColumn,
                    RowCount& count);
    /// What `AddData` does, not guarded.
    void InsertRow(std::string_view sql, const ZorbColumnDataItems* items);
    std::int32_t UpdateOrAdd(std::string_view sql, std::string_view addColumn,
                             const ZorbColumnDataItems* items);

    // Files and fields. Guarded: false with the error recorded.
    bool WriteFileToField(ado::RecordsetState& rows, std::int32_t column, std::string_view filePath);
    bool AppendFileChunks(ado::RecordsetState& rows, std::int32_t column, std::string_view filePath);
    bool PutFileValue(ado::RecordsetState& rows, std::int32_t column, std::string_view filePath);
    bool ReadFieldToFile(ado::RecordsetState& rows, std::int32_t column, std::string_view filePath);
    bool GetFieldChunks(ado::RecordsetState& rows, std::int32_t column, std::string_view filePath);
    bool GetFieldValue(ado::RecordsetState& rows, std::int32_t column, std::string_view filePath);

    ado::ConnectionPtr connection_;
    /// Shared with every connection, and never replaced, so that other threads may throw it.
    const std::shared_ptr<ado::CancelSwitch> cancelSwitch_ = std::make_shared<ado::CancelSwitch>();
    ado::CopyProgress copyProgress_;
    clsZorbErrObject errors_{kProductName, "clsZorbTivCore"};
};

}  // namespace halvtiv
