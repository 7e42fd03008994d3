#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "foundation/err_object.hpp"
#include "foundation/this_utils.hpp"
#include "foundation/xml_utils.hpp"
#include "support.hpp"

namespace halvtiv {
namespace {

using test::ErrorOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kNotUtf8 = "a\xFFz";
constexpr const char* kSurrogate = "\xED\xA0\x80";
constexpr const char* kControl = "a\x01z";
constexpr const char* kNoCharacter = "\xEF\xBF\xBE";  // U+FFFE

TEST(LastErrorTest, CarriesTheLabelAndIsReplacedAsAWhole) {
    clsZorbErrObject error("S", "clsZorbTivCore");
    EXPECT_EQ(error.GetErrorMsg(), "");
    EXPECT_FALSE(error.Raise());

    error.SetError2(-5, "first", "12", "a.hlp", "the provider");
    const ErrorInfo raised = ErrorOf([&] { error.Raise(); });
    EXPECT_EQ(raised.Number, -5);
    EXPECT_EQ(raised.Description, "clsZorbTivCore:first");
    EXPECT_EQ(raised.Source, "the provider");
    EXPECT_EQ(raised.HelpFile, "a.hlp");
    EXPECT_EQ(raised.HelpContext, 12);

    error.SetError2(-1, "ConnectionString is not set.", "0", "");
    EXPECT_EQ(error.GetErrorMsg(), "clsZorbTivCore:ConnectionString is not set.(ERR#: -1)");
    EXPECT_EQ(error.Source(), "S");
    EXPECT_EQ(ErrorOf([&] { error.Raise(); }).HelpFile, "");
    error.Clear();
    EXPECT_EQ(error.Source(), std::nullopt);
    EXPECT_EQ(error.Description(), "");
}

TEST(UtilitiesTest, TextsBecomeTypesAndNumbersByTheRulesOfThePlatform) {
    EXPECT_EQ(DataTypeFromName("DateTime"), 3);
    EXPECT_EQ(DataTypeFromName(" text"), -1);
    EXPECT_EQ(ResultTypeFromName(""), 0);
    EXPECT_EQ(ColumnTypeFromName("info"), -1);
    EXPECT_EQ(ColumnTypeToName(3), "(unknown)");
    EXPECT_EQ(AdoTypeToDataType(7), -1);
    EXPECT_EQ(AdoTypeToDataType(201), 4);
    EXPECT_EQ(StrToLongDef("2.5", 9), 2);
    EXPECT_EQ(StrToLongDef(" 3.5 ", 9), 4);
    EXPECT_EQ(StrToLongDef("99999999999", 9), 9);
    EXPECT_EQ(EscapeSqlQuotes("O'Brien''s"), "O''Brien''''s");
    EXPECT_EQ(AddPathSeparator(""), "");
    EXPECT_EQ(AddPathSeparator("c:/data/"), "c:/data/\\");
    EXPECT_EQ(CreateGUIDString(0).size(), 38U);
    EXPECT_THAT(CreateGUIDString(1), testing::MatchesRegex("[0-9A-F]{32}"));

    const auto valid = [](const char* text, std::int32_t type) { return IsValidDataValue(text, type); };
    for (const char* text : {"3.0", " 12 ", "1e3", "-2147483648"}) EXPECT_PRED2(valid, text, 0);
    for (const char* text : {"12.5", "", "x", "1,000", "0x1F"}) EXPECT_FALSE(valid(text, 0)) << text;
    for (const char* text : {"", "inf", "nan", "1e", ".", "1 2"}) EXPECT_FALSE(valid(text, 1)) << text;
    for (const char* text : {"2024-02-29", "12:30", "2024/12/31T10:00:00.5Z"}) EXPECT_PRED2(valid, text, 3);
    for (const char* text : {"2023-02-29", "24:00", "", "yesterday"}) EXPECT_FALSE(valid(text, 3)) << text;
    EXPECT_TRUE(valid("", 2) && !valid("x", 4) && !valid("x", -1));
    EXPECT_EQ(ErrorOf([] { IsValidDataValue("2147483648", 0); }).Number, 6);
}

TEST(UtilitiesTest, NodesInsideRemovedNodesGoWithThem) {
    pugi::xml_document document;
    document.load_string("<r><row a='1'><x><row/></x></row><keep row='1'/><row/></r>");
    EXPECT_TRUE(RemoveXmlNodes(document, "  //row | //@row "));
    EXPECT_TRUE(RemoveXmlNodes(document, "//nothing"));
    EXPECT_STREQ(document.child("r").first_child().name(), "keep");
    EXPECT_FALSE(document.child("r").child("row"));
    EXPECT_FALSE(document.child("r").child("keep").attribute("row"));
}

std::string Describe(const ZorbColumnDataItems& items) {
    std::string text;
    for (const auto& item : items) {
        text += item->Name + "=" + item->Value + ":" + std::to_string(item->DataType) + ":" +
                item->ExtraValue + ";";
    }
    return text;
}

TEST(ColumnDataItemsTest, ReadsItemsWrittenInAnyAllowedWay) {
    const std::pair<const char*, const char*> cases[] = {
        {"<r><col name='A' value=' 1 '/><col name='' value='2'/><x><col name='b'/></x></r>", "A=1:0:;"},
        {R"(<r><col name=" f " type="file">c:\a.bin</col></r>)", R"(f=c:\a.bin:1:c:\a.bin;)"},
        {"<r><col name='f' value='' type='bogus' extra=' e '/></r>", "f=:0:e;"},
        {"<r><col name='f' type=' ERROR ' value='1'>text</col></r>", "f=1:2:text;"},
        {"<any><col name='f' extra=''>x<![CDATA[<y>]]>z<b/>w</col></any>", "f=x<y>z:0:;"},
        {"<r><Col name='f'/><other name='g'/></r>", ""}};
    for (const auto& [xml, expected] : cases) {
        ZorbColumnDataItems items;
        items.Add("earlier", "");
        EXPECT_TRUE(items.Parse(xml, "col"));
        EXPECT_EQ(Describe(items), expected) << xml;
    }
    ZorbColumnDataItems items;
    items.Add("earlier", "");
    const ErrorInfo error = ErrorOf([&] { items.Parse("<r>", "col"); });
    EXPECT_EQ(error.Number, -1);
    EXPECT_EQ(error.Description, "Failed to load Xml Data Row.");
    EXPECT_EQ(items.Count(), 0);
    EXPECT_NE(ErrorOf([&] { items.Parse("<r/>", "c'["); }).Number, 0) << "a tag that breaks the expression";
}

TEST(ColumnDataItemsTest, ValuesComeBackAsTheyWentIn) {
    const std::string awkward =
        "<a href=\"x\">'&amp;'</a>\t tab\r\nline\rcr\xC2\x85 \xE2\x80\xA8 \xF0\x9F\x98\x80 ]]>";
    ZorbColumnDataItems items;
    items.Add("Größe", awkward, QORV_COLUMN_FILE, "&\n;");
    items.Add("plain", "", 77);
    std::string xml;
    std::string message = "old";
    ASSERT_TRUE(items.Save(xml, "ROOT", "item", message));
    EXPECT_EQ(message, "");
    EXPECT_THAT(xml,
                StartsWith("<ROOT><item name=\"Größe\" value=\"&lt;a href=&quot;x&quot;&gt;'&amp;amp;'"));
    EXPECT_THAT(xml, HasSubstr("<item name=\"plain\" value=\"\" type=\"(unknown)\"/></ROOT>"));
    ZorbColumnDataItems read;
    read.Parse(xml, "item");
    EXPECT_EQ(Describe(read), "Größe=" + awkward + ":1:&\n;;plain=:0:;");

    for (const char* root : {"", "1x", "a b", "a>", "\xFF"}) {
        EXPECT_FALSE(items.Save(xml, root, "item", message)) << root;
        EXPECT_EQ(message, "Failed to create xml root element.") << root;
    }
    EXPECT_FALSE(items.Save(xml, "r", "no name", message));
    EXPECT_FALSE(message.empty());
}

TEST(ColumnDataItemsTest, PositionsKeysAndNames) {
    ZorbColumnDataItems items;
    items.Add("x", "1", 0, "", "k");
    EXPECT_EQ(ErrorOf([&] { items.Item("k"); }).Number, 5) << "the first item has no key";
    items.Add("y", "2", 0, "", "k");
    EXPECT_EQ(items.Item("K")->Value, "2");
    EXPECT_EQ(ErrorOf([&] { items.Add("z", "3", 0, "", "K"); }).Number, 457);
    items.Add("X", "3");
    EXPECT_EQ(items.GetItemByName("X", 2)->Value, "3");
    EXPECT_EQ(items.GetItemByName("y", INT_MAX), nullptr);
    EXPECT_EQ(items.GetItemByName("y", INT_MIN)->Value, "2");
    for (const std::int32_t position : {0, -1, 4, INT_MAX, INT_MIN}) {
        EXPECT_EQ(ErrorOf([&] { items.Item(position); }).Number, 9);
        EXPECT_EQ(ErrorOf([&] { items.Remove(position); }).Number, 9);
        items.RemoveItemByName("absent", position);
    }
    items.RemoveItemByName("x", 1);
    EXPECT_EQ(Describe(items), "y=2:0:;");

    // However an item goes, its key is free again, and the others keep theirs.
    const auto removals = {std::function<void()>([&] { items.Remove(2); }),
                           std::function<void()>([&] { items.Remove("GONE"); }),
                           std::function<void()>([&] { items.RemoveItemByName("g"); })};
    for (const auto& remove : removals) {
        items.Add("g", "5", 0, "", "gone");
        items.Add("h", "6", 0, "", "stays");
        remove();
        EXPECT_EQ(ErrorOf([&] { items.Item("gone"); }).Number, 5);
        EXPECT_EQ(items.Item("stays"), items.Item(2));
        EXPECT_EQ(items.Item("k")->Value, "2");
        items.Remove("stays");
    }
    EXPECT_EQ(Describe(items), "y=2:0:;");
    items.Add("ИМЯ ÄÉ", "4");
    EXPECT_EQ(items.GetItemValueByName("имя äé"), "4");
    EXPECT_EQ(items.GetItemValueByName("absent"), "");

    ZorbColumnDataItems copy;
    items.Tag("rows");
    copy.CopyFrom(items);
    items.CopyFrom(items);
    EXPECT_EQ(Describe(items), Describe(copy));
    copy.Item(1)->Value = "changed";
    EXPECT_EQ(items.Item(1)->Value, "2") << "a copy shares nothing";
    EXPECT_EQ(ErrorOf([&] { copy.Item("k"); }).Number, 5);
    copy.Reset();
    EXPECT_EQ(copy.Tag(), "rows");
}

TEST(StrictReadingTest, WhatIsNoWellFormedXmlIsRefusedEverywhere) {
    const auto nested = [](int depth) {
        std::string xml;
        for (int level = 0; level < depth; ++level) xml += "<a>";
        for (int level = 0; level < depth; ++level) xml += "</a>";
        return xml;
    };
    const auto utf16 = [](std::string_view text) {
        std::string bytes = "\xFF\xFE";
        for (const char character : text) bytes.append(1, character).append(1, '\0');
        return bytes;
    };
    std::vector<std::string> refused{std::string("<a>\0</a>", 8), std::string("<a/>\0", 5), nested(257),
                                     utf16("<a><b></a>")};
    for (const char* xml :
         {"", " ", "not xml", "<a/><b/>", "<a/>junk", "<a></b>", "<a b='1' b='2'/>", "<a b=1/>", "<a b='<'/>",
          "<a>\xFF</a>", "<a>\xED\xA0\x80</a>", "<a>\xC0\x80</a>", "<a>\x01</a>", "<a>&#0;</a>",
          "<a>&#xD800;</a>", "<a>&nbsp;</a>", "<a>]]></a>", "<!DOCTYPE a><a/>"}) {
        refused.push_back(xml);
    }
    for (const std::string& xml : refused) {
        ZorbFunctionCall call;
        call.FunctionName("kept");
        EXPECT_FALSE(call.Parse(xml)) << xml;
        EXPECT_EQ(call.GetLastError(), "ZorbFunctionCall:Failed to load Xml Param.(ERR#: -1)") << xml;
        EXPECT_EQ(call.FunctionName(), "kept");
        ZorbFunctionResult result;
        result.ResultName("gone");
        EXPECT_FALSE(result.Parse(xml)) << xml;
        EXPECT_EQ(result.GetLastError(), "ZorbFunctionResult:Failed to load Xml Param.(ERR#: -1)") << xml;
        std::string text;
        EXPECT_TRUE(result.Save(text));
        EXPECT_EQ(text, "<result/>");
    }
    for (const std::string& xml : std::vector<std::string>{
             "<a/>\n<!-- c --><?p i?>", "\xEF\xBB\xBF<a/>",
             "<?xml version='1.0' encoding='GBK'?><a name='中'/>", nested(256),
             utf16("<?xml version='1.0' encoding='UTF-16'?><a/>"), "<a b='&#x4E2D;&apos;&#9;'/>"}) {
        ZorbFunctionCall call;
        EXPECT_TRUE(call.Parse(xml)) << xml << call.GetLastError();
        ZorbFunctionResult result;
        EXPECT_TRUE(result.Parse(xml)) << xml << result.GetLastError();
    }
}

TEST(FunctionCallTest, IsReadTolerantlyAndWrittenInOneForm) {
    ZorbFunctionCall call;
    call.AddParam("earlier", "");
    ASSERT_TRUE(call.Parse(R"(<?xml version="1.0"?>
        <anything name=" orders.list " guid=" G ">
          <param name="rows" value="ignored" type="file"><col name="qty" type="">3</col><x/><col name=""/></param>
          <param name=" a " value=" 1&#9;" type="FILE" extra="e"/>
          <param name="">unseen</param> <param value="unseen"/>
          <param name="a"><![CDATA[select '<']]></param>
          <param name="text">error</param>
          <nested><param name="deep"/></nested>
        </anything>)"));
    std::string xml;
    ASSERT_TRUE(call.Save(xml));
    EXPECT_EQ(
        xml,
        R"(<function name="orders.list" guid="G"><param name="a" value="1&#9;" type="file" extra="e"/>)"
        R"(<param name="a" value="select '&lt;'" extra="select '&lt;'"/>)"
        R"(<param name="text" value="error" type="error" extra="error"/>)"
        R"(<param name="rows"><col name="qty" value="3" extra="3"/><col name="" value="" extra=""/></param></function>)");

    ZorbFunctionCall fresh;
    std::string again;
    ASSERT_TRUE(fresh.Save(xml));
    ASSERT_TRUE(fresh.Save(again));
    EXPECT_EQ(fresh.FunctionGUID().size(), 32U);
    EXPECT_EQ(xml, again);
    EXPECT_EQ(xml, "<function name=\"\" guid=\"" + fresh.FunctionGUID() + "\"/>");
}

TEST(FunctionCallTest, LookUpsCountFromOneAndSayWhatIsMissing) {
    ZorbFunctionCall call;
    EXPECT_EQ(call.AddParam("Имя", "1"), 1);
    EXPECT_EQ(call.AddParam(" имя ", "2", QORV_COLUMN_FILE, "e"), 2);
    EXPECT_EQ(call.AddParam("ИМЯ", "3"), 3);
    EXPECT_EQ(call.AddDataParam(" Rows "), 1);
    EXPECT_EQ(call.AddSubParam(1, "qty", "5"), 1);
    EXPECT_EQ(call.AddDataParamXml("rows", "<r><col name='qty' value='6'/></r>"), 2);

    std::vector<std::string> values{"old"};
    EXPECT_EQ(call.GetParamArray("имя", values), 2);
    EXPECT_THAT(values, ElementsAre("1", "3"));
    EXPECT_EQ(call.GetParamArray("none", values), -1);
    EXPECT_THAT(values, ElementsAre("1", "3"));
    EXPECT_EQ(call.GetLastError(), "");
    EXPECT_EQ(call.GetParamByName("имя", 2), "2");
    EXPECT_EQ(call.GetDataParamIndex("ROWS", 2), 2);
    EXPECT_EQ(call.GetDataParamByName("rows")->GetItemValueByName("QTY"), "5");
    EXPECT_EQ(call.GetDataParamIndex("rows", 3), -1);

    std::string name, value, extra;
    std::int32_t type = 0;
    ASSERT_TRUE(call.GetParamInfo(2, name, value, type, extra));
    EXPECT_EQ(name + value + std::to_string(type) + extra, " имя 21e");

    const std::string paramIndex = "Specified parameter index out of boundary.";
    const std::string dataIndex = "Specified data parameter index out of boundary.";
    const std::string subIndex = "Specified sub parameter index out of boundary.";
    const std::pair<std::function<bool()>, std::string> cases[] = {
        {[&] { return call.GetParamInfo(0, name, value, type, extra); }, paramIndex},
        {[&] { return call.GetParamInfo(4, name, value, type, extra); }, paramIndex},
        {[&] { return call.ExistParam("N"); }, "Specified parameter name not found - N."},
        {[&] { return call.GetParamByName("имя", 4) != ""; }, "Specified parameter name not found - имя."},
        {[&] { return call.GetSubParamInfo(3, 1, name, value, type, extra); }, dataIndex},
        {[&] { return call.GetSubParamInfo(1, 2, name, value, type, extra); }, subIndex},
        {[&] { return call.GetSubParamByName(0, "qty") != ""; }, dataIndex},
        {[&] { return call.GetSubParamByName(1, "x") != ""; }, "Specified sub parameter name not found - x."},
        {[&] { return call.AddSubParam(9, "a", "b") > 0; }, "Invalid data parameter index specified - 9."},
        {[&] { return call.AddDataParamXml("b", "<r>") > 0; }, "Failed to load Xml Data Row."}};
    for (const auto& [fails, message] : cases) {
        EXPECT_FALSE(fails()) << message;
        EXPECT_EQ(call.GetLastError(), "ZorbFunctionCall:" + message + "(ERR#: -1)");
    }
    EXPECT_EQ(call.DataParamCount(), 2) << "a block whose text does not load is not added";
    EXPECT_FALSE(call.SetParam(4, "x"));
    EXPECT_FALSE(call.RemoveDataParam(3));
    EXPECT_EQ(call.GetDataParam(3), nullptr);
    EXPECT_EQ(call.GetLastError(), "");
    EXPECT_TRUE(call.SetParam(1, "new"));
    EXPECT_TRUE(call.RemoveDataParam(1));
    call.GetDataParam(1)->Add("more", "7");
    EXPECT_EQ(call.GetSubParam(1, 2), "7") << "blocks are live";
}

TEST(FunctionCallTest, RefusesTextsThatXmlCannotCarry) {
    for (const std::string bad : {kNotUtf8, kSurrogate, kControl, kNoCharacter}) {
        ZorbFunctionCall call;
        call.AddParam("a", "good");
        call.AddDataParam("rows");
        EXPECT_EQ(call.AddParam("b", bad), -1);
        EXPECT_THAT(call.GetLastError(), HasSubstr("(ERR#: 5)"));
        EXPECT_EQ(call.AddParam(bad, "b"), -1);
        EXPECT_EQ(call.AddParam("b", "", 0, bad), -1);
        EXPECT_EQ(call.AddSubParam(1, "b", bad), -1);
        EXPECT_EQ(call.AddDataParam(bad), -1);
        EXPECT_FALSE(call.SetParam(1, bad));
        EXPECT_EQ(ErrorOf([&] { call.FunctionName(bad); }).Number, 5);
        EXPECT_EQ(ErrorOf([&] { call.FunctionGUID(bad); }).Number, 5);
        EXPECT_EQ(call.GetParam(1), "good");
        EXPECT_EQ(call.ParamCount() + call.DataParamCount(), 2);

        std::string xml = "old";
        EXPECT_TRUE(call.Save(xml));
        call.GetDataParam(1)->Add("c", "good")->Value = bad;
        EXPECT_FALSE(call.Save(xml)) << "put in behind the call's back";
        EXPECT_THAT(call.GetLastError(), HasSubstr("(ERR#: 5)"));
    }
}

TEST(FunctionCallTest, FilesAppearOnlyWhenTheyAreWritten) {
    const test::TemporaryFolder folder;
    ZorbFunctionCall call;
    call.FunctionName("名");
    EXPECT_FALSE(call.SaveToFile(folder.PathOf("missing/call.xml")));
    EXPECT_THAT(call.GetLastError(), HasSubstr("(ERR#: 76)"));
    EXPECT_FALSE(call.SaveToFile(folder.PathOf("")));
    EXPECT_TRUE(call.SaveToFile(folder.PathOf("call.xml"))) << call.GetLastError();
    EXPECT_THAT(folder.FilesIn(), ElementsAre("call.xml"));
    EXPECT_THAT(test::ReadFile(folder.PathOf("call.xml")), HasSubstr("<function name=\"名\""));
}

TEST(ColumnDataItemsTest, AnItemsOwnNameMayBeTheOneRemoved) {
    ZorbColumnDataItems items;
    for (const char* name : {"a name beyond the short ones", "y", "A NAME beyond the short ones"})
        items.Add(name, "");
    items.RemoveItemByName((*items.begin())->Name);
    ASSERT_EQ(items.Count(), 1);
    EXPECT_EQ(items.Item(1)->Name, "y");
}

TEST(ColumnDataItemsTest, ARootThatIsNoNameInAnyScriptIsRefused) {
    ZorbColumnDataItems items;
    std::string xml, message;
    for (const char* name : {"", "1a", "a b", "\u00D7", "\u0301a", "\u2000"}) {
        EXPECT_FALSE(items.Save(xml, name, "col", message)) << name;
        EXPECT_EQ(message, "Failed to create xml root element.");
    }
    EXPECT_TRUE(items.Save(xml, "\u884C", "col", message)) << message;
    EXPECT_TRUE(items.Parse(xml, "col"));
}

}  // namespace
}  // namespace halvtiv
