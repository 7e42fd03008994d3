#include "sample_table.hpp"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace halvtiv::bench {

SampleTable::SampleTable(int rows)
    : path_((std::filesystem::temp_directory_path() /
             ("halvtiv-bench-" + std::to_string(getpid()) + "-" + std::to_string(rows) + ".db"))
                .string()) {
    std::filesystem::remove(path_);
    sqlite3* opened = nullptr;
    Require(sqlite3_open(path_.c_str(), &opened) == SQLITE_OK, "open " + path_);
    const Database database(opened);
    const std::string make =
        "create table t(id INTEGER PRIMARY KEY, amount INTEGER, price REAL, code VARCHAR(12), note "
        "VARCHAR(80),"
        " made DATETIME, remark VARCHAR(40), kind INTEGER);"
        "with recursive n(i) as (select 1 union all select i + 1 from n where i < " +
        std::to_string(rows) +
        ") insert into t select i, i * 7919 % 1000003, (i * 7919 % 1000003) / 8.0, 'C' || (i % 100000),"
        " substr('a note of <forty> characters & ''quotes'' ' || i, 1, 40),"
        " datetime(1700000000 + i * 61, 'unixepoch'), case when i % 3 = 0 then null else 'remark ' || i end,"
        " i % 17 from n;";
    Require(sqlite3_exec(opened, make.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, "fill the table");
}

SampleTable::~SampleTable() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
}

std::unique_ptr<ZorbDbAccessEngine> SampleTable::Engine() const {
    auto engine = std::make_unique<ZorbDbAccessEngine>();
    Require(engine->SetDatabaseConnection_MDBFile(path_, "", "") != nullptr, engine->GetLastError());
    return engine;
}

SampleTable::Database SampleTable::Open() const {
    sqlite3* opened = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    Require(sqlite3_open_v2(path_.c_str(), &opened, flags, nullptr) == SQLITE_OK, "open " + path_);
    return Database(opened);
}

Statement Prepare(sqlite3* database, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    Require(sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK,
            "prepare " + sql);
    return Statement(statement);
}

void Require(bool condition, const std::string& what) {
    if (condition) return;
    std::fprintf(stderr, "benchmark failed: %s\n", what.c_str());
    std::exit(2);
}

}  // namespace halvtiv::bench
