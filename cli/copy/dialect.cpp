#include "copy/dialect.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "command_error.hpp"
#include "platform/number.hpp"
#include "platform/text.hpp"

namespace halvtiv::cli::copy {
namespace {

void AppendHex(std::string& sql, std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        sql += kDigits[byte >> 4];
        sql += kDigits[byte & 15];
    }
}

void AppendBytes(std::string& sql, Dialect dialect, std::string_view bytes) {
    if (dialect == Dialect::SqlServer) {
        sql += "0x";
        AppendHex(sql, bytes);
        return;
    }
    sql += dialect == Dialect::Postgresql ? "'\\x" : "x'";
    AppendHex(sql, bytes);
    sql += '\'';
}

void AppendQuoted(std::string& sql, Dialect dialect, std::string_view text) {
    if (dialect == Dialect::SqlServer) sql += 'N';
    sql += '\'';
    for (const char character : text) {
        if (character == '\'') sql += character;
        sql += character;
    }
    sql += '\'';
}

void AppendText(std::string& sql, Dialect dialect, std::string_view text) {
    if (text.find('\0') == std::string_view::npos) {
        AppendQuoted(sql, dialect, text);
        return;
    }
    // No statement's text carries a NUL.
    switch (dialect) {
        case Dialect::Sqlite:
            sql += "cast(";
            AppendBytes(sql, dialect, text);
            sql += " as text)";
            return;
        case Dialect::MariaDb:
            sql += "convert(";
            AppendBytes(sql, dialect, text);
            sql += " using utf8mb4)";
            return;
        default:
            throw ErrorInfo(-1, "A text holds a NUL character, which the database cannot hold.");
    }
}

void AppendBoolean(std::string& sql, Dialect dialect, std::string_view text) {
    const std::optional<bool> value = BooleanOf(text);
    if (!value) {
        AppendText(sql, dialect, text);
    } else if (dialect == Dialect::Postgresql) {
        sql += *value ? "true" : "false";
    } else {
        sql += *value ? '1' : '0';
    }
}

bool IsInteger(std::string_view text) {
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, value);
    return read.ec == std::errc() && read.ptr == end;
}

void AppendNumber(std::string& sql, Dialect dialect, std::string_view text) {
    if (dialect == Dialect::Sqlite) {
        const std::string lower = platform::ToLower(text);
        const bool isNegative = lower.starts_with('-');
        if (lower.substr(isNegative ? 1 : 0).starts_with("inf")) {
            sql += isNegative ? "-9e999" : "9e999";
            return;
        }
    }
    // In quotes, this server reads a number as its column's type does; without, first as an exact decimal.
    const bool staysPlain =
        dialect == Dialect::Postgresql ? IsInteger(text) : platform::ParseNumber(text).has_value();
    if (staysPlain) {
        sql += platform::TrimBlanks(text);
    } else {
        AppendText(sql, dialect, text);
    }
}

/// That server compares a number with the largest of the column before it rounds it to one of the column's.
void AppendSingle(std::string& sql, Dialect dialect, std::string_view text) {
    const auto number = platform::ParseNumber(text);
    constexpr double kLargest = 3.4028235677973362e38;  // what still rounds to the largest there is
    const bool fits = number && std::abs(*number) < kLargest;
    if (dialect != Dialect::MariaDb || !fits) return AppendNumber(sql, dialect, text);
    char buffer[platform::kNumberTextSize];
    sql += platform::DoubleText(static_cast<double>(static_cast<float>(*number)), buffer);
}

void AppendTimestamp(std::string& sql, Dialect dialect, std::string_view text) {
    // That server reads the form with a blank by the language of its user.
    std::string form(text);
    if (dialect != Dialect::Sqlite && IsInUtc(form)) form.pop_back();  // as moments are kept there
    if (dialect == Dialect::SqlServer && form.size() > 10 && form[10] == ' ') form[10] = 'T';
    AppendText(sql, dialect, form);
}

std::vector<Cell> RowOf(ado::Fields& fields) {
    std::vector<Cell> row;
    for (std::int32_t i = 0; i < fields.Count(); ++i) {
        const ado::FieldPtr field = fields.Item(i);
        if (field->IsNull()) {
            row.emplace_back();
        } else {
            row.emplace_back(field->Text());
        }
    }
    return row;
}

}  // namespace

Dialect DialectOf(const ado::Connection& connection) {
    struct Name {
        std::string_view part;
        Dialect dialect;
    };
    constexpr std::array<Name, 7> kNames{{{"sqlite", Dialect::Sqlite},
                                          {"postgres", Dialect::Postgresql},
                                          {"mariadb", Dialect::MariaDb},
                                          {"mysql", Dialect::MariaDb},
                                          {"sql server", Dialect::SqlServer},
                                          {"sqlserver", Dialect::SqlServer},
                                          {"access", Dialect::Access}}};
    const std::string database = platform::ToLower(connection.DatabaseName());
    for (const auto& [part, dialect] : kNames) {
        if (database.find(part) != std::string::npos) return dialect;
    }
    throw CommandError(ExitStatus::NotRun, "Tables of this kind of database cannot be copied: " +
                                               connection.DatabaseName() + ".");
}

std::optional<bool> BooleanOf(std::string_view text) {
    constexpr std::array<std::string_view, 4> kTrue{"1", "true", "t", "\x01"};
    constexpr std::array<std::string_view, 4> kFalse{"0", "false", "f", std::string_view("\0", 1)};
    const auto isText = [text](std::string_view word) { return platform::EqualIgnoringCase(text, word); };
    if (std::any_of(kTrue.begin(), kTrue.end(), isText)) return true;
    if (std::any_of(kFalse.begin(), kFalse.end(), isText)) return false;
    return std::nullopt;
}

bool IsInUtc(std::string_view moment) {
    return moment.ends_with('Z') && moment.find(':') != std::string_view::npos;
}

std::string QuotedName(Dialect dialect, std::string_view name) {
    switch (dialect) {
        case Dialect::MariaDb:
            return '`' + platform::ReplaceAll(name, "`", "``") + '`';
        case Dialect::SqlServer:
            return '[' + platform::ReplaceAll(name, "]", "]]") + ']';
        default:
            return '"' + platform::ReplaceAll(name, "\"", "\"\"") + '"';
    }
}

std::string QuotedNames(Dialect dialect, const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + QuotedName(dialect, name);
    return text;
}

void AppendLiteral(std::string& sql, Dialect dialect, Kind kind, std::string_view value) {
    switch (kind) {
        case Kind::Boolean:
            return AppendBoolean(sql, dialect, value);
        case Kind::TinyInt:
        case Kind::SmallInt:
        case Kind::Integer:
        case Kind::BigInt:
        case Kind::Single:
        case Kind::Double:
        case Kind::Decimal:
            // A column of numbers may be told to hold truth values on the other side.
            if (const auto truth =
                    value.starts_with('T') || value.starts_with('F') ? BooleanOf(value) : std::nullopt) {
                sql += *truth ? '1' : '0';
                return;
            }
            return kind == Kind::Single ? AppendSingle(sql, dialect, value)
                                        : AppendNumber(sql, dialect, value);
        case Kind::Binary:
        case Kind::VarBinary:
        case Kind::Blob:
            return AppendBytes(sql, dialect, value);
        case Kind::Timestamp:
            return AppendTimestamp(sql, dialect, value);
        default:
            return AppendText(sql, dialect, value);
    }
}

const std::string& RequireSqliteLiteral(const std::string& text) {
    constexpr std::string_view kCast = "cast(";
    constexpr std::string_view kAsText = " as text)";
    std::string_view value = text;
    if (value.starts_with(kCast) && value.ends_with(kAsText)) {
        value = value.substr(kCast.size(), value.size() - kCast.size() - kAsText.size());
    }
    if (platform::ParseNumber(value)) return text;
    if (value.starts_with('X') || value.starts_with('x')) value.remove_prefix(1);
    bool isOne = value.size() > 1 && value.front() == '\'' && value.back() == '\'';
    for (std::size_t i = 1; isOne && i + 1 < value.size(); ++i) {
        if (value[i] == '\'') isOne = value[++i] == '\'' && i + 1 < value.size();
    }
    if (isOne) return text;
    throw ErrorInfo(-1, "The table halvtiv_copy names a key that cannot be one.");
}

std::string TextLiteral(Dialect dialect, std::string_view text) {
    std::string sql;
    AppendText(sql, dialect, text);
    return sql;
}

std::vector<std::vector<Cell>> RowsOf(const Database& database, std::string_view sql) {
    std::vector<std::vector<Cell>> all;
    ado::Recordset rows;
    rows.Open(sql, database.connection, ado::adOpenForwardOnly, ado::adLockReadOnly);
    for (; !rows.IsEOF(); rows.MoveNext()) all.push_back(RowOf(rows.Fields()));
    rows.Close();
    return all;
}

Cell ScalarOf(const Database& database, std::string_view sql) {
    const auto rows = RowsOf(database, sql);
    return rows.empty() ? std::nullopt : rows.front().at(0);
}

void RunAll(const Database& database, std::string_view sql) {
    ado::RecordsetPtr result = database.connection->Execute(sql);
    while (result) result = result->NextRecordset();
}

Transaction::Transaction(ado::ConnectionPtr connection) : connection_(std::move(connection)) {
    connection_->BeginTrans();
}

Transaction::~Transaction() {
    if (!isOpen_) return;
    try {
        connection_->RollbackTrans();
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): it went with its connection
    }
}

void Transaction::Commit() {
    isOpen_ = false;  // a failed commit has rolled it back
    connection_->CommitTrans();
}

}  // namespace halvtiv::cli::copy
