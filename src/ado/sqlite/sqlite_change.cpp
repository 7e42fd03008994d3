// Changes of single rows, their long values in pieces.

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <optional>
#include <string>

#include "ado/change_text.hpp"
#include "ado/errors.hpp"
#include "ado/sql_scanner.hpp"
#include "ado/sqlite/sqlite_blob.hpp"
#include "ado/sqlite/sqlite_schema.hpp"
#include "ado/sqlite/sqlite_session.hpp"
#include "ado/sqlite/sqlite_types.hpp"
#include "platform/utf8.hpp"

namespace halvtiv::ado {
namespace {

// Smaller values are written with their row: that costs less, and whatever looks at the row sees them.
constexpr std::int64_t kWrittenInPieces = std::int64_t{1} << 20;

bool IsWrittenInPieces(const Parameter& parameter) {
    return parameter.source && parameter.value.kind == CellKind::Blob &&
           parameter.source->Size() > kWrittenInPieces;
}

std::string PlainName(std::string_view quoted) {
    return SqlScanner(quoted).Next().Name();
}

bool IsUtf8(std::string_view text) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    for (std::size_t i = 0; i < text.size();) {
        const auto length = bytes[i] < 0x80 ? 1 : platform::Utf8Length(bytes + i, text.size() - i);
        if (length == 0) return false;
        i += length;
    }
    return true;
}

bool MayBeNumber(std::string_view text) {
    return text.find_first_not_of("0123456789+-.eE \t\n\v\f\r") == std::string_view::npos;
}

/// The values of a statement in its places; it gives them up again when this object goes.
class BoundValues {
public:
    BoundValues(SqliteSession& session, const ChangeTarget::Table& table, sqlite3_stmt* statement)
        : session_(session), table_(table), statement_(statement) {}
    ~BoundValues() { sqlite3_clear_bindings(statement_); }
    BoundValues(const BoundValues&) = delete;
    BoundValues& operator=(const BoundValues&) = delete;

    void Bind(int place, const Parameter& parameter, bool inPieces) {
        const int status = inPieces && IsWrittenInPieces(parameter)
                               ? sqlite3_bind_zeroblob64(
                                     statement_, place, static_cast<sqlite3_uint64>(parameter.source->Size()))
                               : BindValue(place, parameter);
        if (status != SQLITE_OK) RaiseSqliteError(session_.Database(), status);
    }

private:
    int BindValue(int place, const Parameter& parameter) {
        const CellValue& value = parameter.value;
        switch (value.kind) {
            case CellKind::Integer:
                return sqlite3_bind_int64(statement_, place, value.integer);
            case CellKind::Double:
                return sqlite3_bind_double(statement_, place, value.number);
            case CellKind::Text:
            case CellKind::Blob:
                return BindText(place, parameter, parameter.source ? WholeOf(*parameter.source) : value.text);
            default:
                return sqlite3_bind_null(statement_, place);
        }
    }

    int BindText(int place, const Parameter& parameter, std::string_view text) {
        const char* const bytes = text.empty() ? "" : text.data();
        const bool isText = parameter.value.kind == CellKind::Text && KeepsBytes(parameter, text);
        return isText ? sqlite3_bind_text64(statement_, place, bytes, text.size(), SQLITE_STATIC, SQLITE_UTF8)
                      : sqlite3_bind_blob64(statement_, place, bytes, text.size(), SQLITE_STATIC);
    }

    // As a text, what is no UTF-8 would change in a file of another encoding, and a file's digits in a column
    // of numeric affinity.
    bool KeepsBytes(const Parameter& parameter, std::string_view text) const {
        auto* const database = session_.Database();
        if (!IsUtf8(text) && !IsUtf8SqliteDatabase(database)) return false;
        if (!parameter.source || !MayBeNumber(text)) return true;
        const auto facts = SqliteTableFactsOf(database, table_.schema, table_.plainName);
        const auto* const column = facts.Find(PlainName(parameter.name));
        return !column || HasTextAffinity(column->type);
    }

    std::string_view WholeOf(ByteSource& source) {
        const auto size = source.Size();
        if (size > sqlite3_limit(session_.Database(), SQLITE_LIMIT_LENGTH, -1)) {
            throw MakeProviderError(AdoError::SqlError, "string or blob too big", kSqliteName);
        }
        std::string& whole = wholes_.emplace_back(static_cast<std::size_t>(size), '\0');
        const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(whole.data()), whole.size());
        for (std::size_t read = 0; read < bytes.size();) {
            session_.StopIfCancelled();
            const auto piece =
                bytes.subspan(read, std::min<std::size_t>(bytes.size() - read, kWrittenInPieces));
            source.Read(static_cast<std::int64_t>(read), piece);
            read += piece.size();
        }
        return whole;
    }

    SqliteSession& session_;
    const ChangeTarget::Table& table_;
    sqlite3_stmt* statement_;
    std::list<std::string> wholes_;  // the values stay where they are
};

/// The id of the row that a change leaves; nothing where it is not known.
std::optional<std::int64_t> RowIdAfter(const RowChange& change, const std::optional<std::int64_t>& newKey) {
    if (change.kind == RowChange::Kind::Insert) return newKey;
    const auto& table = *change.table;
    const bool changesKey = std::any_of(change.values.begin(), change.values.end(), [&](const auto& value) {
        return value.name == table.keyAlias || value.name == table.key.front().name;
    });
    if (!table.keyIsRowId || changesKey) return std::nullopt;
    return change.conditions.front().value.integer;
}

}  // namespace

RowChangeResult SqliteSession::Change(const RowChange& change) {
    RequireOpen();
    ReleaseReaders();
    StartClock();
    const auto& table = *change.table;
    const bool rowIdIsKnown =
        table.keyIsRowId && (change.kind == RowChange::Kind::Insert || RowIdAfter(change, std::nullopt));
    bool hasLarge = false;
    bool mayFillLater = rowIdIsKnown;
    for (const auto& value : change.values) {
        if (!mayFillLater || !IsWrittenInPieces(value)) continue;
        hasLarge = true;
        mayFillLater = MayFillLater(database_.get(), table.schema, table.plainName, PlainName(value.name));
    }
    return hasLarge && mayFillLater ? ChangeInPieces(change) : RunChange(change, false);
}

RowChangeResult SqliteSession::RunChange(const RowChange& change, bool inPieces) {
    const auto written = WriteChange(change, [](std::string& text, std::size_t, const Parameter& parameter) {
        text += parameter.isOldText ? "? COLLATE BINARY" : "?";
    });
    const auto statement = Acquire(written.text, Purpose::Read);
    BoundValues values(*this, *change.table, statement->Handle());
    int place = 0;
    for (const auto* parameter : written.parameters) values.Bind(++place, *parameter, inPieces);
    const auto changesBefore = TotalChanges();
    // A change of ordinary length is not stopped half-way.
    constexpr std::chrono::milliseconds kOrdinary{250};
    if (InTransaction()) undisturbedUntil_ = Clock::now() + kOrdinary;
    Step(*statement);
    RowChangeResult result;
    result.affectedRows = TotalChanges() == changesBefore ? 0 : LastChanges();
    sqlite3_reset(statement->Handle());
    // A trigger may have left the row out.
    if (change.kind == RowChange::Kind::Insert && change.table->keyIsRowId && result.affectedRows > 0) {
        result.newKey = sqlite3_last_insert_rowid(database_.get());
    }
    return result;
}

// The row and its long values as one change.
RowChangeResult SqliteSession::ChangeInPieces(const RowChange& change) {
    const auto changeAndFill = [&] {
        const auto result = RunChange(change, true);
        if (result.affectedRows == 0) return result;
        const auto rowId = RowIdAfter(change, result.newKey).value();
        for (const auto& value : change.values) {
            if (!IsWrittenInPieces(value)) continue;
            FillSqliteBlob(*this, *change.table, PlainName(value.name), rowId, *value.source);
        }
        return result;
    };
    const bool isOutermost = !InTransaction();
    // A savepoint makes the database keep what the value replaces a second time.
    if (!isOutermost && change.undoneByCaller) return changeAndFill();
    constexpr std::int32_t kLevel = 0;  // below those that a connection counts
    if (isOutermost) {
        Begin();
    } else {
        SetSavepoint(kLevel);
    }
    RowChangeResult result;
    try {
        result = changeAndFill();
    } catch (...) {
        UndoAfterFailure(isOutermost ? std::nullopt : std::optional(kLevel));
        throw;
    }
    if (isOutermost) {
        Commit();
    } else {
        ReleaseSavepoint(kLevel);
    }
    return result;
}

}  // namespace halvtiv::ado
