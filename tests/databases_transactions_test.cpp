// Transactions of the connection and of the engine, and calls without XML, on every database.

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "databases.hpp"

namespace halvtiv::test {
namespace {

using namespace ado;
using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::int32_t kNoTransaction = -2147168242;
constexpr std::int32_t kCancelled = -2147217842;

TEST_P(EveryDatabase, TransactionsNest) {
    Run("create table t (n integer)");
    EXPECT_EQ(connection->BeginTrans(), 1);
    Run("insert into t values (1)");
    EXPECT_EQ(connection->BeginTrans(), 2);
    Run("insert into t values (2)");
    connection->RollbackTrans();
    EXPECT_EQ(connection->BeginTrans(), 2);
    Run("insert into t values (3)");
    connection->CommitTrans();
    const auto unread = Query("select n from " + Numbers(3000) + " order by n");
    connection->CommitTrans();
    EXPECT_EQ(Rows("select n from t order by n"), "1|3");
    EXPECT_EQ(unread->Fields().Item(0)->Value().Text(), "1");
    EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }), kNoTransaction);
    EXPECT_EQ(NumberOf([&] { connection->RollbackTrans(); }), kNoTransaction);
    connection->BeginTrans();
    Run("insert into t values (6)");
    connection->Close();
    connection = Connect();
    EXPECT_EQ(Rows("select n from t order by n"), "1|3");
}

TEST_P(EveryDatabase, TransactionsOfTheSqlAreSeen) {
    Run("create table t (n integer)");
    Run("begin");
    Run("insert into t values (1)");
    EXPECT_EQ(connection->BeginTrans(), 1);
    Run("insert into t values (2)");
    connection->RollbackTrans();
    Run("commit");
    EXPECT_EQ(Rows("select n from t"), "1");

    // The SQL ends what BeginTrans has begun, with all its levels.
    connection->BeginTrans();
    connection->BeginTrans();
    Run("insert into t values (3)");
    Run("commit");
    EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }), kNoTransaction);
    Run("insert into t values (4)");
    connection->BeginTrans();
    connection->BeginTrans();
    Run("rollback");
    Run("insert into t values (5)");
    connection->RollbackTrans();
    connection->RollbackTrans();
    EXPECT_EQ(connection->BeginTrans(), 1);
    Run("insert into t values (6)");
    connection->RollbackTrans();
    const auto other = Connect();
    EXPECT_EQ(RestOf(other->Execute("select n from t order by n")), "1|3|4|5");
}

TEST_P(EveryDatabase, DefinitionsInATransaction) {
    Run("create table t (n integer)");
    connection->BeginTrans();
    Run("insert into t values (1)");
    Run("create table u (n integer)");
    if (Has(Can::UndoDefinitions)) {
        connection->RollbackTrans();
        EXPECT_EQ(NumberOf([&] { Query("select * from u"); }), -2147217865);
        EXPECT_EQ(Scalar("select count(*) from t"), "0");
    } else {
        EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }), kNoTransaction) << "it has committed";
        EXPECT_EQ(RestOf(Connect()->Execute("select n from t")), "1");
    }
}

TEST_P(EveryDatabase, AFailureLeavesTheTransactionToTheCaller) {
    Run("create table t (id integer primary key)");
    connection->BeginTrans();
    const auto rows = Change("t");
    for (const auto& [id, number] : {std::pair{1, 0}, {1, kViolation}, {2, 0}}) {
        if (id == 1) rows->AddNew();
        rows->Fields().Item("id")->Value(Variant(id));
        EXPECT_EQ(NumberOf([&] { rows->Update(); }), number);
    }
    EXPECT_EQ(Rows("select id from t order by id"), "1|2");
    connection->BeginTrans();
    EXPECT_EQ(NumberOf([&] { Run("insert into t values (1)"); }), kViolation);
    EXPECT_EQ(NumberOf([&] { Run("select 1"); }) == 0, Has(Can::GoOnAfterFailure));
    connection->RollbackTrans();
    Run("insert into t values (3)");
    connection->CommitTrans();
    EXPECT_EQ(Rows("select id from t order by id"), "1|2|3");

    connection->BeginTrans();
    Run("insert into t values (4)");
    EXPECT_NE(NumberOf([&] { Run("select * from nowhere"); }), 0);
    EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }) == 0, Has(Can::GoOnAfterFailure));
    EXPECT_EQ(Scalar("select count(*) from t"), Has(Can::GoOnAfterFailure) ? "4" : "3");
}

TEST_P(EveryDatabase, AFailedCommitLeavesNoTransaction) {
    Run("create table p (id integer primary key)");
    const auto defined =
        NumberOf([&] { Run("create table c (id integer references p deferrable initially deferred)"); });
    EXPECT_EQ(defined == 0, Has(Can::CheckAtCommit));
    if (defined != 0) return;
    connection->BeginTrans();
    Run("insert into c values (7)");
    EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }), kViolation);
    EXPECT_EQ(connection->BeginTrans(), 1);
    connection->RollbackTrans();
    EXPECT_EQ(Scalar("select count(*) from c"), "0");
}

class EverySqlite : public EveryDatabase {};
INSTANTIATE_TEST_SUITE_P(Databases, EverySqlite, testing::Values(&Sqlite(), &SqliteOdbc()), DatabaseName);

TEST_P(EverySqlite, ATransactionThatAFailureHasEndedIsOver) {
    Run("create table t (n integer primary key)");
    connection->BeginTrans();
    Run("insert into t values (1)");
    EXPECT_EQ(NumberOf([&] { Run("insert into t values (1)"); }), kViolation);
    EXPECT_EQ(connection->BeginTrans(), 2) << "that failure has not";
    EXPECT_EQ(NumberOf([&] { Run("insert or rollback into t values (1)"); }), kViolation);
    EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }), kNoTransaction);
    EXPECT_EQ(connection->BeginTrans(), 1);
    EXPECT_EQ(NumberOf([&] { Run("insert or rollback into t select 2 union all select null"); }), 0);
    EXPECT_EQ(NumberOf([&] { Run("insert or rollback into t values (2)"); }), kViolation);
    EXPECT_EQ(NumberOf([&] { connection->RollbackTrans(); }), 0);
    EXPECT_EQ(Rows("select n from t"), "");
}

class TransactionTest : public EveryDatabasesEngine {
protected:
    void SetUp() override {
        EveryDatabasesEngine::SetUp();
        if (IsSkipped()) return;
        Run("create table t (a integer primary key)");
        std::string report;
        ASSERT_TRUE(engine.LoadFunctionDefsXml(
            "<d><functiondef name='add'><paramdef><param name='a' type='integer'/></paramdef>"
            "<function name='public.executesql'><param name='sql'>insert into t values (%a%)</param>"
            "</function></functiondef><functiondef name='all'><function name='public.getdata'>"
            "<param name='sql' value='select a from t order by a'/></function></functiondef></d>",
            report));
    }

    static std::string Sql(const std::string& guid, const std::string& sql,
                           const std::string& function = "public.executesql") {
        return "<function name='" + function + "' guid='" + guid + "'><param name='sql'>" + sql +
               "</param></function>";
    }
    static std::string Add(const std::string& guid, const std::string& value) {
        return "<function name='add' guid='" + guid + "'><param name='a' value='" + value + "'/></function>";
    }
    /// The answer, and the result in `xml_`, of a transaction with these calls.
    bool RunCalls(const std::string& calls) {
        xml_ = "<transaction name='N' guid='T'>" + calls + "</transaction>";
        const bool done = engine.RunTransaction(xml_, xml_);  // one text for both
        EXPECT_TRUE(xml_.empty() || xml_.starts_with("<result guid=\"T\" name=\"N\"")) << xml_;
        return done;
    }
    /// What is in the table for everybody, and that nobody holds it.
    std::string All() const {
        connection->BeginTrans();
        auto all = Rows("select a from t order by a");
        Run("delete from t");
        connection->RollbackTrans();
        return all;
    }

    std::string xml_;
};
INSTANTIATE_TEST_SUITE_P(Databases, TransactionTest, testing::ValuesIn(Databases()), DatabaseName);

TEST_P(TransactionTest, AllCallsAreDoneAndTheirResultsMerged) {
    EXPECT_TRUE(RunCalls(Add("1", "1") +
                         Sql("2", "insert into t values (2); select 5 x; select a from t order by a") +
                         "<function name='all'/>" + Sql("2", "select 1 y", "Public.GetData")))
        << engine.GetLastError();
    EXPECT_EQ(engine.GetLastError(), "");
    EXPECT_THAT(Entries(xml_),
                ElementsAre("1 info[return=1]", "2.1 data[x=integer|x=5]", "2 data[a=integer|a=1|a=2]",
                            " data[a=integer|a=1|a=2]", "2 data[y=integer|y=1]"));
    EXPECT_EQ(All(), "1|2");
    EXPECT_TRUE(RunCalls("")) << "a transaction without calls";
    EXPECT_EQ(xml_, "<result guid=\"T\" name=\"N\"/>");
}

TEST_P(TransactionTest, TheFirstFailureUndoesEverythingAndIsAllThatIsReturned) {
    const std::string first = Add("1", "1");
    const std::string third = Add("3", "3");
    struct Case {
        std::string second;
        std::string error;
        std::vector<std::string> entries;
    };
    const Case cases[] = {
        {Add("2", "1"), "(ERR#: -2147217873)", {"2 error[number=-2147217873 "}},
        {Sql("2", "insert into t values (2); select 7 x; insert into nope values (1)"),
         "(ERR#: -2147217865)",
         {"2.1 data[x=integer|x=7]", "2 error[number=-2147217865 "}},
        {Sql("2", ""), "sql parameter missed.(ERR#: -1)", {"2 error[number=-1 "}},
        {Sql("2", "", "public.nothing"), "Function not found - public.nothing.(ERR#: -1)", {}},
        {Add("2", "two"), "(ERR#: -1)", {}},
    };
    for (const auto& [second, error, entries] : cases) {
        EXPECT_FALSE(RunCalls(first + second + third)) << second;
        EXPECT_THAT(engine.GetLastError(), StartsWith("ZorbDbAccessEngine:"));
        EXPECT_THAT(engine.GetLastError(), EndsWith(error));
        const auto returned = Entries(xml_);
        ASSERT_EQ(returned.size(), entries.size()) << xml_;
        for (std::size_t entry = 0; entry < entries.size(); ++entry) {
            EXPECT_THAT(returned[entry], StartsWith(entries[entry]));
        }
        EXPECT_EQ(All(), "") << second;
    }
    EXPECT_TRUE(RunCalls(first + third)) << "nothing stays behind, " << engine.GetLastError();
    EXPECT_EQ(All(), "1|3");
}

TEST_P(TransactionTest, AFileWrittenBeforeTheFailureIsUndoneWithTheRest) {
    Run("create table p (id integer primary key, b " + Traits().bytes + ")");
    Run("insert into p (id) values (1)");
    WriteFile(folder.PathOf("small"), "small");
    WriteFile(folder.PathOf("large"), std::string(3'000'000, 'x'));
    const auto put = [&](const std::string& file, const std::string& column) {
        return "<function name='public.setbinarydata' guid='S'><param name='sql'>select * from p</param>"
               "<param name='colname'>" +
               column + "</param><param name='filename'>" + folder.PathOf(file) + "</param></function>";
    };
    for (const char* file : {"small", "large"}) {
        for (const auto& failing : {Add("3", "1"), put("none", "b"), put(file, "nope")}) {
            EXPECT_FALSE(RunCalls(Add("1", "1") + put(file, "b") + Add("2", "2") + failing)) << failing;
            EXPECT_EQ(All(), "") << failing;
            EXPECT_EQ(Scalar("select count(*) from p where b is null"), "1") << failing;
        }
        EXPECT_TRUE(RunCalls(Add("1", "1") + put(file, "b") + Add("2", "2"))) << engine.GetLastError();
        EXPECT_EQ(All(), "1|2");
        EXPECT_EQ(Scalar("select count(*) from p where b is null"), "0");
        Run("update p set b = null");
        Run("delete from t");
    }
}

TEST_P(TransactionTest, NoCallRunsBehindOneThatEndedTheTransaction) {
    std::vector<std::string> endings{"commit", "rollback", "select 1 x; /* now */ COMMIT"};
    if (!Has(Can::UndoDefinitions)) endings.emplace_back("create table made (n integer)");
    if (!Traits().variable.empty()) {
        endings.insert(endings.end(),
                       {"commit and no chain", "rollback and chain", "commit AND /* no */ CHAIN"});
    }
    endings.emplace_back("rollback; begin");
    for (const auto& ending : endings) {
        EXPECT_FALSE(RunCalls(Sql("2", ending) + Add("3", "3"))) << ending;
        EXPECT_THAT(engine.GetLastError(), HasSubstr("The transaction was ended by one of its calls."));
        EXPECT_EQ(All(), "") << ending;
        EXPECT_EQ(NumberOf([&] { engine.GetDatabaseConnection()->CommitTrans(); }), -2147168242) << ending;
    }
    RunCalls(Add("1", "1") + Sql("2", "rollback; begin; insert into t values (2)"));
    EXPECT_THAT(engine.GetLastError(), HasSubstr("-2147168242")) << "ended by the last one";
    EXPECT_EQ(All(), "");
    EXPECT_FALSE(RunCalls(Add("1", "1") + Sql("2", "begin") + Add("3", "1")));
    EXPECT_EQ(All(), "") << "a second one ends the first nowhere";
    EXPECT_TRUE(RunCalls(Sql("1", "savepoint s") + Add("2", "2") + Sql("3", "rollback to savepoint s") +
                         Add("4", "4")))
        << engine.GetLastError();
    EXPECT_EQ(All(), "4");
}

TEST_P(TransactionTest, ACommitThatFailsLeavesItsReason) {
    if (!Has(Can::CheckAtCommit)) GTEST_SKIP() << Traits().cannot.at(Can::CheckAtCommit);
    Run("create table child (a integer references t deferrable initially deferred)");
    EXPECT_TRUE(RunCalls(Add("1", "1") + Sql("2", "insert into child values (9)")));
    EXPECT_THAT(engine.GetLastError(), StartsWith("ZorbDbAccessEngine:The commit failed: clsZorbTivCore:"));
    EXPECT_THAT(Entries(xml_), ElementsAre("1 info[return=1]", "2 info[return=1]"));
    EXPECT_EQ(All(), "");
    EXPECT_TRUE(RunCalls(Add("1", "9") + Sql("2", "insert into child values (9)")));
    EXPECT_EQ(engine.GetLastError(), "");
    EXPECT_EQ(Rows("select a from t"), "9");
}

TEST_P(TransactionTest, CancellingWithoutACallUnderWayDoesNothing) {
    const auto own = engine.GetDatabaseConnection();
    const auto unread = own->Execute("select n from " + Numbers(3000));
    engine.Cancel();
    own->Execute("insert into t values (1)");
    int rows = 0;
    for (; !unread->IsEOF(); unread->MoveNext(), ++rows) {
        engine.Cancel();
        unread->Fields().Item(0)->Value();
    }
    EXPECT_EQ(rows, 3000);
    own->BeginTrans();
    engine.Cancel();
    own->Execute("insert into t values (2)");
    engine.Cancel();
    own->CommitTrans();
    engine.Cancel();
    EXPECT_EQ(Rows("select count(*) from t"), "2");
}

TEST_P(TransactionTest, HoweverOftenItIsCancelledItIsWholeOrUndone) {
    std::atomic<bool> isOver = false;
    std::thread canceller([&] {
        while (!isOver) {
            engine.Cancel();
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    });
    int done = 0;
    for (int i = 0; i < 400; ++i) {
        const std::string first = std::to_string(2 * i);
        const std::string second = std::to_string(2 * i + 1);
        if (RunCalls(Add("1", first) + Add("2", second)) && engine.GetLastError().empty()) ++done;
        std::string result;
        engine.RunFunction(Request("public.getdata", {{"sql", "select 7 n"}}), result);
        EXPECT_THAT(Entries(result),
                    ElementsAre(AnyOf("K data[n=integer|n=7]", StartsWith("K error[number=-2147217842 "))));
    }
    isOver = true;
    canceller.join();
    EXPECT_EQ(Rows("select count(*) from t"), std::to_string(2 * done));
}

TEST_P(TransactionTest, WithinACallersTransactionItNests) {
    const auto own = engine.GetDatabaseConnection();
    own->Execute("begin; insert into t values (100)")->Close();
    EXPECT_TRUE(RunCalls(Add("1", "1"))) << engine.GetLastError();
    EXPECT_FALSE(RunCalls(Add("2", "2") + Add("3", "1")));
    own->Execute("commit");
    EXPECT_EQ(All(), "1|100") << "only its own part is undone";
    own->BeginTrans();
    EXPECT_TRUE(RunCalls(Add("4", "4")));
    own->RollbackTrans();
    EXPECT_EQ(All(), "1|100");
}

TEST_P(TransactionTest, ACountThatFailsLeavesTheTransactionUsable) {
    const auto own = engine.GetDatabaseConnection();
    own->BeginTrans();
    own->Execute("insert into t values (1)");
    std::string result;
    EXPECT_TRUE(engine.RunFunction(
        Request("public.getdata", {{"sql", "select a from t"}, {"csql", "select count(*) from nowhere"}}),
        result));
    EXPECT_THAT(Entries(result), ElementsAre("K data[a=integer|a=1]"));
    own->CommitTrans();
    EXPECT_EQ(All(), "1");
}

TEST_P(TransactionTest, SimpleCallsNeedNoXml) {
    ZorbColumnDataItems params;
    params.Add("A", "7");
    EXPECT_TRUE(engine.SimpleAddDataItem("add", &params, "  ")) << engine.GetLastError();
    params.Item(1)->Value = "8";
    EXPECT_TRUE(engine.SimpleUpdateDataItem("add", &params, "<row><col name='x' value='y'/></row>"));
    params.Item(1)->Value = "9";
    EXPECT_TRUE(engine.SimpleDeleteDataItem("add", &params));
    EXPECT_EQ(All(), "7|8|9");
    EXPECT_EQ(engine.GetLastError(), "");
    EXPECT_FALSE(engine.SimpleAddDataItem("add", &params, ""));
    EXPECT_THAT(engine.GetLastError(), EndsWith("(ERR#: -2147217873)"));
    EXPECT_FALSE(engine.SimpleUpdateDataItem("add", &params, "<row>"));
    EXPECT_THAT(engine.GetLastError(), HasSubstr("Failed to load Xml Data Row."));
    EXPECT_FALSE(engine.SimpleDeleteDataItem("add", nullptr));
    EXPECT_THAT(engine.GetLastError(), HasSubstr("clsZorbXmlFunctionLibrary:"));
    EXPECT_FALSE(engine.SimpleDeleteDataItem("public.executesql", nullptr));
    EXPECT_THAT(engine.GetLastError(), EndsWith("Invalid Xml - sql parameter missed.(ERR#: -1)"));
    EXPECT_FALSE(engine.SimpleDeleteDataItem("\xFF", nullptr));
    EXPECT_THAT(engine.GetLastError(), EndsWith("(ERR#: 5)"));
}

TEST_P(TransactionTest, SimpleCallsReturnWhatWasReadAsText) {
    Run("insert into t values (7), (8)");
    std::string text = "all";
    EXPECT_TRUE(engine.SimpleGetDataItem(text, nullptr, text, true)) << "one text for both";
    EXPECT_EQ(text, "<row><col name=\"a\" value=\"7\"/></row>");
    EXPECT_TRUE(engine.SimpleGetDataItem("all", nullptr, text, false));
    EXPECT_THAT(text, testing::AllOf(StartsWith("<data guid="), EndsWith("value=\"8\"/></row></data>")));

    ZorbColumnDataItems params;
    params.Add("sql", "select a from t where a > 7");
    EXPECT_TRUE(engine.SimpleExecuteSQL("public.executesql", &params, &text, true));
    EXPECT_EQ(text, "<row index=\"1\"><col name=\"a\" value=\"8\"/></row>");
    EXPECT_TRUE(engine.SimpleExecuteSQL("public.executesql", &params, &text));
    EXPECT_THAT(text, HasSubstr("<row index=\"0\">"));
    params.Item(1)->Value = "delete from t";
    EXPECT_TRUE(engine.SimpleExecuteSQL("public.executesql", &params));
    EXPECT_EQ(All(), "");
    EXPECT_TRUE(engine.SimpleGetDataItem("all", nullptr, text, false)) << "no row is no failure";
    EXPECT_EQ(text, "");

    text = "old";
    params.Item(1)->Value = "select * from nope";
    EXPECT_FALSE(engine.SimpleExecuteSQL("public.executesql", &params));
    EXPECT_FALSE(engine.SimpleExecuteSQL("public.executesql", &params, &text));
    EXPECT_EQ(text, "old");
    EXPECT_FALSE(engine.SimpleGetDataItem("public.getdata", &params, text, true));
    EXPECT_EQ(text, "");
    EXPECT_THAT(engine.GetLastError(), EndsWith("(ERR#: -2147217865)"));
}

// A call may find out only on its way which database it is for.
TEST_P(TransactionTest, EachDatabaseGetsItsOwnBodyAlsoAfterReconnecting) {
    Run("create table u (n integer)");
    const auto name = connection->DatabaseName();
    const auto body = [](const std::string& provider, const std::string& sql) {
        return "<function name='public.executesql'" + provider + "><param name='sql'>" + sql +
               "</param></function>";
    };
    std::string report;
    ASSERT_TRUE(engine.LoadFunctionDefsXml(
        "<d><functiondef name='who'><paramdef><param name='n' type='integer'/></paramdef>" +
            body("", "insert into u values (0)") + body(" provider='Access'", "insert into u values (-1)") +
            body(" provider='Access, " + name + "'", "insert into u values (%n%)") + "</functiondef></d>",
        report));
    engine.ReConnectInterval(0);
    ZorbColumnDataItems params;
    params.Add("n", "1");
    EXPECT_TRUE(engine.SimpleExecuteSQL("who", &params));
    engine.DisConnect();
    params.Item(1)->Value = "2";
    EXPECT_TRUE(engine.SimpleExecuteSQL("who", &params)) << engine.GetLastError();
    engine.DisConnect();
    const std::string call = "<function name='who' guid='K'><param name='n' value='3'/></function>";
    EXPECT_TRUE(RunCalls(call)) << engine.GetLastError();
    engine.DisConnect();
    std::string text = call;
    EXPECT_TRUE(engine.RunFunction(text, text)) << "one text for both";
    EXPECT_EQ(Rows("select n from u order by n"), "1|2|3|3");

    engine.DisConnect();
    engine.ReConnectInterval(-1);
    EXPECT_FALSE(engine.SimpleExecuteSQL("who", &params));
    EXPECT_TRUE(engine.RunFunction(call, text));
    EXPECT_THAT(Entries(text), ElementsAre(StartsWith("K error[number=-1")));
    EXPECT_FALSE(engine.GetLastError().empty());
    EXPECT_EQ(Rows("select count(*) from u"), "4");
}

}  // namespace
}  // namespace halvtiv::test
