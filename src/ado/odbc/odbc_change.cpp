// Changes of single rows, their long values sent in pieces.

#include <algorithm>
#include <list>
#include <string>
#include <vector>

#include "ado/change_text.hpp"
#include "ado/errors.hpp"
#include "ado/odbc/odbc_execution.hpp"
#include "ado/odbc/odbc_session.hpp"
#include "ado/odbc/odbc_text.hpp"
#include "platform/date_time.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::size_t kPieceSize = std::size_t{64} << 10;
// Drivers and databases take longer texts and bytes only as long ones.
constexpr std::size_t kLongestShort = 4000;

bool HasOffset(std::string_view text) {
    const auto parsed = platform::ParseDateTime(text);
    return parsed && parsed->hasOffset;
}

/// The values of a statement, bound to its places until this object goes.
class BoundParameters {
public:
    BoundParameters(OdbcSession& session, SQLHSTMT statement) : session_(session), statement_(statement) {}
    ~BoundParameters() {
        if (session_.IsUsable()) SQLFreeStmt(statement_, SQL_RESET_PARAMS);
    }
    BoundParameters(const BoundParameters&) = delete;
    BoundParameters& operator=(const BoundParameters&) = delete;

    void Bind(SQLUSMALLINT place, const Parameter& parameter) {
        auto& value = values_.emplace_back();
        value.parameter = &parameter;
        switch (parameter.value.kind) {
            case CellKind::Integer:
                value.integer = parameter.value.integer;
                return BindMemory(place, SQL_C_SBIGINT, SQL_BIGINT, 0, &value.integer, sizeof value.integer);
            case CellKind::Double:
                value.number = parameter.value.number;
                return BindMemory(place, SQL_C_DOUBLE, SQL_DOUBLE, 0, &value.number, sizeof value.number);
            case CellKind::Text:
            case CellKind::Blob:
                return BindBytes(place, value);
            default:
                value.length = SQL_NULL_DATA;
                return BindMemory(place, SQL_C_CHAR, ColumnType(place, SQL_VARCHAR), 1, nullptr, 0);
        }
    }

    /// Runs the statement, and gives it the values that it asks for.
    SQLRETURN Execute() {
        auto status = session_.Wait(statement_, [this] { return SQLExecute(statement_); });
        try {
            while (status == SQL_NEED_DATA) {
                SQLPOINTER token = nullptr;
                status = session_.Wait(statement_, [&] { return SQLParamData(statement_, &token); });
                if (status == SQL_NEED_DATA) Send(*static_cast<Value*>(token));
            }
        } catch (...) {
            SQLCancel(statement_);
            throw;
        }
        return status;
    }

private:
    struct Value {
        const Parameter* parameter = nullptr;
        std::int64_t integer = 0;
        double number = 0;
        std::vector<SQLWCHAR> wide;
        SQLLEN length = 0;
        bool isWide = false;
    };

    bool IsWideText(const Parameter& parameter) const {
        return parameter.value.kind == CellKind::Text && session_.Traits().readsWide;
    }

    // What the database says of the place, where it says anything worth.
    SQLSMALLINT ColumnType(SQLUSMALLINT place, SQLSMALLINT otherwise) const {
        const auto dialect = session_.Traits().dialect;
        if (dialect == OdbcDialect::MariaDb || dialect == OdbcDialect::Sqlite) return otherwise;
        SQLSMALLINT type = otherwise;
        SQLULEN size = 0;
        SQLSMALLINT digits = 0;
        SQLSMALLINT nullable = 0;
        const auto status = SQLDescribeParam(statement_, place, &type, &size, &digits, &nullable);
        return SQL_SUCCEEDED(status) && type != SQL_UNKNOWN_TYPE ? type : otherwise;
    }

    void BindBytes(SQLUSMALLINT place, Value& value) {
        const auto& parameter = *value.parameter;
        const bool isText = parameter.value.kind == CellKind::Text;
        if (isText) RefuseNul(parameter.value.text);
        value.isWide = IsWideText(parameter);
        const auto size = parameter.source ? static_cast<std::size_t>(parameter.source->Size())
                                           : parameter.value.text.size();
        const auto cType = !isText ? SQL_C_BINARY : value.isWide ? SQL_C_WCHAR : SQL_C_CHAR;
        const auto ofKind = TypeOfKind(isText, value.isWide, size > kLongestShort);
        auto type = isText && size <= kLongestShort ? ColumnType(place, ofKind) : ofKind;
        // A driver that reads it as a moment of its own leaves out the offset, or the time of day.
        if (type == SQL_TYPE_TIMESTAMP && HasOffset(parameter.value.text)) type = ofKind;
        if (parameter.source) {
            // How long it is in UTF-16 shows only when it is sent.
            value.length = value.isWide ? SQL_DATA_AT_EXEC : SQL_LEN_DATA_AT_EXEC(static_cast<SQLLEN>(size));
            return BindMemory(place, static_cast<SQLSMALLINT>(cType), type, size, &value, 0, &value.length);
        }
        if (value.isWide) {
            value.wide = ToWide(parameter.value.text);
            const auto units = value.wide.size() - 1;
            return BindMemory(place, SQL_C_WCHAR, type, units, value.wide.data(), units * sizeof(SQLWCHAR));
        }
        BindMemory(place, static_cast<SQLSMALLINT>(cType), type, size,
                   const_cast<char*>(parameter.value.text.data()), size);
    }

    // These drivers write what stands before it, and say nothing.
    void RefuseNul(std::string_view text) const {
        const auto dialect = session_.Traits().dialect;
        if (dialect != OdbcDialect::Sqlite && dialect != OdbcDialect::PostgreSql) return;
        if (text.find('\0') == std::string_view::npos) return;
        throw MakeProviderError(AdoError::SqlError, "The driver takes no text with a NUL character.",
                                session_.Traits().databaseName);
    }

    static SQLSMALLINT TypeOfKind(bool isText, bool isWide, bool isLong) {
        if (!isText) return isLong ? SQL_LONGVARBINARY : SQL_VARBINARY;
        if (isWide) return isLong ? SQL_WLONGVARCHAR : SQL_WVARCHAR;
        return isLong ? SQL_LONGVARCHAR : SQL_VARCHAR;
    }

    void BindMemory(SQLUSMALLINT place, SQLSMALLINT cType, SQLSMALLINT type, std::size_t size, void* memory,
                    std::size_t length) {
        auto& value = values_.back();
        if (value.length != SQL_NULL_DATA) value.length = static_cast<SQLLEN>(length);
        BindMemory(place, cType, type, size, memory, length, &value.length);
    }

    void BindMemory(SQLUSMALLINT place, SQLSMALLINT cType, SQLSMALLINT type, std::size_t size, void* memory,
                    std::size_t length, SQLLEN* lengthOrToken) {
        static char nothing[1] = {};
        session_.Check(
            SQLBindParameter(statement_, place, SQL_PARAM_INPUT, cType, type, std::max<SQLULEN>(size, 1), 0,
                             memory ? memory : nothing, static_cast<SQLLEN>(length), lengthOrToken),
            statement_);
    }

    void Send(const Value& value) {
        auto& source = *value.parameter->source;
        const auto size = static_cast<std::size_t>(source.Size());
        std::string piece;  // begins with what the piece before has left of a character
        if (size == 0) Put(value, piece);
        for (std::size_t sent = 0; sent < size;) {
            session_.StopIfCancelled();
            const auto kept = piece.size();
            const auto count = std::min(kPieceSize, size - sent);
            piece.resize(kept + count);
            source.Read(static_cast<std::int64_t>(sent),
                        std::span(reinterpret_cast<std::uint8_t*>(piece.data()) + kept, count));
            sent += count;
            const auto held = value.isWide && sent < size ? IncompleteTail(piece) : 0;
            Put(value, std::string_view(piece).substr(0, piece.size() - held));
            piece.erase(0, piece.size() - held);
        }
    }

    void Put(const Value& value, std::string_view piece) {
        std::vector<SQLWCHAR> wide;
        auto* data = const_cast<char*>(piece.data());
        auto length = static_cast<SQLLEN>(piece.size());
        if (value.isWide) {
            wide = ToWide(piece);
            data = reinterpret_cast<char*>(wide.data());
            length = static_cast<SQLLEN>((wide.size() - 1) * sizeof(SQLWCHAR));
        }
        session_.Check(session_.Wait(statement_, [&] { return SQLPutData(statement_, data, length); }),
                       statement_);
    }

    OdbcSession& session_;
    SQLHSTMT statement_;
    std::list<Value> values_;  // they stay where they are
};

// A column's own comparison may pass over letter case: what somebody else has changed in it would be lost.
std::string_view PlaceOfOldText(OdbcDialect dialect) {
    if (dialect == OdbcDialect::MariaDb) return "CONVERT(? USING utf8mb4) COLLATE utf8mb4_bin";
    return dialect == OdbcDialect::Sqlite ? "? COLLATE BINARY" : "?";
}

}  // namespace

RowChangeResult OdbcSession::Change(const RowChange& change) {
    RequireOpen();
    MakeRoom(nullptr);
    const auto written = WriteChange(
        change,
        [this](std::string& text, std::size_t, const Parameter& parameter) {
            text += parameter.isOldText ? PlaceOfOldText(traits_.dialect) : "?";
        },
        traits_.dialect == OdbcDialect::MariaDb ? " () VALUES ()" : " DEFAULT VALUES");
    auto* const statement = PreparedStatement(written.text);
    RowChangeResult result;
    {
        BoundParameters parameters(*this, statement);
        SQLUSMALLINT place = 0;
        for (const auto* parameter : written.parameters) parameters.Bind(++place, *parameter);
        const auto status = parameters.Execute();
        if (status != SQL_NO_DATA) Check(status, statement);
        SQLLEN rows = 0;
        if (status != SQL_NO_DATA) Check(SQLRowCount(statement, &rows), statement);
        result.affectedRows = rows;
        SQLFreeStmt(statement, SQL_CLOSE);
    }
    if (change.kind == RowChange::Kind::Insert) result.newKey = NewKeyAfter(change);
    return result;
}

SQLHSTMT OdbcSession::PreparedStatement(const std::string& text) {
    constexpr std::size_t kMost = 16;
    const auto found = std::find_if(changes_.begin(), changes_.end(),
                                    [&](const auto& prepared) { return prepared.text == text; });
    if (found != changes_.end()) {
        changes_.splice(changes_.begin(), changes_, found);
        return changes_.front().statement.Get();
    }
    auto statement = NewStatement();
    Check(PrepareText(statement.Get(), text), statement.Get());
    if (changes_.size() == kMost) changes_.pop_back();
    changes_.push_front({text, std::move(statement)});
    return changes_.front().statement.Get();
}

std::optional<std::int64_t> OdbcSession::NewKeyAfter(const RowChange& change) {
    const auto& table = *change.table;
    const bool isGiven = std::any_of(change.values.begin(), change.values.end(), [&](const auto& value) {
        return !table.key.empty() && value.name == table.key.front().name;
    });
    if (!table.keyIsRowId || isGiven) return std::nullopt;
    const auto* const query = traits_.dialect == OdbcDialect::MariaDb     ? "SELECT LAST_INSERT_ID()"
                              : traits_.dialect == OdbcDialect::SqlServer ? "SELECT @@IDENTITY"
                              : traits_.dialect == OdbcDialect::Sqlite    ? "SELECT last_insert_rowid()"
                                                                          : nullptr;
    if (!query) return std::nullopt;
    const auto statement = NewStatement();
    Check(ExecuteText(statement.Get(), query), statement.Get());
    SQLBIGINT key = 0;
    SQLLEN length = SQL_NULL_DATA;
    Check(SQLFetch(statement.Get()), statement.Get());
    Check(SQLGetData(statement.Get(), 1, SQL_C_SBIGINT, &key, sizeof key, &length), statement.Get());
    if (length == SQL_NULL_DATA) return std::nullopt;
    return key;
}

}  // namespace halvtiv::ado
