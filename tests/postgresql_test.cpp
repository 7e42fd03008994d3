// What is PostgreSQL's alone.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <halvtiv/ado.hpp>

#include "ado/connection_parameters.hpp"
#include "ado/postgresql/postgresql_text.hpp"
#include "ado/recordset_state.hpp"
#include "databases.hpp"
#include "silent_server.hpp"
#include "support.hpp"

namespace halvtiv::ado {
namespace {

using test::ErrorOf;
using test::NumberOf;

class PostgresqlTest : public test::OneDatabase {
protected:
    PostgresqlTest() : OneDatabase(test::Postgresql()) {}

    /// Ends the server's side of the connection, as a restart of the server would.
    void EndServerSide() {
        Connect()->Execute("select pg_terminate_backend(" + Scalar("select pg_backend_pid()") + ", 5000)");
    }
    std::int64_t OpenStatements() {
        return *Query("select count(*) from pg_prepared_statements")->Fields().Item(0)->Value().AsInteger();
    }
};

using Clock = std::chrono::steady_clock;

TEST_F(PostgresqlTest, TypesHaveTheirNumbersSizesAndFormats) {
    struct Expected {
        const char* expression;
        std::int32_t type;
        std::int64_t size;
        std::string text;
    };
    constexpr std::int64_t kUnbounded = 1'073'741'819;
    const std::vector<Expected> cases{
        {"7::int2", 2, 2, "7"},
        {"-2147483648", 3, 4, "-2147483648"},
        {"9223372036854775807", 20, 8, "9223372036854775807"},
        {"4294967295::oid", 20, 8, "4294967295"},
        {"0.1::float4", 4, 4, "0.1"},
        {"1e6::float4", 4, 4, "1000000"},
        {"1e15::float8", 5, 8, "1000000000000000"},
        {"1e22::float8", 5, 8, "1e+22"},
        {"0.00001::float8", 5, 8, "0.00001"},
        {"'Infinity'::float8", 5, 8, "Infinity"},
        {"12.50::numeric(10,2)", 131, 19, "12.50"},
        {"'NaN'::numeric", 131, 19, "NaN"},
        {"'-1234567.5'::money", 6, 8, "-1234567.50"},
        {"true", 11, 2, "True"},
        {"false", 11, 2, "False"},
        {"'ab'::char(4)", 130, 4, "ab  "},
        {"'x'::\"char\"", 130, 1, "x"},
        {"'ab'::varchar(7)", 202, 7, "ab"},
        {"'ab'::varchar", 202, kUnbounded, "ab"},
        {"'ab'::text", 202, kUnbounded, "ab"},
        {"'ab'::name", 202, 63, "ab"},
        {"date '2024-02-29'", 133, 6, "2024-02-29"},
        {"date '0044-03-15 BC'", 133, 6, "0044-03-15 BC"},
        {"date 'infinity'", 133, 6, "infinity"},
        {"time '07:05'", 134, 6, "07:05:00"},
        {"timestamp '2024-01-02 03:04:05.250'", 135, 16, "2024-01-02 03:04:05.25"},
        {"timestamptz '2024-01-02 03:04:05+02'", 135, 16, "2024-01-02 01:04:05"},
        {"timetz '03:04:05+02'", 202, kUnbounded, "03:04:05+02"},
        {"interval '1 day 2 hours'", 202, kUnbounded, "1 day 02:00:00"},
        {"'6f9619ff-8b86-d011-b42d-00c04fc964ff'::uuid", 72, 16, "{6F9619FF-8B86-D011-B42D-00C04FC964FF}"},
        {"'\\x004a'::bytea", 205, kUnbounded, std::string("\0J", 2)},
        {"'{1,2}'::int[]", 202, kUnbounded, "{1,2}"},
        {"'{\"a\": 1}'::jsonb", 202, kUnbounded, "{\"a\": 1}"},
        {"'10.0.0.1'::inet", 202, kUnbounded, "10.0.0.1"},
        {"B'101'::bit(3)", 202, kUnbounded, "101"}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.expression);
        const auto rows = Query(
            std::string("select ") + expected.expression + " c from generate_series(1, 2)", adOpenStatic);
        const auto field = rows->Fields().Item("C");
        EXPECT_EQ(field->Type(), expected.type);
        EXPECT_EQ(field->DefinedSize(), expected.size);
        EXPECT_EQ((field->Attributes() & adFldLong) != 0, expected.type == 205);
        EXPECT_EQ(field->Value().Text(), expected.text);
        EXPECT_EQ(field->ActualSize(), static_cast<std::int64_t>(expected.text.size()));
        rows->MoveNext();
        // The row kept says the same.
        rows->MoveFirst();
        EXPECT_EQ(field->Value().Text(), expected.text);
    }
    Run("set time zone 'Asia/Tokyo'; set datestyle to 'German'; set bytea_output to 'hex'");
    EXPECT_EQ(Scalar("select timestamptz '2024-01-02 03:04:05+09'"), "02.01.2024 03:04:05 JST");
}

TEST(PostgresqlText, StatementsAreToldApart) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases{
        {"select 1; select 2", {"select 1", "select 2"}},
        {" ;; -- x;\n /* a /* ; */ ; */ ;", {}},
        {"select 'a;b', \"c;d\"; x", {"select 'a;b', \"c;d\"", "x"}},
        {"select E'a\\';b'';c'; x", {"select E'a\\';b'';c'", "x"}},
        {"select 'a\\'; x", {"select 'a\\'", "x"}},
        {"do $$ begin; end $$; x", {"do $$ begin; end $$", "x"}},
        {"select $q$;$$;$Q$;$q$, $1; x", {"select $q$;$$;$Q$;$q$, $1", "x"}},
        {"select a$b$;c", {"select a$b$", "c"}},
        {"create rule r as on insert to t do (delete from a; delete from b); x",
         {"create rule r as on insert to t do (delete from a; delete from b)", "x"}},
        {"create or replace function f() returns int begin atomic select case when true then 1 end; select "
         "2; "
         "end; x",
         {"create or replace function f() returns int begin atomic select case when true then 1 end; select "
          "2; end",
          "x"}},
        {"begin; end; commit", {"begin", "end", "commit"}},
        {"select '[;', a[1;", {"select '[;', a[1"}},
        {"select 'open; x", {"select 'open; x"}}};
    for (const auto& [text, expected] : cases) {
        std::vector<std::string> found;
        for (std::size_t position = 0; position < text.size();) {
            const auto next = NextPostgresqlStatement(text, position);
            if (!next.text.empty()) found.emplace_back(next.text);
            position = next.next;
        }
        EXPECT_EQ(found, expected) << text;
    }
    EXPECT_EQ(NextPostgresqlStatement("(SELECT 1)", 0).verb, "select");
    EXPECT_TRUE(OnlyReads("select count(*), lower(a) from t where (b = 1) and c in (1, 2)"));
    for (const char* text :
         {"select setval('s', 1)", "select \"f\" (1)", "with d as (delete from t returning 1) table d",
          "select a from t for update", "select a into x from t"}) {
        EXPECT_FALSE(OnlyReads(text)) << text;
    }
}

TEST_F(PostgresqlTest, RowsComeWhileTheServerProducesThem) {
    const auto start = Clock::now();
    {
        const auto rows =
            Query("select n, repeat('x', 1000) from (select generate_series(1, 100000000) n) s");
        for (int n = 1; n <= 1000; ++n, rows->MoveNext()) {
            ASSERT_EQ(rows->Fields().Item(0)->Value().Text(), std::to_string(n));
        }
    }
    EXPECT_EQ(Scalar("select 1"), "1");
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));

    // What a query does besides reading is done whole, whoever reads its rows.
    Run("create table log (n integer);"
        "create function note(n integer) returns integer language sql as 'insert into log values (n) "
        "returning n'");
    connection->Execute("select note(n) from generate_series(1, 30000) n").reset();
    EXPECT_EQ(Scalar("select count(*) from log"), "30000");
    connection->Execute("insert into log select n from generate_series(1, 5000) n returning n")->Close();
    EXPECT_EQ(Scalar("select count(*) from log"), "35000");

    // A failure behind the first rows is raised there, also where the rows had to be kept.
    for (const bool isKept : {false, true}) {
        const auto rows = Query("select 1 / (5000 - n) from generate_series(1, 9000) n");
        if (isKept) Scalar("select 1");
        const auto error = ErrorOf([&] {
            for (; !rows->IsEOF(); rows->MoveNext()) continue;
        });
        EXPECT_EQ(error.Number, -2147217900);
        EXPECT_EQ(error.Description, "division by zero");
        EXPECT_EQ(Scalar("select 1"), "1");
    }
}

TEST_F(PostgresqlTest, ValuesKeepTheirFormsWhateverIsSet) {
    for (const auto* sql :
         {"set client_encoding = 'latin1'", "select set_config('client_encoding', 'latin1', false)",
          "set bytea_output = 'escape'", "begin; set local bytea_output = 'escape'", "reset all",
          "set time zone 'Asia/Tokyo'; discard all"}) {
        Run(sql);
        EXPECT_EQ(Rows("select 'ä', '\\x4142'::bytea, timestamptz '2024-02-03 10:00+01'"),
                  "ä AB 2024-02-03 09:00:00")
            << sql;
        Run("rollback");
    }
}

TEST_F(PostgresqlTest, CopyIsRefused) {
    const auto error = ErrorOf([&] { Run("select 1; copy (select 1) to stdout"); });
    EXPECT_EQ(error.Number, -2147217900);
    EXPECT_NE(error.Description.find("COPY"), std::string::npos);
    EXPECT_EQ(Scalar("select 1"), "1");
}

TEST_F(PostgresqlTest, ErrorsCarryTheServersWords) {
    Run("create table t (id integer primary key, n integer check (n > 0))");
    const auto error = ErrorOf([&] { Run("insert into t values (1, 1), (1, 1)"); });
    EXPECT_EQ(error.Description,
              "duplicate key value violates unique constraint \"t_pkey\"\nDetail: Key (id)=(1) "
              "already exists.");
    EXPECT_EQ(NumberOf([&] { Run("insert into t values (2, 0)"); }), -2147217873);
    EXPECT_EQ(NumberOf([&] { Run("select 1 / 0"); }), -2147217900);
    EXPECT_EQ(NumberOf([&] { Run("select $1::int"); }), -2147217900);
    EXPECT_EQ(NumberOf([&] { Run("do $$ begin raise exception 'no'; end $$"); }), -2147217900);
    EXPECT_NE(ErrorOf([&] { Run("select idd from t"); }).Description.find("\nHint: "), std::string::npos);
    Run("set statement_timeout = 50");
    EXPECT_EQ(NumberOf([&] { Run("select pg_sleep(9)"); }), -2147217871);
    Run("begin");
    EXPECT_NE(NumberOf([&] { Run("select 1 / 0"); }), 0);
    EXPECT_EQ(ErrorOf([&] { Run("commit"); }).Description,
              "The transaction has been rolled back, because a statement in it has failed.");
}

TEST_F(PostgresqlTest, AServerThatHasGoneIsNoticed) {
    const auto rows = Query("select n from generate_series(1, 100000) n");
    EXPECT_EQ(Scalar("select 1"), "1");
    connection->BeginTrans();
    EndServerSide();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(connection->State(), adStateClosed);
    EXPECT_EQ(rows->State(), adStateClosed);
    EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }), -2147467259) << "not that it has none";
    EXPECT_EQ(NumberOf([&] { Run("select 1"); }), -2147467259);
    connection->Open(ConnectionString());
    EXPECT_EQ(Scalar("select 1"), "1");
    // And where a statement runs into it.
    const auto pid = Scalar("select pg_backend_pid()");
    const auto error = ErrorOf([&] { Run("select pg_terminate_backend(" + pid + "), pg_sleep(5)"); });
    EXPECT_EQ(error.Number, -2147467259);
    EXPECT_EQ(connection->State(), adStateClosed);
}

TEST_F(PostgresqlTest, OpeningTellsWhatIsWrong) {
    const char* const variable = ::getenv("HALVTIV_TEST_POSTGRESQL");
    const std::string server = variable ? variable : "";
    const auto with = [&](const std::string& more) {
        return ErrorOf([&] { Connection().Open(server + ";" + more); });
    };
    const auto refused = with("Password=wrong-1234");
    EXPECT_EQ(refused.Number, -2147217843);
    EXPECT_NE(refused.Description.find("password authentication failed"), std::string::npos);
    EXPECT_EQ(refused.Description.find("wrong-1234"), std::string::npos);
    EXPECT_EQ(refused.Description.find("28P01"), std::string::npos);
    EXPECT_EQ(with("Password=").Number, -2147217843);
    EXPECT_EQ(with("User ID=nobody-here").Number, -2147217843);
    const auto noDatabase = with("Initial Catalog=nowhere");
    EXPECT_EQ(noDatabase.Number, -2147467259);
    EXPECT_NE(noDatabase.Description.find("\"nowhere\" does not exist"), std::string::npos);
    EXPECT_EQ(with("Data Source=127.0.0.1:1").Number, -2147467259);
    EXPECT_EQ(with("Data Source=/no/such/folder").Number, -2147467259);
    const auto forgotten = with("Data Source=there Password=secret-77");
    EXPECT_EQ(forgotten.Description.find("secret-77"), std::string::npos);
    EXPECT_NE(forgotten.Description.find("\";\" missing"), std::string::npos);

    // The first host that answers is taken; one that does not answer at all does not hold up the others.
    const auto start = Clock::now();
    const std::string address(ConnectionParameters(server).Get("Data Source"));
    const test::SilentServer silent;
    Connection second;
    second.ConnectionTimeout(1);
    second.Open(server + ";Data Source='127.0.0.1:1, " + silent.Address() + ", " + address +
                "';application_name=several;Persist Security Info=no");
    EXPECT_EQ(second.Execute("show application_name")->Fields().Item(0)->Value().Text(), "several");
    EXPECT_EQ(second.Execute("show client_encoding")->Fields().Item(0)->Value().Text(), "UTF8");
    second.Close();
    const auto unanswered = ErrorOf([&] { second.Open(server + ";Data Source=" + silent.Address()); });
    EXPECT_EQ(unanswered.Number, -2147467259);
    EXPECT_NE(unanswered.Description.find("has not answered in time"), std::string::npos);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(8));
}

TEST_F(PostgresqlTest, RowsOfEveryKindOfTableAreChanged) {
    Run("create table plain (n integer, j json, p point);"
        "create unique index on plain (n);"
        "create table uniq (a integer not null, b text not null, x integer, unique (a, b));"
        "create table parted (n integer, x integer) partition by range (n);"
        "create table part1 partition of parted for values from (0) to (10);"
        "create table part2 partition of parted for values from (10) to (20);"
        "create table parent (id integer primary key, x integer);"
        "create table child () inherits (parent)");
    for (const char* table : {"plain", "uniq", "parted", "parent"}) {
        SCOPED_TRACE(table);
        const std::string name = table;
        if (name == "plain") Run("insert into plain select n, '{}', '(1,2)' from generate_series(1, 3) n");
        if (name == "uniq") Run("insert into uniq select n, 'b', 0 from generate_series(1, 3) n");
        if (name == "parted") Run("insert into parted values (1, 0), (11, 0), (2, 0)");
        if (name == "parent")
            Run("insert into parent values (1, 0), (2, 0); insert into child values (1, 0)");
        const std::string column = name == "plain" ? "n" : "x";
        const auto rows = Change("select " + column + (name == "plain" ? ", j, p" : "") + " from " + name);
        for (int i = 0; !rows->IsEOF(); rows->MoveNext(), ++i) {
            rows->Fields().Item(column)->Value(Variant(100 + i));
            if (name == "plain") rows->Fields().Item("j")->Value(Variant("[1]"));
            if (name == "plain") rows->Fields().Item("p")->Value(Variant("(3,4)"));
            if (i == 1) {
                rows->Delete();
            } else {
                rows->Update();
            }
        }
        rows->Close();
        EXPECT_EQ(Rows("select " + column + " from " + name + " order by 1"), "100|102");
    }
    EXPECT_EQ(Rows("select j from plain"), "[1]|[1]");

    Run("create table made (id integer generated always as identity primary key, n integer, twice integer "
        "generated always as (2 * n) stored)");
    const auto made = Change("made");
    made->AddNew();
    EXPECT_EQ(NumberOf([&] { made->Fields().Item("id")->Value(Variant(5)); }), -2146825037);
    EXPECT_EQ(NumberOf([&] { made->Fields().Item("twice")->Value(Variant(5)); }), -2146825037);
    EXPECT_EQ(made->Fields().Item("twice")->Attributes() & adFldUpdatable, 0);
    made->Fields().Item("n")->Value(Variant(4));
    made->Update();
    made->Close();
    EXPECT_EQ(Scalar("select id || ':' || twice from made"), "1:8");

    Run("create aggregate first_of (integer) (sfunc = int4larger, stype = integer)");
    const auto summed = Change("select first_of(n) n from made");
    EXPECT_EQ(summed->Fields().Item(0)->Value().Text(), "4");
    EXPECT_EQ(NumberOf([&] { summed->Delete(); }), -2146825037);
}

TEST_F(PostgresqlTest, LargeBytesAreReadByTheirKey) {
    Run("create table t (id integer primary key, b bytea);"
        "insert into t select n, decode(repeat(lpad(to_hex(n), 2, '0') || '00ff', 3000000), 'hex') "
        "from generate_series(1, 3) n");
    auto rows = Query("select b as photo, id from t order by photo desc, id");
    rows = Query("select *, b as again from t order by id");
    for (int n = 1; n <= 3; ++n, rows->MoveNext()) {
        const auto field = rows->Fields().Item("again");
        EXPECT_EQ(field->ActualSize(), 9'000'000);
        EXPECT_EQ(field->GetChunk(3), (Bytes{static_cast<std::uint8_t>(n), 0, 0xff}));
        EXPECT_TRUE(rows->Fields().Item("b")->Value() == field->Value());
    }
    // A row that has gone since is said to have gone.
    rows = Query("select * from t order by id");
    Run("delete from t where id = 1");
    EXPECT_EQ(NumberOf([&] { rows->Fields().Item("b")->GetChunk(9); }), -2146825267);
    rows->MoveNext();
    EXPECT_EQ(rows->Fields().Item("b")->GetChunk(1), (Bytes{2}));
}

TEST_F(PostgresqlTest, TheServerKeepsABoundedNumberOfStatements) {
    for (int i = 0; i < 150; ++i) Run("select " + std::to_string(i));
    EXPECT_LE(OpenStatements(), 64);
    Run("deallocate all");
    EXPECT_EQ(Scalar("select 149"), "149");
    Run("create table t (n integer)");
    EXPECT_LE(OpenStatements(), 1);
    for (int i = 0; i < 5; ++i)
        Run("insert into t select length('" + std::string(static_cast<std::size_t>(9000 + i), 'x') + "')");
    EXPECT_LE(OpenStatements(), 1) << "long statements that change rows are not kept";
    for (int i = 0; i < 5; ++i)
        Scalar("select '" + std::string(static_cast<std::size_t>(9000 + i), 'x') + "'");
    EXPECT_LE(OpenStatements(), 3) << "long queries are not kept once they have been read";
    EXPECT_EQ(Scalar("select sum(n) from t"), "45010");
    connection->BeginTrans();
    Scalar("select 149");
    Connect()->Execute("create table other (n integer)");
    EXPECT_EQ(Scalar("select 149"), "149");
    connection->RollbackTrans();
}

TEST_F(PostgresqlTest, NamesMeanOthersAfterTheSearchPathHasChanged) {
    Run("create table t (n integer)");
    connection->BeginTrans();
    EXPECT_EQ(Query("select * from t")->Fields().Count(), 1);
    Run("create temporary table t (a integer, b integer)");
    EXPECT_EQ(Query("select * from t")->Fields().Count(), 2);
    const auto own = Scalar("SELECT current_setting('search_path')");
    EXPECT_EQ(Scalar("SELECT Set_Config('search_path', '" + own + ", pg_temp', true)"), own + ", pg_temp");
    EXPECT_EQ(Query("select * from t")->Fields().Count(), 1);
    connection->RollbackTrans();
    EXPECT_EQ(Query("select * from t")->Fields().Count(), 1);
}

}  // namespace
}  // namespace halvtiv::ado
