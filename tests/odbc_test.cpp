#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <halvtiv/halvtiv.hpp>

#include "ado/connection_impl.hpp"
#include "ado/connection_parameters.hpp"
#include "ado/odbc/odbc_script.hpp"
#include "ado/odbc/odbc_text.hpp"
#include "support.hpp"
#include "test_databases.hpp"

namespace halvtiv::ado {
namespace {

using test::ErrorOf;

struct Database {
    const char* name;
    std::string (*connectionString)(const std::string& folder);
    std::map<std::string, std::string> words;  // what it calls a thing
    const char* sleep;                         // a query that takes ten seconds; null where there is none
};

void PrintTo(const Database& database, std::ostream* out) {
    *out << database.name;
}

const std::vector<Database> kDatabases{
    {"Sqlite",
     [](const std::string& folder) { return test::SqliteOdbcConnectionString(folder + "/data.db"); },
     {{"key", "integer primary key"}, {"clob", "text"}, {"blob", "blob"}, {"double", "real"}},
     nullptr},
    {"MariaDb",
     [](const std::string&) { return test::MariaDbConnectionString(); },
     {{"key", "bigint auto_increment primary key"},
      {"clob", "longtext"},
      {"blob", "longblob"},
      {"double", "double"}},
     "select sleep(10)"},
    {"PostgreSqlOdbc",
     [](const std::string&) { return test::PostgreSqlOdbcConnectionString(); },
     {{"key", "bigserial primary key"}, {"clob", "text"}, {"blob", "bytea"}, {"double", "double precision"}},
     "select pg_sleep(10)"}};

class OdbcTest : public testing::TestWithParam<Database> {
protected:
    void SetUp() override {
        if (ConnectionString().empty()) GTEST_SKIP() << "no connection string for " << GetParam().name;
        const auto error = ErrorOf([&] { connection_ = Open(); });
        if (error.Number == -2146824582) GTEST_SKIP() << "no driver for " << GetParam().name;
        ASSERT_EQ(error.Number, 0) << error.Description;
    }

    std::string ConnectionString() const { return GetParam().connectionString(folder_.PathOf("")); }
    ConnectionPtr Open(std::shared_ptr<CancelSwitch> cancel = std::make_shared<CancelSwitch>()) const {
        auto connection = std::make_shared<Connection>();
        ConnectionInside::UseCancelSwitch(*connection, std::move(cancel));
        connection->Open(ConnectionString());
        return connection;
    }
    std::string Word(const std::string& word) const { return GetParam().words.at(word); }
    void MakeTable() const {
        Run("drop table if exists t");
        Run("create table t (id " + Word("key") + ", name varchar(50), amount numeric(20,4), memo " +
            Word("clob") + ", size integer, data " + Word("blob") + ", ratio " + Word("double") +
            ", label varchar(20) unique)");
    }
    void Run(const std::string& sql) const {
        for (auto result = connection_->Execute(sql); result; result = result->NextRecordset()) continue;
    }
    RecordsetPtr Query(const std::string& sql, std::int32_t lockType = adLockReadOnly) const {
        auto recordset = std::make_shared<Recordset>();
        recordset->Open(sql, connection_, lockType == adLockReadOnly ? adOpenForwardOnly : adOpenDynamic,
                        lockType);
        return recordset;
    }
    static Variant Value(const RecordsetPtr& rows, std::string_view name) {
        return rows->Fields().Item(name)->Value();
    }
    // The first column of all rows.
    std::vector<std::string> Column(const std::string& sql) const {
        std::vector<std::string> texts;
        for (const auto rows = Query(sql); !rows->IsEOF(); rows->MoveNext()) {
            texts.push_back(rows->Fields().Item(0)->Value().Text());
        }
        return texts;
    }
    std::int32_t NumberOf(const std::string& sql) const {
        return ErrorOf([&] { Run(sql); }).Number;
    }

    test::TemporaryFolder folder_;
    ConnectionPtr connection_;
};

INSTANTIATE_TEST_SUITE_P(Databases, OdbcTest, testing::ValuesIn(kDatabases),
                         [](const auto& instance) { return std::string(instance.param.name); });

// Characters of one to four bytes, so that every piece ends within one now and then.
std::string TextOf(std::size_t size) {
    std::string text;
    while (text.size() + 4 <= size) text += text.size() % 3 == 0 ? "\U0001F600" : "a\u4E2D";
    return text + std::string(size - text.size(), 'z');
}

Bytes BytesOf(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 31 + i / 251);
    return bytes;
}

TEST_P(OdbcTest, ValuesHaveTheirFixedText) {
    struct Case {
        std::string declared, literal, text;
    };
    std::vector<Case> cases{{"integer", "2147483647", "2147483647"},
                            {"integer", "-2147483648", "-2147483648"},
                            {"bigint", "2147483648", "2147483648"},
                            {"bigint", "9223372036854775807", "9223372036854775807"},
                            {"bigint", "-9223372036854775808", "-9223372036854775808"},
                            {"smallint", "-1", "-1"},
                            {Word("double"), "0.1", "0.1"},
                            {Word("double"), "1e300", "1e+300"},
                            {"varchar(20)", "''", ""},
                            {"varchar(20)", "'\u4E2D;''\U0001F600'", "\u4E2D;'\U0001F600"},
                            {Word("clob"), "''", ""},
                            {"date", "'9999-12-31'", "9999-12-31"},
                            {"time", "'23:59:59'", "23:59:59"}};
    if (std::string(GetParam().name) != "Sqlite") {
        cases.push_back({"numeric(38,10)", "'-9999999999999999999999999999.0000000001'",
                         "-9999999999999999999999999999.0000000001"});
        cases.push_back({"numeric(5,2)", "0.5", "0.50"});
        cases.push_back({"real", "0.1", "0.1"});
    }
    if (std::string(GetParam().name) == "MariaDb") {
        cases.push_back({"bigint unsigned", "18446744073709551615", "18446744073709551615"});
        cases.push_back({"int unsigned", "4294967295", "4294967295"});
        cases.push_back({"bit(1)", "1", "True"});
        cases.push_back({"datetime", "'1000-01-01 00:00:00'", "1000-01-01 00:00:00"});
        cases.push_back({"datetime(6)", "'2024-02-29 23:59:59.999999'", "2024-02-29 23:59:59.999999"});
        cases.push_back({"datetime(6)", "'2024-02-29 23:59:59.5'", "2024-02-29 23:59:59.5"});
        cases.push_back({"time(3)", "'-838:59:59'", "-838:59:59.000"});
        cases.push_back({"text", "'it\\'s; \\\\'", "it's; \\"});
        cases.push_back({"binary(2)", "x'4100'", std::string("A\0", 2)});
    }
    std::string columns;
    std::string values;
    std::string nulls;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string comma = i == 0 ? "" : ", ";
        columns += comma + "c" + std::to_string(i) + " " + cases[i].declared;
        values += comma + cases[i].literal;
        nulls += comma + "null";
    }
    Run("drop table if exists v");
    Run("create table v (" + columns + ")");
    Run("insert into v values (" + values + ")");
    Run("insert into v values (" + nulls + ")");
    const auto rows = Query("select * from v");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto field = rows->Fields().Item(static_cast<std::int32_t>(i));
        EXPECT_EQ(field->Value().Text(), cases[i].text) << cases[i].declared;
        EXPECT_EQ(field->ActualSize(), static_cast<std::int64_t>(cases[i].text.size())) << cases[i].declared;
    }
    rows->MoveNext();
    for (std::int32_t i = 0; i < rows->Fields().Count(); ++i) {
        EXPECT_TRUE(rows->Fields().Item(i)->Value().IsNull()) << cases[static_cast<std::size_t>(i)].declared;
        EXPECT_EQ(rows->Fields().Item(i)->ActualSize(), 0);
    }
}

TEST_P(OdbcTest, LongValuesComeBackWholeInWhateverOrderTheyAreRead) {
    MakeTable();
    const std::vector<std::size_t> sizes{0,    1,    4095, 4096,  4097,  4098,  8000,
                                         8191, 8192, 8193, 65535, 65536, 65537, 1'000'000};
    {
        const auto rows = Query("t", adLockOptimistic);
        for (const auto size : sizes) {
            rows->AddNew();
            rows->Fields().Item("name")->Value(Variant(TextOf(size % 50)));
            rows->Fields().Item("size")->Value(Variant(size));
            rows->Fields().Item("memo")->Value(Variant(TextOf(size)));
            // In pieces, as files are copied; an empty value has none.
            const auto bytes = BytesOf(size);
            if (bytes.empty()) rows->Fields().Item("data")->Value(Variant(bytes));
            for (std::size_t at = 0; at < size; at += 4096) {
                const auto end = std::min(at + 4096, size);
                rows->Fields().Item("data")->AppendChunk(
                    Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                          bytes.begin() + static_cast<std::ptrdiff_t>(end)));
            }
            rows->Update();
        }
    }
    const auto rows = Query("select memo, size, data, name, data as again from t order by size");
    for (const auto size : sizes) {
        ASSERT_FALSE(rows->IsEOF());
        EXPECT_EQ(Value(rows, "name"), Variant(TextOf(size % 50)));
        EXPECT_EQ(rows->Fields().Item("data")->ActualSize(), static_cast<std::int64_t>(size));
        EXPECT_TRUE(Value(rows, "data").Text() == Variant(BytesOf(size)).Text()) << size;
        EXPECT_TRUE(Value(rows, "memo").Text() == TextOf(size)) << size;
        EXPECT_EQ(rows->Fields().Item("again")->GetChunk(10).size(), std::min<std::size_t>(size, 10));
        EXPECT_EQ(Value(rows, "size").Text(), std::to_string(size));
        rows->MoveNext();
    }
    EXPECT_TRUE(rows->IsEOF());
}

TEST_P(OdbcTest, RowsComeInOrderThroughManyBlocksWhileOthersAreOpen) {
    MakeTable();
    connection_->BeginTrans();
    for (int i = 1; i <= 250; ++i) {
        const auto number = std::to_string(i);
        Run("insert into t (id, name, memo) values (" + number + ", 'n" + number + "', 'm" + number + "')");
    }
    connection_->CommitTrans();
    const auto first = Query("select id, name from t order by id");
    const auto second = Query("select id, memo from t order by id desc");
    for (int i = 1; i <= 250; ++i) {
        const auto number = std::to_string(i);
        const auto other = std::to_string(251 - i);
        ASSERT_EQ(Value(first, "name").Text(), "n" + number);
        ASSERT_EQ(Value(second, "memo").Text(), "m" + other);
        // What runs in between takes neither away.
        if (i % 100 == 0) {
            EXPECT_EQ(Column("select count(*) from t"), std::vector<std::string>{"250"});
        }
        first->MoveNext();
        second->MoveNext();
    }
    EXPECT_TRUE(first->IsEOF());
    EXPECT_TRUE(second->IsEOF());
}

TEST_P(OdbcTest, ABatchRunsEachStatementOnceAndInOrder) {
    MakeTable();
    std::int32_t affected = 0;
    auto result = connection_->Execute(
        "insert into t (id, name) values (1, 'a;b'), (2, 'c'); select count(*) from t; ; "
        "insert into t (id) values (3); select max(id) from t",
        &affected);
    std::vector<std::string> seen;
    for (; result; result = result->NextRecordset()) {
        seen.push_back(result->State() == adStateClosed ? "-" : result->Fields().Item(0)->Value().Text());
    }
    EXPECT_EQ(affected, 2);
    EXPECT_EQ(seen, (std::vector<std::string>{"-", "2", "-", "3"}));
    // What nobody reads runs at the end, up to the first that fails.
    result = connection_->Execute("select 1; delete from t where id = 3; insert into nope values (1)");
    EXPECT_EQ(ErrorOf([&] { result->Close(); }).Number, -2147217865);
    EXPECT_EQ(Column("select id from t order by id"), (std::vector<std::string>{"1", "2"}));
}

TEST_P(OdbcTest, RowsChangeByTheirKeyThoughTheQueryDoesNotShowIt) {
    MakeTable();
    Run("insert into t (id, name, amount, label) values (1, 'same', 1.5, 'x'), (2, 'same', 1.5, 'y')");
    {
        const auto rows = Query("select name, amount from t where label = 'y'", adLockOptimistic);
        EXPECT_EQ(rows->Fields().Count(), 2);
        rows->Fields().Item("name")->Value(Variant("\u4E2D\U0001F600"));
        rows->Fields().Item("amount")->Value(Variant("2.25"));
        rows->Update();
        rows->Fields().Item("name")->Value(Variant("\u4E2D\U0001F600"));  // found, though nothing changes
        rows->Update();
    }
    EXPECT_EQ(Column("select name from t order by id"),
              (std::vector<std::string>{"same", "\u4E2D\U0001F600"}));
    {
        const auto rows = Query("select name from t order by id", adLockOptimistic);
        EXPECT_EQ(Value(rows, "name").Text(), "same");
        Run("update t set name = 'other' where id = 1");
        rows->Fields().Item("name")->Value(Variant("mine"));
        EXPECT_EQ(ErrorOf([&] { rows->Update(); }).Number, -2147217864);
    }
    const auto rows = Query("select * from t where id = 2", adLockOptimistic);
    rows->Fields().Item("label")->Value(Variant("x"));
    EXPECT_EQ(ErrorOf([&] { rows->Update(); }).Number, -2147217873);
    const auto gone = Query("select * from t where id = 2", adLockOptimistic);
    EXPECT_FALSE(gone->IsEOF());
    Run("delete from t where id = 2");
    EXPECT_EQ(ErrorOf([&] { gone->Delete(); }).Number, -2147217864);
    const auto sum = Query("select count(*) as c from t", adLockOptimistic);
    EXPECT_EQ(ErrorOf([&] { sum->Delete(); }).Number, -2146825037);
}

TEST_P(OdbcTest, TransactionsNestAndOpenRowsOutliveThem) {
    MakeTable();
    EXPECT_EQ(connection_->BeginTrans(), 1);
    Run("insert into t (id) values (1), (2)");
    EXPECT_EQ(connection_->BeginTrans(), 2);
    Run("insert into t (id) values (3)");
    connection_->RollbackTrans();
    EXPECT_EQ(connection_->BeginTrans(), 2);
    Run("insert into t (id) values (4)");
    connection_->CommitTrans();
    const auto rows = Query("select id from t order by id");
    connection_->CommitTrans();
    EXPECT_EQ(Value(rows, "id").Text(), "1");
    rows->MoveNext();
    EXPECT_EQ(Value(rows, "id").Text(), "2");
    connection_->BeginTrans();
    Run("delete from t");
    connection_->RollbackTrans();
    EXPECT_EQ(Column("select id from t order by id"), (std::vector<std::string>{"1", "2", "4"}));
    EXPECT_EQ(ErrorOf([&] { connection_->CommitTrans(); }).Number, -2147168242);
}

TEST_P(OdbcTest, ErrorsHaveTheirNumbersAndTheDatabasesWords) {
    MakeTable();
    Run("insert into t (id, label) values (1, 'x')");
    EXPECT_EQ(NumberOf("select * from nope"), -2147217865);
    EXPECT_EQ(NumberOf("selec 1"), -2147217900);
    EXPECT_EQ(NumberOf("select nope from t"), -2147217900);
    EXPECT_EQ(NumberOf("insert into t (label) values ('x')"), -2147217873);
    const auto error = ErrorOf([&] { Run("select * from nope"); });
    EXPECT_NE(error.Description.find("nope"), std::string::npos) << error.Description;
    EXPECT_NE(error.Description.find("SQLSTATE"), std::string::npos) << error.Description;
    // The connection goes on, and ends with everything on it.
    const auto rows = Query("select id from t");
    EXPECT_EQ(Value(rows, "id").Text(), "1");
    connection_->Close();
    EXPECT_EQ(ErrorOf([&] { rows->MoveNext(); }).Number, -2146824579);
}

TEST_P(OdbcTest, AnotherThreadCancelsAndTheTimeRunsOut) {
    if (!GetParam().sleep) GTEST_SKIP() << "no statement that waits";
    const auto cancel = std::make_shared<CancelSwitch>();
    connection_ = Open(cancel);
    const auto begin = std::chrono::steady_clock::now();
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        cancel->Throw();
    });
    EXPECT_EQ(NumberOf(GetParam().sleep), -2147217842);
    other.join();
    connection_->CommandTimeout(1);
    EXPECT_EQ(NumberOf(GetParam().sleep), -2147217871);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(Column("select 7"), std::vector<std::string>{"7"});
}

class MariaDbTest : public OdbcTest {};
INSTANTIATE_TEST_SUITE_P(Database, MariaDbTest, testing::Values(kDatabases[1]),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(MariaDbTest, ADroppedConnectionIsClosed) {
    const auto other = Open();
    const auto id = Column("select connection_id()").at(0);
    other->Execute("kill " + id);
    EXPECT_EQ(NumberOf("select 1"), -2147467259);
    EXPECT_EQ(connection_->State(), adStateClosed);
}

TEST_P(MariaDbTest, AProceduresResultsAreThoseOfItsBatch) {
    Run("drop procedure if exists two; create procedure two() begin declare i int default 1; "
        "if i = 1 then select case i when 1 then 'one' end; end if; select 2; end; select 'behind'");
    auto result = connection_->Execute("call two(); select 3");
    EXPECT_EQ(Column("select 5"), std::vector<std::string>{"5"});  // while it has more to give
    std::vector<std::string> seen;
    for (; result; result = result->NextRecordset()) {
        if (result->State() == adStateOpen) seen.push_back(result->Fields().Item(0)->Value().Text());
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"one", "2", "3"}));
}

TEST_P(MariaDbTest, TheNextHostIsTriedAndNoMessageShowsThePassword) {
    auto connection = std::make_shared<Connection>();
    const auto refused = ErrorOf(
        [&] { connection->Open("Provider=MariaDB;Data Source=127.0.0.1:1;User ID=u;Password=\"hid;den\""); });
    EXPECT_EQ(refused.Number, -2147467259);
    EXPECT_EQ(refused.Description.find("hid"), std::string::npos) << refused.Description;
    const ConnectionParameters parameters(ConnectionString());
    const std::string socket(parameters.Get("Data Source"));
    const auto login = ErrorOf([&] {
        connection->Open("Provider=MySQL;Data Source=" + socket + ";User ID=nobody;Password=hidden");
    });
    EXPECT_EQ(login.Number, -2147217843) << login.Description;
    EXPECT_EQ(login.Description.find("hidden"), std::string::npos) << login.Description;
}

TEST(Odbc, AMissingDriverIsAMissingProvider) {
    for (const auto* text : {"Driver=No Such Driver;Database=x", "Provider=MSDASQL;DSN=no such source"}) {
        Connection connection;
        EXPECT_EQ(ErrorOf([&] { connection.Open(text); }).Number, -2146824582) << text;
    }
}

TEST(Odbc, AccessFilesAreRead) {
    const std::string packed = "/usr/share/doc/fp-units-db/3.2.2/examples/odbc/testodbc.mdb.gz";
    if (!std::filesystem::exists(packed)) GTEST_SKIP() << "no Access file on this machine";
    const test::TemporaryFolder folder;
    const auto path = folder.PathOf("test.mdb");
    ASSERT_EQ(std::system(("gzip -dc " + packed + " > " + path).c_str()), 0);
    const auto connection = std::make_shared<Connection>();
    connection->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + path + ";User ID=admin;Password=");
    const auto rows = connection->Execute("select UserName, id from FPdev where id = 2");
    EXPECT_EQ(rows->Fields().Item("username")->Value(), Variant("Florian Klaempfl"));
    EXPECT_EQ(rows->Fields().Item("id")->Value(), Variant(2));
    rows->MoveNext();
    EXPECT_TRUE(rows->IsEOF());
    EXPECT_EQ(ErrorOf([&] { connection->Execute("delete from FPdev"); }).Number, -2146825037);
    EXPECT_EQ(ErrorOf([&] { connection->BeginTrans(); }).Number, -2146825037);
    Recordset changed;
    changed.Open("FPdev", connection, adOpenDynamic, adLockOptimistic);
    EXPECT_EQ(ErrorOf([&] { changed.Delete(); }).Number, -2146825037);
}

TEST(Odbc, ADamagedAccessFileIsNotOpened) {
    const test::TemporaryFolder folder;
    const auto path = folder.PathOf("damaged.mdb");
    test::WriteFile(path, std::string("\0\1\0\0Standard Jet DB\0", 20) + std::string(100, '\0'));
    Connection connection;
    const auto error =
        ErrorOf([&] { connection.Open("Provider=Microsoft.ACE.OLEDB.12.0;Data Source=" + path); });
    if (error.Number == -2146824582) GTEST_SKIP() << "no driver for Access files";
    EXPECT_EQ(error.Number, -2147467259) << error.Description;
}

TEST(Odbc, ScriptsComeApartAtTheirStatements) {
    struct Case {
        OdbcDialect dialect;
        std::string script;
        std::string first;
    };
    const std::vector<Case> cases{
        {OdbcDialect::MariaDb, "select 'it\\';s'; x", "select 'it\\';s';"},
        {OdbcDialect::Sqlite, "select '\\'; x", "select '\\';"},
        {OdbcDialect::MariaDb, "select 1 # a;b\n; x", "select 1 # a;b\n;"},
        {OdbcDialect::MariaDb, "select 5--1; x", "select 5--1;"},
        {OdbcDialect::Other, "select 1 -- a;b\n, 2; x", "select 1 -- a;b\n, 2;"},
        {OdbcDialect::Other, "/* ; */ select \"a;\"\"b\", [c;d], `e;f`; x",
         "/* ; */ select \"a;\"\"b\", [c;d], `e;f`;"},
        {OdbcDialect::Sqlite,
         "create trigger r after insert on t begin select case when 1 then 2 end; delete from u; end; x",
         "create trigger r after insert on t begin select case when 1 then 2 end; delete from u; end;"},
        {OdbcDialect::MariaDb, "create procedure p() select 1; x", "create procedure p() select 1;"},
        {OdbcDialect::MariaDb, "begin not atomic if a then b; end if; case c when 1 then d; end case; end; x",
         "begin not atomic if a then b; end if; case c when 1 then d; end case; end;"},
        {OdbcDialect::MariaDb, "begin; x", "begin;"},
        {OdbcDialect::PostgreSql, "do $a$ begin; $$ end $a$; x", "do $a$ begin; $$ end $a$;"},
        {OdbcDialect::PostgreSql, "select E'\\';', $1, a[1]; x", "select E'\\';', $1, a[1];"},
        {OdbcDialect::Other, "select 'never ends; x", "select 'never ends; x"}};
    for (const auto& entry : cases) {
        EXPECT_EQ(entry.script.substr(0, FirstStatementLength(entry.script, entry.dialect)), entry.first);
    }
    EXPECT_TRUE(IsEmptyScript(" ; /* x */ -- y", OdbcDialect::Other));
    EXPECT_FALSE(IsEmptyScript("--1", OdbcDialect::MariaDb));
}

TEST(Odbc, WideTextComesAndGoesWhole) {
    const std::string text = "a\u00E4\u4E2D\U0001F600\U0010FFFF";
    auto wide = ToWide(text);
    EXPECT_EQ(wide.size(), 8U);
    wide.pop_back();
    std::string back;
    WideTextReader reader;
    for (const auto& unit : wide) reader.Append(back, std::span(&unit, 1));  // every pair is parted
    reader.Finish(back);
    EXPECT_EQ(back, text);
    EXPECT_EQ(ToWide("\xFF\xE4\xB8x"), (std::vector<SQLWCHAR>{0xFFFD, 0xFFFD, 'x', 0}));
    std::string lone;
    AppendUtf8(lone, std::vector<SQLWCHAR>{0xD83D, 'x'});
    EXPECT_EQ(lone, "\xED\xA0\xBDx");  // no UTF-8: whoever writes it out sees that it is not intact
    EXPECT_EQ(IncompleteTail("a\xF0\x9F\x98"), 3U);
    EXPECT_EQ(IncompleteTail("a\u4E2D"), 0U);
}

TEST(ConnectionParameters, GoOnAsTheyWereWritten) {
    const ConnectionParameters parameters("Provider=MSDASQL; Driver = {A; B}} c} ;PWD=\"x;y\";UID=u");
    EXPECT_EQ(parameters.TextWithout("provider"), " Driver = {A; B}} c} ;PWD=\"x;y\";UID=u;");
    EXPECT_EQ(parameters.Get("driver"), "{A; B}} c}");
    EXPECT_EQ(ConnectionParameters("a={b;c=d").Get("c"), "d");
}

}  // namespace
}  // namespace halvtiv::ado
