// Values at the limits of their types, written and read back on every database.

#include <gmock/gmock.h>

#include <algorithm>

#include "databases.hpp"

namespace halvtiv::test {
namespace {

using namespace ado;

struct Written {
    std::string column, text;
};

// Blanks around a value do not outlive the XML, and an empty one is none.
bool GoesThroughXml(const Written& value) {
    return !value.text.empty() && !value.text.starts_with(' ') && !value.text.ends_with(' ');
}

// A database fills up the places behind the point, or leaves them out.
std::string Plain(const Written& value, std::string text) {
    if (value.column != "d" || text.find('.') == std::string::npos) return text;
    text.erase(text.find_last_not_of('0') + 1);
    return text.ends_with('.') ? text.substr(0, text.size() - 1) : text;
}

std::vector<Written> ValuesAtTheLimits(const DatabaseTraits& database) {
    const std::string everyKind =
        "a\tb\r\nc'\"\\&<>%$1{}; \xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF";
    std::string longText;
    while (longText.size() < 1'000'000) longText += everyKind;
    std::string fullLength;
    for (int i = 0; i < 200; ++i) fullLength += "\xF0\x9F\x98\x80";
    std::vector<Written> values{{"i", "2147483646"},
                                {"i", "2147483647"},
                                {"i", "-2147483647"},
                                {"i", "-2147483648"},
                                {"n", "2147483648"},
                                {"n", "-2147483649"},
                                {"n", "9223372036854775807"},
                                {"n", "-9223372036854775808"},
                                {"n", "0"},
                                {"d", database.largestDecimal},
                                {"d", "-" + database.largestDecimal},
                                {"d", "-0.5"},
                                {"d", "0.0000000001"},
                                {"f", "1.7976931348623157e+308"},
                                {"f", "2.2250738585072014e-308"},
                                {"f", "100000"},
                                {"f", "0.1"},
                                {"f", "-0.30000000000000004"},
                                {"v", ""},
                                {"v", " a  "},
                                {"v", everyKind},
                                {"v", fullLength},
                                {"x", ""},
                                {"x", everyKind},
                                {"x", std::string(8000, 'k')},
                                {"x", "a" + longText.substr(0, 7999 + everyKind.size() / 2)},
                                {"x", std::string(999'999, 'y') + "z"},
                                {"x", longText},
                                {"m", "0001-01-01 00:00:00"},
                                {"m", "1969-12-31 23:59:59.5"},
                                {"m", "2000-02-29 00:00:00.000001"},
                                {"m", "2024-02-29 12:30:15.25"},
                                {"m", "9999-12-31 23:59:59.999999"},
                                {"day", "0001-01-01"},
                                {"day", "1600-02-29"},
                                {"day", "2024-02-29"},
                                {"day", "9999-12-31"},
                                {"c", "00:00:00"},
                                {"c", "23:59:59"},
                                {"g", "{6F9619FF-8B86-D011-B42D-00C04FC964FF}"},
                                {"g", "{00000000-0000-0000-0000-000000000000}"},
                                {"b", "True"},
                                {"b", "False"}};
    std::erase_if(values, [&](const Written& value) {
        const auto& [column, text] = value;
        const bool isLong = text.find_last_of("123456789") > 10;
        return column == "f" && isLong && !database.Has(Can::KeepDoubles);
    });
    return values;
}

class ValuesTest : public EveryDatabasesEngine {
protected:
    void MakeTable() const {
        const auto& t = Traits();
        Run("create table t (id " + t.key + ", i integer, n " + t.bigInteger + ", d " + t.decimal +
            ", f double precision, x " + t.text + ", v varchar(200), m " + t.timestamp +
            ", day date, c time, g " + t.guid + ", b " + t.boolean + ")");
    }
    void Write(const std::vector<Written>& values, bool byEngine) {
        const auto rows = Change("t");
        for (const auto& [column, text] : values) {
            SCOPED_TRACE(column + " " + text.substr(0, 40));
            if (byEngine) {
                EXPECT_EQ(Call("adddata", {{"sql", "t"}}, {{column.c_str(), text}}), "1");
            } else {
                rows->AddNew();
                rows->Fields().Item(column)->Value(Variant(text));
                const auto error = ErrorOf([&] { rows->Update(); });
                EXPECT_EQ(error.Number, 0) << error.Description;
            }
        }
    }
    void ExpectRows(const std::vector<Written>& values) {
        const auto read = Query("select * from t order by id");
        const bool isLong =
            (read->Fields().Item("x")->Attributes() & adFldLong) != 0;  // stays out of results
        for (const auto& value : values) {
            const auto& [column, text] = value;
            SCOPED_TRACE(column + " " + text.substr(0, 40));
            ASSERT_FALSE(read->IsEOF());
            for (std::int32_t i = 1; i < read->Fields().Count(); ++i) {
                const auto field = read->Fields().Item(i);
                if (field->Name() != column) {
                    EXPECT_TRUE(field->IsNull() && field->Value().IsNull());
                    EXPECT_EQ(field->ActualSize(), 0);
                    continue;
                }
                const auto found = field->Value().Text();
                EXPECT_FALSE(field->IsNull());
                EXPECT_TRUE(Plain(value, found) == text) << found.substr(0, 60);
                EXPECT_EQ(field->ActualSize(), static_cast<std::int64_t>(found.size()));
            }
            read->MoveNext();
        }
        EXPECT_TRUE(read->IsEOF());

        // By itself, a short column comes in blocks of rows.
        for (const char* column : {"i", "n", "d", "f", "v", "m", "day", "c", "g", "b"}) {
            const auto many = Query(std::string("select t.") + column + " as c from t, " + Numbers(3) +
                                    " order by numbers.n, t.id");
            const auto field = many->Fields().Item(0);
            for (std::size_t i = 0; i < 3 * values.size(); ++i, many->MoveNext()) {
                const auto& value = values[i % values.size()];
                const auto found = field->IsNull() ? "(null)" : Plain(value, std::string(field->Text()));
                EXPECT_EQ(found, value.column == column ? value.text : "(null)") << column << " " << i;
            }
            EXPECT_TRUE(many->IsEOF());
        }

        std::string xml;
        ZorbFunctionResult result;
        ASSERT_TRUE(
            engine.RunFunction(Request("public.getdata", {{"sql", "select * from t order by id"}}), xml) &&
            result.Parse(xml));
        std::int32_t row = 0;
        for (const auto& value : values) {
            const auto found = result.GetResultDataItem("K", ++row)->GetItemValueByName(value.column);
            if (!GoesThroughXml(value) || (value.column == "x" && isLong)) continue;
            EXPECT_TRUE(Plain(value, found) == value.text)
                << value.column << " " << value.text.substr(0, 40) << " " << found.substr(0, 60);
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Databases, ValuesTest, testing::ValuesIn(Databases()), DatabaseName);

TEST_P(ValuesTest, ValuesAtTheirLimitsComeBackAndAreFoundAgain) {
    MakeTable();
    auto values = ValuesAtTheLimits(Traits());
    Write(values, false);
    ExpectRows(values);
    // What is replaced is compared with what the row held, so each of them must be equal to itself.
    const auto rows = Change("select * from t order by id");
    for (const auto& [column, text] : values) {
        SCOPED_TRACE(column + " " + text.substr(0, 40));
        for (const auto& value : {Variant(), Variant(text)}) {
            rows->Fields().Item(column)->Value(value);
            const auto error = ErrorOf([&] { rows->Update(); });
            EXPECT_EQ(error.Number, 0) << error.Description;
        }
        rows->MoveNext();
    }
    rows->Close();
    ExpectRows(values);

    Run("delete from t");
    std::erase_if(values, [](const Written& value) { return !GoesThroughXml(value); });
    Write(values, true);
    ExpectRows(values);
}

TEST_P(ValuesTest, WhatNoColumnHoldsIsRefused) {
    MakeTable();
    const auto rows = Change("t");
    rows->AddNew();
    const auto number = [&](const char* column, const char* text) {
        return NumberOf([&] { rows->Fields().Item(column)->Value(Variant(text)); });
    };
    const auto type = [&](const char* column) { return rows->Fields().Item(column)->Type(); };
    EXPECT_EQ(type("g") == adGUID, Has(Can::HaveGuids));
    EXPECT_EQ(type("d"), adNumeric);
    const bool isSmall = type("i") == adInteger;
    EXPECT_EQ(number("i", "2147483648"), isSmall ? kWrongType : 0);
    EXPECT_EQ(number("i", "-2147483649"), isSmall ? kWrongType : 0);
    for (const auto& [column, text] : {std::pair{"n", "9223372036854775808"},
                                       {"n", "-9223372036854775809"},
                                       {"n", "x"},
                                       {"d", "1,5"},
                                       {"f", "1e309"},
                                       {"m", "2023-02-29 00:00:00"},
                                       {"day", "0000-01-01"},
                                       {"day", "1900-02-29"},
                                       {"c", "24:00:00"},
                                       {"g", "{6F9619FF}"},
                                       {"b", "yes"}}) {
        if (*column == 'g' && !Has(Can::HaveGuids)) continue;
        EXPECT_EQ(number(column, text), kWrongType) << column << " " << text;
    }
    rows->Close();

    const std::string nul("a\0b", 3);
    const auto texts = Change("t");
    texts->AddNew();
    texts->Fields().Item("x")->Value(Variant(nul));
    EXPECT_EQ(NumberOf([&] { texts->Update(); }), Has(Can::KeepNulInText) ? 0 : -2147217900);
    texts->Close();
    EXPECT_EQ(Rows("select x from t"), Has(Can::KeepNulInText) ? nul : "");
    Run("delete from t");
    const std::string large = "9999999999999999999999.9999999999";
    EXPECT_EQ(Call("adddata", {{"sql", "t"}}, {{"d", large}}), "1");
    EXPECT_EQ(Scalar("select d from t") == large, Has(Can::KeepLargeDecimals));
    Run("delete from t");
    EXPECT_EQ(Call("adddata", {{"sql", "t"}}, {{"f", "0.30000000000000004"}}), "1");
    EXPECT_EQ(Scalar("select f from t") == "0.30000000000000004", Has(Can::KeepDoubles));
}

Bytes BytesOf(std::int64_t length) {
    Bytes bytes(static_cast<std::size_t>(length));
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    return bytes;
}

TEST_P(ValuesTest, BytesOfEveryLengthComeBack) {
    Run("create table t (id integer primary key, b " + Traits().bytes + ")");
    std::vector<std::int64_t> lengths{0, 1, 2, 256, 8192, 65535, 65536, 65537, 5'000'000};
    for (std::int64_t length = 4090; length <= 4102; ++length) lengths.push_back(length);
    const auto rows = Change("t");
    connection->BeginTrans();
    for (std::size_t i = 0; i < lengths.size(); ++i) {
        rows->AddNew();
        rows->Fields().Item("id")->Value(Variant(i));
        const auto bytes = BytesOf(lengths[i]);
        if (i % 2 == 0) rows->Fields().Item("b")->Value(Variant(bytes));
        for (std::size_t at = 0; i % 2 == 1 && at < bytes.size(); at += 4096) {
            const auto size = std::min<std::size_t>(4096, bytes.size() - at);
            const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
            rows->Fields().Item("b")->AppendChunk(Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)));
        }
        rows->Update();
    }
    connection->CommitTrans();
    rows->Close();
    Run("insert into t values (1000, null)");

    // Forward, and again from the rows kept; in pieces and whole, whatever stands before it.
    const auto read = Query("select b, id, b as again from t order by id", adOpenDynamic);
    for (int round = 0; round < 2; ++round) {
        for (const auto length : lengths) {
            SCOPED_TRACE(length);
            const auto field = read->Fields().Item("b");
            EXPECT_EQ(read->Fields().Item("again")->GetChunk(10).size(),
                      static_cast<std::size_t>(std::min<std::int64_t>(length, 10)));
            EXPECT_EQ(field->ActualSize(), length);
            Bytes whole;
            for (Bytes piece; !(piece = field->GetChunk(4096)).empty();) {
                whole.insert(whole.end(), piece.begin(), piece.end());
            }
            EXPECT_TRUE(whole == BytesOf(length));
            EXPECT_TRUE(field->Value() == Variant(BytesOf(length)));
            read->MoveNext();
        }
        EXPECT_TRUE(read->Fields().Item("b")->Value().IsNull());
        EXPECT_EQ(read->Fields().Item("b")->ActualSize(), 0);
        read->MoveFirst();
    }
}

TEST_P(ValuesTest, FilesGoIntoColumnsAndOutAgainByteForByte) {
    Run("create table t (id integer primary key, b " + Traits().bytes + ", name varchar(9))");
    Run("insert into t (id) values (1)");
    const auto in = folder.PathOf("in");
    const auto out = folder.PathOf("out");
    for (const std::int64_t size : {1, 256, 4094, 4095, 4096, 4097, 4098, 1048576, 4200000, 0}) {
        const auto bytes = BytesOf(size == 0 ? 4200000 : size);  // an empty file leaves the column as it was
        WriteFile(in, std::string_view(reinterpret_cast<const char*>(bytes.data()),
                                       static_cast<std::size_t>(size)));
        EXPECT_EQ(Call("setbinarydata", {{"sql", "t"}, {"colname", "B"}, {"filename", in}}), "1");
        EXPECT_EQ(Call("getbinarydata", {{"sql", "t"}, {"colname", "b"}, {"filename", out}}), "1");
        const auto found = ReadFile(out);
        EXPECT_TRUE(std::equal(found.begin(), found.end(), bytes.begin(), bytes.end(),
                               [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }))
            << size << " " << found.size();
        EXPECT_EQ(Call("updatedata", {{"sql", "t"}}, {{"b", in, 1}, {"name", "n"}}), "1");
    }
    EXPECT_EQ(Call("adddata", {{"sql", "t"}}, {{"id", "2"}, {"b", in, 1}}), "1");
    EXPECT_EQ(Scalar("select count(*) from t where b is null"), "1");
    EXPECT_EQ(Call("setbinarydata", {{"sql", "t"}, {"colname", "b"}, {"filename", ""}}), "2");
    EXPECT_EQ(Scalar("select count(*) from t where b is null"), "2");
    EXPECT_EQ(Call("deletebinarydata", {{"sql", "select * from t where id > 5"}, {"colname", "b"}}), "0");
    EXPECT_EQ(Call("setbinarydata", {{"sql", "t"}, {"colname", "name"}, {"filename", in}}).substr(0, 3),
              "-1 ");
    EXPECT_EQ(folder.FilesIn(), (std::vector<std::string>{"in", "out"})) << "nothing else is left behind";
}

// The server of MariaDB has other habits, unless it is asked.
TEST_P(ValuesTest, StandardSqlMeansTheSameEverywhere) {
    Run("create table t (id " + Traits().key + ", v varchar(9))");
    EXPECT_EQ(Call("adddata", {{"sql", "t"}}, {{"id", "0"}, {"v", "zero"}}), "1");
    Run("insert into t (id, v) values (1, 'one')");
    EXPECT_EQ(Rows(R"(select "id", "v" || '!' as s from t where "v" <> 'one')"), "0 zero!");
    Run("update t set v = v || '-' || id");
    EXPECT_EQ(Call("deletedata", {{"sql", R"(select * from t where "v" = 'v')"}}), "0");
    EXPECT_EQ(Rows("select * from t order by id"), "0 zero-0|1 one-1");
    if (Traits().variable.empty()) return;
    const bool isPostgresql = Traits().source == "PostgreSQL";
    EXPECT_EQ(Scalar(isPostgresql ? "show timezone" : "select @@time_zone"), isPostgresql ? "UTC" : "+00:00");
}

// No column says how long it may become.
TEST_P(ValuesTest, ATextThatAnExpressionMakesIsWhole) {
    const std::string all = Traits().source == "PostgreSQL" ? "string_agg(v, ',')" : "group_concat(v)";
    const std::string thousand(1000, 'x');
    const auto rows = Query("select '" + thousand + thousand + "' as v, n from " + Numbers(3));
    for (int i = 0; i < 3; ++i, rows->MoveNext()) {
        EXPECT_EQ(rows->Fields().Item("v")->Value().Text(), thousand + thousand);
    }
    std::string xml;
    const auto sql =
        "select " + all + " as v from (select '" + thousand + "' as v from " + Numbers(2000) + ") q";
    ASSERT_TRUE(engine.RunFunction(Request("public.getdata", {{"sql", sql}}), xml));
    ZorbFunctionResult result;
    ASSERT_TRUE(result.Parse(xml));
    EXPECT_EQ(result.GetResultDataItem("K", 1)->GetItemValueByName("v").size(), 2'000'000U + 1999U);
}

// A driver reads some forms of a moment by itself, and is not to leave out a part of one.
TEST_P(ValuesTest, AMomentWithAnOffsetIsKeptOrRefused) {
    const bool isPostgresql = Traits().source == "PostgreSQL";
    Run("create table t (id integer primary key, m " +
        std::string(isPostgresql ? "timestamptz" : Traits().timestamp) + ")");
    for (const auto& [text, moment] : {std::pair{"2024-02-03T10:20:30.25+02:00", "2024-02-03 08:20:30.25"},
                                       {"2024-02-03 10:20:30-05:30", "2024-02-03 15:50:30"},
                                       {"2024-02-03T10:20:30Z", "2024-02-03 10:20:30"}}) {
        SCOPED_TRACE(text);
        Run("delete from t");
        if (Call("adddata", {{"sql", "t"}}, {{"id", "1"}, {"m", text}}) != "1") {
            EXPECT_EQ(Traits().source, "MariaDB");
            EXPECT_EQ(Rows("select m from t"), "");
            continue;
        }
        EXPECT_EQ(Scalar("select m from t"), isPostgresql ? moment : text);
        EXPECT_EQ(Call("updatedata", {{"sql", "t"}}, {{"m", "2000-01-01 00:00:00"}}), "1") << "it is found";
    }
}

// Where a database reads a quote or a backslash in its own way, a value would end up as a statement.
TEST_P(ValuesTest, AQuotedValueStaysAValue) {
    Run("create table t (id integer primary key, v varchar(200))");
    std::string report;
    ASSERT_TRUE(engine.LoadFunctionDefsXml(R"xml(<functions>
      <functiondef name="put">
        <paramdef><param name="id" type="integer"/><param name="v" type="text" extra="quote"/></paramdef>
        <function name="public.executesql"><param name="sql" value="insert into t values (%id%, '%v%')"/></function>
      </functiondef>
      <functiondef name="find">
        <paramdef><param name="v" type="text" extra="quote"/></paramdef>
        <function name="public.getcomplexdata">
          <param name="sql" value="select id, v from t where v = '%v%'"/>
          <param name="refcols"><col name="of" value="v" extra="quoted"/></param>
          <param name="csql" value="select v again from t where v = '%of%'"/>
        </function>
      </functiondef></functions>)xml",
                                           report))
        << report;
    const std::vector<std::string> values{"O'Neil",
                                          "''",
                                          R"(\)",
                                          R"(\\)",
                                          R"(C:\new\table)",
                                          R"(\')",
                                          R"(\' or 1=1 -- x)",
                                          R"(\'); delete from t; -- x)",
                                          R"('; delete from t; --x)",
                                          R"(\\' or '1'='1)",
                                          R"("\")",
                                          "%",
                                          "a--b/*c",
                                          "$1 ? {d}",
                                          R"(\%\_)",
                                          "\xE8\xA9\xB1\\\'\xF0\x9F\x98\x80"};
    for (std::size_t i = 0; i < values.size(); ++i) {
        SCOPED_TRACE(values[i]);
        const auto id = std::to_string(i);
        std::string result;
        ASSERT_TRUE(engine.RunFunction(Request("put", {{"id", id}, {"v", values[i]}}), result));
        EXPECT_THAT(Entries(result), testing::ElementsAre("K info[return=1]"));
        EXPECT_EQ(Scalar("select v from t where id = " + id), values[i]);
        ASSERT_TRUE(engine.RunFunction(Request("find", {{"v", values[i]}}), result));
        EXPECT_THAT(Entries(result),
                    testing::ElementsAre(testing::EndsWith("|id=" + id + " v=" + values[i] + "]"),
                                         testing::EndsWith("|again=" + values[i] + "]")));
    }
    EXPECT_EQ(Scalar("select count(*) from t"), std::to_string(values.size()));
}

}  // namespace
}  // namespace halvtiv::test
