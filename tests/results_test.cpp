#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support.hpp"

namespace halvtiv {
namespace {

using test::Entries;
using test::ErrorOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kNotUtf8 = "a\xFFz";
constexpr const char* kSurrogate = "\xED\xA0\x80";
constexpr const char* kControl = "a\x01z";

std::string Saved(ZorbFunctionResult& result) {
    std::string xml = "old";
    EXPECT_TRUE(result.Save(xml)) << result.GetLastError();
    return xml;
}

TEST(FunctionResultTest, EntriesAreFoundByTheirKey) {
    ZorbFunctionResult result;
    EXPECT_EQ(Saved(result), "<result/>");
    EXPECT_EQ(result.ResultGUID() + result.ResultName(), "");
    EXPECT_TRUE(result.AddFunctionResult_Info("i", 7));
    EXPECT_TRUE(result.AddFunctionResult_Info("i", -8));
    EXPECT_TRUE(result.AddFunctionResult_Error("e", 1, "old", "old"));
    EXPECT_TRUE(result.AddFunctionResult_Error("e", -1, "\"<x>\"\r\n", "S&S"));
    result.ResultName("n");
    EXPECT_EQ(
        Saved(result),
        R"(<result name="n"><data guid="i" type="info"><row index="0"><col name="return" value="7"/></row></data>)"
        R"(<data guid="i" type="info"><row index="0"><col name="return" value="-8"/></row></data>)"
        R"(<data guid="e" type="error"><row index="0"><col name="number" value="-1"/>)"
        R"(<col name="description" value="&quot;&lt;x&gt;&quot;&#13;&#10;"/><col name="source" value="S&amp;S"/>)"
        R"(</row></data></result>)");

    EXPECT_EQ(result.GetResultType("i"), QORV_OUTPUT_INFO);
    EXPECT_EQ(result.GetResultDataCount("e"), 0);
    EXPECT_EQ(result.GetResultDataItem("i", 0)->GetItemValueByName("return"), "7");
    EXPECT_EQ(result.GetResultType("none"), -1);
    EXPECT_EQ(result.GetResultDataItem("i", 1), nullptr);
    EXPECT_EQ(result.GetResultDataItemXml("i", -1), "");
    EXPECT_EQ(result.GetLastError(), "");
    EXPECT_EQ(result.GetResultDataCount("none"), -1);
    EXPECT_EQ(result.GetLastError(), "ZorbFunctionResult:Specified data not found - none.(ERR#: -1)");
    EXPECT_EQ(result.GetResultDataXml("none"), "");
    EXPECT_EQ(result.GetLastError(), "ZorbFunctionResult:Specified data not found.(ERR#: -1)");
    EXPECT_FALSE(result.ChangeResultDataGUID("none", "x"));
    EXPECT_EQ(result.GetLastError(), "ZorbFunctionResult:Specified data not found.(ERR#: -1)");
    EXPECT_TRUE(result.ChangeResultDataGUID("i", "j"));
    EXPECT_EQ(result.GetResultDataItem("i", 0)->GetItemValueByName("return"), "-8");

    const ErrorInfo raised = ErrorOf([&] { result.RaiseResultError("e"); });
    EXPECT_EQ(raised.Number, -1);
    EXPECT_EQ(raised.Description, "\"<x>\"\r\n");
    EXPECT_EQ(raised.Source, "S&S");
    EXPECT_EQ(ErrorOf([&] { result.RaiseResultError("i"); }).Number, 13);
    EXPECT_EQ(ErrorOf([&] { result.RaiseResultError("none"); }).Number, 13);
    EXPECT_EQ(result.GetLastError(), "") << "what is raised is not kept";
    result.AddFunctionResult_Error("nothing", 0, "", "");
    EXPECT_EQ(ErrorOf([&] { result.RaiseResultError("nothing"); }).Number, 0);

    for (const char* bad : {kNotUtf8, kSurrogate, kControl}) {
        EXPECT_FALSE(result.AddFunctionResult_Info(bad, 1));
        EXPECT_FALSE(result.AddFunctionResult_Error("e", 1, bad, ""));
        EXPECT_FALSE(result.ChangeResultDataGUID("j", bad));
        EXPECT_EQ(ErrorOf([&] { result.ResultName(bad); }).Number, 5);
    }
    EXPECT_EQ(result.GetResultType("e"), QORV_OUTPUT_ERROR) << "a refused entry replaces none";
}

TEST(FunctionResultTest, KeysGoIntoTheLookUpAsTheyStand) {
    for (const bool live : {false, true}) {
        ZorbFunctionResult result;
        result.AddFunctionResult_Info("a", 1);
        result.AddFunctionResult_Error("b", 2, "", "");
        const auto document = live ? result.ResultXMLDOMDoc() : nullptr;
        EXPECT_EQ(result.GetResultType("x' or @type='error"), QORV_OUTPUT_ERROR);
        EXPECT_EQ(result.GetResultType("b' and position() = last() and not(@x) and '1'='1"),
                  QORV_OUTPUT_ERROR);
        for (const char* inside :
             {"x' or row[1]/col/@name='description", "x' or count(child::row/*)=3 or 'a'='"})
            EXPECT_EQ(result.GetResultType(inside), QORV_OUTPUT_ERROR) << inside << result.GetLastError();
        for (const char* refused :
             {"a'] | /*/data[@guid='b", "x' or ../data[2]/@guid='b", "x' or /result/@x='",
              "x' or *//col or 'a'='", "x' or following::data and '1'='1", "x' or @*='b",
              "x' or row[lang('b')] or 'a'='", "x' or translate(@guid,'a','b')='b", "a']/row[@index='0"}) {
            EXPECT_EQ(result.GetResultType(refused), -1);
            EXPECT_THAT(result.GetLastError(), StartsWith("ZorbFunctionResult:Key is an expression that "))
                << refused;
        }
        EXPECT_EQ(result.GetResultDataItem("' or '1'='1", 0)->GetItemValueByName("return"), "1");
        for (const char* broken : {"'", "O'Brien", "a' or ", "a'] | //["}) {
            EXPECT_EQ(result.GetResultType(broken), -1);
            EXPECT_THAT(result.GetLastError(), HasSubstr("(ERR#: -2147467259)")) << broken;
            EXPECT_EQ(result.GetResultDataCount(broken), -1);
            EXPECT_EQ(result.GetResultDataXml(broken), "");
            EXPECT_THAT(result.GetLastError(), HasSubstr("(ERR#: -2147467259)")) << broken;
            EXPECT_FALSE(result.AddFunctionResult_Error(broken, 1, "", ""));
        }
        EXPECT_TRUE(result.AddFunctionResult_Info("O'Brien", 3)) << "added without a look-up";
        EXPECT_EQ(result.GetResultType("a"), QORV_OUTPUT_INFO);
        EXPECT_EQ(Entries(Saved(result)).size(), 3U);
        EXPECT_TRUE(result.AddFunctionResult_Error("' or '1'='1", 5, "", ""));
        EXPECT_EQ(Entries(Saved(result)).size(), 1U) << "the expression selected all";
    }
    ZorbFunctionResult large;  // a row beside each row: 10^10 pairs
    std::string rows;
    for (int row = 0; row < 100000; ++row) rows += "<row index='" + std::to_string(row) + "'/>";
    ASSERT_TRUE(large.Parse("<r><data guid='k' type='file'>" + rows + "</data></r>"));
    EXPECT_EQ(large.GetResultType("x' or row/@index='99999"), QORV_OUTPUT_FILE);
    EXPECT_EQ(large.GetResultType("x' or row/@index=row/@none or 'a'='"), -1);
    EXPECT_THAT(large.GetLastError(), HasSubstr("takes too long on a result of this size."));
}

TEST(FunctionResultTest, ManyEntriesAreFoundHoweverTheyChange) {
    for (const bool live : {false, true}) {
        ZorbFunctionResult result;
        for (int entry = 0; entry < 40; ++entry) {
            ASSERT_TRUE(result.AddFunctionResult_Info(entry % 2 == 0 ? "even" : "odd", entry));
        }
        const auto document = live ? result.ResultXMLDOMDoc() : nullptr;
        const auto first = [&](std::string_view guid) {
            const ZorbColumnDataItemsPtr row = result.GetResultDataItem(guid, 0);
            return row ? row->Item(1)->Value : "none";
        };
        ASSERT_TRUE(result.ChangeResultDataGUID("even", "odd"));
        EXPECT_EQ(first("odd") + first("even"), "02") << "in document order";
        for (int entry = 0; entry < 3; ++entry) ASSERT_TRUE(result.ChangeResultDataGUID("odd", "moved"));
        EXPECT_EQ(first("moved") + first("odd"), "05") << "0, 1 and 3 have moved";
        ASSERT_TRUE(result.AddFunctionResult_Error("odd", 7, "", ""));
        ASSERT_TRUE(result.ChangeResultDataGUID("x' or @type='error", "even"));
        EXPECT_EQ(first("odd") + first("moved") + first("even"), "none02");
    }
}

TEST(FunctionResultTest, ADocumentThatNobodyHoldsAnyMoreIsRead) {
    ZorbFunctionResult result;
    ASSERT_TRUE(result.Parse("<r x='y'><data guid='k'><row index='0'/></data></r>"));
    for (const char* text : {"", " "}) {  // no text keeps white space alone
        auto document = result.ResultXMLDOMDoc();
        document->first_child().first_child().append_child("row").append_attribute("index") = "1";
        document->first_child().append_child(pugi::node_pcdata).set_value(text);
        document.reset();
        const std::string saved = Saved(result);
        for (int look = 0; look < 40; ++look) ASSERT_EQ(result.GetResultDataCount("k"), 1);
        EXPECT_EQ(Saved(result), saved);
    }
}

TEST(FunctionResultTest, TheDocumentHandedOutIsTheResultUntilResetOrParse) {
    ZorbFunctionResult result;
    result.AddFunctionResult_Info("a", 1);
    const auto document = result.ResultXMLDOMDoc();
    document->document_element().child("data").attribute("guid").set_value("\t<new>");
    document->document_element().append_attribute("name").set_value("told");
    EXPECT_EQ(result.ResultName(), "told");
    EXPECT_EQ(result.GetResultType("\t<new>"), QORV_OUTPUT_INFO);
    result.AddFunctionResult_Error("b", 2, "line\nline", "");
    EXPECT_EQ(result.GetResultDataCount("b"), 0);
    EXPECT_TRUE(document->document_element().find_child_by_attribute("data", "guid", "b"));
    EXPECT_EQ(result.ResultXMLDOMDoc(), document);
    EXPECT_THAT(Entries(Saved(result)),
                ElementsAre("\t<new> info[return=1]", "b error[number=2 description=line\nline source=]"));

    EXPECT_FALSE(result.Parse("<broken"));
    EXPECT_EQ(Saved(result), "<result/>");
    EXPECT_NE(result.ResultXMLDOMDoc(), document);
    EXPECT_TRUE(document->document_element().find_child_by_attribute("data", "guid", "b"))
        << "its holder's to keep";
    result.Reset();
    result.AddFunctionResult_Info("c", 3);
    EXPECT_FALSE(document->document_element().find_child_by_attribute("data", "guid", "c"));

    const auto emptied = result.ResultXMLDOMDoc();
    emptied->reset();
    EXPECT_FALSE(result.AddFunctionResult_Info("d", 4)) << "there is no root any more";
    EXPECT_FALSE(result.GetLastError().empty());
    EXPECT_EQ(result.GetResultType("c"), -1);
    result.Reset();
    EXPECT_EQ(Saved(result), "<result/>");
}

TEST(FunctionResultTest, ParsedRowsAreTakenAsTheyCome) {
    constexpr std::string_view kXml =
        R"(<r guid="G">stray<other/><data><row index="0"/></data><data guid="k"/><data guid="k" type="FILE">)"
        R"(<!-- <row index="7"/> --><row index="3" x="&gt;"><row index="4"/><col name="a" value="three"/></row>)"
        R"(<row><col name="b">no index &lt;row&gt;</col></row><rows index="1"/><row index="3"><col name="a" value="second"/>)"
        R"(</row><row index="-1"/><row index="01"/></data><x><data guid="deep"/></x></r>)";
    for (const bool live : {false, true}) {
        ZorbFunctionResult result;
        ASSERT_TRUE(result.Parse(kXml));
        const auto document = live ? result.ResultXMLDOMDoc() : nullptr;
        EXPECT_EQ(Saved(result), kXml);
        EXPECT_EQ(result.ResultGUID(), "G");
        EXPECT_EQ(result.GetResultType("k"), QORV_OUTPUT_DATA) << "the first under that key has no type";
        EXPECT_EQ(result.GetResultType("deep"), -1);
        EXPECT_EQ(result.GetResultType(""), -1) << "an entry without a key";
        EXPECT_EQ(result.GetResultDataItem("k", 3)->GetItemValueByName("a"), "three");
        EXPECT_EQ(result.GetResultDataItem("k", 3)->Count(), 1);
        EXPECT_EQ(result.GetResultDataItemXml("k", -1), "<row index=\"-1\"/>");
        EXPECT_EQ(result.GetResultDataItem("k", 4), nullptr) << "nested rows are none of the entry's";
        EXPECT_EQ(result.GetResultDataItem("k", 1), nullptr) << "indexes are compared as text";
        EXPECT_EQ(result.GetResultDataItem("k", 0), nullptr);
        EXPECT_EQ(result.GetResultDataCount("k"), 1) << "of the last row, in the first entry that has any";
        EXPECT_EQ(result.GetResultDataXml("k"), "<data guid=\"k\"/>");
        result.ChangeResultDataGUID("k", "other");
        EXPECT_EQ(result.GetResultType("k"), QORV_OUTPUT_FILE);
        EXPECT_EQ(result.GetResultDataCount("other"), -1);
    }
    ZorbFunctionResult result;
    ASSERT_TRUE(result.Parse("<r><data guid='a'><row/></data><data guid='b'><row index='x'/></data></r>"));
    EXPECT_EQ(result.GetResultDataCount("a"), 0);
    EXPECT_EQ(result.GetResultDataCount("b"), -1);
    EXPECT_THAT(result.GetLastError(), HasSubstr("(ERR#: 13)"));
}

class ResultRecordsTest : public testing::Test {
protected:
    ado::RecordsetPtr Query(std::string_view sql) { return connection_->Execute(sql); }

    test::TemporaryFolder folder_;
    ado::ConnectionPtr connection_ = test::MakeDatabase(folder_.PathOf("data.db"));
};

TEST_F(ResultRecordsTest, RecordsBecomeRowsWithTheirValuesUnchanged) {
    ado::RecordsetPtr records = Query(
        "select 1 as Id, char(9,13,10,34,38,60) || ' x ' as \"ÄTEXT\", null as N, 2.50 as D union all select "
        "2, 'b', 3, 1e300");
    ZorbFunctionResult result;
    ASSERT_TRUE(result.AddFunctionResult_Data("k", records, "")) << result.GetLastError();
    EXPECT_TRUE(records->IsEOF());
    EXPECT_THAT(Entries(Saved(result)),
                ElementsAre("k data[id=integer ätext=text n=text d=double"
                            "|id=1 ätext=\t\r\n\"&< x  n= d=2.5|id=2 ätext=b n=3 d=1e+300]"));
    EXPECT_EQ(result.GetResultDataCount("k"), 2);

    ado::RecordsetPtr none = Query("select 1 as a where 0");
    ASSERT_TRUE(result.AddFunctionResult_Data("empty", none, ""));
    EXPECT_EQ(result.GetResultDataCount("empty"), 0);
    ado::RecordsetPtr null;
    EXPECT_FALSE(result.AddFunctionResult_Data("null", null, ""));
    EXPECT_THAT(result.GetLastError(), HasSubstr("(ERR#: 91)"));
    ado::RecordsetPtr closed = Query("create table t (a)");
    EXPECT_FALSE(result.AddFunctionResult_Data("closed", closed, ""));
    EXPECT_THAT(result.GetLastError(), HasSubstr("(ERR#: -2146824584)"));
    ZorbFunctionResult read;
    EXPECT_TRUE(read.Parse(Saved(result)));
}

TEST_F(ResultRecordsTest, WhatXmlCannotCarryIsMarkedAndReplaced) {
    ado::RecordsetPtr records = Query(
        "select cast(x'610062' as text) as nul, cast(x'61FF62' as text) as bad, cast(x'EDA080' as text) as "
        "half,"
        "char(1) as control, char(65534) as \"no\x01name\", 'good' as good");
    ZorbFunctionResult result;
    ASSERT_TRUE(result.AddFunctionResult_Data("k", records, "")) << result.GetLastError();
    const std::string xml = Saved(result);
    ZorbFunctionResult read;
    ASSERT_TRUE(read.Parse(xml)) << xml;
    const auto row = read.GetResultDataItem("k", 1);
    for (const char* name : {"nul", "bad"}) EXPECT_EQ(row->GetItemValueByName(name), "a\uFFFDb");
    EXPECT_THAT(row->GetItemValueByName("half"), StartsWith("\uFFFD"));
    EXPECT_EQ(row->GetItemValueByName("control"), "\uFFFD");
    for (int cell = 1; cell <= 5; ++cell) EXPECT_EQ(row->Item(cell)->DataType, QORV_COLUMN_ERROR);
    EXPECT_EQ(row->GetItemByName("good")->DataType, QORV_COLUMN_DATA);
    EXPECT_EQ(read.GetResultDataItem("k", 0)->Item(5)->Name, "no\uFFFDname");
}

TEST_F(ResultRecordsTest, BinaryColumnsGoToFilesOfTheDataFolder) {
    test::MakeDatabase(
        folder_.PathOf("data.db"),
        "create table p (Id integer, Photo blob, Memo longtext, Raw varbinary(9)); insert into p values "
        "(0, x'', '', x'00'), (1, zeroblob(1), 'ä', x'FF00'), (2, null, null, null), (3, zeroblob(4095), "
        "'x', ''),"
        "(4, zeroblob(4096), 'x', ''), (5, zeroblob(4097), 'x', '')");
    ZorbFunctionResult result;
    ado::RecordsetPtr records = Query("select * from p where id = 1");
    ASSERT_TRUE(result.AddFunctionResult_Data("no folder", records, ""));
    records = Query("select * from p order by id");
    std::filesystem::create_directory(folder_.PathOf("out"));
    test::WriteFile(folder_.PathOf("out/Photo.000001"), "an old file");
    ASSERT_TRUE(result.AddFunctionResult_Data("k", records, folder_.PathOf("out"))) << result.GetLastError();
    EXPECT_EQ(result.GetLastError(), "");
    EXPECT_THAT(Saved(result),
                HasSubstr("<data guid=\"k\" type=\"data\" datafolder=\"" + folder_.PathOf("out") + "\\\">"));
    EXPECT_EQ(Entries(Saved(result))[0],
              "no folder data[id=integer photo=binary(file) memo=binary(file) raw=binary(file)"
              "|id=1 photo=(skipped)(file) memo=(skipped)(file) raw=(skipped)(file)]");
    EXPECT_THAT(
        Entries(Saved(result))[1],
        HasSubstr("|id=0 photo=Photo.000001(file) memo=Memo.000001(file) raw=Raw.000001(file)|id=1 "));
    EXPECT_EQ(folder_.FilesIn("out").size(), 18U) << "nothing but the columns' files";
    const std::vector<std::size_t> sizes{0, 1, 0, 4095, 4096, 4097};
    for (std::size_t row = 0; row < sizes.size(); ++row) {
        EXPECT_EQ(test::ReadFile(folder_.PathOf("out/Photo.00000" + std::to_string(row + 1))),
                  std::string(sizes[row], '\0'));
    }
    EXPECT_EQ(test::ReadFile(folder_.PathOf("out/Memo.000002")), "ä");
    EXPECT_EQ(test::ReadFile(folder_.PathOf("out/Raw.000002")), std::string("\xFF\0", 2));
}

TEST_F(ResultRecordsTest, AFileThatCannotBeWrittenMarksItsCellOnly) {
    test::MakeDatabase(folder_.PathOf("data.db"),
                       "create table p (good blob, \"../x\" blob, \"..\\y\" blob); "
                       "insert into p values (x'01', x'02', x'03')");
    std::filesystem::create_directory(folder_.PathOf("out"));
    ZorbFunctionResult result;
    ado::RecordsetPtr records = Query("select * from p");
    ASSERT_TRUE(result.AddFunctionResult_Data("k", records, folder_.PathOf("out\\")))
        << result.GetLastError();
    EXPECT_NE(result.GetLastError(), "");
    EXPECT_THAT(Entries(Saved(result))[0],
                HasSubstr("|good=good.000001(file) ../x=../x.000001(error) ..\\y=..\\y.000001(error)]"));
    EXPECT_THAT(folder_.FilesIn("out"), ElementsAre("good.000001"));
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("data.db", "out"));

    records = Query("select good, 7 as n from p");
    ASSERT_TRUE(result.AddFunctionResult_Data("m", records, folder_.PathOf("missing")));
    EXPECT_THAT(result.GetLastError(), HasSubstr("(ERR#: 76)"));
    EXPECT_THAT(Entries(Saved(result))[1], HasSubstr("|good=good.000001(error) n=7]"));
}

TEST_F(ResultRecordsTest, RowsOfAnyLengthAreFoundInALongResult) {
    ado::RecordsetPtr records = Query(
        "with recursive n(i) as (select 1 union all select i + 1 from n where i < 50000) "
        "select i, printf('%.*c', 1 + i * 7919 % 900, 'x') as text from n");
    ZorbFunctionResult result;
    ASSERT_TRUE(result.AddFunctionResult_Data("k", records, ""));
    for (std::int32_t row = 1; row <= result.GetResultDataCount("k"); ++row) {
        const ZorbColumnDataItemsPtr items = result.GetResultDataItem("k", row);
        ASSERT_EQ(items->Item(1)->Value, std::to_string(row));
        ASSERT_EQ(items->Item(2)->Value.size(), 1 + static_cast<std::size_t>(row) * 7919 % 900);
    }
}

}  // namespace
}  // namespace halvtiv
