#include "copy/copy_command.hpp"

#include <atomic>
#include <chrono>
#include <halvtiv/halvtiv.hpp>
#include <iostream>
#include <optional>
#include <utility>
#include <vector>

#include "connection.hpp"
#include "copy/copy_plan.hpp"
#include "copy/table_mover.hpp"
#include "formats.hpp"
#include "output.hpp"
#include "platform/files.hpp"
#include "platform/interrupt.hpp"
#include "progress.hpp"

namespace halvtiv::cli {
namespace {

using namespace copy;

constexpr ConnectionNames kFrom{
    "HALVTIV_FROM", "HALVTIV_FROM_PASSWORD",
    "No database to copy from is named: use --from, --from-file or the environment's "
    "HALVTIV_FROM.",
    true, false};
constexpr ConnectionNames kTo{
    "HALVTIV_TO", "HALVTIV_TO_PASSWORD",
    "No database to copy to is named: use --to, --to-file or the environment's HALVTIV_TO.", true, true};

/// A file that the command has made, which goes where nothing has come into it.
struct NewFile {
    NewFile() = default;
    ~NewFile() {
        if (path) platform::RemoveEmptyFile(platform::NativePath(*path));
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    std::optional<std::string> path;
};

Database Open(ZorbDbAccessEngine& engine, const ConnectionOptions& options,
              const std::optional<std::string>& output, const ConnectionNames& names, NewFile& made) {
    made.path = Connect(engine, options, output, names);
    const ado::ConnectionPtr connection = engine.GetDatabaseConnection();
    Database database{connection, DialectOf(*connection)};
    if (database.dialect == Dialect::MariaDb) {
        // A value that does not fit is an error, 0 is a number like any other, a backslash is one; and a
        // moment is not told in hours that there are twice, or never, in a year.
        RunAll(database,
               "set session sql_mode = 'STRICT_ALL_TABLES,NO_AUTO_VALUE_ON_ZERO,NO_BACKSLASH_ESCAPES', "
               "time_zone = '+00:00'");
    }
    return database;
}

/// Settings of the target's connection while rows are copied: a commit need not be on the disk before the
/// next batch begins, as one that a crash of the machine takes back is copied again.
class TargetSettings {
public:
    explicit TargetSettings(const Database& target) : target_(target) {
        switch (target.dialect) {
            case Dialect::Sqlite:
                // Rows come table by table; whether all parents are there is looked at in the end.
                RunAll(target, "pragma foreign_keys = off");
                hadJournal_ = ScalarOf(target, "pragma journal_mode") != "wal";
                if (hadJournal_) SetJournal("wal");
                RunAll(target, "pragma synchronous = normal");
                break;
            case Dialect::Postgresql:
                RunAll(target, "set synchronous_commit = off");
                break;
            default:
                break;
        }
    }
    ~TargetSettings() {
        // Where the copy has been cancelled, that may fail the first statement from here.
        for (int attempt = 0; attempt < 2 && !isRestored_; ++attempt) {
            try {
                Restore();
            } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): whatever failed before counts
            }
        }
    }
    TargetSettings(const TargetSettings&) = delete;
    TargetSettings& operator=(const TargetSettings&) = delete;

    /// What is committed before and after this is there for good.
    void Restore() {
        if (isRestored_) return;
        if (target_.dialect == Dialect::Postgresql) RunAll(target_, "set synchronous_commit = on");
        if (target_.dialect == Dialect::Sqlite) {
            RunAll(target_, "pragma synchronous = full");
            if (hadJournal_) SetJournal("delete");
        }
        isRestored_ = true;
    }

private:
    /// Not while somebody else has the file open; then the copy is slower, or the file stays as it is.
    void SetJournal(const std::string& mode) {
        try {
            RunAll(target_, "pragma journal_mode = " + mode);
        } catch (const ErrorInfo&) {  // NOLINT(bugprone-empty-catch)
        }
    }

    Database target_;
    bool hadJournal_ = false;
    bool isRestored_ = false;
};

void Say(const std::string& line) {
    std::cerr << line << '\n';
}

void SayWhatIsLacking(const Database& source, const std::vector<TableCopy>& tables, bool isOfAll) {
    for (const TableCopy& table : tables) {
        if (table.lacks.empty()) continue;
        std::string line = "Table " + table.target.name + " is made without";
        std::string separator = " ";
        for (const std::string& lack : table.lacks) line += std::exchange(separator, ", ") + lack;
        Say(line + '.');
    }
    const std::string others = isOfAll ? OtherObjects(source) : "";
    if (!others.empty()) Say("Not copied: " + others + '.');
}

/// The answer: a row for each table, as a result document.
std::string ResultXml(const std::vector<TableCopy>& tables) {
    const auto memory = std::make_shared<ado::Connection>();
    memory->Open("Provider=SQLite;Data Source=:memory:");
    const Database database{memory, Dialect::Sqlite};
    RunAll(
        database,
        "create table result (\"table\" text, rows integer, copied integer, seconds double, equal boolean)");
    for (const TableCopy& table : tables) {
        std::string sql = "insert into result values (";
        AppendLiteral(sql, database.dialect, Kind::Text, table.target.name);
        const auto hundredths = static_cast<std::int64_t>(table.seconds * 100);
        sql += ", " + std::to_string(table.state.rows) + ", " + std::to_string(table.copiedRows) + ", " +
               std::to_string(hundredths) + " / 100.0, " + (table.isEqual ? "1" : "0") + ")";
        RunAll(database, sql);
    }
    ado::RecordsetPtr rows = memory->Execute("select * from result");
    ZorbFunctionResult result;
    std::string xml;
    if (!result.AddFunctionResult_Data("copy", rows, "") || !result.Save(xml)) result.RaiseLastError();
    return xml;
}

/// Adds the time that it lives.
class Stopwatch {
public:
    explicit Stopwatch(double& seconds) : seconds_(seconds) {}
    ~Stopwatch() {
        seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }
    Stopwatch(const Stopwatch&) = delete;
    Stopwatch& operator=(const Stopwatch&) = delete;

private:
    double& seconds_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Shows how far all tables together are.
class Progress {
public:
    Progress(const std::vector<TableCopy>& tables, std::int64_t (*rowsOf)(const TableCopy&)) {
        for (const TableCopy& table : tables) total_ += rowsOf(table);
    }
    void Add(std::int64_t rows) {
        done_ += rows;
        line_.Show(done_, total_, Unit::Rows);
    }

private:
    ProgressLine line_;
    std::int64_t total_ = 0;
    std::int64_t done_ = 0;
};

/// Does something with one table; an error says with which.
template <typename Action>
void WithTable(TableCopy& table, Action&& action) {
    const Stopwatch stopwatch(table.seconds);
    try {
        action();
    } catch (const ErrorInfo& error) {
        throw CommandError(ExitStatus::Failed, "Table " + table.source.name + ": " + error.Description);
    }
}

std::string Difference(const TableCopy& table) {
    const std::string name = "Table " + table.target.name;
    if (table.sourceRows != table.state.rows) {
        return name + " differs: the source has " + std::to_string(table.sourceRows) + " rows, the target " +
               std::to_string(table.state.rows) + '.';
    }
    std::string text = name + " differs: both sides have " + std::to_string(table.sourceRows) + " rows";
    if (table.differingColumns.empty()) return text + ", but values stand in other rows.";
    text += ", but not the same values in";
    std::string separator = " ";
    for (const std::string& column : table.differingColumns) text += std::exchange(separator, ", ") + column;
    return text + '.';
}

/// The whole way of all tables; whether the target is now like the source.
bool Copy(const Database& source, const Database& target, CopyState& state, std::vector<TableCopy>& tables,
          std::int64_t batch, const std::atomic<bool>& isInterrupted) {
    TargetSettings settings(target);
    MakeTables(source, target, state, tables);
    {
        Progress progress(tables, [](const TableCopy& table) { return table.sourceRows - table.state.rows; });
        const Watch watch{isInterrupted, [&](std::int64_t rows) { progress.Add(rows); }};
        for (TableCopy& table : tables) {
            WithTable(table, [&] { MoveRows(source, target, table, state, batch, watch); });
        }
    }
    settings.Restore();
    const std::vector<std::string> failures = CompleteTables(target, tables);
    for (const std::string& failure : failures) Say(failure + (failure.ends_with('.') ? "" : "."));
    {
        Progress progress(tables, [](const TableCopy& table) { return table.state.rows; });
        const Watch watch{isInterrupted, [&](std::int64_t rows) { progress.Add(rows); }};
        for (TableCopy& table : tables) {
            WithTable(table, [&] { CompareRows(source, target, table, watch); });
        }
    }
    bool isEqual = true;
    for (const TableCopy& table : tables) {
        if (table.isEqual) continue;
        Say(Difference(table));
        isEqual = false;
    }
    if (isEqual) {
        state.Finish();
    } else {
        Say("The table halvtiv_copy stays on the target, so that the same command compares again.");
    }
    return isEqual && failures.empty();
}

}  // namespace

ExitStatus RunCopy(const Options& options) {
    NewFile noFile, targetFile;  // outlive their connections
    ZorbDbAccessEngine from, to;
    std::atomic<bool> isInterrupted = false;
    const platform::InterruptWatch interrupts([&] {
        isInterrupted = true;
        from.Cancel();
        to.Cancel();
    });
    Output output(options.output);
    std::vector<TableCopy> tables;
    bool isGood = false;
    try {
        const Database source = Open(from, options.copy.from, options.output, kFrom, noFile);
        const Database target = Open(to, options.copy.to, options.output, kTo, targetFile);
        if (target.dialect == Dialect::Access) {
            throw CommandError(ExitStatus::NotRun,
                               "Access files can be copied from, but not to: they are read only.");
        }
        CopyState state(target, IdentityOf(source));
        tables = PlanCopy(source, target, state, options.copy.tables);
        SayWhatIsLacking(source, tables, options.copy.tables.empty());
        isGood = Copy(source, target, state, tables, options.copy.batch, isInterrupted);
    } catch (...) {
        if (!isInterrupted) throw;
        Say("Interrupted. The same command goes on from here.");
        return ExitStatus::Interrupted;
    }
    WriteResult(options, ResultXml(tables), output);
    return isGood ? ExitStatus::Done : ExitStatus::Failed;
}

}  // namespace halvtiv::cli
