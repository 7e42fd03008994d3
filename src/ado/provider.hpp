#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ado/cancel_switch.hpp"
#include "ado/connection_parameters.hpp"

/// What a provider implements: one database's way of doing what `Connection` and `Recordset` promise.
///
/// The road: a `Provider` opens a `Session`; a session prepares a `Batch` from a command text; the batch runs
/// one statement after the other and gives a `Cursor` over each one's rows. Rows are text first: a cursor
/// gives every cell as text in the fixed formats (see cell_text.hpp), and values are made from that text by
/// the column's type.
///
/// All failures are raised as `ErrorInfo` with the numbers of errors.hpp, the database's own words and the
/// provider's name as source.
namespace halvtiv::ado {

/// One column of a result.
struct ColumnInfo {
    std::string name;
    std::int32_t type = 0;         ///< `DataTypeEnum`
    std::int32_t attributes = 0;   ///< `FieldAttributeEnum` bits
    std::int64_t definedSize = 0;  ///< bytes, or characters for text
};

/// The position of the first column of that name, in any letter case; -1 when there is none.
std::int32_t FindColumn(std::span<const ColumnInfo> columns, std::string_view name);

/// How a cell stands in the database, whatever its column's type.
enum class CellKind : std::uint8_t { Null, Integer, Double, Text, Blob };

/// One cell as it stands in the database.
struct CellValue {
    CellKind kind = CellKind::Null;
    std::int64_t integer = 0;
    double number = 0;
    std::string_view text;  ///< of `Text` and `Blob`
};

/// Rows that pass one after another. Columns count from 0.
class RowSource {
public:
    virtual ~RowSource() = default;

    /// Goes to the next row, at first to the first; false at the end, from then on always.
    virtual bool Next() = 0;

    // Of the current row. Texts and bytes may be asked for in any order and more than once.
    virtual bool IsNull(std::int32_t column) = 0;
    /// The cell as it stands. Valid until the next call on this object. Of a long value that is not fetched
    /// with its row (see `DeferredValues`) only the kind is right.
    virtual CellValue Value(std::int32_t column) = 0;
    /// The cell in its fixed format, "" for null; bytes as they are. Valid until the next call on this
    /// object.
    virtual std::string_view Text(std::int32_t column) = 0;
    /// The bytes that `Read` delivers in all; 0 for null.
    virtual std::int64_t Size(std::int32_t column) = 0;
    /// Fills `piece` from a byte offset of the value and returns how many bytes there were; 0 at its end.
    virtual std::size_t Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) = 0;
};

/// The whole of a long value, read piece by piece into the buffer.
std::string_view ReadWholeValue(RowSource& row, std::int32_t column, std::string& buffer);

/// The long values that stay in the database while their row is read, to be fetched by the row's key.
class DeferredValues {
public:
    virtual ~DeferredValues() = default;

    /// Whether a column's texts and bytes are such values.
    virtual bool Holds(std::int32_t column) const = 0;
    // As the members of `RowSource`; the row gives the key, and the cell holds a text or bytes.
    virtual std::int64_t Size(RowSource& row, std::int32_t column) = 0;
    virtual std::size_t Read(RowSource& row, std::int32_t column, std::int64_t offset,
                             std::span<std::uint8_t> piece) = 0;
    /// Lets go of what it has open: rows are about to change, or to be left.
    virtual void Release() noexcept = 0;
};

/// Where the values of a result come from and go to when they are changed.
struct ChangeTarget {
    struct KeyColumn {
        std::string name;         ///< as it stands in a statement
        std::int32_t column = 0;  ///< its place in the row; behind the visible columns where it was added
    };
    struct Table {
        std::string name;            ///< as it stands in a statement
        std::string schema;          ///< the two parts of the name, without quotes
        std::string plainName;       ///< likewise
        std::vector<KeyColumn> key;  ///< empty: its rows cannot be told apart
        bool keyIsRowId = false;     ///< the key is the database's own number for the row
        std::string keyAlias;        ///< a column that is that number under another name; "" for none
    };
    struct Column {
        std::int32_t table = -1;   ///< a position in `tables`; -1: computed, or not of a table
        std::string name;          ///< as it stands in a statement
        bool isComparable = true;  ///< the database knows whether two of its values are equal
        /// Floating numbers come and go whole, so that each is found to be equal to itself.
        bool comparesFloats = false;
        /// The condition that finds what is read as null; "" for "IS NULL".
        std::string nullTest = {};
    };
    std::vector<Table> tables;
    std::vector<Column> columns;  ///< one for each visible column
    std::int32_t width = 0;       ///< columns of a row, the invisible ones included
};

/// A long value on its way into the database.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual std::int64_t Size() = 0;
    /// Fills `piece` from a byte offset; raises when there are fewer bytes than `Size` said.
    virtual void Read(std::int64_t offset, std::span<std::uint8_t> piece) = 0;
};

/// A value for a statement.
struct Parameter {
    std::string_view name;  ///< the column's, as it stands in a statement
    CellValue value;
    ByteSource* source = nullptr;    ///< where set, the value's bytes come from there
    bool isOldText = false;          ///< compared with a column that must hold it letter by letter
    std::string_view nullTest = {};  ///< of the column, where it has one of its own
};

/// One change of one row. The texts and sources in it live until the change is done.
struct RowChange {
    enum class Kind { Insert, Update, Delete };
    Kind kind = Kind::Update;
    const ChangeTarget::Table* table = nullptr;
    std::vector<Parameter> values;      ///< what the row gets
    std::vector<Parameter> conditions;  ///< what it must hold
    bool undoneByCaller = false;        ///< after a failure, the caller undoes more than this change
};

/// What came of it.
struct RowChangeResult {
    std::int64_t affectedRows = 0;
    /// The key that the database gave a new row, where the table's key is one number of its own.
    std::optional<std::int64_t> newKey;
};

/// What a reader of rows has prepared from their columns.
class RowLayout {
public:
    virtual ~RowLayout() = default;
};

/// The rows of one statement, as the database delivers them: before its first row at first.
class Cursor : public RowSource {
public:
    /// Room for a reader's layout, empty at first. Where a prepared statement runs again, it is found here
    /// again as long as the columns are the same.
    virtual std::shared_ptr<const RowLayout>& Layout() { return layout_; }

    /// Final once the first `Next` has returned: a column without a declared type takes the first row's.
    virtual std::span<const ColumnInfo> Columns() const = 0;
    /// Where changes go; null where the rows cannot be changed or were not opened for it. Lives as long as
    /// the cursor.
    virtual std::shared_ptr<const ChangeTarget> Target() const { return nullptr; }
    /// The columns of a row with those behind `Columns` that nobody sees: what a kept row must hold.
    virtual std::int32_t RowWidth() const {
        const auto target = Target();
        return target ? target->width : static_cast<std::int32_t>(Columns().size());
    }
    /// The long values that are not fetched with the row; null when there are none.
    virtual std::shared_ptr<DeferredValues> Deferred() { return nullptr; }

    /// Gives up the rows that are left, of a statement that changes data only after it has run to its end.
    /// Raises the statement's error. Destroying the cursor does the same and ignores the error.
    virtual void Finish() = 0;

private:
    std::shared_ptr<const RowLayout> layout_;
};

/// What one statement did.
struct StatementResult {
    std::unique_ptr<Cursor> rows;    ///< null for a statement that returns none; it has run to its end then
    std::int64_t affectedRows = -1;  ///< rows changed; -1 for a query or when unknown
};

/// What the rows of a result are wanted for.
enum class Purpose {
    Read,
    /// The first query is not run before its rows are asked for, and its cursor has a `Target` if it can have
    /// one.
    Change
};

/// The statements of one command text, each run once and in order.
class Batch {
public:
    virtual ~Batch() = default;
    /// Runs the next statement; nothing after the last. The cursor of the one before is released first. Not
    /// called again once it has raised: a failure ends the batch.
    virtual std::optional<StatementResult> RunNext() = 0;
    /// Before the first `RunNext`: a first statement that returns no rows is refused. It does not run, or it
    /// is undone where the database cannot tell before.
    void RequireRows() noexcept { requiresRows_ = true; }

protected:
    bool RequiresRows() const noexcept { return requiresRows_; }
    /// Before the first statement runs. Where rows are required, raises -2146824584 when it returns none, and
    /// -2146825037 when the rows to be changed are the result of a statement that changes rows itself.
    void CheckFirst(Purpose purpose, bool returnsRows, bool changesRows);

private:
    bool requiresRows_ = false;
};

/// One open connection. Used by one thread at a time.
///
/// Several cursors may be open at once. Where the database has one active result for a connection, the
/// session keeps the rest of the earlier one in a `RowSpool` before the next statement runs.
class Session {
public:
    virtual ~Session() = default;

    virtual std::unique_ptr<Batch> Prepare(std::string commandText, Purpose purpose) = 0;

    /// Writes one row of a table, whole or not at all, unless the caller undoes what a failure leaves.
    virtual RowChangeResult Change(const RowChange& change) = 0;

    /// The kind of database, by the name that definitions use: "SQLite", "PostgreSQL", "MariaDB",
    /// "SQLServer", "Access", or what the driver calls it.
    virtual std::string_view DatabaseName() const = 0;
    /// The database files that it has open; none on a server.
    virtual std::vector<std::string> Files() const { return {}; }
    /// Raises 75 where writing at that path would write or replace one of them, or a journal beside it.
    void RequireOtherFile(std::string_view path) const;
    /// False when the database has dropped the connection, and after `Close`.
    virtual bool IsAlive() = 0;
    virtual bool IsClosed() const noexcept = 0;
    /// Says why nothing can be done with it: -2146824579 after `Close`, else -2147467259.
    [[noreturn]] void RaiseUnusable() const;
    /// Ends the connection: cursors and batches of it raise -2146824579 from then on.
    virtual void Close() = 0;

    // The transaction itself and the savepoints inside it; `Connection` counts the levels.
    /// Whether the database has a transaction open, whoever began it. Raises only that it was cancelled while
    /// the server was asked.
    virtual bool InTransaction() = 0;
    /// How many transactions the statements of batches have ended. Where one of them has begun another at
    /// once, only this tells that it is not the same any more.
    std::uint64_t EndedTransactions() const noexcept { return endedTransactions_; }
    /// Takes the write lock at once where the database has one lock for all.
    virtual void Begin() = 0;
    virtual void Commit() = 0;  ///< rolls back before it raises
    virtual void Rollback() = 0;
    virtual void SetSavepoint(std::int32_t level) = 0;
    virtual void ReleaseSavepoint(std::int32_t level) = 0;
    virtual void RollbackToSavepoint(std::int32_t level) = 0;  ///< and forgets it
    /// Whether a transaction in which a statement has failed is good for nothing but to be rolled back.
    virtual bool FailureSpoilsTransaction() const { return false; }

    /// Seconds that one statement may run; 0 for no limit.
    virtual void SetCommandTimeout(std::int32_t seconds) = 0;

    /// For batches: one of their statements has ended the open transaction.
    void CountEndedTransaction() noexcept { ++endedTransactions_; }

private:
    std::uint64_t endedTransactions_ = 0;
};

/// Opens a session; connectionTimeout in seconds, 0 for no limit. What runs in it fails once `cancel` is
/// thrown.
using OpenSession = std::shared_ptr<Session> (*)(const ConnectionParameters& parameters,
                                                 std::int32_t connectionTimeout,
                                                 std::shared_ptr<CancelSwitch> cancel);

/// The provider that a connection string names. Raises -2146824582 when there is none.
OpenSession FindProvider(const ConnectionParameters& parameters);

}  // namespace halvtiv::ado
