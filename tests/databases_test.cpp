// What holds on every database.

#include "databases.hpp"

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <halvtiv/ado.hpp>

#include "ado/recordset_state.hpp"
#include "support.hpp"

namespace halvtiv::ado {
namespace {

using test::ErrorOf;
using test::EveryDatabase;

std::int32_t NumberOf(const std::function<void()>& action) {
    return ErrorOf(action).Number;
}

constexpr std::int32_t kViolation = -2147217873;
constexpr std::int32_t kRowChanged = -2147217864;
constexpr std::int32_t kNotSupported = -2146825037;

INSTANTIATE_TEST_SUITE_P(Databases, EveryDatabase, testing::Values(&test::Sqlite(), &test::Postgresql()),
                         test::DatabaseName);

TEST_P(EveryDatabase, ValuesAtTheirLimitsComeBack) {
    const auto& t = Traits();
    Run("create table t (id " + t.key + ", n " + t.bigInteger + ", d " + t.decimal +
        ", f double precision, x " + t.text + ", m " + t.timestamp + ", day date, g " + t.guid + ", b " +
        t.boolean + ")");
    const std::string longText = "x" + std::string(999'998, 'y') + "z";
    std::string odd = "a\tb\r\nc'\"\\&<>%$1 ";
    odd += "\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80\xF0\xA0\x80\x80";
    const std::vector<std::pair<std::string, std::string>> values{
        {"n", "2147483646"},
        {"n", "2147483647"},
        {"n", "2147483648"},
        {"n", "-2147483649"},
        {"n", "9223372036854775807"},
        {"n", "-9223372036854775808"},
        {"n", "0"},
        {"d", t.largestDecimal},
        {"d", "-0.5"},
        {"f", "1e+300"},
        {"f", "100000"},
        {"f", "0.1"},
        {"f", "-1e-300"},
        {"x", ""},
        {"x", std::string(8000, 'k')},
        {"x", longText},
        {"x", odd},
        {"m", "0001-01-01 00:00:00"},
        {"m", "9999-12-31 23:59:59"},
        {"m", "2024-02-29 12:30:15.25"},
        {"day", "0001-01-01"},
        {"day", "9999-12-31"},
        {"g", "{6F9619FF-8B86-D011-B42D-00C04FC964FF}"},
        {"b", "True"},
        {"b", "False"}};
    const auto rows = Change("t");
    for (const auto& [column, text] : values) {
        rows->AddNew();
        rows->Fields().Item(column)->Value(Variant(text));
        rows->Update();
    }
    rows->AddNew();
    rows->Update();
    rows->Close();

    const auto read = Query("select * from t order by id");
    for (const auto& [column, text] : values) {
        SCOPED_TRACE(column + " " + text.substr(0, 40));
        ASSERT_FALSE(read->IsEOF());
        const auto field = read->Fields().Item(column);
        EXPECT_FALSE(field->Value().IsNull());
        EXPECT_TRUE(field->Value().Text() == text) << field->Value().Text().substr(0, 60);
        EXPECT_EQ(field->ActualSize(), static_cast<std::int64_t>(text.size()));
        read->MoveNext();
    }
    for (std::int32_t i = 1; i < read->Fields().Count(); ++i) {
        EXPECT_TRUE(read->Fields().Item(i)->Value().IsNull());
        EXPECT_EQ(read->Fields().Item(i)->ActualSize(), 0);
    }
}

TEST_P(EveryDatabase, BytesOfEveryLengthComeBack) {
    Run("create table t (id integer primary key, b " + Traits().bytes + ")");
    const auto bytesOf = [](std::int64_t length) {
        Bytes bytes(static_cast<std::size_t>(length));
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
        return bytes;
    };
    std::vector<std::int64_t> lengths{0, 1, 2, 8192, 70'000, 5'000'000};
    for (std::int64_t length = 4090; length <= 4102; ++length) lengths.push_back(length);
    const auto rows = Change("t");
    connection->BeginTrans();
    for (std::size_t i = 0; i < lengths.size(); ++i) {
        rows->AddNew();
        rows->Fields().Item("id")->Value(Variant(i));
        const auto bytes = bytesOf(lengths[i]);
        if (i % 2 == 0) {
            rows->Fields().Item("b")->Value(Variant(bytes));
        } else {
            for (std::size_t at = 0; at < bytes.size(); at += 4096) {
                const auto end =
                    bytes.begin() + static_cast<std::ptrdiff_t>(std::min(at + 4096, bytes.size()));
                rows->Fields().Item("b")->AppendChunk(
                    Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(at), end));
            }
        }
        rows->Update();
    }
    connection->CommitTrans();
    rows->Close();
    Run("insert into t values (1000, null)");

    // Forward, and again from the rows kept; in pieces and whole.
    const auto read = Query("select b, id from t order by id", adOpenDynamic);
    for (int round = 0; round < 2; ++round) {
        for (const auto length : lengths) {
            SCOPED_TRACE(length);
            const auto field = read->Fields().Item("b");
            EXPECT_EQ(field->ActualSize(), length);
            Bytes whole;
            for (Bytes piece; !(piece = field->GetChunk(4096)).empty();) {
                whole.insert(whole.end(), piece.begin(), piece.end());
            }
            EXPECT_TRUE(whole == bytesOf(length));
            EXPECT_TRUE(field->Value() == Variant(bytesOf(length)));
            read->MoveNext();
        }
        EXPECT_TRUE(read->Fields().Item("b")->Value().IsNull());
        EXPECT_EQ(read->Fields().Item("b")->ActualSize(), 0);
        read->MoveFirst();
    }
}

TEST_P(EveryDatabase, ABatchRunsEachStatementOnceAndInOrder) {
    Run("create table t (n integer unique)");
    std::int32_t affected = 0;
    auto rows = connection->Execute(
        "insert into t values (1), (2); -- a comment; \n;; select n from t order by n; "
        "insert into t values (3); select ';' || count(*) from t /* end; */",
        &affected);
    EXPECT_EQ(rows->State(), adStateClosed);
    EXPECT_EQ(affected, 2);
    EXPECT_EQ(List("select n from t order by n"), "1,2");
    rows = rows->NextRecordset();
    EXPECT_EQ(rows->State(), adStateOpen);
    rows = rows->NextRecordset();
    EXPECT_EQ(rows->State(), adStateClosed);
    rows = rows->NextRecordset();
    EXPECT_EQ(rows->Fields().Item(0)->Value().Text(), ";3");
    EXPECT_EQ(rows->NextRecordset(), nullptr);
    EXPECT_EQ(connection->Execute(" -- nothing\n")->State(), adStateClosed);
    EXPECT_EQ(NumberOf([&] { connection->Execute(std::string_view("select 1\0", 9)); }), -2147217900);

    connection->Execute("select 1; insert into t values (4)")->Close();
    connection->Execute("select 1; insert into t values (5)").reset();
    EXPECT_EQ(List("select n from t order by n"), "1,2,3,4,5");

    // The statements before the one that fails stay done; it and those behind it are not.
    rows = connection->Execute(
        "select 1; insert into t values (6); insert into t values (6); insert into t values (7)");
    const auto error = ErrorOf([&] { rows->Close(); });
    EXPECT_EQ(error.Number, kViolation);
    EXPECT_EQ(error.Source, Traits().name);
    EXPECT_EQ(List("select n from t where n > 5"), "6");
}

TEST_P(EveryDatabase, SeveralRecordsetsAreOpenAtOnce) {
    const auto sql = "select n from " + Numbers(5000);
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
    EXPECT_EQ(third->Fields().Item(0)->Value().Text(), "1");
    EXPECT_EQ(NumberOf([&] { first->MoveFirst(); }), kNotSupported);
    second->MoveFirst();
    EXPECT_EQ(second->Fields().Item(0)->Value().Text(), "1");
    EXPECT_EQ(NumberOf([&] { second->Fields().Item(1); }), -2146825023);
}

TEST_P(EveryDatabase, RowsAreChangedWhileTheyAreRead) {
    Run("create table t (id " + Traits().key + ", n integer, name varchar(20), b " + Traits().bytes + ")");
    Run("insert into t (n, name) select n, 'old' from " + Numbers(50));
    const auto rows = Change("select n, name from t order by id");
    EXPECT_EQ(rows->Fields().Count(), 2);
    for (; !rows->IsEOF(); rows->MoveNext()) {
        const auto n = *rows->Fields().Item("n")->Value().AsInteger();
        if (n % 2 == 0) {
            rows->Delete();
        } else {
            rows->Fields().Item("n")->Value(Variant(n + 1000));
            rows->Fields().Item("name")->Value(n == 1 ? Variant() : Variant("new"));
            rows->Update();
        }
    }
    rows->Close();
    EXPECT_EQ(Scalar("select count(*) from t where n > 1000"), "25");
    EXPECT_EQ(List("select n from t where name is null or n < 1000"), "1001");

    // A row that was added can be changed without being looked for: its key is known.
    const auto added = Change("t");
    added->AddNew();
    added->Fields().Item("name")->Value(Variant("added"));
    added->Update();
    added->Fields().Item("name")->Value(Variant("changed"));
    added->Update();
    added->Delete();
    added->Close();
    EXPECT_EQ(Scalar("select count(*) from t where n is null"), "0");
}

TEST_P(EveryDatabase, AChangeSaysWhatIsWrong) {
    Run("create table t (id integer primary key, n integer not null, s varchar(10))");
    Run("insert into t values (1, 10, 'a'), (2, 20, 'b')");
    const auto rows = Change("select * from t order by id");
    rows->AddNew();
    rows->Fields().Item("id")->Value(Variant(1));
    rows->Fields().Item("n")->Value(Variant(5));
    const auto error = ErrorOf([&] { rows->Update(); });
    EXPECT_EQ(error.Number, kViolation);
    EXPECT_EQ(error.Description.find("UNIQUE") != std::string::npos, Traits().saysUnique);
    rows->Fields().Item("id")->Value(Variant(3));
    rows->Update();
    EXPECT_EQ(NumberOf([&] { rows->Fields().Item("n")->Value(Variant("many")); }), -2146824867);
    rows->Close();

    // Somebody else was faster.
    const auto late = Change("select * from t where id = 1");
    EXPECT_EQ(late->Fields().Item("n")->Value().Text(), "10");

    Run("update t set n = 11 where id = 1");
    late->Fields().Item("n")->Value(Variant(12));
    EXPECT_EQ(NumberOf([&] { late->Update(); }), kRowChanged);
    Run("delete from t where id = 1");
    EXPECT_EQ(NumberOf([&] { late->Update(); }), kRowChanged);
    late->Close();
    EXPECT_EQ(List("select id from t order by id"), "2,3");

    Run("create view v as select * from t");
    for (const char* sql : {"select distinct n from t", "select count(*) n from t", "select n from v",
                            "select n from t union select 1", "select n from t group by n"}) {
        SCOPED_TRACE(sql);
        const auto fixed = Change(sql);
        EXPECT_EQ(NumberOf([&] { fixed->AddNew(); }), kNotSupported);
        EXPECT_FALSE(fixed->IsEOF());
        EXPECT_EQ(NumberOf([&] { fixed->Delete(); }), kNotSupported);
    }
    const auto joined = Change("select a.id, a.n, b.s from t a join t b on b.id = a.id");
    EXPECT_EQ(NumberOf([&] { joined->Fields().Item("n")->Value(Variant(1)); }), kNotSupported);
}

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
    const auto unread = Query("select n from " + Numbers(3000));
    connection->CommitTrans();
    EXPECT_EQ(List("select n from t order by n"), "1,3");
    EXPECT_EQ(unread->Fields().Item(0)->Value().Text(), "1");
    EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }), -2147168242);

    Run("begin");
    EXPECT_EQ(connection->BeginTrans(), 1);
    Run("insert into t values (5)");
    connection->RollbackTrans();
    Run("commit");
    connection->BeginTrans();
    Run("insert into t values (6)");
    connection->Close();
    connection = Connect();
    EXPECT_EQ(List("select n from t order by n"), "1,3");
}

TEST_P(EveryDatabase, AFailureLeavesTheTransactionToTheCaller) {
    Run("create table t (id integer primary key)");
    connection->BeginTrans();
    const auto rows = Change("t");
    rows->AddNew();
    rows->Fields().Item("id")->Value(Variant(1));
    rows->Update();
    rows->AddNew();
    rows->Fields().Item("id")->Value(Variant(1));
    EXPECT_EQ(NumberOf([&] { rows->Update(); }), kViolation);
    rows->Fields().Item("id")->Value(Variant(2));
    rows->Update();
    EXPECT_EQ(List("select id from t order by id"), "1,2");
    connection->BeginTrans();
    EXPECT_EQ(NumberOf([&] { Run("insert into t values (1)"); }), kViolation);
    EXPECT_EQ(NumberOf([&] { Run("select 1"); }) != 0, Traits().failureSpoilsTransaction);
    connection->RollbackTrans();
    Run("insert into t values (3)");
    connection->CommitTrans();
    EXPECT_EQ(List("select id from t order by id"), "1,2,3");
}

TEST_P(EveryDatabase, AFailedCommitLeavesNoTransaction) {
    Run("create table p (id integer primary key)");
    Run("create table c (id integer references p deferrable initially deferred)");
    connection->BeginTrans();
    Run("insert into c values (7)");
    EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }), kViolation);
    EXPECT_EQ(connection->BeginTrans(), 1);
    connection->RollbackTrans();
    EXPECT_EQ(Scalar("select count(*) from c"), "0");
    connection->BeginTrans();
    Run("insert into p values (1)");
    EXPECT_NE(NumberOf([&] { Run("select * from nowhere"); }), 0);
    EXPECT_EQ(NumberOf([&] { connection->CommitTrans(); }) != 0, Traits().failureSpoilsTransaction);
    EXPECT_EQ(Scalar("select count(*) from p") == "0", Traits().failureSpoilsTransaction);
}

TEST_P(EveryDatabase, ACountThatFailsLeavesTheTransactionUsable) {
    ZorbDbAccessEngine engine;
    ASSERT_TRUE(engine.SetDatabaseConnectionString(ConnectionString())) << engine.GetLastError();
    Run("create table t (n integer)");
    std::string result;
    engine.GetDatabaseConnection()->BeginTrans();
    engine.GetDatabaseConnection()->Execute("insert into t values (1)");
    EXPECT_TRUE(engine.RunFunction(
        test::Request("public.getdata",
                      {{"sql", "select n from t"}, {"csql", "select count(*) from nowhere"}}),
        result));
    EXPECT_NE(result.find("<col name=\"n\" value=\"1\"/>"), std::string::npos) << result;
    engine.GetDatabaseConnection()->CommitTrans();
    EXPECT_EQ(List("select n from t"), "1");
}

TEST_P(EveryDatabase, ErrorsHaveTheirNumbers) {
    EXPECT_EQ(NumberOf([&] { Query("select * from nowhere"); }), -2147217865);
    const auto error = ErrorOf([&] { Query("selec 1"); });
    EXPECT_EQ(error.Number, -2147217900);
    EXPECT_EQ(error.Source, Traits().name);
    EXPECT_NE(error.Description.find("syntax error"), std::string::npos);
    EXPECT_EQ(Scalar("select 1"), "1");

    const auto rows = Query("select 1");
    connection->Close();
    EXPECT_EQ(rows->State(), adStateClosed);
    EXPECT_EQ(NumberOf([&] { rows->MoveNext(); }), -2146824579);
    EXPECT_EQ(NumberOf([&] { connection->Execute("select 1"); }), -2146824584);
}

TEST_P(EveryDatabase, ACommandEndsAtItsTimeOutAndWhenItIsCancelled) {
    const auto start = std::chrono::steady_clock::now();
    connection->CommandTimeout(1);
    const auto error = ErrorOf([&] { Query(Traits().endless); });
    EXPECT_EQ(error.Number, -2147217871);
    EXPECT_EQ(error.Description, "Query timeout expired.");
    EXPECT_EQ(Scalar("select 1"), "1");

    ZorbDbAccessEngine engine;
    ASSERT_TRUE(engine.SetDatabaseConnectionString(ConnectionString()));
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        engine.Cancel();
    });
    std::string result;
    engine.RunFunction(test::Request("public.getdata", {{"sql", Traits().endless}}), result);
    other.join();
    EXPECT_NE(result.find("-2147217842"), std::string::npos) << result;
    EXPECT_TRUE(engine.RunFunction(test::Request("public.getdata", {{"sql", "select 1 as n"}}), result));
    EXPECT_EQ(test::Entries(result).at(0).substr(0, 7), "K data[");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_P(EveryDatabase, AStatementIsRightAfterTheSchemaHasChanged) {
    const auto other = Connect();
    Run("create table t (a integer)");
    Run("insert into t values (1)");
    EXPECT_EQ(Query("select * from t")->Fields().Count(), 1);
    for (const auto& who : {connection, other}) {
        const std::string name = who == connection ? "b" : "c";
        who->Execute("alter table t add column " + name + " varchar(9) default '" + name + "'");
        EXPECT_EQ(Query("select * from t")->Fields().Item(name)->Value().Text(), name);
    }
    connection->BeginTrans();
    EXPECT_EQ(Query("select * from t")->Fields().Count(), 3);
    connection->CommitTrans();
    other->Execute("alter table t add column d varchar(9) default 'd'");
    connection->BeginTrans();
    EXPECT_EQ(Query("select * from t")->Fields().Item("d")->Value().Text(), "d");
    EXPECT_EQ(Query("select * from t")->Fields().Item("d")->Value().Text(), "d");
    connection->CommitTrans();
    for (int i = 0; i < 200; ++i) EXPECT_EQ(Scalar("select " + std::to_string(i)), std::to_string(i));
}

}  // namespace
}  // namespace halvtiv::ado
