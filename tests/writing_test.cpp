#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "databases.hpp"

namespace halvtiv::ado {
namespace {

using test::kNotSupported;
using test::kRowChanged;
using test::kWrongType;
using test::NumberOf;

class WritingTest : public test::OneDatabase {
protected:
    WritingTest() : OneDatabase(test::Sqlite()) {}

    static FieldPtr Field(const RecordsetPtr& rows, std::string_view name) {
        return rows->Fields().Item(name);
    }
    static void Assign(const RecordsetPtr& rows, std::string_view name, std::string_view text) {
        Field(rows, name)->Value(Variant(text));
    }
};

TEST_F(WritingTest, TheRowsOwnNumberCanBeAssigned) {
    Run("create table t (a text)");
    auto rows = Change("select rowid, a from t");
    rows->AddNew();
    Assign(rows, "rowid", "7");
    Assign(rows, "a", "x");
    rows->Update();
    Assign(rows, "rowid", "8");
    rows->Update();
    Assign(rows, "a", "y");
    rows->Update();
    rows->Close();
    EXPECT_EQ(Rows("select rowid, a from t"), "8 y");
}

TEST_F(WritingTest, DefaultsTriggersAndComputedColumnsKeepTheirPart) {
    Run("create table t (id integer primary key, a integer default 5, b text default 'x', c as (a * 2))");
    Run("create table log (what text)");
    Run("create trigger added after insert on t begin insert into log values ('+' || new.id); end");
    Run("create trigger changed before update on t begin insert into log values (old.a || '>' || new.a); "
        "end");
    Run("create trigger skipped before insert on t when new.a = 99 begin select raise(ignore); end");
    auto rows = Change("t");
    rows->AddNew();
    rows->Update();
    Assign(rows, "a", "6");
    rows->Update();
    EXPECT_EQ(NumberOf([&] { Assign(rows, "c", "1"); }), kNotSupported);
    rows->AddNew();
    Field(rows, "b")->Value(Variant());
    rows->Update();
    rows->AddNew();
    Assign(rows, "a", "99");
    rows->Update();
    Assign(rows, "b", "not in another row");
    EXPECT_EQ(NumberOf([&] { rows->Update(); }), kRowChanged) << "the database has left the new row out";
    rows->Close();
    EXPECT_EQ(Rows("select * from t"), "1 6 x 12|2 5 null 10");
    EXPECT_EQ(Rows("select * from log"), "+1|5>6|+2");
}

TEST_F(WritingTest, ANewRowNeedsNoQuery) {
    Run("create table t (id integer primary key, a text)");
    Run("insert into t values (1, 'x')");
    const char* failing = "select * from t where abs(-9223372036854775808) > id";
    EXPECT_NE(NumberOf([&] { Change(failing)->IsEOF(); }), 0);
    auto rows = Change(failing);
    for (const char* text : {"y", "z"}) {
        rows->AddNew();
        Assign(rows, "a", text);
        rows->Update();
        EXPECT_EQ(Field(rows, "a")->Value().Text(), text);
    }
    rows->Close();
    EXPECT_EQ(Rows("select * from t"), "1 x|2 y|3 z");
}

TEST_F(WritingTest, TextBecomesAValueOfItsColumnsTypeOrIsRefused) {
    struct Case {
        const char* type;
        std::vector<std::pair<const char*, const char*>> taken;  ///< a text, and what the column holds then
        std::vector<const char*> refused;
    };
    const Case cases[] = {
        {"integer",
         {{" -7 ", "-7"},
          {"2.5", "2"},
          {"3.5", "4"},
          {"1e3", "1000"},
          {"+9223372036854775807", "9223372036854775807"}},
         {"x", "", "1,000", "0x10", "9223372036854775808", "1e19", "--1", "+-1", "inf", "nan"}},
        {"smallint", {{"-32768", "-32768"}}, {"32768", "1e300"}},
        {"tinyint", {{"255", "255"}, {"-0.5", "0"}}, {"256", "-1"}},
        {"boolean", {{"true", "True"}, {"FALSE", "False"}, {"2", "True"}, {"0.0", "False"}}, {"yes", ""}},
        {"double", {{"1e-3", "0.001"}, {" .5", "0.5"}}, {"1e309", "1.2.3", "one"}},
        {"numeric(10,2)", {{"12.5", "12.5"}, {"1e2", "100"}, {"-0.5", "-0.5"}}, {"x", "1 2"}},
        {"money", {{"0.25", "0.25"}}, {"$1"}},
        {"date", {{"2024/02/29", "2024-02-29"}}, {"2023-02-29", "2024-01-01 10:00", "12:00", "tomorrow"}},
        {"time", {{"7:05", ""}, {"07:05", "07:05:00"}}, {"24:00", "2024-01-01"}},
        {"datetime",
         {{"2024-01-02", "2024-01-02 00:00:00"}, {"2024-01-02T03:04:05.5", "2024-01-02 03:04:05.5"}},
         {"12:00", "2024-13-01"}},
        {"char(3)", {{"äöü", "äöü"}}, {}},
        {"varchar(9)", {{" 007 ", " 007 "}, {"", ""}}, {}},
        {"memo", {{"12", "12"}}, {}},
        {"binary(2)", {{"ab", "ab"}}, {}},
        {"blob", {{"ab", "ab"}}, {}},
        {"guid",
         {{"{0a0B0c0d-0000-0000-0000-00000000000f}", "{0A0B0C0D-0000-0000-0000-00000000000F}"},
          {"0a0b0c0d00000000000000000000000f", "{0A0B0C0D-0000-0000-0000-00000000000F}"}},
         {"{0a0b0c0d}", "x"}}};
    for (const Case& expected : cases) {
        SCOPED_TRACE(expected.type);
        Run("drop table if exists t");
        Run(std::string("create table t (a ") + expected.type + ")");
        Run("insert into t values (null)");
        for (const auto& [text, held] : expected.taken) {
            auto rows = Change("t");
            if (*held == '\0' && *text != '\0') {
                EXPECT_EQ(NumberOf([&, value = text] { Assign(rows, "a", value); }), kWrongType) << text;
                continue;
            }
            Assign(rows, "a", text);
            EXPECT_EQ(Field(rows, "a")->Value().Text(), held) << text;
            rows->Update();
            rows->Close();
            EXPECT_EQ(Rows("select a from t"), held) << text;
        }
        for (const char* text : expected.refused) {
            auto rows = Change("t");
            EXPECT_EQ(NumberOf([&] { Assign(rows, "a", text); }), kWrongType) << text;
            rows->Close();
        }
    }
}

TEST_F(WritingTest, LongValuesAreAppendedInPieces) {
    const Bytes zeros(std::size_t{3} << 20, 0);
    Bytes ones = zeros;
    ones.back() = 1;
    for (const char* more :
         {"", ", unique (b)", ", check (length(b) < 9000000 and hex(substr(b, -1)) <> 'FF')",
          ", n as (length(b)) stored", ", primary key (id)) without rowid; --"}) {
        SCOPED_TRACE(more);
        Run("drop table if exists t");
        Run(std::string("create table t (id integer not null, m memo, v varchar(9), b blob") + more + ")");
        auto rows = Change("t");
        for (const Bytes& content : {zeros, ones}) {
            rows->AddNew();
            Assign(rows, "id", std::to_string(content.back()));
            for (const char* piece : {"gr", "\xC3", "\xBC", "n"}) {
                Field(rows, "m")->AppendChunk(Bytes(piece, piece + std::string_view(piece).size()));
            }
            Field(rows, "b")->AppendChunk({9, 9});
            Field(rows, "b")->Value(Variant());  // begins anew
            Field(rows, "b")->AppendChunk(content);
            Field(rows, "b")->AppendChunk(content);
            EXPECT_EQ(NumberOf([&] { Field(rows, "v")->AppendChunk({1}); }), kNotSupported);
            EXPECT_EQ(Field(rows, "b")->ActualSize(), 6 << 20);
            rows->Update();
        }
        rows->Close();
        EXPECT_EQ(Rows("select id, m, typeof(m), typeof(b), length(b), hex(substr(b, -1)), hex(substr(b, "
                       "3145728, 2)) "
                       "from t order by id"),
                  "0 grün text blob 6291456 00 0000|1 grün text blob 6291456 01 0100");
        // Written over by another length, of a row that has been read with all its long values.
        rows = Change("select * from t order by id");
        EXPECT_EQ(Field(rows, "b")->ActualSize(), 6 << 20);
        Field(rows, "b")->AppendChunk(ones);
        Assign(rows, "v", "new");
        rows->Update();
        rows->MoveNext();
        Assign(rows, "v", "other");
        rows->Update();
        EXPECT_EQ(Field(rows, "b")->GetChunk(9 << 20).size(), std::size_t{6} << 20);
        rows->Close();
        EXPECT_EQ(Rows("select id, v, length(b), hex(substr(b, -1)) from t order by id"),
                  "0 new 3145728 01|1 other 6291456 01");
    }
}

TEST_F(WritingTest, ATableThatHasChangedIsWrittenAsItIsByNow) {
    Run("create table t (a text)");
    const auto add = [&](const char* column) {
        auto rows = Change("select * from t");
        rows->AddNew();
        Assign(rows, column, "x");
        rows->Update();
        rows->Close();
    };
    add("a");
    Run("alter table t add column b text");
    add("b");
    Connect()->Execute("alter table t add column c text");
    add("c");
    Run("alter table t drop column a");
    add("b");
    auto rows = Change("select * from t");
    EXPECT_EQ(rows->Fields().Count(), 2);
    EXPECT_EQ(test::RestOf(rows), "null null|x null|null x|x null");
    Run("drop table t");
    Run("create table t (z integer primary key, a text) without rowid");
    Run("insert into t values (1, 'x')");
    rows = Change("select * from t");
    Assign(rows, "a", "y");
    rows->Update();
    EXPECT_EQ(Rows("select * from t"), "1 y");
}

}  // namespace
}  // namespace halvtiv::ado
