// halvtiv copy: tables that change their database, and copies that are stopped on the way.

#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

#include "command_support.hpp"
#include "copy/row_hash.hpp"

namespace {

namespace ado = halvtiv::ado;
using halvtiv::test::CommandTest;
using halvtiv::test::Contains;
using halvtiv::test::Outcome;
using halvtiv::test::ReadFile;

std::string FromEnvironment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr ? value : "";
}

/// The rows of a query, "a b|c d".
std::string Rows(const std::string& connectionString, const std::string& sql) {
    const auto connection = std::make_shared<ado::Connection>();
    connection->Open(connectionString);
    return halvtiv::test::RestOf(connection->Execute(sql));
}

void Run(const std::string& connectionString, const std::string& sql) {
    ado::Connection connection;
    connection.Open(connectionString);
    for (auto result = connection.Execute(sql); result; result = result->NextRecordset()) continue;
}

class CopyTest : public CommandTest {
protected:
    void TearDown() override {
        for (const auto& [server, undo] : made_) Run(server, undo);
    }

    std::string File(const std::string& name) const {
        return "Provider=SQLite;Create=1;Data Source=" + (folder_ / name).string();
    }
    /// An empty place of this test's own on a server; "" where there is none.
    std::string Postgresql() {
        const std::string server = FromEnvironment("HALVTIV_TEST_POSTGRESQL");
        const std::string schema = "copy_" + std::to_string(::getpid());
        if (server.empty()) return "";
        const std::string drop = "drop schema if exists " + schema + " cascade";
        Run(server, drop + "; create schema " + schema);
        made_.emplace_back(server, drop);
        return server + ";options=-c search_path=" + schema;
    }
    std::string MariaDb(const std::string& suffix = "") {
        std::string server = FromEnvironment("HALVTIV_TEST_MARIADB");
        const std::string name = "copy_" + std::to_string(::getpid()) + suffix;
        const std::string catalog = "Initial Catalog=";
        const std::size_t start = server.find(catalog);
        if (start == std::string::npos) return "";
        const std::string drop = "drop database if exists " + name;
        Run(server, drop + "; create database " + name);
        made_.emplace_back(server, drop);
        const std::size_t end = server.find(';', start);
        return server.replace(start, end - start, catalog + name);
    }
    /// Empty databases of every kind that is here.
    std::vector<std::string> Targets() {
        std::vector<std::string> targets{File("target.db")};
        for (const auto& server : {Postgresql(), MariaDb()}) {
            if (!server.empty()) targets.push_back(server);
        }
        return targets;
    }

    Outcome Copy(const std::string& from, const std::string& to, const std::string& more = "") {
        Write("from.txt", from);
        Write("to.txt", to);
        return Run("copy --from-file from.txt --to-file to.txt --format csv " + more);
    }
    using CommandTest::Run;
    static void Run(const std::string& connectionString, const std::string& sql) {
        ::Run(connectionString, sql);
    }

    /// Copies, and sends a signal once rows are there; how the command ended.
    int StopCopy(const std::string& from, const std::string& to, int signal) {
        Write("from.txt", from);
        Write("to.txt", to);
        return Stop({"copy", "--from-file", "from.txt", "--to-file", "to.txt", "--batch", "100"}, signal,
                    [&] { return Progress(to) > 0; })
            .status;
    }
    static int Progress(const std::string& to) {
        try {
            const auto rows = Rows(to, "select row_count from halvtiv_copy");
            return rows.empty() ? 0 : std::stoi(rows);
        } catch (const halvtiv::ErrorInfo&) {
            return 0;  // the table is not there yet
        }
    }

private:
    std::vector<std::pair<std::string, std::string>> made_;
};

constexpr const char* kEverything = R"(
create table kinds (id integer primary key, b boolean default 1, ti tinyint, bi bigint not null, r real,
    d decimal(12,4) default 1.50, c char(5), v varchar(20) default 'it''s a \b', t text unique, bl blob, da date, tm time,
    ts timestamp default current_timestamp, g guid);
insert into kinds values (1, 1, 255, -9223372036854775808, 0.1, 12345678.1234, 'ab  ', 'x''y\z "q"', 'a' || char(10),
    x'00275cff', '2024-02-29', '23:59:59', '2024-02-29 12:00:00.5', '{12345678-1234-1234-1234-1234567890AB}');
insert into kinds values (0, 0, 0, 9223372036854775807, 1e300, 0, '', '', '', x'', '1999-1-2', '00:00', '1999-01-02',
    '12345678-1234-1234-1234-1234567890ac');
insert into kinds (id, bi) values (100, 0);
insert into kinds (id, bi, t, bl, v) values (-7, 1, 'null', zeroblob(300000), null);
create table "Parent" (code varchar(10) not null primary key, "first child" integer references child (id));
create table child (id integer primary key, parent varchar(10) not null references "Parent" (code) on delete cascade,
    number integer, unique (parent, number));
create index child_number on child (number);
insert into "Parent" values ('p', null);
insert into child values (1, 'p', 1), (2, 'p', 2);
update "Parent" set "first child" = 2;
create table pairs (a varchar(10) not null, b integer not null, primary key (a, b)) without rowid;
insert into pairs with recursive n(i) as (select 1 union all select i + 1 from n where i < 2500)
    select 'it''s ' || (i / 10), i from n;
create table bag (word text);
insert into bag values ('x'), ('x'), (null);
create view seen as select * from bag;
)";

/// What the table of values says on every database.
constexpr const char* kValues =
    "select id, b, ti, bi, r, d, v, t, da, tm, ts, g from kinds where id in (0, 1, 100) order by id";

// MariaDB keeps truth values as numbers.
std::string WithoutTruth(std::string text) {
    for (const auto& [name, digit] : {std::pair{" True ", " 1 "}, std::pair{" False ", " 0 "}}) {
        for (std::size_t at = 0; (at = text.find(name)) != std::string::npos;) {
            text.replace(at, std::string(name).size(), digit);
        }
    }
    return text;
}

TEST_F(CopyTest, EveryKindOfValueArrives) {
    Run(File("source.db"), kEverything);
    for (const std::string& target : Targets()) {
        const Outcome outcome = Copy(File("source.db"), target);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_TRUE(Contains(outcome.err, "kinds is made without the default of ts.\n")) << outcome.err;
        EXPECT_TRUE(Contains(outcome.err, "Not copied: 1 view.\n")) << outcome.err;
        EXPECT_TRUE(Contains(outcome.out, "pairs,2500,2500,")) << outcome.out;
        const auto values = WithoutTruth(Rows(target, kValues));
        for (const char* const part : {"0 0 0 9223372036854775807 1e+300 0",
                                       "|1 1 255 -9223372036854775808 0.1 12345678.1234 x'y\\z \"q\" a\n "
                                       "2024-02-29 23:59:59 2024-02-29 12:00:00.5 {12345678-",
                                       "|100 1 null 0 null 1.5"}) {
            EXPECT_TRUE(Contains(values, part)) << part << " in " << values;
        }
        EXPECT_EQ(Rows(target, "select length(bl) from kinds where id in (-7, 1) order by id"), "300000|4");
        EXPECT_EQ(Progress(target), 0);
    }
}

TEST_F(CopyTest, BetweenSqliteFilesAValueKeepsItsType) {
    Run(File("source.db"), R"(
create table kv (key primary key, value) without rowid;
insert into kv with recursive n(i) as (select 1 union all select i + 1 from n where i < 2500) select i, i * 0.5 from n;
insert into kv values ('it''s', 1.0), (x'00ff', 'x'), ('nul' || char(0), null), (-0.5, 9e999), (-1e300, -9e999);
create table odd (id integer primary key, b boolean, g guid, d date, x, content blob);
insert into odd values (1, 5, x'00112233445566778899aabbccddeeff', '2024-1-2', 7, 'text'),
    (2, 'yes', '12345678-1234-1234-1234-1234567890ac', 1700000000, 7.0, x'01'), (3, null, null, null, x'0102', '');
create table photo (g guid, x, content blob);
insert into photo values (x'00112233445566778899aabbccddeeff', '5', zeroblob(200000)), (null, 5, null);
create table gap (id int primary key, w text); insert into gap values (null, 'none'), (7, 'seven');
create virtual table page using fts5(body);
)");
    const Outcome outcome = Copy(File("source.db"), File("target.db"));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(Contains(outcome.err, "Not copied: 1 virtual or foreign table.\n")) << outcome.err;
    for (const char* const sql :
         {"select hex(quote(key)), typeof(key), quote(value) from kv order by key",
          "select quote(b), quote(g), quote(d), quote(x), quote(content) from odd order by id",
          "select quote(g), quote(x), typeof(content), length(content) from photo order by rowid",
          "select quote(id), w from gap order by w"}) {
        const auto before = Rows(File("source.db"), sql);
        EXPECT_TRUE(Contains(before, "|"));
        EXPECT_EQ(before, Rows(File("target.db"), sql)) << sql;
    }
}

TEST_F(CopyTest, MariaDbsOwnValuesArrive) {
    const std::string source = MariaDb();
    if (source.empty()) GTEST_SKIP() << "NOT TESTED: run the tests through scripts/test-servers";
    Run(source, "create table post (id bigint unsigned auto_increment primary key, word text)");
    Run(source,
        "create table note (id int primary key, post bigint unsigned, sum bigint unsigned, foreign key "
        "(post) "
        "references post (id))");
    Run(source, "insert into post (word) values ('a'), ('b')");
    Run(source, "insert into note values (1, 2, 18446744073709551615)");
    Run(source, "create table twin (day date primary key, at datetime, key one (at), key two (at))");
    Run(source,
        "set sql_mode = ''; insert into twin values ('0000-00-00', '0000-00-00 00:00:00'), ('2024-02-29', "
        "null)");
    EXPECT_EQ(Copy(source, File("target.db"), "twin --batch 1").status, 0);
    EXPECT_EQ(Rows(File("target.db"), "select quote(day), quote(at) from twin order by day"),
              "'0000-00-00' '0000-00-00 00:00:00'|'2024-02-29' NULL");
    const std::string target = Postgresql();
    const Outcome refused = Copy(source, target, "twin");
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(Contains(refused.err, "0000-00-00")) << refused.err;
    Run(target, "drop table halvtiv_copy, twin");
    const Outcome outcome = Copy(source, target, "post note");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    Run(target, "insert into post (word) values ('c')");
    EXPECT_EQ(Rows(target, "select p.id, n.sum from post p left join note n on n.post = p.id order by p.id"),
              "1 null|2 18446744073709551615|3 null");
    EXPECT_THROW(Run(target, "insert into note values (2, 9, 0)"), halvtiv::ErrorInfo);
}

TEST_F(CopyTest, MariaDbsOwnTypesAreReadAsTheyAreMeant) {
    const std::string source = MariaDb();
    if (source.empty()) GTEST_SKIP() << "NOT TESTED: run the tests through scripts/test-servers";
    for (const char* const sql :
         {"create table size (word enum('small', 'big', 'it''s') primary key, flags set('x', 'b', 'a') "
          "unique)",
          "insert into size values ('small', 'b,a'), ('big', 'x'), ('it''s', '')",
          "create table bits (id bit(64) primary key, truth boolean, level tinyint(1), f float)",
          "insert into bits values (1, 1, 5, 3.4028234663852886e38), (18446744073709551615, 0, -1, 1e-45), "
          "(2, null, 0, 0.1)",
          "create table letter (a varchar(9) collate latin1_bin, b varchar(9) collate utf8mb4_general_ci, "
          "primary key (a, b))",
          "insert into letter values ('Z', 'a'), ('z', 'a'), ('ä', 'B'), ('a', 'x')"}) {
        Run(source, sql);
    }
    for (const std::string& target : {Postgresql(), MariaDb("_too")}) {
        const Outcome outcome = Copy(source, target, "--batch 1");
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(Rows(target, "select concat(word), flags from size order by 1"), "big x|it's |small b,a");
        const auto bits = Rows(target, "select truth, level, f + 0e0 from bits order by level");
        EXPECT_TRUE(Contains(bits, " -1 1.40")) << bits;
        EXPECT_TRUE(Contains(bits, " 5 3.402823466")) << bits;
        EXPECT_EQ(Rows(target, "select count(*) from letter where b = 'b'"),
                  Contains(target, "MariaDB") ? "1" : "0");
    }
}

TEST_F(CopyTest, InheritedRowsComeOnce) {
    const std::string source = Postgresql();
    if (source.empty())
        GTEST_SKIP() << "NOT TESTED ON PostgreSQL: run the tests through scripts/test-servers";
    Run(source,
        "create table place (id integer primary key, name text); create table town (mayor text) inherits "
        "(place); insert into place values (1, 'sea'), (2, 'hill'); insert into town values (1, 'A', 'm'), "
        "(2, 'B', 'm'), (3, 'C', null); create table parted (n integer) partition by range (n); "
        "create table first partition of parted for values from (0) to (9); insert into parted values (5)");
    const Outcome outcome = Copy(source, File("target.db"));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "Table town is made without its place in place.\n");
    EXPECT_EQ(Rows(File("target.db"), "select name from place order by id"), "sea|hill");
    EXPECT_EQ(Rows(File("target.db"), "select count(*), (select max(n) from parted) from town"), "3 5");
    // Rows of its heirs do not make a table full.
    Run(source, "delete from only place");
    EXPECT_EQ(Copy(File("target.db"), source, "place").status, 0);
}

TEST_F(CopyTest, PostgresqlFindsNamesAsItReadsThem) {
    const std::string target = Postgresql();
    if (target.empty())
        GTEST_SKIP() << "NOT TESTED ON PostgreSQL: run the tests through scripts/test-servers";
    const std::string name = "Überaus_" + std::string(30, 'x') + std::string("ÄÄÄÄÄÄÄÄÄÄÄÄÄÄÄ");
    Run(File("source.db"), "create table " + name + " (Größe integer primary key, Maß_" + name +
                               " integer); insert into " + name +
                               " values (1, 7), (2, 8), (3, 9); create index i on " + name + " (Maß_" + name +
                               "); create table child (id integer primary key references " + name +
                               "); insert into child values (2)");
    Run(target, "create table child (id integer check (id > 2))");
    EXPECT_EQ(Copy(File("source.db"), target, "--batch 1").status, 1);
    Run(target, "drop table child; create table child (id integer)");
    const Outcome outcome = Copy(File("source.db"), target, "--batch 1");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(Rows(target, "select Maß_" + name + " from " + name + " where Größe > 1 order by Größe"),
              "8|9");
    EXPECT_EQ(Rows(target, "select count(*) from pg_indexes where schemaname = current_schema()"), "2");
    Run(File("source.db"), "create table " + name + "Ä (id integer)");
    EXPECT_TRUE(
        Contains(Copy(File("source.db"), Postgresql()).err, "Two tables of the source would be called"));
}

TEST_F(CopyTest, RowsWithoutAKeyNeverComeTwice) {
    const std::string target = Postgresql();
    if (target.empty())
        GTEST_SKIP() << "NOT TESTED ON PostgreSQL: run the tests through scripts/test-servers";
    Run(target, "create table bag (word text); insert into bag values ('x'), ('x'), (null)");
    Run(File("target.db"),
        "create table bag (word text); create trigger stop before insert on bag begin select raise(abort, "
        "'stopped'); end");
    EXPECT_TRUE(Contains(Copy(target, File("target.db")).err, "stopped"));
    // The copy dies between its rows and whatever it notes after them.
    Run(File("target.db"),
        "drop trigger stop; create trigger stop before update on halvtiv_copy when new.row_count = "
        "old.row_count and new.row_count > 0 begin select raise(abort, 'died'); end");
    EXPECT_TRUE(Contains(Copy(target, File("target.db")).err, "died"));
    EXPECT_EQ(Rows(File("target.db"), "select count(*) from bag"), "3");
    Run(File("target.db"), "drop trigger stop");
    const Outcome rest = Copy(target, File("target.db"));
    EXPECT_EQ(rest.status, 0) << rest.err;
    EXPECT_TRUE(Contains(rest.out, "bag,3,0,")) << rest.out;
}

TEST_F(CopyTest, KeysGoWithTheTables) {
    Run(File("source.db"), kEverything);
    for (const std::string& target : Targets()) {
        ASSERT_EQ(Copy(File("source.db"), target).status, 0);
        for (const char* const refused :
             {"insert into child values (3, 'p', 2)", "insert into child values (3, 'q', 3)",
              "insert into pairs values ('it''s 0', 1)", "insert into pairs values (null, 1)",
              "insert into kinds (id) values (7)", "insert into kinds (id, bi, t) values (7, 7, '')"}) {
            EXPECT_THROW(Run(target, refused), halvtiv::ErrorInfo) << refused;
        }
        Run(target, "insert into kinds (bi) values (5); insert into kinds (bi) values (5)");
        EXPECT_TRUE(Contains(Rows(target, "select id, v, d from kinds where bi = 5 order by id"),
                             "|102 it's a \\b 1.5"));
        const std::string parent = Contains(target, "PostgreSQL") ? "parent" : "`Parent`";
        Run(target, "update " + parent + " set " +
                        (parent == "parent" ? "\"first child\"" : "`first child`") + " = null; delete from " +
                        parent);
        EXPECT_EQ(Rows(target, "select count(*) from child"), "0");
    }
}

TEST_F(CopyTest, TheAtlasGoesRoundAndComesBackTheSame) {
    const std::vector<std::string> stations{"Provider=SQLite;Data Source=" HALVTIV_ATLAS_DATABASE,
                                            Postgresql(), MariaDb(), File("back.db")};
    if (stations[1].empty() || stations[2].empty()) {
        GTEST_SKIP() << "NOT TESTED: run the tests through scripts/test-servers";
    }
    for (std::size_t i = 1; i < stations.size(); ++i) {
        const Outcome outcome = Copy(stations[i - 1], stations[i]);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_FALSE(Contains(outcome.out, "False")) << outcome.out;
    }
    // Looked at with other eyes than those of the command.
    for (const char* const sql :
         {"select * from country order by alpha2", "select * from country_name order by country, language",
          "select * from subdivision order by code", "select * from source order by path",
          "select name, language, country, title, currency, money_digits from locale order by name"}) {
        const auto before = Rows(stations.front(), sql);
        EXPECT_GT(std::count(before.begin(), before.end(), '|'), 100);
        EXPECT_EQ(before, Rows(stations.back(), sql)) << sql;
    }
}

std::string ManyRows(int count) {
    return "create table many (id integer primary key, word varchar(40)); insert into many with recursive "
           "n(i) as "
           "(select 1 union all select i + 1 from n where i < " +
           std::to_string(count) + ") select i, 'word ' || i from n";
}

TEST_F(CopyTest, ACopyThatWasKilledGoesOn) {
    constexpr int kRows = 60000;
    Run(File("source.db"), ManyRows(kRows));
    for (const std::string& target : Targets()) {
        EXPECT_EQ(StopCopy(File("source.db"), target, SIGKILL), -1);
        const int rows = Progress(target);
        EXPECT_EQ(rows % 100, 0);
        EXPECT_LT(rows, kRows) << "the copy was over before it could be killed";
        EXPECT_EQ(Rows(target, "select count(*), max(id) from many"),
                  std::to_string(rows) + " " + std::to_string(rows));

        Run(File("other.db"), "create table if not exists many (id integer primary key, word text)");
        EXPECT_TRUE(Contains(Copy(File("other.db"), target).err, "unfinished copy from another database"));
        const Outcome rest = Copy(File("source.db"), target);
        EXPECT_EQ(rest.status, 0) << rest.err;
        EXPECT_TRUE(Contains(rest.out, "many,60000," + std::to_string(kRows - rows) + ",")) << rest.out;
        EXPECT_EQ(Rows(target, "select count(*), count(distinct id), sum(id) from many"),
                  "60000 60000 1800030000");
    }
}

TEST_F(CopyTest, CtrlCLeavesWholeBatches) {
    Run(File("source.db"), ManyRows(60000));
    const std::string target = File("target.db");
    EXPECT_EQ(StopCopy(File("source.db"), target, SIGINT), 130);
    EXPECT_EQ(ReadFile(folder_ / "err"), "Interrupted. The same command goes on from here.\n");
    const auto rows = Rows(target, "select count(*) from many");
    EXPECT_EQ(std::stoi(rows) % 100, 0);
    EXPECT_EQ(Rows(target, "select row_count from halvtiv_copy"), rows);
    EXPECT_EQ(Rows(target, "pragma journal_mode"), "delete");
    Run(File("source.db"), "create table one (id integer primary key)");
    EXPECT_TRUE(Contains(Copy(File("source.db"), target, "one").err,
                         "unfinished copy of other tables, too, such as many"));
    // What somebody adds meanwhile is not taken for the copy's own.
    Run(target, "insert into many values (-1, 'mine')");
    const Outcome changed = Copy(File("source.db"), target);
    EXPECT_EQ(changed.status, 2);
    EXPECT_TRUE(Contains(changed.err, "it has been changed meanwhile")) << changed.err;
    Run(target, "delete from many where id < 0");
    EXPECT_EQ(Copy(File("source.db"), target).status, 0);
}

TEST_F(CopyTest, ADifferenceIsNamed) {
    Run(File("source.db"),
        "create table a (id integer primary key, w text); insert into a values (1, 'x'), (2, 'y');"
        "create table b (id integer primary key); insert into b values (1), (2), (3)");
    Run(File("target.db"),
        "create table A (w text, id integer primary key, extra text default 'e'); create table b (id integer "
        "primary "
        "key);"
        "create trigger t after insert on a when new.id = 2 begin update a set w = 'z' where id = 2; end;");
    const Outcome content = Copy(File("source.db"), File("target.db"), "a");
    EXPECT_EQ(content.status, 1);
    EXPECT_TRUE(
        Contains(content.err, "Table A differs: both sides have 2 rows, but not the same values in w."))
        << content.err;
    EXPECT_TRUE(Contains(content.out, ",False")) << content.out;
    Run(File("target.db"), "update a set w = 'y' where id = 2");
    EXPECT_EQ(Copy(File("source.db"), File("target.db"), "a").status, 0) << "compares again";

    Run(File("target.db"),
        "create trigger u after insert on b when new.id = 2 begin delete from b where id = 2; end");
    const Outcome count = Copy(File("source.db"), File("target.db"), "b");
    EXPECT_EQ(count.status, 1);
    EXPECT_TRUE(Contains(count.err, "the source has 3 rows, the target 2.")) << count.err;
}

TEST_F(CopyTest, WhatCannotBeCopiedIsRefused) {
    Run(File("full.db"),
        "create table item (id integer primary key, name text, price real); "
        "insert into item values (1, 'mine', 1)");
    Run(File("narrow.db"), "create table item (id integer primary key)");
    Run(File("empty.db"), "create view v as select 1 a");
    ExpectRefused("copy --from shop.db --to full.db", "Table item on the target has rows already, 1 of them");
    ExpectRefused("copy --from shop.db --to narrow.db", "has no column name.");
    ExpectRefused("copy --from shop.db --to new.db items", "The source has no table items.");
    ExpectRefused("copy --from empty.db --to new.db", "The source has no tables.");
    ExpectRefused("copy --from nowhere.db --to new.db", "nowhere.db");
    ExpectRefused("copy --to new.db", "HALVTIV_FROM");
    ExpectRefused("copy --from shop.db", "HALVTIV_TO");
    ExpectRefused("copy --from shop.db --from-file x --to new.db", "one of --from and --from-file");
    ExpectRefused("--db shop.db copy --from shop.db --to new.db", "A copy has two databases");
    for (const char* const batch : {"0", "-1", "x", "1000001", "10x"}) {
        ExpectRefused("copy --from shop.db --to new.db --batch " + std::string(batch), "--batch is a number");
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ / "new.db")) << "what is refused leaves no empty file";
    Write("old.db", "");
    ExpectRefused("copy --from empty.db --to old.db", "The source has no tables.");
    EXPECT_TRUE(std::filesystem::exists(folder_ / "old.db"));
    EXPECT_EQ(Rows(File("full.db"), "select name from item"), "mine");
    EXPECT_EQ(Rows(File("full.db"), "select count(*) from sqlite_master"), "1");
}

TEST_F(CopyTest, ConnectionsComeFromTheEnvironment) {
    const Outcome outcome = Shell("HALVTIV_FROM=shop.db HALVTIV_TO=new.db halvtiv copy ITEM --format csv");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(Contains(outcome.out, "table,rows,copied,seconds,equal\r\nitem,2,2,")) << outcome.out;
    EXPECT_EQ(Rows(File("new.db"), "pragma journal_mode"), "delete");
}

TEST_F(CopyTest, AValueThatTheTargetCannotHoldFailsItsBatchAlone) {
    const std::string target = Postgresql();
    if (target.empty())
        GTEST_SKIP() << "NOT TESTED ON PostgreSQL: run the tests through scripts/test-servers";
    Run(File("source.db"),
        "create table w (id integer primary key, t text); insert into w values (1, 'a'), (2, 'b'), "
        "(3, cast(x'6100' as text)), (4, 'd')");
    const Outcome failed = Copy(File("source.db"), target, "--batch 2");
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.err, "Table w: A text holds a NUL character, which the database cannot hold.\n");
    EXPECT_EQ(Rows(target, "select count(*) from w"), "2");
    Run(File("source.db"), "update w set t = 'c' where id = 3");
    EXPECT_EQ(Copy(File("source.db"), target).status, 0);
    EXPECT_EQ(Rows(target, "select string_agg(t, '' order by id) from w"), "abcd");
}

TEST_F(CopyTest, LongValuesPassInPieces) {
    Run(File("source.db"),
        "create table photo (id integer primary key, content blob); "
        "insert into photo values (1, zeroblob(100000000))");
    EXPECT_EQ(Copy(File("source.db"), File("target.db")).status, 0);
    EXPECT_EQ(Rows(File("target.db"), "select length(content) from photo"), "100000000");
#if !defined(__SANITIZE_ADDRESS__)  // which keeps memory of its own
    ::rusage usage{};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    EXPECT_LT(usage.ru_maxrss, 64 * 1024) << "KiB";
#endif
}

TEST(CopiedValues, AreEqualWhereTheyMeanTheSame) {
    using halvtiv::cli::copy::Kind;
    const struct {
        Kind kind;
        std::string left, right;
        bool isEqual;
    } rows[] = {
        {Kind::Boolean, "True", "1", true},
        {Kind::Boolean, "False", "1", false},
        {Kind::Boolean, "F", "0", true},
        {Kind::Boolean, "5", "1", false},
        {Kind::Integer, "hello", "help", false},
        {Kind::Decimal, "NaN", "nan", true},
        {Kind::Decimal, "1.50", "1.5", true},
        {Kind::Decimal, "-0.0100", "-.01", true},
        {Kind::Decimal, "-0.00", "0", true},
        {Kind::Decimal, "1e+21", "1000000000000000000000", true},
        {Kind::Decimal, "15", "1.5", false},
        {Kind::Decimal, "100000000000000000001", "100000000000000000002", false},
        {Kind::BigInt, "9223372036854775807", "9223372036854775806", false},
        {Kind::BigInt, "10", "1", false},
        {Kind::Double, "1e+21", "1000000000000000000000", true},
        {Kind::Double, "inf", "Infinity", true},
        {Kind::Double, "-inf", "Infinity", false},
        {Kind::Single, "0.1", "0.10000000149011612", true},
        {Kind::Timestamp, "2024-01-02", "2024-01-02 00:00:00.000", true},
        {Kind::Timestamp, "2024-1-2T10:30", "2024-01-02 10:30:00", true},
        {Kind::Timestamp, "2024-01-02 10:30:00.5", "2024-01-02 10:30:00", false},
        {Kind::Timestamp, "2024-01-02T10:30:00.500Z", "2024-01-02 10:30:00.5", true},
        {Kind::Timestamp, "2024-01-02 10:30:00+02:00", "2024-01-02 10:30:00", false},
        {Kind::Date, "2024/01/02", "2024-01-02 00:00:00", true},
        {Kind::Time, "10:30", "10:30:00.0", true},
        {Kind::Time, "10:30:10", "10:30:01", false},
        {Kind::Guid, "12345678-1234-1234-1234-1234567890ab", "{12345678-1234-1234-1234-1234567890AB}", true},
        {Kind::Text, "1.50", "1.5", false},
        {Kind::Text, "a", "a ", false},
    };
    for (const auto& row : rows) {
        std::string left, right;
        halvtiv::cli::copy::AppendCanonical(left, {row.kind, false}, row.left);
        halvtiv::cli::copy::AppendCanonical(right, {row.kind, false}, row.right);
        EXPECT_EQ(left == right, row.isEqual)
            << row.left << " is " << left << ", " << row.right << " is " << right;
    }
}

}  // namespace
