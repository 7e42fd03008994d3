#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <optional>

#include <halvtiv/data_types.hpp>
#include <halvtiv/output_file.hpp>

#include <halvtiv_exporters/exporters.hpp>

#include "errors.hpp"
#include "exporter_base.hpp"
#include "sqlite_database.hpp"

namespace halvtiv::exporters {

namespace {

constexpr std::array<std::string_view, 3> kTypes{"sqlite", "sqlite3", "db"};

std::string WithSize(const char* type, std::int64_t size, const char* unbounded) {
    constexpr std::int64_t kLargest = 65535;  // what is declared larger has no bound of its own
    if (size <= 0 || size > kLargest) return unbounded;
    return std::string(type) + "(" + std::to_string(size) + ")";
}

/// The declared type that is read as the same type again.
std::string DeclaredType(const SourceColumn& column) {
    switch (column.type) {
        case ado::adSmallInt:
            return "SMALLINT";
        case ado::adTinyInt:
        case ado::adUnsignedTinyInt:
            return "TINYINT";
        case ado::adCurrency:
            return "MONEY";
        case ado::adDBDate:
            return "DATE";
        case ado::adDBTime:
            return "TIME";
        case ado::adGUID:
            return "UNIQUEIDENTIFIER";
        case ado::adBinary:
            return WithSize("BINARY", column.field->DefinedSize(), "BLOB");
        case ado::adVarBinary:
            return WithSize("VARBINARY", column.field->DefinedSize(), "BLOB");
        case ado::adChar:
        case ado::adWChar:
            return WithSize("CHAR", column.field->DefinedSize(), "TEXT");
        case ado::adLongVarChar:
        case ado::adLongVarWChar:
            return "CLOB";
        default:
            break;
    }
    switch (column.kind) {
        case ColumnKind::Integer:
            return "INTEGER";
        case ColumnKind::Double:
            return "DOUBLE";
        case ColumnKind::Decimal:
            return "NUMERIC";
        case ColumnKind::Boolean:
            return "BOOLEAN";
        case ColumnKind::DateTime:
            return "DATETIME";
        case ColumnKind::Bytes:
            return "BLOB";
        default:
            return WithSize("VARCHAR", column.field->DefinedSize(), "TEXT");
    }
}

template <typename Number>
std::optional<Number> Parse(std::string_view text) {
    Number value{};
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || stop != text.data() + text.size()) return std::nullopt;
    return value;
}

/// Whether a double holds a number so that it is read as the same text again.
std::optional<double> DoubleOf(std::string_view number) {
    const auto value = Parse<double>(number);
    if (!value) return std::nullopt;
    std::array<char, 400> text;  // the longest double without an exponent has 326
    const auto [end, error] =
        std::to_chars(text.data(), text.data() + text.size(), *value, std::chars_format::fixed);
    const bool isSame = error == std::errc{} &&
                        std::string_view(text.data(), static_cast<std::size_t>(end - text.data())) == number;
    return isSame ? value : std::nullopt;
}

/// What a column makes of what is put into it.
enum class Affinity { Number, Real, Text, None };

/// The table that is filled.
class TargetTable {
public:
    TargetTable(SqliteDatabase& database, const ExportTask& task)
        : database_(database),
          table_(task.tableName.empty() ? "data" : task.tableName),
          names_(DistinctNames(task.columns, NameCase::IsIgnored)) {
        std::string definitions;
        std::string names;
        std::string places;
        for (std::size_t index = 0; index < names_.size(); ++index) {
            const char* const comma = index == 0 ? "" : ", ";
            const std::string name = QuotedName(names_[index]);
            definitions += comma + name + " " + DeclaredType(task.columns[index]);
            names += comma + name;
            places += comma + std::string("?");
        }
        const std::string table = QuotedName(table_);
        database_.Run("create table if not exists " + table + " (" + definitions + ")");
        if (task.clearTable) database_.Run("delete from " + table);
        insert_.emplace(database_, "insert into " + table + " (" + names + ") values (" + places + ")");
        for (const std::string& name : names_) affinities_.push_back(AffinityOf(name));
    }

    void Add(const std::vector<SourceColumn>& columns) {
        for (std::size_t index = 0; index < columns.size(); ++index) Bind(index, columns[index]);
        insert_->Run();
    }

private:
    Affinity AffinityOf(const std::string& name) const {
        const char* declared = nullptr;
        sqlite3_table_column_metadata(database_.Handle(), nullptr, table_.c_str(), name.c_str(), &declared,
                                      nullptr, nullptr, nullptr, nullptr);
        const std::string type = AsciiLower(declared != nullptr ? declared : "");
        const auto has = [&type](const char* part) { return type.find(part) != std::string::npos; };
        if (has("int")) return Affinity::Number;
        if (has("char") || has("clob") || has("text")) return Affinity::Text;
        if (type.empty() || has("blob")) return Affinity::None;
        return has("real") || has("floa") || has("doub") ? Affinity::Real : Affinity::Number;
    }

    void Bind(std::size_t index, const SourceColumn& column) {
        const std::string_view text = column.field->Text();
        if (text.empty() && column.field->IsNull()) return insert_->BindNull(index);
        const bool isText = affinities_[index] == Affinity::Text;  // where a number would lose digits
        switch (column.kind) {
            case ColumnKind::Integer:
            case ColumnKind::Decimal:
                if (isText) break;
                if (const auto value = Parse<std::int64_t>(text)) {
                    if (affinities_[index] == Affinity::Real) RequireExactReal(index, *value);
                    return insert_->BindInteger(index, *value);
                }
                if (affinities_[index] == Affinity::None) break;
                if (const auto value = DoubleOf(text)) return insert_->BindDouble(index, *value);
                RequireExact(index, text);
                break;
            case ColumnKind::Double:
                if (isText) break;
                if (const auto value = Parse<double>(text); value && !std::isnan(*value)) {  // that is null
                    return insert_->BindDouble(index, *value);
                }
                break;
            case ColumnKind::Boolean:
                if (text == "True" || text == "False") {
                    return insert_->BindInteger(index, text == "True" ? 1 : 0);
                }
                break;
            case ColumnKind::Bytes:
                return insert_->BindBytes(index, text);
            default:
                break;
        }
        insert_->BindText(index, text);
    }

    void RequireExact(std::size_t index, std::string_view number) const {
        constexpr std::size_t kMostDigits = 15;
        if (SignificantDigits(number) > kMostDigits) RaiseRounded(index, number);
    }

    /// Of integers beyond 2^53, a double holds only some.
    void RequireExactReal(std::size_t index, std::int64_t number) const {
        constexpr double kBeyondIntegers = 0x1p63;
        const auto real = static_cast<double>(number);
        if (real == kBeyondIntegers || static_cast<std::int64_t>(real) != number) {
            RaiseRounded(index, std::to_string(number));
        }
    }

    [[noreturn]] void RaiseRounded(std::size_t index, std::string_view number) const {
        Raise(ErrorNumber::Own, "The column \"" + names_[index] + "\" would round " + std::string(number) +
                                    "; a TEXT column keeps all digits.");
    }

    SqliteDatabase& database_;
    std::string table_;
    std::vector<std::string> names_;
    std::optional<SqliteInsert> insert_;
    std::vector<Affinity> affinities_;
};

class SqliteExporter final : public ExporterBase {
public:
    SqliteExporter() : ExporterBase(Format{"SQLite database", kTypes}) {}

protected:
    std::int64_t Write(ExportTask& task) override {
        const std::string path = NativePath(task.fileName);
        if (path.find('\0') != std::string::npos) RaisePathAccess({});
        std::error_code ignored;
        const bool exists = std::filesystem::exists(path, ignored);
        const std::string file = std::filesystem::weakly_canonical(path, ignored).string();  // follows links
        const bool isJournal = std::any_of(kJournals.begin(), kJournals.end(),
                                           [&file](const char* ending) { return file.ends_with(ending); });
        // Exporting into a table of the source database is allowed.
        if (!exists || isJournal) task.rows.RequireOtherFile(path);
        if (exists) {
            SqliteDatabase database(path);
            return Fill(database, task);
        }
        OutputFile target(path);
        if (target.TemporaryPath().empty()) RaisePathAccess(path);
        SqliteDatabase database(target.TemporaryPath());
        database.Run("pragma journal_mode = off");  // what fails half-way is not kept
        const std::int64_t rows = Fill(database, task);
        database.Close();
        // If another process has created the file, its journal may be in use.
        if (!std::filesystem::exists(target.TargetPath(), ignored)) RemoveJournals(target.TargetPath());
        target.CommitAsNew();
        return rows;
    }

private:
    static constexpr std::array<const char*, 3> kJournals{"-journal", "-wal", "-shm"};

    /// What an earlier database of that name, gone since, has left beside it would be played back into this
    /// one.
    static void RemoveJournals(const std::string& file) {
        for (const char* const ending : kJournals) {
            std::error_code error;
            std::filesystem::remove(file + ending, error);
            if (!error) continue;
            const bool isDenied =
                error == std::errc::permission_denied || error == std::errc::operation_not_permitted;
            Raise(isDenied ? ErrorNumber::PermissionDenied : ErrorNumber::PathAccess,
                  error.message() + " (" + file + ending + ")");
        }
    }

    // Closing the database without a commit rolls back.
    std::int64_t Fill(SqliteDatabase& database, const ExportTask& task) {
        database.Run("begin immediate");
        // Rows may come out of this very file: to wait for that reader before it is done is in vain. Its
        // pages stay in memory instead.
        database.WaitForOthers(false);
        std::int64_t rows = 0;
        {
            TargetTable table(database, task);
            rows = ForEachRow(task, [&](std::int64_t /*row*/) { table.Add(task.columns); });
        }
        database.WaitForOthers(true);
        database.Run("commit");
        return rows;
    }
};

}  // namespace

IZorbDataExporterPtr NewSqliteExporter() {
    return std::make_shared<SqliteExporter>();
}

}  // namespace halvtiv::exporters
