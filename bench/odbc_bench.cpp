// A table of a server through an ODBC driver and `RunFunction`, beside loops by hand over the driver with
// blocks of 100 bound rows. Measured where HALVTIV_TEST_POSTGRESQL_ODBC and HALVTIV_TEST_MARIADB name
// servers.

#include <benchmark/benchmark.h>
#include <sql.h>
#include <sqlext.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ratios.hpp"
#include "sample_table.hpp"
#include "xml_by_hand.hpp"

namespace halvtiv::bench {

namespace {

constexpr SQLULEN kBlock = 100;
constexpr std::string_view kAll =
    "<function name=\"public.getdata\" guid=\"G\"><param name=\"sql\" value=\"select * from "
    "halvtiv_bench\"/></function>";

/// A driver under test: how its strings and tables are made.
struct Driver {
    const char* name;
    const char* variable;    // of the environment, with the engine's connection string
    const char* madeColumn;  // the type of a date with a time
    const char* fill;        // all rows
    bool isWide;             // gives UTF-8 only through its UTF-16
};

const Driver kPostgresql{
    "psqlODBC", "HALVTIV_TEST_POSTGRESQL_ODBC", "timestamp",
    "insert into halvtiv_bench select i, (i * 7919::bigint) % 1000003, ((i * 7919::bigint) % 1000003) / 8.0,"
    " 'C' || (i % 100000), substr('a note of <forty> characters & ''quotes'' ' || i, 1, 40),"
    " timestamp '2023-11-14' + i * interval '61 s', case when i % 3 = 0 then null else 'remark ' || i end,"
    " i % 17 from generate_series(1, 200000) i",
    true};
const Driver kMariaDb{
    "MariaDB", "HALVTIV_TEST_MARIADB", "datetime",
    "insert into halvtiv_bench select seq, (seq * 7919) % 1000003, ((seq * 7919) % 1000003) / 8e0,"
    " concat('C', seq % 100000), substr(concat('a note of <forty> characters & ''quotes'' ', seq), 1, 40),"
    " timestamp '2023-11-14 00:00:00' + interval seq * 61 second,"
    " case when seq % 3 = 0 then null else concat('remark ', seq) end, seq % 17 from seq_1_to_200000",
    false};

std::string ConnectionStringOf(const Driver& driver) {
    const char* const text = std::getenv(driver.variable);
    return text == nullptr ? "" : text;
}

std::string ValueIn(std::string_view connectionString, std::string_view key) {
    const auto begin = connectionString.find(std::string(key) + "=");
    if (begin == std::string_view::npos) return {};
    auto value = connectionString.substr(begin + key.size() + 1);
    const bool isQuoted = value.starts_with('"');
    value.remove_prefix(isQuoted ? 1 : 0);
    return std::string(value.substr(0, value.find(isQuoted ? '"' : ';')));
}

/// What the driver manager is told; the string of psqlODBC is one already.
std::string OdbcStringOf(const Driver& driver) {
    const std::string text = ConnectionStringOf(driver);
    if (!text.starts_with("Provider=MariaDB")) return text;
    const std::string source = ValueIn(text, "Data Source");
    const auto colon = source.find(':');
    const std::string place = source.starts_with('/')
                                  ? "Server=localhost;Socket=" + source
                                  : "Server=" + source.substr(0, colon) + ";Port=" + source.substr(colon + 1);
    return "Driver={MariaDB Unicode};" + place + ";Database=" + ValueIn(text, "Initial Catalog") +
           ";UID=" + ValueIn(text, "User ID") + ";PWD={" + ValueIn(text, "Password") + "};CHARSET=utf8mb4;";
}

void Check(SQLRETURN status, SQLSMALLINT kind, SQLHANDLE handle) {
    if (SQL_SUCCEEDED(status)) return;
    std::array<SQLCHAR, 6> state{};
    std::array<SQLCHAR, 512> words{};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    SQLGetDiagRec(kind, handle, 1, state.data(), &native, words.data(), words.size(), &length);
    Require(false, reinterpret_cast<const char*>(words.data()));
}

/// A connection by hand and one statement on it.
class ServerByHand {
public:
    explicit ServerByHand(const Driver& driver) {
        SQLAllocHandle(SQL_HANDLE_ENV, nullptr, &environment_);
        SQLSetEnvAttr(environment_, SQL_ATTR_ODBC_VERSION,
                      reinterpret_cast<SQLPOINTER>(SQLULEN{SQL_OV_ODBC3}), 0);
        SQLAllocHandle(SQL_HANDLE_DBC, environment_, &connection_);
        std::string text = OdbcStringOf(driver);
        SQLSMALLINT length = 0;
        std::vector<SQLWCHAR> wide(text.begin(), text.end());
        wide.push_back(0);
        Check(SQLDriverConnectW(connection_, nullptr, wide.data(), SQL_NTS, nullptr, 0, &length,
                                SQL_DRIVER_NOPROMPT),
              SQL_HANDLE_DBC, connection_);
        SQLAllocHandle(SQL_HANDLE_STMT, connection_, &statement_);
    }
    ~ServerByHand() {
        SQLFreeHandle(SQL_HANDLE_STMT, statement_);
        SQLDisconnect(connection_);
        SQLFreeHandle(SQL_HANDLE_DBC, connection_);
        SQLFreeHandle(SQL_HANDLE_ENV, environment_);
    }
    ServerByHand(const ServerByHand&) = delete;
    ServerByHand& operator=(const ServerByHand&) = delete;

    SQLHSTMT Statement() const { return statement_; }
    void Run(std::string sql) const {
        Check(SQLExecDirect(statement_, reinterpret_cast<SQLCHAR*>(sql.data()), SQL_NTS), SQL_HANDLE_STMT,
              statement_);
        SQLFreeStmt(statement_, SQL_CLOSE);
    }

private:
    SQLHENV environment_ = nullptr;
    SQLHDBC connection_ = nullptr;
    SQLHSTMT statement_ = nullptr;
};

/// The same eight columns as those of the sample file, for the time of one benchmark.
class ServerTable {
public:
    explicit ServerTable(const Driver& driver) : server(driver) {
        server.Run("drop table if exists halvtiv_bench");
        server.Run(
            "create table halvtiv_bench(id integer primary key, amount integer, price double precision,"
            " code varchar(12), note varchar(80), made " +
            std::string(driver.madeColumn) + ", remark varchar(40), kind integer)");
        server.Run(driver.fill);
    }
    ~ServerTable() { server.Run("drop table halvtiv_bench"); }

    const ServerByHand server;
};

/// A block of a column's cells.
template <typename Cell, std::size_t kCells = 1>
struct BoundColumn {
    void Bind(SQLHSTMT statement, SQLUSMALLINT column, SQLSMALLINT type) {
        Check(SQLBindCol(statement, column, type, cells.data(), sizeof(Cell) * kCells, lengths.data()),
              SQL_HANDLE_STMT, statement);
    }
    std::array<Cell, kCells * kBlock> cells;
    std::array<SQLLEN, kBlock> lengths;
};

template <typename Character>
class HandLoop {
public:
    explicit HandLoop(SQLHSTMT statement) : statement_(statement) {
        constexpr SQLSMALLINT kText = sizeof(Character) == 1 ? SQL_C_CHAR : SQL_C_WCHAR;
        for (const auto column : std::array<SQLUSMALLINT, 3>{1, 2, 8})
            Integer(column).Bind(statement_, column, SQL_C_SBIGINT);
        price_.Bind(statement_, 3, SQL_C_DOUBLE);
        for (const auto column : std::array<SQLUSMALLINT, 3>{4, 5, 7})
            Text(column).Bind(statement_, column, kText);
        made_.Bind(statement_, 6, SQL_C_TYPE_TIMESTAMP);
        SQLSetStmtAttr(statement_, SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(kBlock), 0);
        SQLSetStmtAttr(statement_, SQL_ATTR_ROWS_FETCHED_PTR, &fetched_, 0);
    }

    std::string Run() {
        std::string result;
        std::string sql = "select * from halvtiv_bench";
        Check(SQLExecDirect(statement_, reinterpret_cast<SQLCHAR*>(sql.data()), SQL_NTS), SQL_HANDLE_STMT,
              statement_);
        {
            BlockWriter writer([&result](std::string_view block) { result.append(block); });
            writer.Put(
                "<result><data guid=\"G\" type=\"data\"><row index=\"0\"><col name=\"id\" value=\"integer\"/>"
                "<col name=\"amount\" value=\"integer\"/><col name=\"price\" value=\"double\"/>"
                "<col name=\"code\" value=\"text\"/><col name=\"note\" value=\"text\"/>"
                "<col name=\"made\" value=\"datetime\"/><col name=\"remark\" value=\"text\"/>"
                "<col name=\"kind\" value=\"integer\"/></row>");
            std::int64_t index = 0;
            while (SQL_SUCCEEDED(SQLFetch(statement_))) {
                for (SQLULEN row = 0; row < fetched_; ++row) PutRow(writer, row, ++index);
            }
            writer.Put("</data></result>");
        }
        SQLFreeStmt(statement_, SQL_CLOSE);
        return result;
    }

private:
    using IntegerColumn = BoundColumn<std::int64_t>;
    static constexpr std::size_t kTextSize = 84;
    using TextColumn = BoundColumn<Character, kTextSize>;

    IntegerColumn& Integer(SQLUSMALLINT column) { return integers_[column == 8 ? 2 : column - 1U]; }
    TextColumn& Text(SQLUSMALLINT column) { return texts_[column == 7 ? 2 : column - 4U]; }

    template <typename Writer>
    void PutRow(Writer& writer, SQLULEN row, std::int64_t index) {
        writer.Put("<row index=\"");
        writer.PutNumber(index);
        writer.Put("\"><col name=\"id\" value=\"");
        writer.PutNumber(integers_[0].cells[row]);
        writer.Put("\"/><col name=\"amount\" value=\"");
        writer.PutNumber(integers_[1].cells[row]);
        writer.Put("\"/><col name=\"price\" value=\"");
        writer.PutNumber(price_.cells[row]);
        writer.Put("\"/><col name=\"code\" value=\"");
        PutText(writer, texts_[0], row);
        writer.Put("\"/><col name=\"note\" value=\"");
        PutText(writer, texts_[1], row);
        writer.Put("\"/><col name=\"made\" value=\"");
        PutStamp(writer, made_.cells[row]);
        writer.Put("\"/><col name=\"remark\" value=\"");
        PutText(writer, texts_[2], row);
        writer.Put("\"/><col name=\"kind\" value=\"");
        writer.PutNumber(integers_[2].cells[row]);
        writer.Put("\"/></row>");
    }

    template <typename Writer>
    static void PutStamp(Writer& writer, const SQL_TIMESTAMP_STRUCT& stamp) {
        char* const text = writer.Room(19);
        const auto put = [text](std::size_t at, int value) {
            text[at] = static_cast<char>('0' + value / 10);
            text[at + 1] = static_cast<char>('0' + value % 10);
        };
        put(0, stamp.year / 100);
        put(2, stamp.year % 100);
        text[4] = text[7] = '-';
        put(5, stamp.month);
        put(8, stamp.day);
        text[10] = ' ';
        put(11, stamp.hour);
        text[13] = text[16] = ':';
        put(14, stamp.minute);
        put(17, stamp.second);
        writer.Use(text + 19);
    }

    template <typename Writer>
    void PutText(Writer& writer, const TextColumn& column, SQLULEN row) {
        const Character* const text = &column.cells[row * kTextSize];
        if (column.lengths[row] <= 0) return;
        const std::size_t units = static_cast<std::size_t>(column.lengths[row]) / sizeof(Character);
        if constexpr (sizeof(Character) == 1) {
            writer.PutEscaped({reinterpret_cast<const char*>(text), units});
        } else {
            utf8_.resize(units * 3);
            std::size_t size = 0;
            for (std::size_t i = 0; i < units; ++i) {
                const unsigned unit = text[i];
                if (unit < 0x80) {
                    utf8_[size++] = static_cast<char>(unit);
                } else if (unit < 0x800) {
                    utf8_[size++] = static_cast<char>(0xC0 | (unit >> 6));
                    utf8_[size++] = static_cast<char>(0x80 | (unit & 0x3F));
                } else {  // no surrogates in this table
                    utf8_[size++] = static_cast<char>(0xE0 | (unit >> 12));
                    utf8_[size++] = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
                    utf8_[size++] = static_cast<char>(0x80 | (unit & 0x3F));
                }
            }
            writer.PutEscaped({utf8_.data(), size});
        }
    }

    SQLHSTMT statement_;
    SQLULEN fetched_ = 0;
    std::array<IntegerColumn, 3> integers_;
    BoundColumn<double> price_;
    std::array<TextColumn, 3> texts_;
    BoundColumn<SQL_TIMESTAMP_STRUCT> made_;
    std::string utf8_;
};

template <typename Use>
void WithLoop(const Driver& driver, SQLHSTMT statement, Use use) {
    if (driver.isWide) {
        use(*std::make_unique<HandLoop<SQLWCHAR>>(statement));
    } else {
        use(*std::make_unique<HandLoop<SQLCHAR>>(statement));
    }
}

void ByHand(benchmark::State& state, const Driver& driver) {
    const ServerTable table(driver);
    WithLoop(driver, table.server.Statement(), [&](auto& loop) {
        for (auto _ : state) benchmark::DoNotOptimize(loop.Run());
    });
}

void Engine(benchmark::State& state, const Driver& driver) {
    const ServerTable table(driver);
    const auto engine = std::make_unique<ZorbDbAccessEngine>();
    Require(engine->SetDatabaseConnectionString(ConnectionStringOf(driver)) != nullptr,
            engine->GetLastError());
    std::string result;
    engine->RunFunction(kAll, result);
    const ServerByHand other(driver);
    WithLoop(driver, other.Statement(), [&](auto& loop) {
        Require(result == loop.Run(), "the engine's document differs from the loop's");
    });
    for (auto _ : state) {
        engine->RunFunction(kAll, result);
        benchmark::DoNotOptimize(result);
    }
}

bool Register(const Driver& driver) {
    if (ConnectionStringOf(driver).empty()) return false;
    const std::string name = std::string("odbc ") + driver.name;
    const auto add = [&](const char* who, void (*run)(benchmark::State&, const Driver&)) {
        benchmark::RegisterBenchmark((name + who).c_str(),
                                     [&driver, run](benchmark::State& state) { run(state, driver); })
            ->Unit(benchmark::kMillisecond)
            ->MeasureProcessCPUTime()
            ->UseRealTime();
    };
    add("/by hand", ByHand);
    add("/engine", Engine);
    Promises().push_back({name + ", 200,000 x 8 rows against blocks by hand", name + "/engine",
                          name + "/by hand", "", 1.25, true});
    return true;
}

const std::array kRegistered{Register(kPostgresql), Register(kMariaDb)};

}  // namespace

}  // namespace halvtiv::bench
