// A PostgreSQL table through `RunFunction`, beside loops by hand over the server's own library. Measured
// where HALVTIV_TEST_POSTGRESQL names a server.

#include <benchmark/benchmark.h>
#include <libpq-fe.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "process_memory.hpp"
#include "ratios.hpp"
#include "sample_table.hpp"

namespace halvtiv::bench {

namespace {

constexpr int kRows = 200000;
constexpr std::string_view kAll =
    "<function name=\"public.getdata\" guid=\"G\"><param name=\"sql\" value=\"select * from "
    "halvtiv_bench\"/></function>";
constexpr std::string_view kOne =
    "<function name=\"public.getdata\" guid=\"G\"><param name=\"sql\" value=\"select * from halvtiv_bench "
    "where "
    "id = 4711\"/></function>";

const char* ConnectionString() {
    return std::getenv("HALVTIV_TEST_POSTGRESQL");
}

std::string ValueIn(std::string_view connectionString, std::string_view key) {
    const auto begin = connectionString.find(std::string(key) + "=");
    if (begin == std::string_view::npos) return {};
    const auto value = connectionString.substr(begin + key.size() + 1);
    return std::string(value.substr(0, value.find(';')));
}

struct CloseConnection {
    void operator()(PGconn* connection) const { PQfinish(connection); }
};
struct ClearResult {
    void operator()(PGresult* result) const { PQclear(result); }
};
using Server = std::unique_ptr<PGconn, CloseConnection>;
using Rows = std::unique_ptr<PGresult, ClearResult>;

Server OpenByHand() {
    const std::string text = ConnectionString();
    const auto source = ValueIn(text, "Data Source");
    const auto host = source.substr(0, source.find(':'));
    const auto port = source.substr(source.find(':') + 1);
    const auto database = ValueIn(text, "Initial Catalog");
    const auto user = ValueIn(text, "User ID");
    const auto password = ValueIn(text, "Password");
    Server server(
        PQsetdbLogin(host.c_str(), port.c_str(), "", "", database.c_str(), user.c_str(), password.c_str()));
    Require(PQstatus(server.get()) == CONNECTION_OK, PQerrorMessage(server.get()));
    return server;
}

void Run(PGconn* server, const std::string& sql) {
    const Rows result(PQexec(server, sql.c_str()));
    const auto status = PQresultStatus(result.get());
    Require(status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK, PQerrorMessage(server));
}

/// The same eight columns as those of the sample file, for the time of one benchmark.
class ServerTable {
public:
    ServerTable() : server_(OpenByHand()) {
        Run(server_.get(),
            "set client_min_messages = warning; drop table if exists halvtiv_bench;"
            "create table halvtiv_bench(id integer primary key, amount integer, price float8, code "
            "varchar(12),"
            " note varchar(80), made timestamp, remark varchar(40), kind integer);"
            "insert into halvtiv_bench select i, (i * 7919::bigint) % 1000003, ((i * 7919::bigint) % "
            "1000003) / 8.0,"
            " 'C' || (i % 100000), substr('a note of <forty> characters & ''quotes'' ' || i, 1, 40),"
            " timestamp '2023-11-14' + i * interval '61 s',"
            " case when i % 3 = 0 then null else 'remark ' || i end, i % 17 from generate_series(1, " +
                std::to_string(kRows) + ") i");
        Run(server_.get(), "vacuum analyze halvtiv_bench");
    }
    ~ServerTable() { Rows(PQexec(server_.get(), "drop table halvtiv_bench")); }
    ServerTable(const ServerTable&) = delete;
    ServerTable& operator=(const ServerTable&) = delete;

    PGconn* Server() const { return server_.get(); }

private:
    bench::Server server_;
};

void AppendEscaped(std::string& xml, std::string_view text) {
    for (std::size_t begin = 0;;) {
        const auto found = text.find_first_of("&<>\"\t\r\n", begin);
        xml.append(text.substr(begin, found - begin));
        if (found == std::string_view::npos) return;
        switch (text[found]) {
            case '&':
                xml += "&amp;";
                break;
            case '<':
                xml += "&lt;";
                break;
            case '>':
                xml += "&gt;";
                break;
            case '"':
                xml += "&quot;";
                break;
            default:
                xml += "&#";
                xml += std::to_string(text[found]);
                xml += ';';
        }
        begin = found + 1;
    }
}

void AppendRow(std::string& xml, const PGresult* row, std::int64_t index) {
    static constexpr std::array<std::string_view, 8> kNames{
        "<col name=\"id\" value=\"",     "<col name=\"amount\" value=\"", "<col name=\"price\" value=\"",
        "<col name=\"code\" value=\"",   "<col name=\"note\" value=\"",   "<col name=\"made\" value=\"",
        "<col name=\"remark\" value=\"", "<col name=\"kind\" value=\""};
    char digits[24];
    xml += "<row index=\"";
    xml.append(digits, std::to_chars(digits, digits + sizeof digits, index).ptr);
    xml += "\">";
    for (int column = 0; column < 8; ++column) {
        xml += kNames[static_cast<std::size_t>(column)];
        AppendEscaped(xml,
                      {PQgetvalue(row, 0, column), static_cast<std::size_t>(PQgetlength(row, 0, column))});
        xml += "\"/>";
    }
    xml += "</row>";
}

constexpr std::string_view kOpening =
    "<result><data guid=\"G\" type=\"data\"><row index=\"0\"><col name=\"id\" value=\"integer\"/>"
    "<col name=\"amount\" value=\"integer\"/><col name=\"price\" value=\"double\"/>"
    "<col name=\"code\" value=\"text\"/><col name=\"note\" value=\"text\"/>"
    "<col name=\"made\" value=\"datetime\"/><col name=\"remark\" value=\"text\"/>"
    "<col name=\"kind\" value=\"integer\"/></row>";

std::string RunByHand(PGconn* server, const char* prepared) {
    std::string xml(kOpening);
    Require(PQsendQueryPrepared(server, prepared, 0, nullptr, nullptr, nullptr, 0) == 1, "send");
    PQsetSingleRowMode(server);
    std::int64_t index = 0;
    for (Rows row; row.reset(PQgetResult(server)), row;) {
        if (PQresultStatus(row.get()) == PGRES_SINGLE_TUPLE) AppendRow(xml, row.get(), ++index);
    }
    xml += "</data></result>";
    return xml;
}

std::string RunPrepared(PGconn* server, const char* prepared) {
    std::string xml(kOpening);
    const Rows rows(PQexecPrepared(server, prepared, 0, nullptr, nullptr, nullptr, 0));
    Require(PQntuples(rows.get()) == 1, "one row");
    AppendRow(xml, rows.get(), 1);
    xml += "</data></result>";
    return xml;
}

std::unique_ptr<ZorbDbAccessEngine> OpenEngine() {
    auto engine = std::make_unique<ZorbDbAccessEngine>();
    Require(engine->SetDatabaseConnectionString(ConnectionString()) != nullptr, engine->GetLastError());
    return engine;
}

void PrepareByHand(PGconn* server) {
    Rows(PQprepare(server, "all", "select * from halvtiv_bench", 0, nullptr));
    Rows(PQprepare(server, "one", "select * from halvtiv_bench where id = 4711", 0, nullptr));
}

void BulkByHand(benchmark::State& state) {
    const ServerTable table;
    PrepareByHand(table.Server());
    for (auto _ : state) benchmark::DoNotOptimize(RunByHand(table.Server(), "all"));
}

void BulkEngine(benchmark::State& state) {
    const ServerTable table;
    PrepareByHand(table.Server());
    const auto engine = OpenEngine();
    std::string result;
    engine->RunFunction(kAll, result);
    Require(result == RunByHand(table.Server(), "all"), "the engine's document differs from the loop's");
    for (auto _ : state) {
        engine->RunFunction(kAll, result);
        benchmark::DoNotOptimize(result);
    }
    const auto size = static_cast<double>(result.size());
    result = std::string();
    const std::int64_t peak = PeakOf([&] { engine->RunFunction(kAll, result); });
    state.counters["peak_per_text"] = static_cast<double>(peak) / size;
}

void OneByHand(benchmark::State& state) {
    const ServerTable table;
    PrepareByHand(table.Server());
    for (auto _ : state) benchmark::DoNotOptimize(RunPrepared(table.Server(), "one"));
}

void OneEngine(benchmark::State& state) {
    const ServerTable table;
    PrepareByHand(table.Server());
    const auto engine = OpenEngine();
    std::string result;
    engine->RunFunction(kOne, result);
    Require(result == RunPrepared(table.Server(), "one"), "the engine's row differs from the one by hand");
    for (auto _ : state) {
        engine->RunFunction(kOne, result);
        benchmark::DoNotOptimize(result);
    }
}

const bool kRegistered = [] {
    if (ConnectionString() == nullptr) return false;
    // The server works while the client waits: what counts is the time on the clock.
    const auto add = [](const char* name, void (*run)(benchmark::State&)) {
        benchmark::RegisterBenchmark(name, run)
            ->Unit(benchmark::kMicrosecond)
            ->MeasureProcessCPUTime()
            ->UseRealTime();
    };
    add("postgresql bulk/by hand", BulkByHand);
    add("postgresql bulk/engine", BulkEngine);
    add("postgresql one row/by hand", OneByHand);
    add("postgresql one row/engine", OneEngine);
    return true;
}();

const Promised kBulk({"PostgreSQL, 200,000 x 8 rows against the loop by hand", "postgresql bulk/engine",
                      "postgresql bulk/by hand", "", 1.1, true});
const Promised kMemory({"the same, peak memory against the text", "postgresql bulk/engine", "",
                        "peak_per_text", 1.3});
const Promised kOneRow({"PostgreSQL, one row against a prepared statement by hand",
                        "postgresql one row/engine", "postgresql one row/by hand", "", 1.4, true});

}  // namespace

}  // namespace halvtiv::bench
