#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "definitions/function_def_library.hpp"
#include "support.hpp"

namespace halvtiv {
namespace {

using test::ErrorOf;
using testing::ElementsAre;
using testing::HasSubstr;

std::string Definition(const std::string& name, const std::string& inside,
                       const std::string& body = "<function name='public.getdata'/>") {
    return "<functiondef name='" + name + "'>" + inside + body + "</functiondef>";
}

/// A definition of "f" whose body's "sql" is a text with placeholders.
std::string WithSql(const std::string& paramDefs, const std::string& sql, const std::string& more = {}) {
    return Definition(
        "f", "<paramdef>" + paramDefs + "</paramdef>",
        "<function name='public.getdata'><param name='sql' value=\"" + sql + "\"/>" + more + "</function>");
}

TEST(FunctionDefinitionTest, SaysWhatIsWrongWithIt) {
    const std::string noName = "No function name defined.", noBody = "No function body defined.";
    const std::string badType = "Invalid data type defined for parameter - \"p\".";
    const auto withParam = [](const char* param) {
        return Definition("f", std::string("<paramdef>") + param + "</paramdef>");
    };
    const std::pair<std::string, std::string> cases[] = {
        {"<functiondef", "Load function definition error."},
        {"<functiondef/>", noName},
        {"<functiondef name='  '/>", noName},
        {"<functiondef name='f'/>", noBody},
        {"<functiondef name='f'><function name=''/><x><function name='b'/></x></functiondef>", noBody},
        {withParam("<param name=' p '/>"), badType},
        {withParam("<param name='p' type='binary'/>"), badType},
        {withParam("<param name='p'>text</param>"), badType},
        {withParam("<param name='p' type='integer' extra=' qoute '/>"),
         "Invalid extra defined for parameter - \"p\" (\"qoute\" is not \"quote\")."},
        {Definition("f", "", "<function name='b' provider='SQLite, Nobody'/>"),
         "Invalid provider of function body - \"Nobody\" (known are SQLite, PostgreSQL, MariaDB, SQLServer, "
         "Access)."}};
    for (const auto& [xml, message] : cases) {
        clsZorbFunctionDef definition;
        EXPECT_FALSE(definition.Parse(xml)) << xml;
        EXPECT_EQ(definition.GetLastError(), "clsZorbXmlFunction:" + message + "(ERR#: -1)");
    }
    clsZorbFunctionDef definition;
    ASSERT_TRUE(definition.Parse(
        "<any name=' f '><paramdef><param name='a' type=' TEXT '>words</param><param name='a' "
        "type='datetime'/><param name='' type='x'/></paramdef><function name=' public.X '>"
        "<param name='sql'>a &lt; b</param></function><function name='second'/></any>"))
        << definition.GetLastError();
    EXPECT_EQ(definition.FunctionName(), "f");
    EXPECT_EQ(definition.FunctionBase(), "public.X");
    EXPECT_EQ(definition.ParamCount(), 2);
    EXPECT_EQ(definition.FunctionBody(),
              "<function name=\" public.X \"><param name=\"sql\">a &lt; b</param></function>");
}

/// The "sql" that a call compiles to, or the error's words.
std::string Compiled(const std::string& definitionXml, const std::string& params,
                     const std::string& name = "f", const std::string& database = {}) {
    clsZorbFunctionDef definition;
    EXPECT_TRUE(definition.Parse(definitionXml)) << definition.GetLastError();
    ZorbFunctionCall call;
    EXPECT_TRUE(call.Parse("<function guid='G' name='" + name + "'>" + params + "</function>"));
    if (!definition.CompileFunction(call, database)) return definition.GetLastError();
    EXPECT_EQ(call.FunctionName(), "public.getdata");
    EXPECT_EQ(call.FunctionGUID(), "G");
    EXPECT_FALSE(definition.CompileFunction(call)) << "it names the base function now";
    return call.GetParamByName("sql");
}

TEST(FunctionCompilationTest, ValuesTakeThePlaceOfTheirPlaceholders) {
    const std::string text = "<param name='t' type='text' value='a word' extra='quote'/>";
    const std::string number = "<param name='n' type='integer' value='a number'/>";
    const std::string plain = "<param name='t' type='text' value='a word'>quoted or not</param>";
    const std::string quoted = "<param name='t' type='text' value='a word'>QUOTED</param>";
    const std::vector<std::array<std::string, 3>> cases{
        {WithSql(text + number, "top %n% c='%t%'"),
         "<param name='T' value=\"O'Neil\"/><param name='n' value='10'/>", "top 10 c='O''Neil'"},
        {WithSql(plain, "%t%"), "<param name='t' value=\"O'Neil\"/>", "O'Neil"},
        {WithSql(quoted, "%t%"), "<param name='t' value=\"O'Neil\"/>", "O''Neil"},
        {WithSql(number, "1-%n% and 1=0 - %n%"), "<param name='n' value='-1'/>", "1- -1 and 1=0 - -1"},
        {WithSql(number, "1-%n% /*-%n%*/ '-%n%' --%n%&#10;-%n%"), "<param name='n' value='-1'/>",
         "1- -1 /*--1*/ '--1' ---1\n- -1"},
        {WithSql(plain + number, "-%t%%n%-%n%"), "<param name='t' value=''/><param name='n' value='-1'/>",
         "- -1- -1"},
        {WithSql(number + plain, "-%t%%n%%"), "<param name='t' value=''/><param name='n' value='-1'/>",
         "- -1%"},
        {WithSql(plain + number, "-%t%-%t%"), "<param name='t' value='%n%'/><param name='n' value='-1'/>",
         "- -1- -1"},
        {WithSql(plain, "own", "<param name='sql' value='second'/>"), "<param name='t' value='x'/>", "own"},
        {WithSql(number, "%n%%n% %N% 100% %x%"), "<param name='n' value='10'/>", "1010 %N% 100% %x%"},
        {WithSql(text + number, "%t%"), "<param name='t' value='%n%'/><param name='n' value='7'/>", "7"},
        {WithSql(number + text, "%t%"), "<param name='t' value='%n%'/><param name='n' value='7'/>", "%n%"},
        {WithSql(text, "%t%"), "<param name='t' value='first'/><param name='t' value='second'/>", "first"},
        {WithSql(text, "of the body"), "<param name='t' value='x'/><param name='SQL' value='own %t%'/>",
         "own x"},
        {WithSql("<param name='имя' type='text'/>", "%имя%%ИМЯ%"), "<param name='ИМЯ' value='%'/>", "%%ИМЯ%"},
        {WithSql(number, ""), "", "Compile error: No value provided for defined parameter - \"n\"."},
        {WithSql(number, ""), "<param name='n' value='ten'/>",
         "Compile error: Invalid data type for provided parameter value - \"n\"(required a number.)"},
        {WithSql("<param name='d' type='datetime' value='a day'/>", ""),
         "<param name='d' value='2023-02-29'/>",
         "Compile error: Invalid data type for provided parameter value - \"d\"(required a day.)"}};
    for (const auto& [definition, params, expected] : cases) {
        const bool fails = expected.starts_with("Compile error");
        EXPECT_EQ(Compiled(definition, params),
                  fails ? "clsZorbXmlFunction:" + expected + "(ERR#: -1)" : expected);
    }
    for (const auto& [database, sql, expected] :
         std::vector<std::array<std::string, 3>>{{"SQLite", "[it's], 1-%n%", "[it's], 1- -1"},
                                                 {"PostgreSQL", "a[1-%n%], $$it's-%n%$$, E'\\'-%n%', 1-%n%",
                                                  "a[1- -1], $$it's--1$$, E'\\'--1', 1- -1"}}) {
        EXPECT_EQ(Compiled(WithSql(number, sql), "<param name='n' value='-1'/>", "f", database), expected);
    }
    EXPECT_EQ(Compiled(WithSql(number, ""), "<param name='n' value='1'/>", "F"),
              "clsZorbXmlFunction:Compile error: function name not match - \"F\" and \"f\".(ERR#: -1)");
    EXPECT_THAT(Compiled(WithSql(number, ""), "<param name='n' value='2147483648'/>"),
                HasSubstr("(ERR#: 6)"));
}

TEST(FunctionCompilationTest, BlocksOfTheBodyCompleteThoseOfTheCall) {
    clsZorbFunctionDef definition;
    ASSERT_TRUE(definition.Parse(WithSql("<param name='n' type='integer'/>", "",
                                         "<param name='Rows'><col name='a' value='body'/><col name='b' "
                                         "value='%n%' type='file' extra='e'/></param>"
                                         "<param name='own'><col name='c' value='%n%%n%'/></param>")));
    ZorbFunctionCall call;
    ASSERT_TRUE(call.Parse(
        "<f name='f' guid='G'><param name='n' value='5'/><param name='more' type='file' value='%n%'/>"
        "<param name='rows'><col name='A' value='call %n%'/></param></f>"));
    ASSERT_TRUE(definition.CompileFunction(call)) << definition.GetLastError();
    std::string xml;
    call.Save(xml);
    EXPECT_EQ(xml,
              "<function name=\"public.getdata\" guid=\"G\"><param name=\"n\" value=\"5\" extra=\"\"/>"
              "<param name=\"more\" value=\"5\" type=\"file\" extra=\"\"/><param name=\"sql\" value=\"\" "
              "extra=\"\"/>"
              "<param name=\"rows\"><col name=\"A\" value=\"call 5\" extra=\"\"/>"
              "<col name=\"b\" value=\"5\" type=\"file\" extra=\"e\"/></param>"
              "<param name=\"own\"><col name=\"c\" value=\"55\" extra=\"\"/></param></function>");
    ZorbFunctionCall second;
    second.FunctionName("f");
    second.AddParam("n", "6");
    ASSERT_TRUE(definition.CompileFunction(second));
    EXPECT_EQ(second.GetSubParam(2, 1), "66") << "the definition itself has not changed";
}

TEST(FunctionCompilationTest, EveryChildQueryOfTheBodyCountsUnlessTheCallHasItsOwn) {
    const std::string body = WithSql("", "", "<param name='csql'>a</param><param name=' CSQL '>b</param>");
    for (const std::string own : {"", "<param name='Csql' value='own'/>"}) {
        clsZorbFunctionDef definition;
        ZorbFunctionCall call;
        ASSERT_TRUE(definition.Parse(body) && call.Parse("<f name='f'>" + own + "</f>"));
        ASSERT_TRUE(definition.CompileFunction(call));
        std::vector<std::string> queries;
        EXPECT_EQ(call.GetParamArray("csql", queries), own.empty() ? 2 : 1);
        EXPECT_EQ(queries.back(), own.empty() ? "b" : "own");
    }
}

TEST(FunctionLibraryTest, TheReportTellsWhatCameOfEachDefinition) {
    ZorbDbAccessEngine engine;
    std::string report = "old";
    ASSERT_TRUE(engine.LoadFunctionDefsXml("<x>" + Definition("Orders.ByCustomer", "") + "</x>", report));
    const std::string xml = "<functions>" + Definition(" spaced ", "") +
                            Definition("orders.bycustomer",
                                       "<paramdef><param "
                                       "name='a' type='text'/><param name='b' type='double'/></paramdef>") +
                            Definition("", "") + "<!-- c --><other/>" + Definition("orders.bad", "", "") +
                            Definition("chained", "", "<function name='orders.bycustomer'/>") +
                            Definition("loud", "", "<function name='PUBLIC.GETDATA'/>") + "<x>" +
                            Definition("deep", "") + "</x></functions>";
    ASSERT_TRUE(engine.LoadFunctionDefsXml(xml, report)) << engine.GetLastError();
    EXPECT_EQ(
        report,
        "Loading functions ...\r\n>  spaced : Success. (0 parameters)\r\n> orders.bycustomer: Updated. (2 "
        "parameters)\r\n"
        "> orders.bad: Failed. (No function body defined.)\r\n> chained: Failed. (Invalid base function - "
        "orders.bycustomer.)\r\n"
        "> loud: Success. (0 parameters)\r\n5 functions loaded(2 failed, 2 new added and 1 updated).\r\n");
    EXPECT_EQ(engine.GetLastError(), "");
    EXPECT_TRUE(engine.IsFunctionDefined("SPACED"));
    EXPECT_FALSE(engine.IsFunctionDefined(" spaced "));
    EXPECT_FALSE(engine.IsFunctionDefined("public.getdata"));
    EXPECT_FALSE(engine.IsFunctionDefined("deep"));
    ASSERT_TRUE(engine.LoadFunctionDefsXml(xml, report));
    EXPECT_THAT(report, HasSubstr("5 functions loaded(2 failed, 0 new added and 3 updated)."));

    EXPECT_FALSE(engine.LoadFunctionDefsXml("<x>", report));
    EXPECT_EQ(engine.GetLastError(),
              "ZorbDbAccessEngine:clsZorbXmlFunctionLibrary:Invalid format for function definition "
              "stream.(ERR#: -1)");
    EXPECT_EQ(report,
              "Loading functions ...\r\nLoading process broken by error: Invalid format for function "
              "definition stream.\r\n");
    EXPECT_TRUE(engine.IsFunctionDefined("loud")) << "what was loaded before stays";
    EXPECT_TRUE(engine.RemoveFunctionDef("LOUD"));
    EXPECT_FALSE(engine.RemoveFunctionDef("loud"));
    EXPECT_EQ(engine.GetLastError(),
              "ZorbDbAccessEngine:clsZorbXmlFunctionLibrary:Specified function not found - loud.(ERR#: -1)");
    engine.RemoveAllFunctionDefs();
    EXPECT_FALSE(engine.IsFunctionDefined("spaced"));
}

TEST(FunctionLibraryTest, FilesAreReadInTheirOwnEncoding) {
    const test::TemporaryFolder folder;
    const std::string path = folder.PathOf("defs.xml");
    const auto utf16 = [](std::u16string_view text, bool bigEndian) {
        std::string bytes;
        for (const char16_t unit : u"\xFEFF" + std::u16string(text)) {
            const char low = static_cast<char>(unit & 0xFF), high = static_cast<char>(unit >> 8);
            bytes.append({bigEndian ? high : low, bigEndian ? low : high});
        }
        return bytes;
    };
    constexpr std::u16string_view kUtf16 =
        u"<d><functiondef name='订单'><function name='public.getdata'/></functiondef></d>";
    const std::string element =
        "<d><functiondef name='\xB6\xA9\xB5\xA5'><function name='public.getdata'/></functiondef></d>";
    ZorbDbAccessEngine engine;
    std::string report;
    for (const std::string& bytes :
         {"<?xml version=\"1.0\" encoding=\"GBK\"?>" + element,
          "<?xml version='1.0' encoding='gb2312'?>\n" + element, utf16(kUtf16, false), utf16(kUtf16, true),
          "\xEF\xBB\xBF<d>" + Definition("订单", "") + "</d>"}) {
        test::WriteFile(path, bytes);
        ASSERT_TRUE(engine.LoadFunctionDefs(path, report)) << report << bytes;
        EXPECT_THAT(report, HasSubstr("> 订单: Success. (0 parameters)\r\n"));
        EXPECT_TRUE(engine.RemoveFunctionDef("订单"));
    }
    for (const std::string& bytes :
         {std::string(), element, "<?xml version='1.0' encoding='no-such'?>" + element,
          "<?xml version='1.0' encoding='UTF-8'?>" + element}) {
        test::WriteFile(path, bytes);
        EXPECT_FALSE(engine.LoadFunctionDefs(path, report)) << bytes;
        EXPECT_THAT(engine.GetLastError(),
                    HasSubstr("Invalid format for function definition file.(ERR#: -1)"));
    }
    for (const std::string& missing :
         {folder.PathOf("none.xml"), folder.PathOf(""), std::string(), path + "/x"}) {
        EXPECT_FALSE(engine.LoadFunctionDefs(missing, report));
        EXPECT_THAT(engine.GetLastError(),
                    HasSubstr("Specified function definition file not found - " + missing + ".(ERR#: -1)"));
        EXPECT_THAT(
            report,
            HasSubstr("Loading process broken by error: Specified function definition file not found - "));
    }
}

}  // namespace
// A value may hold other placeholders: each round may double the text.
TEST(FunctionCompilationTest, ATextThatGrowsWithoutBoundIsRefused) {
    std::string definition = "<functions><functiondef name='grow'><paramdef>";
    std::string call = "<function name='grow'>";
    for (int number = 1; number <= 40; ++number) {
        const std::string name = "p" + std::to_string(number);
        const std::string next = "%p" + std::to_string(number + 1) + "%";
        definition += "<param name='" + name + "' type='text' value='text'/>";
        call += "<param name='" + name + "' value='" + next + next + "'/>";
    }
    definition +=
        "</paramdef><function name='public.getdata'><param name='sql' value='%p1%'/></function>"
        "</functiondef></functions>";
    ZorbDbAccessEngine engine;
    std::string log;
    ASSERT_TRUE(engine.LoadFunctionDefsXml(definition, log)) << engine.GetLastError();
    std::string result;
    EXPECT_FALSE(engine.RunFunction(call + "</function>", result));
    EXPECT_THAT(engine.GetLastError(),
                HasSubstr("Compile error: Text too long after substitution - \"p1\"."));
    // The bound is that of the whole call, and counts what is written on the way: some of these texts become
    // 1 MiB, others empty.
    for (const auto& [count, last] : {std::pair{1, "x"}, {60, "x"}, {1, ""}, {60, ""}}) {
        call = "<function name='grow'>";
        for (int number = 1; number <= 40; ++number) {
            const std::string name = "p" + std::to_string(number),
                              next = "%p" + std::to_string(number + 1) + "%";
            call += "<param name='" + name + "' value='" + (number < 21 ? next + next : last) + "'/>";
        }
        for (int item = 0; item < count; ++item) call += "<param name='item' value='%p1%'/>";
        clsZorbFunctionDefLibrary library(std::vector<std::string_view>{"public.getdata"});
        ZorbFunctionCall grown;
        ASSERT_TRUE(library.LoadFunctionDefsXml(definition, log) && grown.Parse(call + "</function>"));
        EXPECT_EQ(library.CompileFunction(grown), count == 1) << library.GetLastError();
    }
}

TEST(FunctionDefLibraryTest, OneTextMayServeForDefinitionsAndReport) {
    ZorbDbAccessEngine engine;
    std::string text = "<f><functiondef name='a'><function name='public.getdata'/></functiondef></f>";
    EXPECT_TRUE(engine.LoadFunctionDefsXml(text, text)) << engine.GetLastError();
    EXPECT_THAT(text, HasSubstr("> a: Success. (0 parameters)"));
}

TEST(FunctionDefTest, ADatabaseMayHaveABodyOfItsOwn) {
    clsZorbFunctionDef definition;
    ASSERT_TRUE(
        definition.Parse("<d name='f'><paramdef><param name='n' type='integer' value='x'/></paramdef>"
                         "<function name='public.getdata' provider='PostgreSQL, MariaDB'>"
                         "<param name='sql' value='server %n%'/></function>"
                         "<function name='public.executesql'><param name='sql' value='rest %n%'/>"
                         "</function></d>"))
        << definition.GetLastError();
    EXPECT_EQ(definition.FunctionBase(), "public.executesql");
    const std::pair<const char*, const char*> cases[] = {{"mariadb", "public.getdata server 7"},
                                                         {"POSTGRESQL", "public.getdata server 7"},
                                                         {"SQLite", "public.executesql rest 7"},
                                                         {"", "public.executesql rest 7"}};
    for (const auto& [database, expected] : cases) {
        ZorbFunctionCall call;
        call.FunctionName("f");
        call.AddParam("n", "7");
        ASSERT_TRUE(definition.CompileFunction(call, database)) << definition.GetLastError();
        EXPECT_EQ(call.FunctionName() + " " + call.GetParamByName("sql"), expected) << database;
    }
    const std::vector<std::string_view> names{"public.getdata"};
    clsZorbFunctionDefLibrary library(names);
    std::string report;
    EXPECT_TRUE(
        library.LoadFunctionDefsXml("<l><functiondef name='f'><function name='public.getdata'/>"
                                    "<function name='nope' provider='SQLite'/></functiondef></l>",
                                    report));
    EXPECT_THAT(report, HasSubstr("Invalid base function - nope."));
}

}  // namespace halvtiv
