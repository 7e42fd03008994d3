// Changed, deleted and added rows, and a long value in and out of a file, beside the database's own
// interface.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "process_memory.hpp"
#include "ratios.hpp"
#include "sample_table.hpp"

namespace halvtiv::bench {

namespace {

constexpr int kRows = 100'000;
constexpr std::int64_t kFileSize = std::int64_t{256} << 20;

void Run(sqlite3* database, const std::string& sql) {
    Require(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK,
            sql + ": " + sqlite3_errmsg(database));
}

std::string Call(std::string_view function, std::string_view params) {
    return "<function name=\"" + std::string(function) + "\" guid=\"K\">" + std::string(params) +
           "</function>";
}

std::string SqlParam(std::string_view sql) {
    return "<param name=\"sql\" value=\"" + std::string(sql) + "\"/>";
}

/// Runs a request that is to answer a count.
void RunCounted(ZorbDbAccessEngine& engine, const std::string& request, std::int64_t count) {
    std::string result;
    Require(engine.RunFunction(request, result), engine.GetLastError());
    Require(result.find("value=\"" + std::to_string(count) + "\"") != std::string::npos, result);
}

std::string UpdateRequest(std::int64_t value) {
    return Call("public.updatedata", SqlParam("select * from t") +
                                         "<param name=\"data\"><col name=\"amount\" value=\"" +
                                         std::to_string(value) + "\"/></param>");
}

void UpdateByHand(benchmark::State& state) {
    const SampleTable table(kRows);
    const SampleTable::Database database = table.Open();
    const Statement update = Prepare(database.get(), "update t set amount = ? where id = ?");
    std::int64_t value = 0;
    for (auto _ : state) {
        Run(database.get(), "begin immediate");
        ++value;
        for (int id = 1; id <= kRows; ++id) {
            sqlite3_bind_int64(update.get(), 1, value);
            sqlite3_bind_int64(update.get(), 2, id);
            sqlite3_step(update.get());
            sqlite3_reset(update.get());
        }
        Run(database.get(), "commit");
    }
}

void UpdateByEngine(benchmark::State& state) {
    const SampleTable table(kRows);
    const auto engine = table.Engine();
    std::int64_t value = 0;
    for (auto _ : state) RunCounted(*engine, UpdateRequest(++value), kRows);
}

void DeleteByHand(benchmark::State& state) {
    const SampleTable table(kRows);
    const SampleTable::Database database = table.Open();
    Run(database.get(), "create table kept as select * from t");
    const Statement erase = Prepare(database.get(), "delete from t where id = ?");
    for (auto _ : state) {
        Run(database.get(), "begin immediate");
        for (int id = 1; id <= kRows; ++id) {
            sqlite3_bind_int64(erase.get(), 1, id);
            sqlite3_step(erase.get());
            sqlite3_reset(erase.get());
        }
        Run(database.get(), "commit");
        state.PauseTiming();
        Run(database.get(), "insert into t select * from kept");
        state.ResumeTiming();
    }
}

void DeleteByEngine(benchmark::State& state) {
    const SampleTable table(kRows);
    const SampleTable::Database database = table.Open();
    Run(database.get(), "create table kept as select * from t");
    const auto engine = table.Engine();
    const std::string request = Call("public.deletedata", SqlParam("select * from t"));
    for (auto _ : state) {
        RunCounted(*engine, request, kRows);
        state.PauseTiming();
        Run(database.get(), "insert into t select * from kept");
        state.ResumeTiming();
    }
}

/// Two tables, one empty, one of ten million rows.
struct FewAndMany {
    SampleTable table{2};  // a file of its own: the number of rows is in its name
    FewAndMany() {
        const SampleTable::Database database = table.Open();
        Run(database.get(),
            "pragma journal_mode = off; create table few(id integer primary key, name text);"
            "create table many(id integer primary key, name text); with recursive n(i) as (select 1 union "
            "all "
            "select i + 1 from n where i < 10000000) insert into many(name) select 'row ' || i from n");
    }
};

void AddRow(benchmark::State& state, std::string_view name) {
    static const FewAndMany tables;
    const auto engine = tables.table.Engine();
    const std::string request =
        Call("public.adddata", SqlParam("select * from " + std::string(name)) +
                                   "<param name=\"data\"><col name=\"name\" value=\"another\"/></param>");
    for (auto _ : state) RunCounted(*engine, request, 1);
}

/// A file of bytes that do not repeat soon, and a table with one row for it.
struct LongValue {
    SampleTable table{1};
    SampleTable::Database database = table.Open();
    std::string in = table.Path() + ".in";
    std::string out = table.Path() + ".out";

    LongValue() {
        Run(database.get(),
            "create table p(id integer primary key, name text, photo blob); insert into p(id) values (1);"
            "create table w(id text primary key, photo blob) without rowid; insert into w(id) values (1)");
        std::vector<std::uint32_t> block(1 << 18);
        std::uint32_t number = 1;
        std::ofstream file(in, std::ios::binary);
        for (std::int64_t written = 0; written < kFileSize;
             written += static_cast<std::int64_t>(block.size()) * 4) {
            for (auto& word : block) word = number = number * 1664525 + 1013904223;
            file.write(reinterpret_cast<const char*>(block.data()),
                       static_cast<std::streamsize>(block.size() * sizeof block[0]));
        }
    }
    ~LongValue() {
        std::error_code ignored;
        std::filesystem::remove(in, ignored);
        std::filesystem::remove(out, ignored);
    }
    static const LongValue& Shared() {
        static const LongValue value;
        return value;
    }
    LongValue(const LongValue&) = delete;
    LongValue& operator=(const LongValue&) = delete;
};

std::string FileRequest(std::string_view function, std::string_view table, std::string_view file) {
    return Call(function, SqlParam("select * from " + std::string(table)) +
                              "<param name=\"colname\" value=\"photo\"/><param name=\"filename\" value=\"" +
                              std::string(file) + "\"/>");
}

constexpr int kPiece = 1 << 16;

void FileInByHand(benchmark::State& state) {
    const LongValue& value = LongValue::Shared();
    std::vector<char> piece(kPiece);
    for (auto _ : state) {
        Run(value.database.get(), "begin immediate");
        const Statement make = Prepare(value.database.get(), "update p set photo = zeroblob(?) where id = 1");
        sqlite3_bind_int64(make.get(), 1, kFileSize);
        sqlite3_step(make.get());
        sqlite3_blob* blob = nullptr;
        Require(sqlite3_blob_open(value.database.get(), "main", "p", "photo", 1, 1, &blob) == SQLITE_OK,
                "blob");
        std::ifstream file(value.in, std::ios::binary);
        for (int at = 0; at < kFileSize; at += kPiece) {
            file.read(piece.data(), kPiece);
            sqlite3_blob_write(blob, piece.data(), kPiece, at);
        }
        sqlite3_blob_close(blob);
        Run(value.database.get(), "commit");
    }
}

void FileInByEngine(benchmark::State& state) {
    const LongValue& value = LongValue::Shared();
    const auto engine = value.table.Engine();
    const std::string request = FileRequest("public.setbinarydata", "p", value.in);
    for (auto _ : state) RunCounted(*engine, request, 1);
}

void FileOutByHand(benchmark::State& state) {
    const LongValue& value = LongValue::Shared();
    Run(value.database.get(), "update p set photo = zeroblob(" + std::to_string(kFileSize) + ")");
    std::vector<char> piece(kPiece);
    for (auto _ : state) {
        sqlite3_blob* blob = nullptr;
        Require(sqlite3_blob_open(value.database.get(), "main", "p", "photo", 1, 0, &blob) == SQLITE_OK,
                "blob");
        std::ofstream file(value.out, std::ios::binary);
        for (int at = 0; at < kFileSize; at += kPiece) {
            sqlite3_blob_read(blob, piece.data(), kPiece, at);
            file.write(piece.data(), kPiece);
        }
        sqlite3_blob_close(blob);
    }
}

void FileOutByEngine(benchmark::State& state) {
    const LongValue& value = LongValue::Shared();
    Run(value.database.get(), "update p set photo = zeroblob(" + std::to_string(kFileSize) + ")");
    const auto engine = value.table.Engine();
    const std::string request = FileRequest("public.getbinarydata", "p", value.out);
    for (auto _ : state) RunCounted(*engine, request, 1);
    Require(std::filesystem::file_size(value.out) == static_cast<std::uintmax_t>(kFileSize), "file out");
}

void LongValueMemory(benchmark::State& state) {
    const LongValue& value = LongValue::Shared();
    const auto engine = value.table.Engine();
    const auto peakOf = [&](std::string_view table) {
        const std::int64_t in =
            PeakOf([&] { RunCounted(*engine, FileRequest("public.setbinarydata", table, value.in), 1); });
        const std::int64_t out =
            PeakOf([&] { RunCounted(*engine, FileRequest("public.getbinarydata", table, value.out), 1); });
        return static_cast<double>(std::max(in, out));
    };
    for (auto _ : state) {
        state.counters["in_place_mib"] = peakOf("p") / (1 << 20);
        state.counters["whole_per_size"] = peakOf("w") / static_cast<double>(kFileSize);
    }
}

BENCHMARK(UpdateByHand)->Name("writing/update by hand")->Unit(benchmark::kMillisecond);
BENCHMARK(UpdateByEngine)->Name("writing/update")->Unit(benchmark::kMillisecond);
BENCHMARK(DeleteByHand)->Name("writing/delete by hand")->Unit(benchmark::kMillisecond);
BENCHMARK(DeleteByEngine)->Name("writing/delete")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(AddRow, few, "few")->Name("writing/add to few")->Iterations(200);
BENCHMARK_CAPTURE(AddRow, many, "many")->Name("writing/add to many")->Iterations(200);
BENCHMARK(FileInByHand)->Name("writing/file in by hand")->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(FileInByEngine)->Name("writing/file in")->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(FileOutByHand)->Name("writing/file out by hand")->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(FileOutByEngine)->Name("writing/file out")->Unit(benchmark::kMillisecond)->Iterations(2);

BENCHMARK(LongValueMemory)->Name("writing/memory")->Unit(benchmark::kMillisecond)->Iterations(1);

const Promised kUpdate({"100,000 rows updated, against UPDATE by key", "writing/update",
                        "writing/update by hand", "", 2.5});
const Promised kDelete({"100,000 rows deleted, against DELETE by key", "writing/delete",
                        "writing/delete by hand", "", 2.5});
const Promised kAdd({"a row added to ten million, against to none", "writing/add to many",
                     "writing/add to few", "", 1.2});
const Promised kIn({"a 256 MB file into a column, against by hand", "writing/file in",
                    "writing/file in by hand", "", 1.5});
const Promised kOut({"a 256 MB column into a file, against by hand", "writing/file out",
                     "writing/file out by hand", "", 1.5});
const Promised kInPlace({"the same in and out, peak memory in MiB", "writing/memory", "", "in_place_mib",
                         32});
const Promised kWhole({"in and out of a table without row ids, peak memory against the file",
                       "writing/memory", "", "whole_per_size", 3.3});

}  // namespace

}  // namespace halvtiv::bench
