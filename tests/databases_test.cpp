// What holds on every database: reading, batches, errors, and what each of them can.

#include <gmock/gmock.h>
#include <algorithm>
#include <chrono>
#include <iostream>
#include <sstream>
#include <thread>

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

    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        engine.Cancel();
    });
    EXPECT_EQ(Call("getdata", {{"sql", Traits().endless}}).substr(0, 11), "-2147217842");
    other.join();
    EXPECT_EQ(Call("executesql", {{"sql", "create table t (n integer)"}}), "1");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_P(EveryDatabase, ABindMarkerThatNobodyBindsIsRefused) {
    Run("create table t (a integer)");
    Run("insert into t values (1)");
    const std::string marker = Traits().name == "PostgreSQL" ? "$1" : "?";
    for (const std::string sql : {"update t set a = ", "select a from t where a = "}) {
        EXPECT_THAT(test::ErrorOf([&] { Run(sql + marker); }).Description, testing::HasSubstr(marker)) << sql;
    }
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
