// Queries, tables and changes that are easily mistaken for others.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "ado/errors.hpp"
#include "db/tiv_core.hpp"
#include "support.hpp"

namespace halvtiv {
namespace {

using namespace ado;
using test::ErrorOf;

ConnectionPtr InMemory(std::string_view sql) {
    return test::MakeDatabase(":memory:", sql);
}

/// All rows, as "a,b|c,d|"; read as a client reads them, or for changes.
std::string Rows(const ConnectionPtr& connection, std::string_view sql,
                 LockTypeEnum lockType = adLockReadOnly) {
    Recordset rows;
    rows.Open(sql, connection, adOpenForwardOnly, lockType);
    std::string all;
    for (; !rows.IsEOF(); rows.MoveNext()) {
        for (std::int32_t i = 0; i < rows.Fields().Count(); ++i) {
            all += (i > 0 ? "," : "") + rows.Fields().Item(i)->Value().Text();
        }
        all += '|';
    }
    rows.Close();
    return all;
}

/// Assigns to the first row that a query selects; the error's number, 0 for none.
std::int32_t Assign(const ConnectionPtr& connection, std::string_view sql, std::string_view column,
                    std::string_view value) {
    return ErrorOf([&] {
               Recordset rows;
               rows.Open(sql, connection, adOpenDynamic, adLockOptimistic);
               rows.Fields().Item(column)->Value(Variant(value));
               rows.Update();
           })
        .Number;
}

constexpr std::string_view kPhotos =
    "create table t(id integer primary key, name text, photo blob);"
    "insert into t values(1,'b','P1'),(2,'a','P3'),(3,'c','P2')";

struct ReadingCase {
    std::string_view schema, query, rows;
};

TEST(WritingShapesTest, LongValuesAreThoseThatTheQueryAsksFor) {
    const ReadingCase cases[] = {
        {kPhotos, "select id, (select photo from t x where x.id = t.id + 1) as p from t", "1,P3|2,P2|3,|"},
        {kPhotos, "select photo from t order by (1)", "P1|P2|P3|"},
        {kPhotos, "select photo from t order by +1 desc limit 2", "P3|P2|"},
        {kPhotos, "select name as photo, photo as p from t order by p", "b,P1|c,P2|a,P3|"},
        {kPhotos, "select 'x' -- one, two\n, photo -- from, t\nfrom t\nlimit 2", "x,P1|x,P3|"},
        {"create table t(id integer primary key, a blob, g int generated always as (id * 2) virtual,"
         "b blob, c blob as (b) virtual, d blob as (b || 'x') stored); insert into t(a, b) values('A','B')",
         "select * from t", "1,A,2,B,B,Bx|"},
        {"create table t(id integer primary key); insert into t values(1);"
         "alter table t add column a memo default 'none'; alter table t add column b blob default x'4142'",
         "select * from t", "1,none,AB|"},
        {"pragma encoding = 'UTF-16'; create table t(a memo, b blob); insert into t values('hello', 'ö')",
         "select * from t", "hello,ö|"},
    };
    for (const auto& [schema, query, rows] : cases) {
        const auto connection = InMemory(schema);
        EXPECT_EQ(Rows(connection, query), rows) << query;
        EXPECT_EQ(Rows(connection, query, adLockOptimistic), rows) << "for changes: " << query;
    }
}

struct ChangingCase {
    std::string_view schema, query, column;
    std::int32_t error;
    std::string_view look, rows;
};

TEST(WritingShapesTest, OnlyTheRowThatIsShownIsChanged) {
    constexpr auto kNotSupported = static_cast<std::int32_t>(AdoError::NotSupported);
    constexpr auto kRowChanged = static_cast<std::int32_t>(AdoError::RowChanged);
    constexpr std::string_view kNames =
        "create table t(id integer primary key, name text); insert into t values(1,'a'),(2,'a')";
    const std::string viewOnTop = std::string(kNames) +
                                  "; create temp view t as select 3 - id as id, name, 3 - id as rowid from "
                                  "main.t; create view v as select id, name from main.t";
    constexpr std::string_view kAll = "select name from main.t order by id";
    const ChangingCase cases[] = {
        {kNames, "select id -- the key, first\n, name -- its name\nfrom t", "name", 0, kAll, "new|a|"},
        {kNames, "select id, (select name from t x where x.id = 2) as n from t", "n", kNotSupported, kAll,
         "a|a|"},
        {kNames, "select max(id), name from t", "name", kNotSupported, kAll, "a|a|"},
        {kNames, "select sum(id) filter (where id > 0) as name from t", "name", kNotSupported, kAll, "a|a|"},
        {kNames, "select name from t except select 'z'", "name", kNotSupported, kAll, "a|a|"},
        {kNames, "pragma table_info(t)", "name", kNotSupported, kAll, "a|a|"},
        {kNames,
         "select (select count(*) from t) as big, main.t.name from main.t order by id desc limit 1 -- "
         "union\n;",
         "name", 0, kAll, "a|new|"},
        {kNames, "select row_number() over (order by id) as big, [name] from \"t\" where id = 2", "name", 0,
         kAll, "a|new|"},
        {kNames, "select \"max\"(id), name from t", "name", kNotSupported, kAll, "a|a|"},
        {viewOnTop, "select name from t where id = 1", "name", kNotSupported, kAll, "a|a|"},
        {viewOnTop, "select name from main.t where id = 1", "name", 0, kAll, "new|a|"},
        {viewOnTop, "select v.id as i, u.id, u.name from v join main.t as u on u.id = 3 - v.id", "name",
         kNotSupported, kAll, "a|a|"},
        {"create table t(top text, id integer primary key); insert into t values('a',1)",
         "select top, id from t", "top", 0, "select top from t", "new|"},
        {"create table k(code text primary key, v text); insert into k values(null,'a');"
         "create table o(n text); insert into o values('q')",
         "select n, code, v from o left join k on code = n", "v", kRowChanged, "select v from k", "a|"},
        {"create table t(k clob, l blob, v text, primary key(k, l)) without rowid;"
         "insert into t values('abc', 5, 'a'),('abd', 6, 'a')",
         "select * from t", "v", 0, "select v from t", "new|a|"},
    };
    for (const auto& [schema, query, column, error, look, rows] : cases) {
        const auto connection = InMemory(schema);
        EXPECT_EQ(Assign(connection, query, column, "new"), error) << query;
        EXPECT_EQ(Rows(connection, look), rows) << query;
    }
}

TEST(WritingShapesTest, ARowCanBeChangedAgainAfterItsKey) {
    // With DESC, the key is not the row's id.
    for (const auto schema :
         {kPhotos, std::string_view("create table t(id integer primary key desc, name text);"
                                    "insert into t(rowid, id, name) values(5,1,'b'),(11,2,'b')")}) {
        const auto connection = InMemory(schema);
        Recordset rows;
        rows.Open("select * from t where id = 1", connection, adOpenDynamic, adLockOptimistic);
        rows.Fields().Item("id")->Value(Variant(std::int64_t{11}));
        rows.Update();
        rows.Fields().Item("name")->Value(Variant("new"));
        rows.Update();
        EXPECT_EQ(Rows(connection, "select id, name from t where id > 3 or name = 'new'"), "11,new|")
            << schema;
    }
}

TEST(WritingShapesTest, ARowThatATriggerKeepsOutIsNoOtherRow) {
    const auto connection = InMemory(
        "create table t(id integer primary key, name text); insert into t values(7, 'a');"
        "create trigger out before insert on t begin select raise(ignore); end");
    Recordset rows;
    rows.Open("t", connection, adOpenDynamic, adLockOptimistic);
    rows.AddNew();
    rows.Fields().Item("name")->Value(Variant("b"));
    rows.Update();
    EXPECT_NE(ErrorOf([&] { rows.Delete(); }).Number, 0);
    EXPECT_EQ(Rows(connection, "t"), "7,a|");
}

TEST(WritingShapesTest, AReaderAtItsEndLeavesTheTableFree) {
    const auto connection = InMemory(kPhotos);
    Recordset rows;
    rows.Open("t", connection, adOpenForwardOnly, adLockReadOnly);
    for (; !rows.IsEOF(); rows.MoveNext()) EXPECT_EQ(rows.Fields().Item("photo")->GetChunk(9).size(), 2U);
    EXPECT_EQ(ErrorOf([&] { connection->Execute("drop table t"); }).Description, "");
}

// A table gets a column while the engine runs, from its own connection or from another one.
TEST(WritingShapesTest, AlteredTablesAreSeenBeforeTheNextChange) {
    const test::TemporaryFolder folder;
    const auto path = folder.PathOf("a.db");
    const auto other = test::MakeDatabase(
        path, "create table t(id integer primary key, name text); insert into t values(7,'a'),(9,'b')");
    clsZorbTivCore core;
    ASSERT_TRUE(core.SetDatabaseConnectionString("Provider=SQLite;Data Source=" + path));
    const auto change = [&](std::string_view name, std::string_view extra) {
        ZorbColumnDataItems items;
        items.Add("name", name, QORV_COLUMN_DATA, "");
        if (!extra.empty()) items.Add(extra, "5", QORV_COLUMN_DATA, "");
        EXPECT_EQ(core.UpdateData("select * from t where id = 7", &items), 1) << core.GetLastError();
        EXPECT_EQ(core.AddData("t", &items), 1) << core.GetLastError();
    };
    change("x", "");
    ASSERT_TRUE(core.ExecuteSQL("alter table t add column own integer default 9", ""));
    change("y", "own");
    other->Execute("alter table t add column others integer default 8");
    change("z", "others");
    EXPECT_EQ(Rows(other, "t"), "7,z,5,5|9,b,9,8|10,x,9,8|11,y,5,8|12,z,9,5|");
}

TEST(WritingShapesTest, LargeFilesGoBesideIndexesOnExpressions) {
    const test::TemporaryFolder folder;
    test::WriteFile(folder.PathOf("file"), std::string(std::size_t{2} << 20, 'x'));
    test::MakeDatabase(folder.PathOf("a.db"), std::string(kPhotos) + "; create index i on t(name || 'x')");
    clsZorbTivCore core;
    ASSERT_TRUE(core.SetDatabaseConnectionString("Provider=SQLite;Data Source=" + folder.PathOf("a.db")));
    EXPECT_EQ(core.SetBinaryData("select photo from t where id < 3", "photo", folder.PathOf("file")), 2)
        << core.GetLastError();
    EXPECT_EQ(Rows(core.GetDatabaseConnection(), "select length(photo) from t"), "2097152|2097152|2|");
}

}  // namespace
}  // namespace halvtiv
