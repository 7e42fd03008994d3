#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "db/tiv_core.hpp"
#include "export/data_exporter_mgr.hpp"
#include "support.hpp"

namespace halvtiv {
namespace {

using test::Entries;
using test::ErrorOf;
using test::Request;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(ConnectionStringTest, PlaceholdersAreFilledInOrderAndInAnyCase) {
    ZorbConnectionString builder;
    EXPECT_EQ(builder.GenerateConnectionString(),
              "PROVIDER=Microsoft.Jet.OLEDB.4.0;Data Source=;User ID=;Password=");
    EXPECT_EQ(builder.GenerateConnectionString_SQLServer("S", "D", "U", "P"),
              "Provider=SQLOLEDB.1;User ID=U;Password=P;Initial Catalog=D;Data Source=S");
    EXPECT_EQ(
        builder.GenerateConnectionStringWithParams("%svr%;%DBN%;%x%", "%dbn%", "D%Pwd%%svr%", "", "a;b"),
        "Da;b%svr%;Da;b%svr%;%x%");
    EXPECT_EQ(builder.GenerateConnectionStringWithParams("", "S", "D", "U", "P"), "");

    builder.SetParams(" D ", "S", "U", "P", "   ");
    EXPECT_EQ(builder.ConnectionStringBase(), builder.GetConnectionStringBase_Jet());
    ZorbConnectionString copy;
    copy.CopyFrom(&builder);
    copy.CopyFrom(nullptr);
    EXPECT_THAT(copy.GenerateConnectionString(), HasSubstr("Data Source= D ;User ID=U;Password=P"));
    copy.ConnectionStringBase("   ");
    EXPECT_EQ(copy.GenerateConnectionString(), "   ");

    const auto inFolder = [&](const char* base) {
        return builder.GenerateConnectionStringWithParams(base, "", "", "", "");
    };
    EXPECT_EQ(inFolder("%AppPath%\\x.mdb"), inFolder("%apppath%x.mdb"));
    EXPECT_THAT(inFolder("%APPPATH%x.mdb"),
                testing::AllOf(testing::EndsWith("\\x.mdb"), Not(HasSubstr("%")), Not(HasSubstr("\\\\"))));
}

class TestExporter : public IZorbDataExporter {
public:
    TestExporter(std::string type, std::string extension)
        : type_(std::move(type)), extension_(std::move(extension)) {}
    void GetExporterInfo(std::string& type, std::string& extension) override {
        if (type_ == "broken") throw std::runtime_error("no information");
        type += type_;
        extension += extension_;
    }
    bool MatchExportType(std::string_view type) override {
        if (type_ == "broken") throw ErrorInfo(-77, "cannot tell", "exporter");
        return type == type_;
    }

private:
    std::string type_, extension_;
};

TEST(ExporterRegistryTest, ExportersAreFoundInTheOrderTheyWereAdded) {
    const auto first = std::make_shared<TestExporter>("Excel File", "xlsä");
    const auto second = std::make_shared<TestExporter>("Excel File", "x2");
    clsZorbDataExporterMgr registry;
    EXPECT_EQ(registry.GetDataExporter(1), nullptr);
    EXPECT_EQ(registry.GetLastError(), "clsDataExpMgr:Invalid index specified.(ERR#: -1)");
    EXPECT_EQ(registry.GetFileFilterString(), "");
    for (const auto& exporter : {first, second, first}) EXPECT_TRUE(registry.AddDataExporter(exporter));
    EXPECT_EQ(registry.GetDataExporterByTypeString("Excel File"), first);
    EXPECT_EQ(registry.GetDataExporterByTypeString("none"), nullptr);
    EXPECT_EQ(registry.GetLastError(), "");
    EXPECT_EQ(registry.GetDataExporter(2), second);
    EXPECT_EQ(registry.GetDataExporter(0), nullptr);
    EXPECT_EQ(registry.GetDataExporter(4), nullptr);
    EXPECT_EQ(registry.GetFileFilterString(),
              "Excel File(*.XLSÄ)|*.xlsä|Excel File(*.X2)|*.x2|Excel File(*.XLSÄ)|*.xlsä");
    EXPECT_TRUE(registry.AddDataExporter(std::make_shared<TestExporter>("broken", "")));
    EXPECT_EQ(registry.GetFileFilterString(), "");
    EXPECT_THAT(registry.GetLastError(), HasSubstr("no information"));
    EXPECT_EQ(registry.GetDataExporterByTypeString("none"), nullptr);
    EXPECT_EQ(registry.GetLastError(), "clsDataExpMgr:cannot tell(ERR#: -77)");
    registry.Reset();
    EXPECT_EQ(registry.DataExporterCount(), 0);

    ZorbDbAccessEngine engine;
    EXPECT_FALSE(engine.AddDataExporter(nullptr));
    EXPECT_EQ(engine.GetLastError(), "ZorbDbAccessEngine:clsDataExpMgr:No exporter specified.(ERR#: -1)");
    EXPECT_TRUE(engine.AddDataExporter(second));
    EXPECT_EQ(engine.GetExportFileFilterString(), "Excel File(*.X2)|*.x2");
}

constexpr const char* kConnectFailed = "建立数据库连接时出现如下错误：\r\n\r\n";

TEST(DatabaseCoreTest, ConnectionsOpenCloseAndSayWhyTheyFail) {
    const test::TemporaryFolder folder;
    test::MakeDatabase(folder.PathOf("a.db"));
    const std::string good = "Provider=SQLite;Data Source=" + folder.PathOf("a.db");
    ado::ConnectionPtr kept;
    {
        clsZorbTivCore core;
        EXPECT_FALSE(core.IsConnectionOK());
        core.DisConnect();
        EXPECT_FALSE(core.CommitTrans() || core.RollbackTrans() || core.ExecuteSQL("select 1", "") ||
                     core.BeginTrans());
        EXPECT_THAT(core.GetLastError(), HasSubstr("(ERR#: 91)"));
        ado::RecordsetPtr none;
        EXPECT_FALSE(core.GetData("select 1", none, ado::adOpenForwardOnly));
        EXPECT_THAT(core.GetLastError(), HasSubstr("(ERR#: -2146824579)"));

        EXPECT_TRUE(core.ReConnect(good));
        EXPECT_EQ(core.GetDatabaseConnection()->CommandTimeout(), 0);
        EXPECT_FALSE(core.ReConnect(""));
        EXPECT_EQ(core.GetLastError(), "clsZorbTivCore:ConnectionString is not set.(ERR#: -1)");
        EXPECT_TRUE(core.IsConnectionOK()) << "nothing was tried";
        EXPECT_FALSE(core.ReConnect("Provider=none;Password=secret;User ID=u"));
        EXPECT_EQ(core.GetLastError(),
                  "clsZorbTivCore:" + std::string(kConnectFailed) +
                      "Provider cannot be found. It may not be properly installed.(ERR#: -2146824582)");
        EXPECT_FALSE(core.IsConnectionOK());
        EXPECT_NE(core.GetDatabaseConnection(), nullptr);
        const std::string noFile = "Provider=SQLite;Password=secret;Data Source=" + folder.PathOf("none.db");
        for (const char* bad : {noFile.c_str(), " ", "Data Source", "Provider='SQLite", "=;=;\""}) {
            EXPECT_EQ(core.SetDatabaseConnectionString(bad), nullptr) << bad;
            EXPECT_THAT(core.GetLastError(), HasSubstr(kConnectFailed)) << bad;
            EXPECT_THAT(core.GetLastError(), Not(HasSubstr("secret")));
        }
        kept = core.SetDatabaseConnectionString(good);
        ASSERT_NE(kept, nullptr) << core.GetLastError();
    }
    EXPECT_EQ(kept->State(), ado::adStateOpen) << "the core's end does not close it";
}

TEST(DatabaseCoreTest, ACountThatFailsOnlyMeansThatItIsUnknown) {
    const test::TemporaryFolder folder;
    test::MakeDatabase(folder.PathOf("a.db"),
                       "create table t (a integer, b text); insert into t values (1, 'x'), (2, null)");
    clsZorbTivCore core;
    ASSERT_TRUE(core.ReConnect("Provider=SQLite;Data Source=" + folder.PathOf("a.db")));
    const std::pair<std::int32_t, std::vector<std::string>> cases[] = {
        {-1, {"", "select count(*) from nope", "syntax"}},
        {0,
         {"select count(*) from t where 0", "select null", "select 1 where 0", "select 'x'",
          "select 2147483648"}},
        {2, {"select count(*) from t", "select 2.5", "select '2'"}}};
    ado::RecordsetPtr rows;
    std::int32_t count = 99;
    for (const auto& [expected, countSqls] : cases) {
        for (const std::string& countSql : countSqls) {
            EXPECT_TRUE(core.GetDataAndCount("select * from t", countSql, rows, count))
                << core.GetLastError();
            EXPECT_EQ(count, expected) << countSql;
            EXPECT_EQ(rows->Fields().Count(), 2);
            EXPECT_EQ(core.GetLastError(), "");
        }
    }
    EXPECT_FALSE(core.GetDataAndCount("select * from nope", "select 5", rows, count));
    EXPECT_EQ(rows, nullptr);
    EXPECT_EQ(count, 5);
    EXPECT_EQ(core.GetLastError(), "clsZorbTivCore:no such table: nope(ERR#: -2147217865)");
    EXPECT_TRUE(core.ExecuteSQL("insert into t values (3, 'y'); insert into t values (4, 'z')", "any text"))
        << core.GetLastError();
    EXPECT_TRUE(core.GetDataAndCount("select * from t", "select count(*) from t", rows, count));
    EXPECT_EQ(count, 4) << "without a recordset asked for, the whole batch has run";
}

class EngineTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(engine_.SetDatabaseConnectionString(connectionString_), nullptr) << engine_.GetLastError();
    }

    /// The entries of a request's result.
    std::vector<std::string> Run(std::string_view request) {
        std::string xml = "old";
        EXPECT_TRUE(engine_.RunFunction(request, xml)) << engine_.GetLastError();
        return Entries(xml);
    }
    std::vector<std::string> Run(std::string_view function, test::Params params) {
        return Run(Request(function, params));
    }
    std::string Throttled(int seconds) {
        return "ZorbDbAccessEngine:数据库连接已经断开，请稍后再试。" + std::to_string(seconds) + "(ERR#: -1)";
    }

    test::TemporaryFolder folder_;
    std::string path_ = folder_.PathOf("data.db");
    std::string connectionString_ = "Provider=SQLite;Create=1;Data Source=" + path_;
    ZorbDbAccessEngine engine_;
};

TEST_F(EngineTest, ReconnectsNoMoreOftenThanAllowed) {
    constexpr std::int32_t kLongest = std::numeric_limits<std::int32_t>::max();  // and nothing was before
    ZorbDbAccessEngine fresh;
    EXPECT_EQ(fresh.ReConnectInterval(), -1);
    EXPECT_FALSE(fresh.ReConnect(connectionString_));
    EXPECT_EQ(fresh.GetLastError(), Throttled(-1));
    fresh.ReConnectInterval(kLongest);
    fresh.ReConnectInterval(-5);
    EXPECT_EQ(fresh.ReConnectInterval(), kLongest);
    EXPECT_FALSE(fresh.ReConnect());
    EXPECT_EQ(fresh.GetLastError(), "ZorbDbAccessEngine:ConnectionString is not set.(ERR#: -1)");
    EXPECT_FALSE(fresh.ReConnect(connectionString_));
    EXPECT_EQ(fresh.GetLastError(), Throttled(kLongest)) << "the attempt that failed counts";
    fresh.ReConnectInterval(0);
    ASSERT_NE(fresh.SetDatabaseConnection_MDBFile(path_, "Admin", ""), nullptr) << fresh.GetLastError();
    EXPECT_TRUE(fresh.IsConnectionOK());
    EXPECT_FALSE(fresh.ReConnect());
    EXPECT_EQ(fresh.GetLastError(), "ZorbDbAccessEngine:ConnectionString is not set.(ERR#: -1)");
    EXPECT_TRUE(fresh.ReConnect(connectionString_));
    EXPECT_EQ(fresh.GetLastError(), "");
    EXPECT_FALSE(fresh.ReConnect()) << "an argument is not remembered";

    EXPECT_EQ(engine_.SetDatabaseConnectionString("Provider=none"), nullptr);
    EXPECT_THAT(engine_.GetLastError(),
                StartsWith("ZorbDbAccessEngine:clsZorbTivCore:" + std::string(kConnectFailed)));
    engine_.ReConnectInterval(10);
    EXPECT_TRUE(engine_.ReConnect()) << "the last good string, " << engine_.GetLastError();
    engine_.DisConnect();
    EXPECT_FALSE(engine_.ReConnect());
    EXPECT_EQ(engine_.GetLastError(), Throttled(10));
}

TEST_F(EngineTest, ALostConnectionIsReestablishedOnlyWhereThatIsAllowed) {
    const std::string insert = Request("public.executesql", {{"sql", "create table if not exists t (a)"}});
    engine_.DisConnect();
    EXPECT_THAT(
        Run(insert),
        ElementsAre("K error[number=-1 description=ZorbDbAccessEngine:数据库连接已经断开，请稍后再试。-1 "
                    "source=HalvTiv.ZorbDbAccessEngine]"));
    EXPECT_EQ(engine_.GetLastError(), Throttled(-1));
    engine_.ReConnectInterval(10);
    EXPECT_THAT(Run(insert)[0], HasSubstr("请稍后再试。10 source="));
    EXPECT_EQ(engine_.GetDatabaseConnection(), nullptr);
    engine_.ReConnectInterval(0);
    EXPECT_THAT(Run(insert), ElementsAre("K info[return=1]"));
    engine_.GetDatabaseConnection()->Close();
    EXPECT_THAT(Run(insert), ElementsAre("K info[return=1]")) << "closed behind the engine's back";
    EXPECT_EQ(engine_.GetLastError(), "");
}

TEST_F(EngineTest, WhatCannotBeRunAnswersFalseWithoutAResult) {
    std::string xml = "old";
    for (const std::string& request : {std::string(), std::string("<function"),
                                       Request("public.getdata") + '\0', std::string("<f name='\xFF'/>")}) {
        EXPECT_FALSE(engine_.RunFunction(request, xml));
        EXPECT_EQ(engine_.GetLastError(),
                  "ZorbDbAccessEngine:ZorbFunctionCall:Failed to load Xml Param.(ERR#: -1)");
        EXPECT_EQ(std::exchange(xml, "old"), "");
    }
    for (const std::string name : {"getdata", "", "public.getdata2", "публик"}) {
        EXPECT_FALSE(engine_.RunFunction(Request(name), xml));
        EXPECT_EQ(
            engine_.GetLastError(),
            "ZorbDbAccessEngine:clsZorbXmlFunctionLibrary:Function not found - " + name + ".(ERR#: -1)");
        EXPECT_EQ(std::exchange(xml, "old"), "");
    }
    const ErrorInfo raised = ErrorOf([&] { engine_.RaiseLastError(); });
    EXPECT_EQ(raised.Number, -1);
    EXPECT_THAT(raised.Description, StartsWith("ZorbDbAccessEngine:clsZorbXmlFunctionLibrary:"));
    xml = Request("PUBLIC.GetData", {{"sql", "select 1 as a"}});
    EXPECT_TRUE(engine_.RunFunction(xml, xml)) << "one text for both";
    EXPECT_EQ(
        xml,
        "<result><data guid=\"K\" type=\"data\"><row index=\"0\"><col name=\"a\" value=\"integer\"/></row>"
        "<row index=\"1\"><col name=\"a\" value=\"1\"/></row></data></result>");
    EXPECT_EQ(engine_.GetLastError(), "");
}

TEST_F(EngineTest, AFailedFunctionIsAnEntryOfItsResult) {
    test::MakeDatabase(path_, "create table t (a integer primary key); insert into t values (1)");
    struct Case {
        std::string function, sql, number, words;
    };
    const std::string abs = "select abs(a) from (select 1 as a union all select -9223372036854775807 - 1)";
    const Case cases[] = {
        {"getdata", "", "-1", "Invalid Xml - sql parameter missed. source=HalvTiv.ZorbDbAccessEngine"},
        {"getcomplexdata", "  ", "-1", "Invalid Xml - sql parameter missed."},
        {"executesql", "", "-1", "Invalid Xml - sql parameter missed."},
        {"getdata", "select * from nope", "-2147217865", "clsZorbTivCore:no such table: nope source=SQLite]"},
        {"getdata", "selec 1", "-2147217900", "clsZorbTivCore:"},
        {"executesql", "insert into t values (1)", "-2147217873", "clsZorbTivCore:"},
        {"getdata", "delete from t where 0", "-2146824584", "clsZorbTivCore:"},
        {"getdata", abs, "-2147217900", "ZorbFunctionResult:integer overflow"},
        {"getdata", "select 1; select * from nope", "-2147217865", "no such table: nope"}};
    engine_.SetDatabaseConnectionString(connectionString_);  // whose first statement reads no table
    EXPECT_THAT(Run("public.getdata", {{"sql", "select nope"}}),
                ElementsAre(StartsWith("K error[number=-2147217900 ")));
    for (const auto& [function, sql, number, words] : cases) {
        EXPECT_THAT(
            Run("public." + function, {{"sql", sql}}),
            ElementsAre(StartsWith("K error[number=" + number + " description=ZorbDbAccessEngine:" + words)))
            << sql;
        EXPECT_THAT(engine_.GetLastError(), StartsWith("ZorbDbAccessEngine:"));
    }
    EXPECT_THAT(Run("<f name='public.getdata' guid=\"O'Brien\"><param name='sql' value='selec 1'/></f>"),
                ElementsAre(StartsWith("O'Brien error[number=-2147217900 ")))
        << "a key that no entry can be looked up by";
    EXPECT_THAT(
        Run("<f name='public.executesql' guid=\"it's\"><param name='sql' value='select 1 as a'/></f>"),
        ElementsAre("it's data[a=integer|a=1]"));
    EXPECT_THAT(Run("<f name='public.getdata'><param name='sql' value='select 1 as a'/></f>"),
                ElementsAre(" data[a=integer|a=1]"));
}

TEST_F(EngineTest, ADefinedFunctionCarriesAnyValueSafely) {
    test::MakeDatabase(path_, "create table t (id integer primary key, v text)");
    std::string report;
    ASSERT_TRUE(engine_.LoadFunctionDefsXml(
        "<d><functiondef name='add'><paramdef><param name='v' type='text' extra='quote'/></paramdef>"
        "<function name='public.executesql'><param name='sql'>insert into t (v) values "
        "('%v%')</param></function>"
        "</functiondef><functiondef name='все'><function name='public.getdata'>"
        "<param name='sql' value='select v from t order by id'/></function></functiondef></d>",
        report))
        << report;
    std::string expected = "K data[v=text";
    for (const std::string value : {"x'); drop table t; --", "a\tb\rc\nd", "\"&amp;<é> %v% ]]>",
                                    "\xF0\x9F\x98\x80\xC2\x85", "", "%'%"}) {
        EXPECT_THAT(Run("add", {{"v", value}}), ElementsAre("K info[return=1]")) << engine_.GetLastError();
        expected += "|v=" + value;
    }
    EXPECT_THAT(Run("все", {}), ElementsAre(expected + "]"));
    std::string xml;
    EXPECT_FALSE(engine_.RunFunction(Request("ADD", {{"v", "x"}}), xml));
    EXPECT_THAT(engine_.GetLastError(),
                HasSubstr("Compile error: function name not match - \"ADD\" and \"add\"."));
}

TEST_F(EngineTest, EachResultOfABatchIsAnEntryTheLastUnderTheCallsOwnKey) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases{
        {"create table t (a)", {"K info[return=1]"}},
        {" ; -- nothing\n;", {"K info[return=1]"}},
        {"insert into t values (1); select a from t", {"K data[a=integer|a=1]"}},
        {"select a from t where 0", {"K data[a=text]"}},
        {"select 1 as a; insert into t values (2); insert into t values (3); select 2 as b;"
         "select count(*) as c from t; insert into t values (4)",
         {"K.1 data[a=integer|a=1]", "K.2 data[b=integer|b=2]", "K data[c=integer|c=3]"}},
        {"select 1 as a; insert into t values (5); insert into nope values (6); insert into t values (7)",
         {"K.1 data[a=integer|a=1]", "K error["}},
        {"insert into t values (8); insert into nope values (9)", {"K error["}},
        {"select count(*) as n, max(a) as m from t", {"K data[n=integer m=integer|n=6 m=8]"}}};
    for (const auto& [sql, expected] : cases) {
        const std::vector<std::string> entries = Run("public.executesql", {{"sql", sql}});
        ASSERT_EQ(entries.size(), expected.size()) << sql << testing::PrintToString(entries);
        for (std::size_t entry = 0; entry < entries.size(); ++entry) {
            const bool data = expected[entry].ends_with("]");
            EXPECT_EQ(data ? entries[entry] : entries[entry].substr(0, expected[entry].size()),
                      expected[entry])
                << sql;
        }
    }
}

TEST_F(EngineTest, ComplexDataBringsTheChildrenOfEachParentRow) {
    test::MakeDatabase(path_,
                       "create table p (Code text, n integer); create table c (pc text, v text);"
                       "insert into p values ('O''Brien ', 1), (null, 2), ('b', 3);"
                       "insert into c values ('O''Brien', 'x'), ('', 'nothing'), ('b', 'y')");
    const auto request = [](const std::string& more,
                            const std::string& sql = "select Code, n from p order by n") {
        return "<f name='public.getcomplexdata' guid='K'><param name='sql' value='" + sql + "'/>" + more +
               "</f>";
    };
    const auto refcols = [](const std::string& columns) {
        return "<param name='refcols'>" + columns + "</param>";
    };
    const std::string refs =
        refcols("<col name='Cust' value=' CODE ' extra='quoted'/><col name='n' value='n'/>");
    const std::string children =
        "<param name='csql'>select v from c where pc='%Cust%'</param>"
        "<param name='CSQL'>select '%n%' as i, '%cust%' as s</param>";
    const std::string parent = "K data[code=text n=integer|code=O'Brien  n=1|code= n=2|code=b n=3]";
    EXPECT_THAT(Run(request(children + refs)),
                ElementsAre(parent, "K.1.1 data[v=text|v=x]", "K.1.2 data[i=text s=text|i=1 s=%cust%]",
                            "K.2.1 data[v=text|v=nothing]", "K.2.2 data[i=text s=text|i=2 s=%cust%]",
                            "K.3.1 data[v=text|v=y]", "K.3.2 data[i=text s=text|i=3 s=%cust%]"));
    EXPECT_THAT(Run(request(refs)), ElementsAre(parent)) << "no child asked for";
    EXPECT_EQ(Run(request(children + refs, "select * from p where 0")).size(), 1U);
    EXPECT_EQ(Run(request(children)).size(), 7U)
        << "without columns to refer to, templates run as they stand";

    const char* missing =
        "number=-1 description=ZorbDbAccessEngine:Invalid referenced column definition - name or value "
        "missing.";
    const std::pair<const char*, std::string> failing[] = {
        {"<col name='' value='n'/>", missing},
        {"<col name='n' value=''/>", missing},
        {"<col name='n' value='nope'/>", "number=-2146825023 "},
        {"<col name='n' value='n' extra='quotd'/>",
         "number=-1 description=ZorbDbAccessEngine:Invalid extra of referenced column - \"n\" (\"quotd\" is "
         "not "
         "\"quoted\")."}};
    for (const auto& [columns, error] : failing) {
        EXPECT_THAT(Run(request(children + refcols(columns))), ElementsAre(StartsWith("K error[" + error)));
    }
    EXPECT_THAT(Run(request("<param name='csql'>select 1 as one</param>" + children +
                            refcols("<col name='Cust'>code</col>"))),
                ElementsAre("K.1.1 data[one=integer|one=1]", StartsWith("K error[number=-2147217900")))
        << "what came before a failure stays";
    EXPECT_THAT(
        Run(request("<param name='csql'>select 5-%n% as d, '%Cust%' as c</param>" +
                        refcols("<col name='n' value='n'/><col name='Cust' value='code' extra='QUOTE'/>"),
                    "select -n as n, code from p where n=1")),
        ElementsAre("K data[n=integer code=text|n=-1 code=O'Brien ]",
                    "K.1.1 data[d=integer c=text|d=6 c=O'Brien]"));
}

TEST_F(EngineTest, EnginesInDifferentThreadsDoNotDisturbEachOther) {
    test::MakeDatabase(path_, "create table t (a integer)");
    const auto work = [&](int number) {
        ZorbDbAccessEngine engine;
        std::string xml, report;
        const std::string sql = "insert into t values (" + std::to_string(number) + ")";
        const std::string definition =
            "<d><functiondef name='f'><function name='public.executesql'><param name='sql' value='" + sql +
            "'/></function></functiondef></d>";
        engine.SetDatabaseConnectionString(connectionString_);
        for (int round = 0; round < 40; ++round) {
            EXPECT_TRUE(engine.LoadFunctionDefsXml(definition, report));
            EXPECT_TRUE(engine.RunFunction(Request("f"), xml));
            EXPECT_THAT(Entries(xml), ElementsAre("K info[return=1]")) << "two writers wait for each other";
            EXPECT_TRUE(engine.RunFunction(Request("public.getdata", {{"sql", "select * from nope"}}), xml));
            EXPECT_THAT(engine.GetLastError(), HasSubstr("no such table"));
        }
    };
    std::thread other(work, 1);
    work(2);
    other.join();
    EXPECT_THAT(Run("public.getdata", {{"sql", "select a, count(*) as n from t group by a"}}),
                ElementsAre("K data[a=integer n=integer|a=1 n=40|a=2 n=40]"));
}

}  // namespace
}  // namespace halvtiv
