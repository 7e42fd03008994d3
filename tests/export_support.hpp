#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <halvtiv/halvtiv.hpp>

#include "support.hpp"

namespace halvtiv::test {

using Table = std::vector<std::vector<std::string>>;

inline constexpr const char* kTable =
    "create table t (id INTEGER PRIMARY KEY, Name VARCHAR(40), note CLOB, price DOUBLE, amount NUMERIC,"
    " big BIGINT, ok BOOLEAN, day DATE, at TIME, made DATETIME, photo BLOB);"
    "insert into t values"
    " (1, '北京 \"x\", y', 'a' || char(13, 10) || 'b', 0.1, 12.5, 9007199254740993, 1, '2024-02-29', "
    "'13:05:00',"
    "  '2024-02-29 12:00:00', x'00FF010A'),"
    " (2, 'مرحبا 😀', '', -1e300, 1234567890123456, 9007199254740992, 0, '1900-02-28', '00:00:00',"
    "  '1900-03-01 18:00:00.5', x''),"
    " (3, null, null, null, null, null, null, null, null, null, null),"
    " (4, 'tab' || char(9), '=1+1', 2, 0.25, -5, 1, 'soon', '06:00:00.25', '9999-12-31 00:00:00', null)";

/// Many rows without a table.
inline constexpr const char* kMany =
    "with recursive n(i) as (select 1 union all select i + 1 from n where i < 20000)"
    " select i, 'some text ' || i as s from n";

class ExportTest : public testing::Test {
protected:
    ado::RecordsetPtr Query(std::string_view sql) { return connection_->Execute(sql); }

    /// The number of rows that an export answers.
    std::int32_t Export(const IZorbDataExporterPtr& exporter, std::string_view sql, const std::string& file,
                        std::string table = "t", const std::string& dataFolder = {}) {
        ado::RecordsetPtr rows = Query(sql);
        std::string path = folder_.PathOf(file);
        return exporter->ExportData(rows, path, table, dataFolder);
    }

    /// What Python reads in an exported file.
    Table ReadBack(const std::string& kind, const std::string& file) {
        const std::string command = std::string(HALVTIV_PYTHON) + " '" + HALVTIV_READ_EXPORT + "' " + kind +
                                    " '" + folder_.PathOf(file) + "'";
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(::popen(command.c_str(), "r"), &::pclose);
        Table rows{{}};
        std::string cell;
        for (int byte = std::fgetc(pipe.get()); byte != EOF; byte = std::fgetc(pipe.get())) {
            if (byte == 0x1E) {
                rows.emplace_back();
            } else if (byte == 0x1F) {
                rows.back().push_back(std::exchange(cell, {}));
            } else {
                cell += static_cast<char>(byte);
            }
        }
        rows.pop_back();
        return rows;
    }

    /// Names and texts of a query's result.
    Table RowsOf(const ado::ConnectionPtr& connection, std::string_view sql) {
        const ado::RecordsetPtr rows = connection->Execute(sql);
        Table table{{}};
        for (std::int32_t at = 0; at < rows->Fields().Count(); ++at) {
            table[0].push_back(rows->Fields().Item(at)->Name());
        }
        for (; !rows->IsEOF(); rows->MoveNext()) {
            table.emplace_back();
            for (std::int32_t at = 0; at < rows->Fields().Count(); ++at) {
                const ado::Variant value = rows->Fields().Item(at)->Value();
                table.back().push_back(value.IsNull() ? "" : value.Text());
            }
        }
        return table;
    }

    TemporaryFolder folder_;
    ado::ConnectionPtr connection_ = MakeDatabase(folder_.PathOf("source.db"), kTable);
};

/// Does something after a number of reported rows, and remembers the reports.
class Updater : public IProgressUpdater {
public:
    explicit Updater(std::function<void()> action = [] {}) : action_(std::move(action)) {}
    void UpdateProgress(std::int64_t done, std::int64_t total) override {
        reports.emplace_back(done, total);
        if (done >= 10000) action_();
    }
    std::vector<std::pair<std::int64_t, std::int64_t>> reports;

private:
    std::function<void()> action_;
};

}  // namespace halvtiv::test
