#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <halvtiv/date_time.hpp>
#include <halvtiv/export.hpp>

/// The data-access layer: one set of classes over every database.
///
/// Everything here raises `halvtiv::ErrorInfo`: errors of the database with the number of their kind and
/// the provider's own words, misuse with the numbers named below. A connection and all that was opened on
/// it are used by one thread at a time.
namespace halvtiv::ado {

/// Bytes as they stand in a column or a file.
using Bytes = std::vector<std::uint8_t>;

/// What `State` answers.
enum ObjectStateEnum : std::int32_t { adStateClosed = 0, adStateOpen = 1 };

/// Whether a recordset can go back to its first row.
enum CursorTypeEnum : std::int32_t {
    adOpenForwardOnly = 0,  ///< streams: rows pass once and are not kept
    adOpenKeyset = 1,       ///< as adOpenDynamic
    adOpenDynamic = 2,      ///< keeps the rows that have passed, so that `MoveFirst` can go back
    adOpenStatic = 3        ///< as adOpenDynamic
};

/// Whether a recordset's rows can be changed.
enum LockTypeEnum : std::int32_t {
    adLockReadOnly = 1,     ///< they cannot
    adLockPessimistic = 2,  ///< as adLockOptimistic
    adLockOptimistic = 3    ///< they can; a row that somebody else has changed is found when it is written
};

/// What a column holds. The numbers are those of the OLE DB type indicators; docs/databases.md says which a
/// database's types have. Some no provider gives; they are here for those who tell types apart.
enum DataTypeEnum : std::int32_t {
    adEmpty = 0,              ///< nothing; not given
    adSmallInt = 2,           ///< an integer of 16 bits
    adInteger = 3,            ///< an integer of 32 bits
    adSingle = 4,             ///< a floating number of 32 bits
    adDouble = 5,             ///< a floating number of 64 bits
    adCurrency = 6,           ///< an amount of money, exact
    adDate = 7,               ///< a date with a time; not given
    adBSTR = 8,               ///< a text; not given
    adBoolean = 11,           ///< true or false
    adDecimal = 14,           ///< an exact number; not given
    adTinyInt = 16,           ///< an integer of 8 bits
    adUnsignedTinyInt = 17,   ///< the same without a sign
    adUnsignedSmallInt = 18,  ///< an integer of 16 bits without a sign
    adUnsignedInt = 19,       ///< an integer of 32 bits without a sign
    adBigInt = 20,            ///< an integer of 64 bits
    adUnsignedBigInt = 21,    ///< the same without a sign
    adFileTime = 64,          ///< a moment; not given
    adGUID = 72,              ///< a GUID: upper case in braces
    adBinary = 128,           ///< bytes of one length
    adChar = 129,             ///< a text of one length, of narrow characters
    adWChar = 130,            ///< a text of one length, of wide characters
    adNumeric = 131,          ///< an exact number
    adDBDate = 133,           ///< a date
    adDBTime = 134,           ///< a time of day
    adDBTimeStamp = 135,      ///< a date with a time
    adVarNumeric = 139,       ///< an exact number; not given
    adVarChar = 200,          ///< a text up to a length, of narrow characters
    adLongVarChar = 201,      ///< a long text of narrow characters
    adVarWChar = 202,         ///< a text up to a length, of wide characters
    adLongVarWChar = 203,     ///< a long text of wide characters
    adVarBinary = 204,        ///< bytes up to a length
    adLongVarBinary = 205     ///< long bytes
};

/// Bits of `Field::Attributes`.
enum FieldAttributeEnum : std::int32_t {
    adFldUpdatable = 4,    ///< the column can be assigned, in a recordset whose rows can be changed
    adFldFixed = 16,       ///< all values have one length
    adFldIsNullable = 32,  ///< the column can be set to null
    adFldMayBeNull = 64,   ///< a null may be read from it
    adFldLong = 128        ///< a long column: read it with `GetChunk`
};

/// A number with its exact digits, as text: "-12.50".
struct Decimal {
    std::string Digits;  ///< an optional "-", digits, and a "." with digits where there is a fraction
    bool operator==(const Decimal&) const = default;
};

using halvtiv::DateTime;

/// One value out of a column: null or one of seven kinds. A plain value: copy it, keep it, hand it to another
/// thread.
class HALVTIV_API Variant {
public:
    /// Null.
    Variant() = default;
    /// A bool and nothing that only converts to one.
    template <std::same_as<bool> Bool>
    explicit Variant(Bool value) : value_(value) {}
    /// Any integer that fits into 64 bits with a sign.
    template <std::integral Integer>
    requires(!std::same_as<Integer, bool>) explicit Variant(Integer value)
        : value_(static_cast<std::int64_t>(value)) {}
    // One constructor a kind; a text is UTF-8, and stays a text whatever it says.
    explicit Variant(double value) : value_(value) {}
    explicit Variant(Decimal value) : value_(std::move(value)) {}
    explicit Variant(std::string value) : value_(std::move(value)) {}
    explicit Variant(std::string_view value) : value_(std::string(value)) {}
    explicit Variant(const char* value) : value_(std::string(value)) {}
    explicit Variant(Bytes value) : value_(std::move(value)) {}
    explicit Variant(DateTime value) : value_(value) {}

    /// Whether it is null, which an empty text is not.
    bool IsNull() const { return std::holds_alternative<std::monostate>(value_); }

    /// The value as text, "" for null: integers and decimals as they are, doubles in the shortest form
    /// that reads back the same, dates as YYYY-MM-DD, HH:MM:SS or both with a blank between and a fraction
    /// only when there is one, booleans as "True" and "False", bytes as they are.
    std::string Text() const;

    // One accessor a kind: the value, or null where this is of another kind. The pointer lives as long as
    // this object is unchanged.
    const bool* AsBool() const { return std::get_if<bool>(&value_); }
    const std::int64_t* AsInteger() const { return std::get_if<std::int64_t>(&value_); }
    const double* AsDouble() const { return std::get_if<double>(&value_); }
    const Decimal* AsDecimal() const { return std::get_if<Decimal>(&value_); }
    const std::string* AsText() const { return std::get_if<std::string>(&value_); }
    const Bytes* AsBytes() const { return std::get_if<Bytes>(&value_); }
    const DateTime* AsDateTime() const { return std::get_if<DateTime>(&value_); }

    /// The same kind and the same value: 1 is not 1.0, and "1.50" not "1.5".
    bool operator==(const Variant&) const = default;

private:
    std::variant<std::monostate, bool, std::int64_t, double, Decimal, std::string, Bytes, DateTime> value_;
};

class Recordset;
using RecordsetPtr = std::shared_ptr<Recordset>;

/// A connection to one database, through the provider that its string names.
class HALVTIV_API Connection {
public:
    /// Makes a connection that is closed.
    Connection();
    /// Closes the connection, ignoring errors. Open transactions are rolled back.
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Opens a database. The string is a list of key=value pairs separated by ";", keys in any letter case,
    /// values in quotes where they hold a ";"; "Provider" chooses the provider. userID and password count
    /// where the string has none. options is not used.
    /// Raises -2146824582 for an unknown provider, -2147467259 for a missing file or a server that does not
    /// answer, -2147217843 for a refused login, -2146824583 when this connection is open already.
    void Open(std::string_view connectionString, std::string_view userID = {}, std::string_view password = {},
              std::int32_t options = -1);
    /// Closes it with all recordsets on it. Raises -2146824584 when it is not open.
    void Close();
    /// `adStateClosed` or `adStateOpen`; a connection that the server has dropped is closed.
    std::int32_t State();
    /// The kind of database, for what has to be said to each in its own SQL: "SQLite", "PostgreSQL", or what
    /// an ODBC driver calls it ("MariaDB", "Microsoft SQL Server"); "Access" for such a file. "" when this
    /// connection has not been opened.
    std::string DatabaseName() const;
    /// Raises 75 where writing a file at that path would write or replace a file of the open database: its
    /// own, one of an attached database, or a journal beside it, also through a link. Databases on servers
    /// have no such files.
    void RequireOtherFile(std::string_view path) const;

    /// Seconds to wait for a connection, 15 at first, 0 for no limit. Set it before `Open`.
    std::int32_t ConnectionTimeout() const;
    void ConnectionTimeout(std::int32_t seconds);
    /// Seconds that one command may run, 30 at first, 0 for no limit.
    std::int32_t CommandTimeout() const;
    void CommandTimeout(std::int32_t seconds);

    /// Runs one statement or a batch. Returns the first one's result: open over its rows, forward-only, or
    /// closed where there are none. `for (auto r = Execute(sql); r; r = r->NextRecordset()) {}` runs however
    /// many there are and raises their errors; `Close` or release runs the rest. recordsAffected receives the
    /// rows that the first statement changed, -1 for a query. options is not used.
    RecordsetPtr Execute(std::string_view commandText, std::int32_t* recordsAffected = nullptr,
                         std::int32_t options = -1);

    /// Begins a transaction, or a nested one inside the current; returns the level, from 1. The outermost
    /// takes the write lock at once where the database has one lock for all.
    std::int32_t BeginTrans();
    /// Commits the innermost transaction. A failed outermost commit is rolled back before it raises.
    /// Raises -2147168242 when no transaction is open.
    void CommitTrans();
    /// Rolls the innermost transaction back. Raises -2147168242 when no transaction is open.
    void RollbackTrans();

private:
    friend class Recordset;
    friend struct ConnectionInside;
    struct Impl;
    std::shared_ptr<Impl> impl_;
};
using ConnectionPtr = std::shared_ptr<Connection>;

/// One column of a recordset, and its value in the current record.
class HALVTIV_API Field {
public:
    Field(const Field&) = delete;
    Field& operator=(const Field&) = delete;

    /// The column's name as the database spells it.
    std::string Name();
    /// A `DataTypeEnum`.
    std::int32_t Type();
    /// `FieldAttributeEnum` bits.
    std::int32_t Attributes();
    /// The most that the column holds: bytes, or characters for text.
    std::int64_t DefinedSize();
    /// The bytes that `GetChunk` delivers for the current value; 0 for null.
    std::int64_t ActualSize();
    /// The value in the current record. Raises -2146825267 when there is none.
    Variant Value();
    /// Assigns a value to the current record, converted to the column's type; it is seen at once, and written
    /// by `Recordset::Update`. Raises -2146824867 where the column cannot hold the value, -2146825037 where
    /// the column or the recordset cannot be changed.
    void Value(const Variant& value);
    /// Whether the value in the current record is null. Raises -2146825267 when there is no record.
    bool IsNull();
    /// The value as text in the formats of `Variant::Text`, without a copy: the way to read whole tables.
    /// Valid until the next call on this recordset or its fields.
    std::string_view Text();
    /// The next piece of the value, at most length bytes; text as UTF-8. Empty at the end and for null. A
    /// value is read from its start again after the record has changed. Raises 5 for a length below 0.
    Bytes GetChunk(std::int64_t length);
    /// Appends a piece to the new value of a long column; the first one replaces the value that was. Pieces
    /// beyond 4 MiB wait for `Recordset::Update` in a temporary file. Raises as assigning does, and
    /// -2146825037 for a column that is not long.
    void AppendChunk(const Bytes& data);

private:
    friend class Fields;
    friend struct RecordsetState;
    Field(struct RecordsetState& owner, std::int32_t index) : owner_(&owner), index_(index) {}
    struct RecordsetState* owner_;
    std::int32_t index_;
    std::int64_t chunkPosition_ = 0;
    std::int64_t chunkRow_ = -1;
};
using FieldPtr = std::shared_ptr<Field>;

/// The columns of a recordset, counted from 0. Belongs to its recordset.
class HALVTIV_API Fields {
public:
    Fields(const Fields&) = delete;
    Fields& operator=(const Fields&) = delete;

    /// Number of columns.
    std::int32_t Count();
    /// The column at a position. Raises -2146825023 for a position below 0 or from `Count` on. What is
    /// returned keeps the rows alive.
    FieldPtr Item(std::int32_t index);
    /// The first column of that name, in any letter case; raises -2146825023 when there is none.
    FieldPtr Item(std::string_view name);

private:
    friend struct RecordsetState;
    explicit Fields(struct RecordsetState& owner) : owner_(&owner) {}
    struct RecordsetState* owner_;
};

/// The rows of one result of a command, one of them current.
///
/// Open over the rows of a statement, or closed: never opened, after `Close`, or because its statement has
/// none. Several may be open on one connection at once. A failed or cancelled statement, at whatever row, and
/// a failed `Update` or `Delete` end the batch: nothing more of it runs, not at `Close` or release either.
///
/// Above adLockReadOnly its rows can be changed, where each is one table's row: not with DISTINCT, grouping,
/// aggregates, UNION, a view, and in a join only where the table's key is selected, too. The query then runs
/// when its rows are first asked for: `AddNew` alone reads nothing. Changes are written one by one, each
/// durable as any statement is, so many of them belong into a transaction.
class HALVTIV_API Recordset {
public:
    /// Makes a recordset that is closed.
    Recordset();
    /// Runs what is left of the batch, ignoring errors; nothing when an exception of the caller releases it.
    ~Recordset();
    Recordset(const Recordset&) = delete;
    Recordset& operator=(const Recordset&) = delete;

    /// Runs a command text and stands on its first row. source may also be the bare name of a table.
    /// cursorType is a `CursorTypeEnum`, lockType a `LockTypeEnum`; options is not used.
    /// Raises -2146824579 when the connection is null or closed, -2147467259 when it is lost, -2146824583
    /// when this recordset is open.
    void Open(std::string_view source, const ConnectionPtr& activeConnection, std::int32_t cursorType,
              std::int32_t lockType, std::int32_t options = -1);
    /// Runs what is left of the batch, whose error is raised after closing, and closes; unread rows are not
    /// fetched. Raises -2146824584 when closed with nothing left, as after one statement without rows.
    void Close();
    /// `adStateClosed` or `adStateOpen`.
    std::int32_t State();

    /// Before the first row; with `IsEOF`: there are no rows. Raises -2146824584 when closed, as do all
    /// members below but `NextRecordset`.
    bool IsBOF();
    /// After the last row.
    bool IsEOF();
    /// Goes to the first row: from the rows kept, never by running the statement again. A forward-only
    /// recordset that has left its first row raises -2146825037; one without rows -2146825267.
    void MoveFirst();
    /// Goes to the next row. Raises -2146825267 at the end. Writes first what has been assigned to the row.
    void MoveNext();

    /// Makes a new record current, to be assigned to: what is not assigned gets the column's default. It is
    /// written by `Update` and stands behind all others; values that the database gives it are not read.
    /// Raises -2146825037 where rows cannot be changed, as do the next two.
    void AddNew();
    /// Writes what has been assigned to the current record: all of it or nothing. Raises -2147217864 when the
    /// row has gone or the values to be replaced have been changed since it was read, -2147217873 for a
    /// violated constraint; the assigned values stay assigned then. Closing gives up what was not written.
    void Update();
    /// Deletes the current record; it stays current, without values, until `MoveNext`. Raises -2147217864
    /// when the row has gone.
    void Delete();

    /// Closes this recordset and returns the batch's next result, whose statement runs now; null after
    /// the last.
    RecordsetPtr NextRecordset();

    /// The columns; raises -2146824584 when closed.
    ado::Fields& Fields();
    /// As `Connection::RequireOtherFile`, of the connection that this recordset was opened on: for exporters,
    /// before they make a file. Does nothing if the recordset has never been
    /// opened.
    void RequireOtherFile(std::string_view path) const;

private:
    friend class Connection;
    friend struct RecordsetState;
    std::shared_ptr<struct RecordsetState> state_;
};

}  // namespace halvtiv::ado
