// What holds on every database: reading, batches, errors, and what each of them can.

#include <gmock/gmock.h>
#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>

#include "databases.hpp"

namespace halvtiv::test {
namespace {

using namespace ado;

INSTANTIATE_TEST_SUITE_P(Databases, EveryDatabase, testing::ValuesIn(Databases()), DatabaseName);
INSTANTIATE_TEST_SUITE_P(Databases, EveryDatabasesEngine, testing::ValuesIn(Databases()), DatabaseName);

TEST_P(EveryDatabase, ABatchRunsEachStatementOnceAndInOrder) {
    Run("create table t (n integer unique)");
    std::int32_t affected = 0;
    auto rows = connection->Execute(
        "insert into t values (1), (2); -- a comment; \n;; select n /* no; ? */ from t -- it's;\n order by "
        "n; "
        "insert into t values (3); select 'a;b', count(*) from t /* end; */",
        &affected);
    EXPECT_EQ(rows->State(), adStateClosed);
    EXPECT_EQ(affected, 2);
    EXPECT_EQ(Rows("select n from t order by n"), "1|2");
    rows = rows->NextRecordset();
    EXPECT_EQ(rows->State(), adStateOpen);
    rows = rows->NextRecordset();
    EXPECT_EQ(rows->State(), adStateClosed);
    rows = rows->NextRecordset();
    EXPECT_EQ(RestOf(rows), "a;b 3");
    EXPECT_EQ(rows->NextRecordset(), nullptr);
    EXPECT_EQ(rows->State(), adStateClosed);
    EXPECT_EQ(connection->Execute(" -- nothing\n")->State(), adStateClosed);
    EXPECT_EQ(NumberOf([&] { connection->Execute(std::string_view("select 1\0", 9)); }), -2147217900);

    connection->Execute("select 1; insert into t values (4)")->Close();
    connection->Execute("select 1; insert into t values (5)").reset();
    EXPECT_EQ(Rows("select n from t order by n"), "1|2|3|4|5");
    // Runs any number of statements to their end, with rows or without, and raises their errors.
    for (const char* sql : {"", "select 1", "insert into t values (8)", "insert into t values (9); select 1",
                            "select 1; insert into t values (10)"}) {
        for (auto result = connection->Execute(sql); result; result = result->NextRecordset()) continue;
    }
    EXPECT_EQ(Rows("select n from t where n > 5 order by n"), "8|9|10");
    Run("delete from t where n > 5");

    // The statements before the one that fails stay done; it and those behind it are not.
    rows = connection->Execute(
        "select 1; insert into t values (6); insert into t values (6); insert into t values (7)");
    const auto error = ErrorOf([&] { rows->Close(); });
    EXPECT_EQ(error.Number, kViolation);
    EXPECT_EQ(error.Source, Traits().source);
    EXPECT_EQ(rows->State(), adStateClosed);
    EXPECT_EQ(NumberOf([&] { rows->Close(); }), -2146824584);
    EXPECT_EQ(Rows("select n from t where n > 5"), "6");
}

TEST_P(EveryDatabase, SeveralRecordsetsAreOpenAtOnce) {
    const auto sql = "select n from " + Numbers(5000) + " order by n";
    const auto first = Query(sql);
    const auto second = Query(sql, adOpenDynamic);
    const auto third = Query(sql);
    for (int n = 1; n <= 5000; ++n) {
        ASSERT_EQ(first->Fields().Item(0)->Value().Text(), std::to_string(n));
        ASSERT_EQ(second->Fields().Item(0)->Value().Text(), std::to_string(n));
        if (n % 1000 == 0) {
            EXPECT_EQ(Scalar("select count(*) from " + Numbers(n)), std::to_string(n));
        }
        first->MoveNext();
        second->MoveNext();
    }
    EXPECT_TRUE(first->IsEOF() && second->IsEOF());
    EXPECT_FALSE(first->IsBOF());
    EXPECT_EQ(third->Fields().Item(0)->Value().Text(), "1");
    EXPECT_EQ(NumberOf([&] { first->MoveNext(); }), -2146825267);
    EXPECT_EQ(NumberOf([&] { first->Fields().Item(0)->Value(); }), -2146825267);
    EXPECT_EQ(NumberOf([&] { first->MoveFirst(); }), kNotSupported);
    second->MoveFirst();
    EXPECT_EQ(second->Fields().Item("N")->Value().Text(), "1");
    for (const std::int32_t none : {-1, 1}) {
        EXPECT_EQ(NumberOf([&] { second->Fields().Item(none); }), -2146825023);
    }
    EXPECT_EQ(NumberOf([&] { second->Fields().Item("m"); }), -2146825023);
    const auto none = Query("select n from " + Numbers(1) + " where n = 0", adOpenDynamic);
    EXPECT_TRUE(none->IsBOF() && none->IsEOF());
    EXPECT_EQ(NumberOf([&] { none->MoveFirst(); }), -2146825267);
}

TEST_P(EveryDatabase, ErrorsHaveTheirNumbers) {
    Run("create table t (id integer primary key, label varchar(20) unique)");
    Run("insert into t values (1, 'x')");
    EXPECT_EQ(NumberOf([&] { Query("select * from nowhere"); }), -2147217865);
    EXPECT_EQ(NumberOf([&] { Query("select nope from t"); }), -2147217900);
    EXPECT_EQ(NumberOf([&] { Run("insert into t values (2, 'x')"); }), kViolation);
    const auto error = ErrorOf([&] { Query("selec 1"); });
    EXPECT_EQ(error.Number, -2147217900);
    EXPECT_EQ(error.Source, Traits().source);
    EXPECT_NE(error.Description.find("syntax"), std::string::npos) << error.Description;
    EXPECT_EQ(Scalar("select 1"), "1") << "the connection goes on";

    Recordset rows;
    EXPECT_EQ(rows.State(), adStateClosed);
    EXPECT_EQ(rows.NextRecordset(), nullptr);
    EXPECT_EQ(NumberOf([&] { rows.IsEOF(); }), -2146824584);
    EXPECT_EQ(NumberOf([&] { rows.Open("t", nullptr, adOpenForwardOnly, adLockReadOnly); }), -2146824579);
    rows.Open("t", connection, adOpenForwardOnly, adLockReadOnly);
    EXPECT_EQ(NumberOf([&] { rows.Open("t", connection, adOpenForwardOnly, adLockReadOnly); }), -2146824583);
    const auto field = rows.Fields().Item(0);
    connection->Close();
    EXPECT_EQ(rows.State(), adStateClosed);
    EXPECT_EQ(NumberOf([&] { field->Value(); }), -2146824579);
    EXPECT_EQ(NumberOf([&] { rows.MoveNext(); }), -2146824579);
    rows.Close();
    EXPECT_EQ(NumberOf([&] { connection->Close(); }), -2146824584);
    EXPECT_EQ(NumberOf([&] { connection->Execute("select 1"); }), -2146824584);
    EXPECT_EQ(NumberOf([&] { connection->BeginTrans(); }), -2146824584);
    EXPECT_EQ(NumberOf([&] { Query("select 1"); }), -2146824579);
}

TEST_P(EveryDatabasesEngine, ACommandEndsAtItsTimeOutAndWhenItIsCancelled) {
    const auto start = std::chrono::steady_clock::now();
    if (Has(Can::EndAtTimeOut)) {  // it would run for ever
        connection->CommandTimeout(1);
        EXPECT_EQ(NumberOf([&] { Query(Traits().endless); }), -2147217871);
        EXPECT_EQ(Scalar("select 1"), "1");
    }

    const auto cancelled = [&](const std::function<std::string()>& call) {
        std::thread other([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            engine.Cancel();
        });
        EXPECT_EQ(call().substr(0, 11), "-2147217842");
        other.join();
    };
    cancelled([&] { return Call("getdata", {{"sql", Traits().endless}}); });
    if (Traits().name == "SQLite") return;  // the transaction ends with the change: tested in changes_test
    // A row's change is stopped as well, and the row stays as it was.
    Run("create table t (n integer primary key, v integer)");
    Run("insert into t values (1, 1)");
    if (Traits().source == "PostgreSQL") {
        Run("create function f() returns trigger language plpgsql as $$ begin perform pg_sleep(60); end $$");
    }
    Run("create trigger g before update on t for each row " +
        std::string(Traits().source == "PostgreSQL" ? "execute function f()"
                    : Traits().source == "MariaDB"  ? "set @x = sleep(60)"
                                                    : "begin select (" + Traits().endless + "); end"));
    if (Has(Can::EndAtTimeOut)) {
        for (const bool isNested : {false, true}) {
            if (isNested) connection->BeginTrans();
            const auto rows = Change("select * from t");
            rows->Fields().Item("v")->Value(Variant(2));
            EXPECT_EQ(NumberOf([&] { rows->Update(); }), -2147217871);
            EXPECT_EQ(Scalar("select v from t"), "1");
            if (isNested) connection->CommitTrans();
        }
    }
    cancelled([&] { return Call("updatedata", {{"sql", "t"}}, {{"v", "2"}}); });
    EXPECT_EQ(Scalar("select v from t"), "1");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(50));
}

/// A query that fails at the row 2500.
std::string FailingQuery(const DatabaseTraits& traits, const std::string& table) {
    const char* const value = traits.source == "PostgreSQL" ? "1 / (n - 2500)"
                              : traits.source == "MariaDB"  ? "9223372036854775807 + (n = 2500)"
                                                            : "abs(-9223372036854775807 - (n = 2500))";
    return "select n, " + std::string(value) + " v from " + table;
}

/// Keeps the recordset that it fails to export.
class KeepingExporter : public IZorbDataExporter {
public:
    explicit KeepingExporter(ZorbDbAccessEngine& engine) : engine_(engine) {}
    bool MatchExportType(std::string_view type) override { return type == "fail"; }
    std::int32_t ExportData(RecordsetPtr& rows, std::string& /*file*/, std::string& /*table*/,
                            std::string /*folder*/) override {
        kept = rows;
        engine_.Cancel();
        RestOf(rows);
        return -1;
    }
    RecordsetPtr kept;

private:
    ZorbDbAccessEngine& engine_;
};

TEST_P(EveryDatabasesEngine, AFailureEndsItsBatch) {
    Run("create table t (n integer primary key)");
    Run("insert into t select n from " + Numbers(3000));
    Run("create table child (n integer, foreign key (n) references t (n))");
    Run("insert into child values (3)");
    Run("create table kept (n integer)");
    Run("insert into kept values (1)");
    const std::string rest = "; delete from kept";
    const auto failing = FailingQuery(Traits(), "t");
    const auto isKept = [&] { return Rows("select n from kept") == "1"; };

    using Use = std::function<void(RecordsetPtr&)>;
    for (const Use& leave : {Use([](RecordsetPtr& rows) { rows->Close(); }),
                             Use([](RecordsetPtr& rows) { EXPECT_EQ(rows->NextRecordset(), nullptr); }),
                             Use([](RecordsetPtr& rows) { rows.reset(); })}) {
        RecordsetPtr rows;
        EXPECT_NE(NumberOf([&] { RestOf(rows = connection->Execute(failing + rest)); }), 0);
        if (rows) leave(rows);
        EXPECT_TRUE(isKept());
    }
    for (const Use& change :
         {Use([](RecordsetPtr& rows) { rows->Update(); }), Use([](RecordsetPtr& rows) { rows->MoveNext(); }),
          Use([](RecordsetPtr& rows) { rows->MoveFirst(); })}) {
        auto rows = Change("select n from t order by n" + rest);
        rows->MoveNext();
        rows->Fields().Item(0)->Value(Variant(1));
        EXPECT_EQ(NumberOf([&] { change(rows); }), kViolation);
        rows->Close();
        EXPECT_TRUE(isKept());
    }
    auto rows = Change("select n from t where n = 3" + rest);
    EXPECT_EQ(NumberOf([&] { rows->Delete(); }), kViolation);
    rows.reset();
    EXPECT_EQ(NumberOf([&] {
                  const auto read = connection->Execute("select 1" + rest);
                  throw ErrorInfo(7, "of the reader", "");
              }),
              7);
    EXPECT_TRUE(isKept());

    const auto exporter = std::make_shared<KeepingExporter>(engine);
    engine.AddDataExporter(exporter);
    const std::string all = "select n, n from t order by n" + rest;
    const auto file = folder.PathOf("file");
    const auto noFile = folder.PathOf("none/file");
    const std::vector<Item> duplicate{{"n", "2"}};
    const std::vector<Item> wrong{{"n", "x"}};
    const auto exported = [&](const char* type) {
        return Call("getdatatoexportfile", {{"sql", all}, {"filename", file}, {"exporttype", type}});
    };
    const auto binary = [&](const std::string& function) {
        return Call(function, {{"sql", all}, {"colname", "nope"}, {"filename", file}});
    };
    for (const auto& outcome :
         {Call("getdata", {{"sql", failing + rest}}), Call("executesql", {{"sql", failing + rest}}),
          Call("getdatatofile", {{"sql", failing + rest}, {"filename", file}}),
          Call("getdatatofile", {{"sql", all}, {"filename", noFile}}), exported("unknown"), exported("fail"),
          Call("getcomplexdata", {{"sql", all}, {"csql", "select nope from t"}}),
          Call("getcomplexdata", {{"sql", "select n from t"}, {"csql", failing + rest}}),
          binary("getbinarydata"), binary("setbinarydata"), binary("deletebinarydata"),
          Call("adddata", {{"sql", all}}, duplicate), Call("updatedata", {{"sql", all}}, duplicate),
          Call("updatedata", {{"sql", failing + rest}}, duplicate),
          Call("updatedataex", {{"sql", all}}, wrong), Call("deletedata", {{"sql", all}}),
          Call("updatedatacoladd", {{"sql", "select n from t where n = 3" + rest}, {"col", "n"}}, wrong)}) {
        EXPECT_NE(outcome.find(" Zorb"), std::string::npos) << outcome;
        EXPECT_TRUE(isKept()) << outcome;
    }
    exporter->kept.reset();
    EXPECT_TRUE(isKept());

    std::string xml =
        "<t><function name='public.executesql'><param name='sql'>insert into t values (5000)</param>"
        "</function><function name='public.getdata'><param name='sql'><![CDATA[" +
        failing + "; commit]]></param></function></t>";
    EXPECT_FALSE(engine.RunTransaction(xml, xml));
    EXPECT_EQ(Rows("select n from t where n = 5000"), "");
}

TEST_P(EveryDatabasesEngine, AFunctionThatReadsRefusesAStatementWithoutRows) {
    Run("create table t (n integer primary key)");
    Run("insert into t values (1)");
    const auto file = folder.PathOf("file");
    const std::vector<Item> items{{"n", "5"}};
    std::vector<std::string> refused{"delete from t", "insert into t values (2); select n from t",
                                     "create table u (n integer)", "drop table t"};
    if (Traits().source == "MariaDB") {
        Run("create procedure p() delete from t");
        Run("create procedure q() select n from t");
        refused.insert(refused.end(), {"call p()", "execute immediate 'delete from t'"});
        EXPECT_EQ(Call("getbinarydata", {{"sql", "call q()"}, {"colname", "x"}, {"filename", file}}),
                  "-1 ZorbDbAccessEngine:clsZorbTivCore:Specified field not found.");
    }
    for (const auto& sql : refused) {
        SCOPED_TRACE(sql);
        for (const char* function : {"getdata", "getdatatofile", "getbinarydata", "getcomplexdata", "adddata",
                                     "updatedata", "deletedata", "setbinarydata"}) {
            EXPECT_EQ(Call(function,
                           {{"sql", sql}, {"filename", file}, {"colname", "n"}, {"csql", "select 1"}}, items)
                          .substr(0, 11),
                      "-2146824584")
                << function;
        }
        EXPECT_NE(Call("getcomplexdata", {{"sql", "select 1 n"}, {"csql", sql}}), "");
        std::string xml =
            "<t><function name='public.getdata'><param name='sql' value=\"" + sql + "\"/></function></t>";
        EXPECT_FALSE(engine.RunTransaction(xml, xml));
        EXPECT_EQ(Rows("select n from t"), "1");
    }
    // Some drivers do not know that it returns rows.
    EXPECT_THAT(Call("updatedata", {{"sql", "delete from t returning n"}}, items),
                testing::AnyOf(testing::StartsWith("-2146825037"), testing::StartsWith("-2146824584")));
    EXPECT_EQ(Rows("select n from t"), "1");
    EXPECT_EQ(Query("insert into t values (7)")->State(), adStateClosed) << "the layer itself runs it";
    EXPECT_EQ(Rows("select n from t order by n"), "1|7");
}

TEST_P(EveryDatabasesEngine, ColumnsAreFoundInAnyLetterCase) {
    Run("create table t (id integer primary key, \"οδος\" varchar(9), \"GRÖẞE\" integer)");
    Run("insert into t values (1, 'a', 2)");
    EXPECT_EQ(Query("select * from t")->Fields().Item("ΟΔΟΣ")->Value().Text(), "a");
    EXPECT_EQ(Query("select 1 a, 2 \"A\"")->Fields().Item("A")->Value().Text(), "1") << "the first";
    EXPECT_EQ(Call("updatedatacoladd", {{"sql", "t"}, {"col", "größe"}}, {{"Größe", "3"}, {"ΟΔΟΣ", "b"}}),
              "1");
    ZorbFunctionCall call;
    call.FunctionName("public.getcomplexdata");
    call.FunctionGUID("K");
    call.AddParam("sql", "select * from t");
    call.AddParam("csql", "select '%x%' c");
    call.AddSubParam(call.AddDataParam("refcols"), "x", "ΟΔΟΣ");
    std::string xml;
    ASSERT_TRUE(call.Save(xml) && engine.RunFunction(xml, xml));
    EXPECT_EQ(Entries(xml).at(1), "K.1.1 data[c=text|c=b]");
    EXPECT_EQ(Rows("select \"GRÖẞE\" from t"), "5");
}

TEST_P(EveryDatabasesEngine, ABindMarkerThatNobodyBindsIsRefused) {
    Run("create table t (a integer)");
    Run("insert into t values (1)");
    const std::string marker = Traits().name == "PostgreSQL" ? "$1" : "?";
    for (const std::string sql : {"update t set a = ", "select a from t where a = "}) {
        EXPECT_THAT(test::ErrorOf([&] { Run(sql + marker); }).Description, testing::HasSubstr(marker)) << sql;
    }
    EXPECT_THAT(Call("getdata", {{"sql", "select a from t where a = " + marker}}),
                testing::HasSubstr(marker));
    EXPECT_THAT(Call("updatedata", {{"sql", "select * from t where a <> " + marker}}, {{"a", "2"}}),
                testing::HasSubstr(marker));
    EXPECT_EQ(Scalar("select a from t where '?' <> '$1'"), "1");
}

TEST_P(EveryDatabase, AStatementIsRightAfterTheSchemaHasChanged) {
    const auto other = Connect();
    Run("create table t (a integer)");
    Run("insert into t values (1)");
    EXPECT_EQ(Query("select * from t")->Fields().Count(), 1);
    Run("alter table t add column b varchar(9) default 'b'");
    EXPECT_EQ(Query("select * from t")->Fields().Item("b")->Value().Text(), "b");
    other->Execute("alter table t add column c varchar(9) default 'c'");
    EXPECT_EQ(Query("select * from t")->Fields().Count() == 3, Has(Can::SeeOthersDefinitions));
    EXPECT_EQ(Query("select * from t")->Fields().Item("c")->Value().Text(), "c");
    connection->BeginTrans();
    EXPECT_EQ(Query("select * from t")->Fields().Count(), 3);
    connection->CommitTrans();
    other->Execute("alter table t add column d varchar(9) default 'd'");
    connection->BeginTrans();
    EXPECT_EQ(Query("select * from t")->Fields().Count() == 4, Has(Can::SeeOthersDefinitions));
    EXPECT_EQ(Query("select * from t")->Fields().Item("d")->Value().Text(), "d");
    connection->CommitTrans();
    Run("drop table t");
    EXPECT_EQ(NumberOf([&] { Query("select * from t"); }), -2147217865);
    Run("create table t (c integer, d date)");
    EXPECT_EQ(Query("select * from t")->Fields().Item(1)->Type(), adDBDate);
    for (int i = 0; i < 200; ++i) EXPECT_EQ(Scalar("select " + std::to_string(i)), std::to_string(i));
}

TEST(DatabasesTest, TheTableOfWhatEachCanSaysWhatTheSuiteHasSeen) {
    const auto page = ReadFile(HALVTIV_DATABASES_PAGE);
    std::istringstream lines(page);
    std::string text;  // without the line ends
    for (std::string word; lines >> word;) text += word + " ";
    const auto rowOf = [&](const std::string& name) {
        std::vector<std::string> cells;
        const auto begin = page.find("\n| " + name + " |");
        if (begin == std::string::npos) return cells;
        const auto line = page.substr(begin + 1, page.find('\n', begin + 1) - begin - 1);
        for (std::size_t at = 2, end = 0; (end = line.find(" |", at)) != std::string::npos; at = end + 3) {
            cells.push_back(line.substr(at, end - at));
        }
        return cells;
    };
    const auto head = rowOf("It can");
    ASSERT_FALSE(head.empty());
    for (const auto* database : Databases()) {
        std::cout << *database;
        const auto column = std::find(head.begin(), head.end(), database->column) - head.begin();
        for (const auto& [can, name] : Capabilities()) {
            const auto row = rowOf(name);
            ASSERT_EQ(row.size(), head.size()) << name;
            EXPECT_EQ(row.at(static_cast<std::size_t>(column)), database->Has(can) ? "yes" : "no")
                << database->name << ": " << name;
            if (database->Has(can)) continue;
            EXPECT_NE(text.find(database->cannot.at(can)), std::string::npos) << database->cannot.at(can);
        }
    }
}

}  // namespace
}  // namespace halvtiv::test
