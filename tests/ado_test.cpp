#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include <halvtiv/ado.hpp>
#include <halvtiv/error_info.hpp>

#include "ado/connection_parameters.hpp"
#include "ado/recordset_state.hpp"
#include "ado/row_spool.hpp"
#include "ado/table_name.hpp"
#include "databases.hpp"

namespace halvtiv::ado {
namespace {

using test::ErrorOf;
using test::NumberOf;

class AdoTest : public test::OneDatabase {
protected:
    AdoTest() : OneDatabase(test::Sqlite()) {}
};

TEST_F(AdoTest, DeclaredTypesHaveTheirNumbersAndSizes) {
    struct Expected {
        const char* declared;
        std::int32_t type;
        std::int64_t size;
    };
    constexpr std::int64_t kUnbounded = 1'000'000'000;
    const std::vector<Expected> types{{"integer", 20, 8},
                                      {"Int", 20, 8},
                                      {"BIGINT", 20, 8},
                                      {"SMALLINT", 2, 2},
                                      {"TINYINT", 17, 1},
                                      {"BOOLEAN", 11, 2},
                                      {"BIT", 11, 2},
                                      {"REAL", 5, 8},
                                      {"DOUBLE PRECISION", 5, 8},
                                      {"NUMERIC(10,2)", 131, 19},
                                      {"MONEY", 6, 8},
                                      {"DATE", 133, 6},
                                      {"TIME", 134, 6},
                                      {"TIMESTAMP", 135, 16},
                                      {"CHAR(5)", 130, 5},
                                      {"nvarchar (20)", 202, 20},
                                      {"TEXT", 202, kUnbounded},
                                      {"MEMO", 203, kUnbounded},
                                      {"BINARY(16)", 128, 16},
                                      {"VARBINARY(9)", 204, 9},
                                      {"BLOB", 205, kUnbounded},
                                      {"BLOB(100)", 205, 100},
                                      {"GUID", 72, 16},
                                      {"MEDIUMINT", 20, 8},
                                      {"CHARACTER(3)", 202, 3},
                                      {"JSON", 5, 8},
                                      {"", 5, 8}};
    std::string columns;
    std::string values;
    for (std::size_t i = 0; i < types.size(); ++i) {
        columns += (i ? ", c" : "c") + std::to_string(i) + " " + types[i].declared;
        values += i ? ", 1.5" : "1.5";
    }
    Run("create table t (" + columns + ")");
    Run("insert into t values (" + values + ")");
    const auto recordset = Query("t");
    for (std::size_t i = 0; i < types.size(); ++i) {
        const auto field = recordset->Fields().Item(static_cast<std::int32_t>(i));
        EXPECT_EQ(field->Type(), types[i].type) << types[i].declared;
        EXPECT_EQ(field->DefinedSize(), types[i].size) << types[i].declared;
        EXPECT_EQ((field->Attributes() & adFldLong) != 0, field->Type() == 203 || field->Type() == 205);
        EXPECT_EQ(field->Value().Text(), "1.5");
    }
}

TEST_F(AdoTest, ColumnsWithoutATypeHaveThatOfTheFirstRow) {
    const auto recordset = Query("select 1, 1.5, 'x', x'00', null union all select 'later', 1, 1, 1, 1");
    std::vector<std::int32_t> types;
    types.reserve(5);
    for (std::int32_t i = 0; i < recordset->Fields().Count(); ++i)
        types.push_back(recordset->Fields().Item(i)->Type());
    EXPECT_EQ(types, (std::vector<std::int32_t>{20, 5, 202, 205, 202}));
    recordset->MoveNext();
    EXPECT_EQ(recordset->Fields().Item(0)->Type(), 20);
    EXPECT_EQ(recordset->Fields().Item(0)->Value(), Variant(std::string("later")));
}

TEST_F(AdoTest, ValuesHaveTheirKindAndTheirFixedText) {
    struct Expected {
        const char* declared;
        const char* literal;
        std::string text;
        Variant value;
    };
    using Parts = DateTime::Parts;
    const auto textOnly = [](const char* declared, const char* literal, const char* text) {
        return Expected{declared, literal, text, Variant(std::string(text))};
    };
    const std::vector<Expected> cases{
        {"INTEGER", "-9223372036854775808", "-9223372036854775808",
         Variant(std::numeric_limits<std::int64_t>::min())},
        {"REAL", "0.1", "0.1", Variant(0.1)},
        {"REAL", "1e300", "1e+300", Variant(1e300)},
        {"NUMERIC", "12.50", "12.5", Variant(Decimal{"12.5"})},
        {"NUMERIC", "0.0000001", "0.0000001", Variant(Decimal{"0.0000001"})},
        {"BOOLEAN", "7", "True", Variant(true)},
        {"BIT", "'false'", "False", Variant(false)},
        textOnly("BOOLEAN", "'maybe'", "maybe"),
        {"DATE", "'2024/02/29'", "2024-02-29", Variant(DateTime{Parts::Date, 2024, 2, 29})},
        textOnly("DATE", "'2023-02-29'", "2023-02-29"),
        textOnly("DATE", "'2024-01-01 10:00'", "2024-01-01 10:00"),
        textOnly("DATE", "20240101", "20240101"),
        {"TIME", "'7:05'", "7:05", Variant(std::string("7:05"))},
        {"TIME", "'07:05'", "07:05:00", Variant(DateTime{Parts::Time, 1, 1, 1, 7, 5})},
        {"DATETIME", "'2024-01-02'", "2024-01-02 00:00:00",
         Variant(DateTime{Parts::DateAndTime, 2024, 1, 2})},
        {"DATETIME", "'2024-01-02T03:04:05.250'", "2024-01-02 03:04:05.25",
         Variant(DateTime{Parts::DateAndTime, 2024, 1, 2, 3, 4, 5, 250'000'000})},
        textOnly("DATETIME", "'2024-01-02 03:04:05Z'", "2024-01-02 03:04:05Z"),
        textOnly("GUID", "'{6f9619ff-8b86-d011-b42d-00c04fc964ff}'",
                 "{6F9619FF-8B86-D011-B42D-00C04FC964FF}"),
        textOnly("GUID", "'6f9619ff-8b86-d011-b42d-00c04fc964ff'", "{6F9619FF-8B86-D011-B42D-00C04FC964FF}"),
        textOnly("GUID", "x'6f9619ff8b86d011b42d00c04fc964ff'", "{6F9619FF-8B86-D011-B42D-00C04FC964FF}"),
        textOnly("GUID", "'not a guid'", "not a guid"),
        textOnly("INTEGER", "'abc'", "abc"),
        {"BLOB", "x'4100'", std::string("A\0", 2), Variant(Bytes{0x41, 0})},
        {"TEXT", "null", "", Variant()}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(std::string(expected.declared) + " " + expected.literal);
        Run("drop table if exists v");
        Run(std::string("create table v (c ") + expected.declared + ")");
        Run(std::string("insert into v values (") + expected.literal + ")");
        const auto field = Query("v")->Fields().Item("C");
        EXPECT_EQ(field->Value(), expected.value);
        const auto chunk = field->GetChunk(4096);
        EXPECT_EQ(field->ActualSize(), static_cast<std::int64_t>(chunk.size()));
        EXPECT_EQ(std::string(chunk.begin(), chunk.end()), expected.text);
    }
}

TEST_F(AdoTest, LongValuesAreReadInPieces) {
    const auto recordset = Query("select cast('abcdefg' as blob) b union all select x'01'");
    const auto field = recordset->Fields().Item("b");
    EXPECT_EQ(field->GetChunk(3), (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(field->GetChunk(3), (Bytes{'d', 'e', 'f'}));
    EXPECT_EQ(field->GetChunk(3), (Bytes{'g'}));
    EXPECT_TRUE(field->GetChunk(3).empty());
    EXPECT_EQ(NumberOf([&] { field->GetChunk(-1); }), 5);
    recordset->MoveNext();
    EXPECT_EQ(field->GetChunk(3), (Bytes{1}));
}

TEST_F(AdoTest, WhatIsLeftOfABatchRunsAtCloseOrAtRelease) {
    Run("create table t (n unique)");
    connection->Execute("select 1; insert into t values (3); insert into t values (3)").reset();
    EXPECT_EQ(Scalar("select count(*) from t"), "1");

    auto recordset =
        connection->Execute("insert into t values (4), (5) returning n; insert into t values (6)");
    EXPECT_EQ(recordset->Fields().Item(0)->Value().Text(), "4");
    recordset.reset();
    EXPECT_EQ(Scalar("select count(*) from t"), "4");

    // A field keeps the rows, and with them the rest of the batch.
    auto field = connection->Execute("select 'kept'; insert into t values (7)")->Fields().Item(0);
    EXPECT_EQ(field->Value().Text(), "kept");
    EXPECT_EQ(Scalar("select count(*) from t"), "4");
    field.reset();
    EXPECT_EQ(Scalar("select count(*) from t"), "5");
}

TEST_F(AdoTest, ADynamicCursorGoesBackWithoutRunningTheStatementAgain) {
    Run("create table log (n)");
    const auto rows = Query(
        "with recursive r(n) as (select 1 union all select n + 1 from r where n < 5) "
        "select n, nullif(n, 2) m, random() x, cast('long ' || n as blob) b from r",
        adOpenDynamic);
    const auto readRow = [&] {
        std::string text;
        for (std::int32_t i = 0; i < 4; ++i) text += rows->Fields().Item(i)->Value().Text() + "|";
        return text;
    };
    std::vector<std::string> first;
    for (int i = 0; i < 3; ++i, rows->MoveNext()) first.push_back(readRow());
    for (int round = 0; round < 2; ++round) {
        rows->MoveFirst();
        std::vector<std::string> again;
        for (; !rows->IsEOF(); rows->MoveNext()) again.push_back(readRow());
        ASSERT_EQ(again.size(), 5U);
        again.resize(3);
        EXPECT_EQ(again, first);
    }
    rows->MoveFirst();
    rows->MoveNext();
    EXPECT_TRUE(rows->Fields().Item("m")->Value().IsNull());
    EXPECT_EQ(rows->Fields().Item("b")->GetChunk(4), (Bytes{'l', 'o', 'n', 'g'}));
    EXPECT_EQ(rows->Fields().Item("b")->GetChunk(4), (Bytes{' ', '2'}));
}

TEST_F(AdoTest, KeptRowsGoToAFileBeyondTheBound) {
    const auto rows = Query(
        "with recursive r(n) as (select 1 union all select n + 1 from r where n < 300) "
        "select n, printf('%.*c', n * 10, 'x') t, zeroblob(n * 1000) b from r",
        adOpenDynamic);
    auto& state = RecordsetState::Of(rows);
    for (int round = 0; round < 2; ++round) {
        std::int64_t n = 0;
        for (; !rows->IsEOF(); rows->MoveNext()) {
            ++n;
            state.ReadRow([n](RowSource& row) {
                ASSERT_EQ(row.Text(0), std::to_string(n));
                ASSERT_EQ(row.Size(1), n * 10);
            });
            ASSERT_EQ(rows->Fields().Item(2)->GetChunk(1'000'000).size(), static_cast<std::size_t>(n * 1000));
        }
        EXPECT_EQ(n, 300);
        rows->MoveFirst();
    }

    const auto source = Query("select 'ab' t, x'0102' b");
    auto& row = RecordsetState::Of(source).ReadRow([](RowSource& current) -> RowSource& { return current; });
    constexpr std::size_t kMemoryBound = 50;  // the second row begins in memory and ends in the file
    RowSpool spool(RecordsetState::Of(source).Columns(), 2, nullptr, kMemoryBound);
    for (int i = 0; i < 3; ++i) spool.Append(row);
    spool.Rewind();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(spool.Next());
        EXPECT_EQ(spool.Text(0), "ab");
        EXPECT_EQ(spool.Text(1), "\1\2");
    }
    EXPECT_FALSE(spool.Next());
}

TEST_F(AdoTest, ANestedCommitThatFailsTakesItsOwnRowsAlone) {
    Run("create table t(i integer)");
    connection->BeginTrans();
    Run("insert into t values (1)");
    connection->BeginTrans();
    {
        const RecordsetPtr unread = connection->Execute("insert into t values (2), (3) returning i");
        EXPECT_NE(NumberOf([&] { connection->CommitTrans(); }), 0);
    }
    connection->CommitTrans();
    EXPECT_EQ(Scalar("select group_concat(i) from t"), "1");
}

TEST_F(AdoTest, OpeningTellsWhatIsWrong) {
    const auto openError = [&](const std::string& text) { return ErrorOf([&] { Connection().Open(text); }); };
    const auto missing = openError("Provider=SQLite;Data Source=" + folder.PathOf("missing.db"));
    EXPECT_EQ(missing.Number, -2147467259);
    EXPECT_NE(missing.Description.find("missing.db"), std::string::npos);
    EXPECT_EQ(openError("Provider=SQLite;Data Source=" + folder.PathOf("")).Number, -2147467259);
    EXPECT_EQ(openError("Provider=SQLite").Number, -2147467259);
    EXPECT_EQ(openError("Provider=SQLite;Data Source=file::memory:").Number, -2147467259);
    for (const char* name : {"no/such/folder.db Password=secret-77", "new.db pwd = secret-77",
                             "new.db Passwd=secret-77", "no/me:secret-77@host", "no/x pass=secret-77"}) {
        const auto forgotten = openError("Provider=SQLite;Create=1;Data Source=" + folder.PathOf(name));
        EXPECT_EQ(forgotten.Number, -2147467259) << name;
        EXPECT_EQ(forgotten.Description.find("secret-77"), std::string::npos) << forgotten.Description;
    }
    EXPECT_EQ(openError("Provider=SQLite;Create=1;Data Source=" + folder.PathOf("no/such/folder.db")).Number,
              -2147467259);
    EXPECT_EQ(openError("Provider=Nobody").Number, -2146824582);
    EXPECT_EQ(openError("").Number, -2146824582);
    EXPECT_EQ(openError("just words").Number, -2147467259);
    std::ofstream(folder.PathOf("text.db")) << std::string(2000, 'x');
    EXPECT_EQ(openError("Provider=SQLite;Data Source=" + folder.PathOf("text.db")).Description,
              "file is not a database");

    test::MakeDatabase(folder.PathOf("data.db"));
    Connection jet;
    jet.Open("provider=microsoft.jet.oledb.4.0;DATA SOURCE='" + folder.PathOf("data.db") + "'", "Admin",
             "secret");
    EXPECT_EQ(NumberOf([&] { jet.Open("Provider=SQLite;Data Source=:memory:"); }), -2146824583);
    for (const char* keyword :
         {";Read Only=1", ";ReadOnly=yes", ";read_only=On", ";Mode=Read", ";Mode=Share Deny None|Read"}) {
        EXPECT_EQ(ErrorOf([&] { Connect(keyword)->Execute("create table x (n)"); }).Description,
                  "attempt to write a readonly database");
    }
    Connect(";Mode=ReadWrite|Share Deny None")->Execute("create table x (n)");
    for (const auto& [keywords, word] : std::vector<std::pair<const char*, const char*>>{
             {";Password=a;hist=9", "in quotes"},
             {";Password=a;mod=9", "in quotes"},
             {";Password=p;Port=1", "\"Port\""},
             {";Mask Password=1;Modee=Read", "\"Mode\""},
             {";Version=1", "connection string."},
             {";Mode=Read|Share Exclusive", "\"Read|Share Exclusive\""}}) {
        EXPECT_NE(ErrorOf([&] { Connect(keywords); }).Description.find(word), std::string::npos) << keywords;
    }
    for (const char* keyword : {";Read Only=perhaps", ";Mode=Share Exclusive", ";Extended Properties=Text"}) {
        EXPECT_EQ(NumberOf([&] { Connect(keyword); }), -2147467259) << keyword;
    }
}

TEST(TableName, OnlyABareNameIsATable) {
    EXPECT_EQ(CommandTextOf(" orders\n"), "select * from orders");
    EXPECT_EQ(CommandTextOf("main.[order items]"), "select * from main.[order items]");
    EXPECT_EQ(CommandTextOf("\"a\"\"b\""), "select * from \"a\"\"b\"");
    for (const char* text : {"Commit", "VACUUM", "select 1", "a b", "a.", "a.b.c", "\"open", "1", "x;"}) {
        EXPECT_EQ(CommandTextOf(text), text);
    }
}

TEST(ConnectionParametersTest, ReadsQuotesCaseAndRepeatedKeys) {
    const ConnectionParameters parameters(
        " Data Source = a b ;;PASSWORD=\"x;\"\"y'\" ; user id='it''s';Create=no;create=Yes;Empty=;Last==;");
    EXPECT_EQ(parameters.Get("data source"), "a b");
    EXPECT_EQ(parameters.Get("Password"), "x;\"y'");
    EXPECT_EQ(parameters.Get("User ID"), "it's");
    EXPECT_TRUE(parameters.IsSet("CREATE"));
    EXPECT_EQ(parameters.Find("empty"), "");
    EXPECT_EQ(parameters.Find("other"), std::nullopt);
    EXPECT_EQ(parameters.Get("last"), "=");
    EXPECT_TRUE(ConnectionParameters("Mask Password=a").Secrets().empty());
    RequirePlainNames(ConnectionParameters("Data Source=tokens:1;Initial Catalog=password store"), "x");
    const ConnectionParameters braces("a={x};b={;c={}};d={ }} }x;e={y}");
    EXPECT_EQ(braces.Get("a"), "{x}");
    EXPECT_EQ(braces.Get("b"), "{");
    EXPECT_EQ(braces.Get("d"), "{ }} }x");
    EXPECT_EQ(braces.Get("e"), "{y}");
    for (const char* text : {"a", "=1", "a='x", "a='x'y;b=1", "a=1;b"}) {
        EXPECT_EQ(NumberOf([&] { ConnectionParameters{text}; }), -2147467259) << text;
    }
}

}  // namespace
}  // namespace halvtiv::ado
