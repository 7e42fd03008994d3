#include "copy/table_mover.hpp"

#include <algorithm>
#include <future>
#include <optional>
#include <utility>

#include "copy/row_hash.hpp"
#include "copy/row_writer.hpp"
#include "copy/table_reader.hpp"

namespace halvtiv::cli::copy {
namespace {

constexpr std::int64_t kComparedPage = 10'000;

std::vector<Kind> KindsOf(const std::vector<const Column*>& columns) {
    std::vector<Kind> kinds;
    kinds.reserve(columns.size());
    for (const Column* column : columns) kinds.push_back(column->type.kind);
    return kinds;
}

std::vector<ComparedColumn> ComparedColumns(const TableCopy& table) {
    std::vector<ComparedColumn> columns;
    for (std::size_t i = 0; i < table.from.size(); ++i) {
        const Kind source = table.from[i]->type.kind;
        const Kind target = table.to[i]->type.kind;
        columns.push_back(
            {target == Kind::Single ? target : source, source == Kind::Char || target == Kind::Char});
    }
    return columns;
}

RowSum SumOf(const Database& database, const Table& table, const std::vector<const Column*>& columns,
             std::vector<ComparedColumn> compared, const Watch& watch) {
    RowSum sum(std::move(compared));
    TableReader reader(database, table, columns, kComparedPage);
    while (reader.OpenPage()) {
        std::int64_t rows = 0;
        std::size_t bytes = 0;
        do {
            watch.Look();
            bytes = sum.Add(reader.Cells());
            ++rows;
        } while (reader.NextRow(bytes));
        watch.report(rows);
    }
    return sum;
}

/// On SQL Server, a table takes numbers for its identity column only when it is told to.
class IdentityInsert {
public:
    IdentityInsert(const Database& database, const TableCopy& table) {
        const bool isNeeded = database.dialect == Dialect::SqlServer &&
                              std::any_of(table.to.begin(), table.to.end(),
                                          [](const Column* column) { return column->isAutoNumber; });
        if (!isNeeded) return;
        database_ = database;
        name_ = QuotedName(database.dialect, table.target.name);
        RunAll(database, "set identity_insert " + name_ + " on");
    }
    ~IdentityInsert() {
        if (!database_) return;
        try {
            RunAll(*database_, "set identity_insert " + name_ + " off");
        } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): it goes with the connection
        }
    }
    IdentityInsert(const IdentityInsert&) = delete;
    IdentityInsert& operator=(const IdentityInsert&) = delete;

private:
    std::optional<Database> database_;
    std::string name_;
};

}  // namespace

void MoveRows(const Database& source, const Database& target, TableCopy& table, CopyState& state,
              std::int64_t batchRows, const Watch& watch) {
    if (table.state.isDone) return;
    const IdentityInsert identity(target, table);
    const bool keepsTypes = source.dialect == Dialect::Sqlite && target.dialect == Dialect::Sqlite;
    TableReader reader(source, table.source, table.from, batchRows, table.state.last, keepsTypes);
    RowWriter writer(target, table.target, table.to, KindsOf(table.from));
    constexpr std::int64_t kReported = 1000;
    while (reader.OpenPage()) {
        Transaction transaction(target.connection);
        TableState next = table.state;
        std::int64_t unreported = 0;
        std::size_t bytes = 0;
        do {
            watch.Look();
            bytes = writer.Add(reader.Cells());
            ++next.rows;
            if (++unreported == kReported) watch.report(std::exchange(unreported, 0));
        } while (reader.NextRow(bytes));
        writer.Flush();
        if (reader.HasKey()) {
            next.last = reader.LastKey();
        } else {
            next.isDone = true;  // with its rows, which nothing would tell from those of a second time
        }
        state.Save(table.source.name, next);
        transaction.Commit();
        table.copiedRows += next.rows - table.state.rows;
        table.state = next;
        watch.report(unreported);
    }
    table.state.isDone = true;
    state.Save(table.source.name, table.state);
}

void CompareRows(const Database& source, const Database& target, TableCopy& table, const Watch& watch) {
    const auto compared = ComparedColumns(table);
    std::atomic<bool> hasFailed = false;
    const auto sumUp = [&](const Database& database, const Table& one, const auto& columns, auto report) {
        const auto endWithOther = [&](std::int64_t rows) {
            if (hasFailed) throw Interrupted{};
            report(rows);
        };
        try {
            return SumOf(database, one, columns, compared, {watch.isInterrupted, endWithOther});
        } catch (...) {
            hasFailed = true;
            throw;
        }
    };
    auto other = std::async(std::launch::async,
                            [&] { return sumUp(source, table.source, table.from, [](std::int64_t) {}); });
    const RowSum targetSum = [&] {
        try {
            return sumUp(target, table.target, table.to, watch.report);
        } catch (const Interrupted&) {
            other.get();  // raises what has ended both
            throw;
        }
    }();
    const RowSum sourceSum = other.get();
    // Counted by the databases themselves, too: what reading leaves out would be missing on both sides.
    table.sourceRows = CountRows(source, table.source);
    table.state.rows = CountRows(target, table.target);
    table.isEqual = sourceSum == targetSum && table.sourceRows == sourceSum.Rows() &&
                    table.state.rows == targetSum.Rows();
    for (const std::size_t column : sourceSum.DifferingColumns(targetSum)) {
        table.differingColumns.push_back(table.to[column]->name);
    }
}

}  // namespace halvtiv::cli::copy
