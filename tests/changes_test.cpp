#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "databases.hpp"
#include "db/tiv_core.hpp"
#include "support.hpp"

namespace halvtiv {
namespace {

using test::Item;
using test::ReadFile;
using test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;

/// Calls of the functions that change rows, and what is in the tables after them.
class ChangesTest : public test::OneDatabase {
protected:
    static constexpr const char* kCore = "ZorbDbAccessEngine:clsZorbTivCore:";

    ChangesTest() : OneDatabase(test::Sqlite()) {}
    void SetUp() override {
        OneDatabase::SetUp();
        Run("pragma synchronous = off");
        engine.SetDatabaseConnectionString(ConnectionString());
    }
    std::string Call(std::string_view function, test::Params params, const std::vector<Item>& items = {}) {
        return test::Outcome(engine, function, params, items.empty() ? nullptr : &items);
    }
    std::string Add(const std::vector<Item>& items) { return Call("adddata", {{"sql", "t"}}, items); }
    std::string Put(const std::string& file, const char* column = "b", const char* sql = "select * from t") {
        return Call("setbinarydata", {{"sql", sql}, {"colname", column}, {"filename", file}});
    }
    std::string Get(const std::string& file, const char* column = "b", const char* sql = "select * from t") {
        return Call("getbinarydata", {{"sql", sql}, {"colname", column}, {"filename", file}});
    }
    std::string File(const std::string& name, std::string_view content) {
        WriteFile(folder.PathOf(name), content);
        return folder.PathOf(name);
    }
    static std::string Content(std::size_t size) {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7 + i / 251);
        return content;
    }

    ZorbDbAccessEngine engine;
};

TEST_F(ChangesTest, EachFunctionSaysWhatItMisses) {
    const std::string prefix = "-1 ZorbDbAccessEngine:Invalid Xml - ";
    for (const char* function : {"adddata", "updatedata", "updatedataex", "updatedatacoladd", "deletedata",
                                 "executesql", "getbinarydata", "setbinarydata", "deletebinarydata"}) {
        EXPECT_EQ(Call(function, {{"SQL", ""}}), prefix + "sql parameter missed.") << function;
    }
    EXPECT_EQ(Call("updatedatacoladd", {{"sql", "t"}}), prefix + "'col' parameter missed.");
    for (const char* function : {"getbinarydata", "setbinarydata", "deletebinarydata"}) {
        EXPECT_EQ(Call(function, {{"sql", "t"}}), prefix + "colname not specified.") << function;
    }
    EXPECT_EQ(Call("getbinarydata", {{"sql", "t"}, {"colname", "b"}}), prefix + "filename not specified.");
    for (const char* function : {"adddata", "updatedata", "updatedataex", "deletedata"}) {
        const auto outcome = Call(function, {{"sql", "select * from nope"}}, {{"a", "1"}});
        EXPECT_EQ(outcome, std::string("-2147217865 ") + kCore + "no such table: nope") << function;
    }
}

TEST_F(ChangesTest, AdditionKeepsToTheColumnsType) {
    struct Case {
        const char* type;
        const char* value;  ///< an SQL literal
        std::vector<const char*> added;
        const char* sum;
    };
    const std::vector<const char*> tenTimes(10, "0.1");
    for (const Case& expected : {Case{"integer", "5", {" -7 ", "", "+2"}, "0"},
                                 {"integer", "-9223372036854775807", {"-2"}, "6 Overflow."},
                                 {"smallint", "32767", {"1"}, "-2146824867 "},
                                 {"integer", "1", {"x"}, "13 Type mismatch."},
                                 {"integer", "1", {"1.5"}, "2"},
                                 {"integer", "null", {"5", "5"}, "10"},
                                 {"integer", "null", {"", ""}, "null"},
                                 {"numeric(18,2)", "0", tenTimes, "1"},
                                 {"numeric(30,2)", "900719925474.91", {"0.01"}, "900719925474.92"},
                                 {"money", "-1.05", {"1.06", "-0.01"}, "0"},
                                 {"double", "1.5", {"1e3", " .25"}, "1001.75"},
                                 {"double", "1.7e308", {"1.7e308"}, "6 Overflow."},
                                 {"text", "'12'", {""}, "12"},
                                 {"integer", "7.5", {"10"}, "17.5"},
                                 {"smallint", "2.25", {"100", "-1e1"}, "92.25"},
                                 {"integer", "7.5", {"x"}, "13 Type mismatch."},
                                 {"boolean", "5", {"10"}, "15"},
                                 {"datetime", "45000", {"0.5"}, "45000.5"},
                                 {"memo", "12", {"3"}, "15"},
                                 {"blob", "12", {"3"}, "15"},
                                 {"guid", "1.5", {"1"}, "2.5"},
                                 {"", "7.5", {"10"}, "17.5"},
                                 {"integer", "'abc'", {"1"}, "-2146824867 "},
                                 {"text", "'ab'", {""}, "13 Type mismatch."},
                                 {"datetime", "'2024-02-28 12:00:00'", {"0.5"}, "2024-02-29 00:00:00"}}) {
        SCOPED_TRACE(std::string(expected.type) + " " + expected.value);
        Run("drop table if exists t");
        Run(std::string("create table t (id integer primary key, Nümber ") + expected.type +
            ", other integer)");
        Run(std::string("insert into t values (1, ") + expected.value + ", 1)");
        std::string outcome;
        for (const char* text : expected.added) {
            outcome = Call("updatedatacoladd", {{"sql", "t"}, {"col", "nÜMBER"}},
                           {{"NÜMBER", text}, {"other", "7"}});
        }
        if (outcome != "1") {
            EXPECT_THAT(outcome, testing::MatchesRegex("-?[0-9]+ ZorbDbAccessEngine:clsZorbTivCore:.*"));
            outcome.erase(outcome.find(kCore), std::string_view(kCore).size());
            EXPECT_THAT(outcome, testing::StartsWith(expected.sum));
            EXPECT_EQ(Rows("select other from t"), "1") << "all of the row or nothing";
            continue;
        }
        EXPECT_EQ(Rows("select cast(nümber as text) from t"), expected.sum);
        EXPECT_EQ(Rows("select other from t"), "7");
    }
    Run("drop table t");
    Run("create table t (id integer primary key, n integer)");
    EXPECT_EQ(Call("updatedatacoladd", {{"sql", "t"}, {"col", "n"}}, {{"n", "3"}}), "1")
        << "added as a new row";
    EXPECT_EQ(Call("updatedatacoladd", {{"sql", "t"}, {"col", "none"}}, {{"n", "4"}}), "1");
    EXPECT_EQ(Rows("select n from t"), "4");
}

TEST_F(ChangesTest, FilesGoIntoColumnsAndOutAgainByteForByte) {
    Run("create table t (id integer primary key, b blob, m memo, v varbinary(5000000), f binary(5000000))");
    Run("insert into t (id) values (1)");
    const std::string out = folder.PathOf("out");
    for (const std::size_t size : {1U, 4095U, 4096U, 4097U, 1048575U, 1048576U, 1048577U, 4200000U}) {
        const std::string content = Content(size);
        const std::string in = File("in", content);
        for (const char* column : {"b", "m", "v", "f"}) {
            ASSERT_EQ(Put(in, column), "1") << size;
            ASSERT_EQ(Get(out, column), "1") << size;
            EXPECT_TRUE(ReadFile(out) == content) << column << " " << size;
        }
        EXPECT_EQ(Call("updatedata", {{"sql", "t"}}, {{"b", in, 1}, {"v", in, 1}}), "1");
        EXPECT_EQ(Rows("select length(b) || ' ' || length(v) from t"),
                  std::to_string(size) + " " + std::to_string(size));
    }
    const std::string empty = File("empty", "");
    for (const char* column : {"b", "m", "v"}) EXPECT_EQ(Put(empty, column), "1");
    EXPECT_EQ(Rows("select typeof(b) || length(b) || typeof(m) || typeof(v) from t"), "blob4200000textnull");
    EXPECT_EQ(Get(out, "v"), "1");
    EXPECT_EQ(ReadFile(out), "") << "what stood there is gone";
    EXPECT_EQ(Call("updatedata", {{"sql", "t"}}, {{"b", empty, 1}, {"f", empty, 1}}), "1");
    EXPECT_EQ(Rows("select length(b) || typeof(f) from t"), "4200000null");
    EXPECT_EQ(Add({{"b", empty, 1}, {"v", empty, 1}}), "1");
    EXPECT_EQ(Rows("select typeof(b) || typeof(v) from t where id = 2"), "nullnull");
    EXPECT_EQ(Put("", "B "), "2") << "no file makes all rows null";
    EXPECT_EQ(Put("", "id", "select * from t where id = 2 and id is null"),
              std::string("-1 ") + kCore + "Specified data not found.");
    EXPECT_EQ(Call("deletebinarydata", {{"sql", "t"}, {"colname", "  M"}}), "2");
    EXPECT_EQ(Call("deletebinarydata", {{"sql", "select m from t where id > 5"}, {"colname", "m"}}), "0");
    EXPECT_EQ(Rows("select count(*) from t where b is null and m is null"), "2");
    EXPECT_THAT(folder.FilesIn(), ElementsAre("empty", "in", "out")) << "nothing else is left behind";
}

TEST_F(ChangesTest, WhatDoesNotFitIsSaidAndNothingIsChanged) {
    Run("create table t (id integer primary key, b varbinary(10), name text, ok blob)");
    Run("insert into t values (1, x'01', 'x', x'02'), (2, null, 'y', null)");
    const std::string ten = File("ten", Content(10));
    const std::string eleven = File("eleven", Content(11));
    const auto core = [](const char* words) { return std::string("-1 ") + kCore + words; };
    const std::string tooBig = core("clsZorbTivCore:File size are too big for the field.");
    const std::string notBinary = core("clsZorbTivCore:Not a valid field (neither binary nor long).");
    EXPECT_EQ(Put(eleven), tooBig);
    EXPECT_EQ(Add({{"b", eleven, 1}}), tooBig);
    EXPECT_EQ(Call("updatedata", {{"sql", "t"}}, {{"b", eleven, 1}}), tooBig);
    EXPECT_EQ(Put(ten, "name"), notBinary);
    EXPECT_EQ(Add({{"name", ten, 1}}), notBinary);
    EXPECT_EQ(Call("updatedata", {{"sql", "t"}}, {{"name", ten, 1}}), notBinary);
    EXPECT_EQ(Get(folder.PathOf("out"), "name"), notBinary);
    EXPECT_EQ(Put(ten, "none"), core("Specified field not found."));
    EXPECT_EQ(Call("deletebinarydata", {{"sql", "t"}, {"colname", "none"}}),
              core("Specified field not found."));
    EXPECT_EQ(Get(folder.PathOf("out"), "b b"), core("Specified field not found."));
    EXPECT_EQ(Get(folder.PathOf("out"), "b", "select b from t where id > 2"),
              core("No data retrieved from database."));
    EXPECT_EQ(Put(ten, "b", "select b from t where id > 2"), core("Specified data not found."));
    EXPECT_THAT(Put(folder.PathOf("none")), HasSubstr("53 "));
    EXPECT_THAT(Put(folder.PathOf("none\\ten")), HasSubstr("76 "));
    EXPECT_THAT(Put(folder.PathOf("ten/file")), HasSubstr("76 "));
    EXPECT_THAT(Put(folder.PathOf("")), HasSubstr("75 "));
    EXPECT_THAT(Add({{"b", folder.PathOf("none"), 1}}), HasSubstr("53 "));
    EXPECT_THAT(Get(folder.PathOf("none/out")), HasSubstr("76 "));
    EXPECT_THAT(Get(folder.PathOf("")), HasSubstr("75 "));
    EXPECT_EQ(Rows("select id || hex(b) from t"), "101|2");
    EXPECT_THAT(folder.FilesIn(), ElementsAre("eleven", "ten"));

    // The second row is refused by a trigger: the first one, too, keeps what it had.
    Run("create trigger no before update of ok on t when old.id = 2 begin select raise(abort, 'not this "
        "one'); end");
    const auto refused = std::string("-2147217873 ") + kCore + "not this one";
    EXPECT_EQ(Put(ten, "ok"), refused);
    EXPECT_EQ(Rows("select hex(ok) from t"), "02|");
    engine.GetDatabaseConnection()->BeginTrans();
    engine.GetDatabaseConnection()->Execute("update t set name = 'inside' where id = 1");
    EXPECT_EQ(Put(ten, "ok"), refused);
    engine.GetDatabaseConnection()->CommitTrans();
    EXPECT_EQ(Rows("select hex(ok) || name from t where id = 1"), "02inside")
        << "only its own part is undone";
    EXPECT_EQ(Call("deletebinarydata", {{"sql", "t"}, {"colname", "ok"}}), refused);
    EXPECT_EQ(Rows("select count(ok) from t"), "0") << "this one does not undo";
    EXPECT_EQ(Put(ten), "2");
    EXPECT_EQ(Get(folder.PathOf("ten out")), "1");
    EXPECT_EQ(ReadFile(folder.PathOf("ten out")), Content(10));
}

TEST_F(ChangesTest, AMemoKeepsAFilesBytesInAnyEncoding) {
    for (const char* encoding : {"UTF-8", "UTF-16"}) {
        const std::string path = folder.PathOf(encoding);
        test::MakeDatabase(path, std::string("pragma encoding = '") + encoding +
                                     "'; create table t (id integer primary key, b memo, c ntext); "
                                     "insert into t (id) values (1)");
        engine.SetDatabaseConnectionString("Provider=SQLite;Data Source=" + path);
        for (const std::string_view content :
             {"caf\xe9", "\xff\xfe\x00x", "na\xc3\xafve", "\xef\xbf\xbf", "007", " 1.50\n"}) {
            for (const char* column : {"b", "c"}) {
                ASSERT_EQ(Put(File("in", content), column), "1");
                ASSERT_EQ(Get(folder.PathOf("out"), column), "1");
                EXPECT_EQ(ReadFile(folder.PathOf("out")), content) << encoding << column;
            }
        }
    }
}

TEST_F(ChangesTest, RowsBeforeAFailureStayWhateverTheDatabaseUndoes) {
    Run("create table t (a integer primary key, b integer unique on conflict rollback);"
        "insert into t values (1, 1), (2, 2), (3, 9);"
        "create table child (a integer references t deferrable initially deferred);"
        "insert into child values (2); create table kept (a); insert into kept values (1)");
    const std::string violation = std::string("-2147217873 ") + kCore;
    EXPECT_EQ(Call("updatedata", {{"sql", "select * from t where a < 3 order by a; delete from kept"}},
                   {{"b", "7"}}),
              violation + "UNIQUE constraint failed: t.b");
    EXPECT_EQ(Rows("select b from t order by a"), "7|2|9");
    for (const char* function : {"updatedataex", "updatedatacoladd"}) {
        EXPECT_EQ(Call(function, {{"sql", "select * from t where a = 0"}, {"col", "a"}}, {{"b", "9"}}),
                  violation + "The field you input that required unique has already been existed.");
    }
    EXPECT_EQ(Call("deletedata", {{"sql", "select * from t order by a; delete from kept"}}),
              violation + "FOREIGN KEY constraint failed");
    EXPECT_EQ(Rows("select a from t union all select a from kept"), "2|3|1");
}

TEST_F(ChangesTest, WhatNobodyBindsAndWhatIsNoNameIsRefused) {
    Run("create table t (name text, \"a$?b\" text); insert into t values ('a:b ?1', 'x')");
    for (const char* marker : {"?", "?1", ":name", "@name", "$name"}) {
        const std::string sql = std::string("update t set name = 'y'; update t set name = ") + marker;
        const std::string words = std::string("No value is given for the bind marker ") + marker + ".";
        EXPECT_EQ(Call("executesql", {{"sql", sql}}), std::string("-2147217900 ") + kCore + words);
        EXPECT_THAT(Call("deletedata", {{"sql", std::string("select * from t where name > ") + marker}}),
                    HasSubstr(words));
    }
    for (const char* sql : {"delete from t where \"naem\" <> 'a'", "create index i on t (\"naem\")"}) {
        EXPECT_THAT(Call("executesql", {{"sql", sql}}), HasSubstr("no such column: naem")) << sql;
    }
    EXPECT_EQ(Rows("select name, \"a$?b\" from t -- what? :x"), "a:b ?1 x");
}

TEST_F(ChangesTest, ARunawayTriggerIsStoppedAndItsRowUndone) {
    Run("pragma synchronous = off; create table t (a integer primary key, b integer);"
        "insert into t values (1, 0), (2, 0), (3, 0);"
        "create trigger endless after update on t when old.a = 2 begin insert into t with recursive n (i) as "
        "(select 1 union all select i + 1 from n) select i, 0 from n where i < 0; end");
    const auto change = [&] {
        return Call("updatedata", {{"sql", "select * from t order by a"}}, {{"b", "7"}});
    };
    for (const bool isTransaction : {false, true}) {
        for (const bool atTimeOut : {false, true}) {
            const auto own = engine.GetDatabaseConnection();
            own->CommandTimeout(atTimeOut ? 1 : 0);
            if (isTransaction) own->BeginTrans();
            // Once: a second Cancel would stop the repetition of the first row's change, too.
            std::thread other([&] {
                if (atTimeOut) return;
                std::this_thread::sleep_for(std::chrono::milliseconds(500));
                engine.Cancel();
            });
            EXPECT_THAT(change(), testing::StartsWith(atTimeOut ? "-2147217871 " : "-2147217842 "));
            other.join();
            EXPECT_NE(test::NumberOf([&] { own->CommitTrans(); }), 0)
                << "the transaction is over in any case";
            EXPECT_EQ(Rows("select b from t order by a"), isTransaction ? "0|0|0" : "7|0|0");
            Run("update t set b = 0 where a = 1");
        }
    }
}

TEST_F(ChangesTest, APipeIsAFile) {
    Run("create table t (id integer primary key, b blob)");
    const std::string pipe = folder.PathOf("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string content = Content(100000);
    std::thread writer([&] { WriteFile(pipe, content); });
    EXPECT_EQ(Add({{"b", pipe, 1}}), "1");
    writer.join();
    std::string read;
    std::thread reader([&] { read = ReadFile(pipe); });
    EXPECT_EQ(Get(pipe), "1");
    reader.join();
    EXPECT_EQ(read.size(), content.size());
    EXPECT_TRUE(read == content);
}

TEST(DatabaseCoreChangesTest, ItemsMayBeNoneOrEmpty) {
    clsZorbTivCore core;
    ZorbColumnDataItems items;
    EXPECT_EQ(core.AddData("t", nullptr), -1);
    EXPECT_EQ(core.GetLastError(), "clsZorbTivCore:Invalid data parametner to added.(ERR#: -1)");
    EXPECT_EQ(core.AddData("t", &items), -1);
    EXPECT_THAT(core.GetLastError(), HasSubstr("(ERR#: -2146824579)")) << "no connection";
    EXPECT_EQ(core.UpdateData("t", &items) + core.DeleteData("t") + core.DeleteBinaryData("t", "b"), -3);
    EXPECT_EQ(core.SetBinaryData("t", "b", ""), -1);
    EXPECT_THAT(core.GetLastError(), HasSubstr("(ERR#: 91)"));

    ASSERT_TRUE(core.ReConnect("Provider=SQLite;Data Source=:memory:"));
    ASSERT_TRUE(core.ExecuteSQL("create table t (a integer default 3)", ""));
    EXPECT_EQ(core.UpdateData("t", nullptr), 0);
    EXPECT_EQ(core.UpdateDataEx("t", &items), 1);
    EXPECT_EQ(core.UpdateData("t", &items), 1);
    EXPECT_EQ(core.UpdateData("t", nullptr), -1);
    EXPECT_THAT(core.GetLastError(), HasSubstr("(ERR#: 91)"));
    EXPECT_EQ(core.DeleteData("select * from t where a = 3"), 1);
    ado::RecordsetPtr rows;
    ASSERT_TRUE(core.ExecuteSQL("select 1", "", &rows) && rows);
    EXPECT_FALSE(core.ExecuteSQL("select none", "", &rows));
    EXPECT_EQ(rows, nullptr);
}

}  // namespace
}  // namespace halvtiv
