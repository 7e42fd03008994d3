// Several calls as one: the document, its run, and the merging of what they return. Calls without XML.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/dispatcher.hpp"
#include "support.hpp"

namespace halvtiv {
namespace {

using test::Entries;
using test::ErrorOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(TransactionCallTest, CallsAreReadAsTheDocumentsTheyAre) {
    ZorbTransactionCall transaction;
    ASSERT_TRUE(transaction.Parse(
        "<?xml version='1.0'?><anything name=' T1 ' guid=' {1} ' x='y'><!-- c --><Function name='no'/>"
        "<function name=' a&amp;b ' guid='G1'><param name='p'>one<!-- -->two</param>"
        "<param name='q'><![CDATA[ <x> ]]>\r\n&#13;&quot;</param><function name='inner'/>"
        "<param name='d'><col name='c' value='&lt;&#10;' type='FILE'/></param></function>"
        "<group><function name='deep'/></group>text<function guid='g2' name='PUBLIC.GetData'/></anything>"))
        << transaction.GetLastError();
    EXPECT_EQ(transaction.TransName(), "T1");
    EXPECT_EQ(transaction.TransGUID(), "{1}");
    ASSERT_EQ(transaction.FunctionCount(), 2);
    const ZorbFunctionCallPtr first = transaction.GetFunction(1);
    EXPECT_EQ(first->FunctionName(), "a&b");
    EXPECT_EQ(first->GetParamByName("p"), "one") << "a comment parts one text from the next";
    EXPECT_EQ(first->GetParamByName("q"), "<x> \n\r\"");
    EXPECT_EQ(first->GetDataParamByName("d")->Item(1)->Value, "<\n");
    EXPECT_EQ(first->GetDataParamByName("d")->Item(1)->DataType, QORV_COLUMN_FILE);
    EXPECT_EQ(first->ParamCount() + first->DataParamCount(), 3);

    EXPECT_EQ(transaction.FunctionName(1) + transaction.FunctionGUID(1), "a&bG1");
    for (const std::int32_t none : {-1, 0, 2, 3}) {
        EXPECT_EQ(transaction.FunctionName(none) + transaction.FunctionGUID(none), "") << none;
        EXPECT_EQ(transaction.GetFunction(none) != nullptr, none == 2) << none;
    }
    EXPECT_EQ(transaction.GetFunctionByName("public.getdata"), transaction.GetFunction(2));
    EXPECT_EQ(transaction.GetFunctionByGUID("G2"), transaction.GetFunction(2));
    EXPECT_EQ(transaction.GetFunctionByName(" a&b"), nullptr);
    EXPECT_EQ(transaction.GetFunctionByGUID(""), nullptr);
    EXPECT_EQ(transaction.GetLastError(), "");
}

TEST(TransactionCallTest, WhatIsSavedComesBackAndKeepsItsKeys) {
    ZorbTransactionCall transaction;
    std::string xml;
    ASSERT_TRUE(transaction.Save(xml));
    const std::string guid = transaction.TransGUID();
    EXPECT_EQ(guid.size(), 32U);
    EXPECT_EQ(xml, "<transaction name=\"\" guid=\"" + guid + "\"/>");

    transaction.TransName("a \"b\" <\tc>");
    ZorbFunctionCall call;
    call.FunctionName("f");
    call.AddParam("p", " \r\n&");
    const ZorbFunctionCallPtr added = transaction.AddFunction(call);
    ASSERT_NE(added, nullptr) << transaction.GetLastError();
    EXPECT_EQ(added->FunctionGUID(), call.FunctionGUID());
    call.FunctionName("changed later");
    const ZorbFunctionCallPtr second = transaction.AddFunctionXml("<x name='g'/>");
    EXPECT_EQ(transaction.GetFunction(2), second);
    added->FunctionName("changed through the pointer");
    ASSERT_TRUE(transaction.Save(xml));

    ZorbTransactionCall copy;
    std::string again;
    ASSERT_TRUE(copy.Parse(xml) && copy.Save(again)) << copy.GetLastError();
    EXPECT_EQ(again, xml);
    EXPECT_EQ(copy.TransName(), "a \"b\" <\tc>");
    EXPECT_EQ(copy.TransGUID(), guid);
    EXPECT_EQ(copy.FunctionName(1), "changed through the pointer");
    EXPECT_EQ(copy.GetFunction(2)->FunctionName(), "g");
}

TEST(TransactionCallTest, FailuresSayWhoseTheyAreAndLeaveNothingHalf) {
    ZorbTransactionCall transaction;
    ASSERT_TRUE(transaction.Parse("<t name='n'><function name='f'/></t>"));
    EXPECT_EQ(transaction.AddFunctionXml("<f"), nullptr);
    EXPECT_EQ(transaction.GetLastError(),
              "ZorbTransactionCall:ZorbFunctionCall:Failed to load Xml Param.(ERR#: -1)");
    EXPECT_EQ(transaction.FunctionCount(), 1);
    std::string xml = "old";
    transaction.GetFunction(1)->AddDataParam("d");
    transaction.GetFunction(1)->AddSubParam(1, "n", "v");
    transaction.GetFunction(1)->GetDataParam(1)->Item(1)->Value = "\x01";
    EXPECT_FALSE(transaction.Save(xml)) << "no XML can carry it";
    EXPECT_EQ(xml, "old");
    EXPECT_EQ(ErrorOf([&] { transaction.TransName("\xFF"); }).Number, 5);
    EXPECT_EQ(ErrorOf([&] { transaction.TransGUID("\x02"); }).Number, 5);
    for (const char* bad : {"", "<t><function name='f'/>", "<t><function name='f'/></t><t/>"}) {
        EXPECT_FALSE(transaction.Parse(bad));
        EXPECT_EQ(transaction.GetLastError(),
                  "ZorbTransactionCall:Failed to load Xml Transaction.(ERR#: -1)");
        EXPECT_EQ(transaction.FunctionCount(), 0) << bad;
        EXPECT_EQ(transaction.TransName(), "");
        EXPECT_TRUE(transaction.Parse("<t name='n'><function name='f'/></t>"));
    }
    transaction.Reset();
    EXPECT_EQ(transaction.FunctionCount(), 0);
}

const char* const kLeft =
    "<r name='L'>x<data guid='a' type='data'><row index='0'/><row index='1'><col name='n' value='1'/></row>"
    "</data></r>";
const char* const kRight =
    "<r name='R'><other/><data guid='a' type='info'/><data guid='b&quot;' type='data' more='&lt;&#10;'>"
    "<row index='0'/><row index='1'><col name='n' value='&#13;&amp;'>t</col></row></data><!-- c --></r>";
const char* const kRightEntries =
    "<data guid=\"a\" type=\"info\"/><data guid=\"b&quot;\" type=\"data\" more=\"&lt;&#10;\">"
    "<row index=\"0\"/><row index=\"1\"><col name=\"n\" value=\"&#13;&amp;\">t</col></row></data>";

TEST(MergeTest, EntriesOfAnotherResultComeBehindOnesOwn) {
    for (int forms = 0; forms < 4; ++forms) {  // each of the two as text and as a tree
        ZorbFunctionResult left, right;
        ASSERT_TRUE(left.Parse(kLeft) && right.Parse(kRight));
        const auto document = (forms & 1) != 0 ? left.ResultXMLDOMDoc() : nullptr;
        if ((forms & 2) != 0) right.ResultXMLDOMDoc();
        std::string before, after, expected, merged;
        ASSERT_TRUE(left.Save(expected) && right.Save(before));
        expected.insert(expected.size() - 4, kRightEntries);
        ASSERT_TRUE(left.MergeResult(right)) << left.GetLastError();
        ASSERT_TRUE(left.Save(merged) && right.Save(after));
        EXPECT_EQ(merged, expected) << forms;
        EXPECT_EQ(after, before) << forms;
        EXPECT_EQ(left.GetResultType("a"), QORV_OUTPUT_DATA) << "the earlier one";
        EXPECT_EQ(left.GetResultDataItem("b\"", 1)->Item(1)->Value, "\r&");
        if (document) {
            EXPECT_EQ(document->first_child().last_child().attribute("guid").value(), std::string("b\""));
        }
        right.Reset();
        EXPECT_EQ(left.GetResultDataCount("b\""), 1) << "nothing is shared";
    }
}

TEST(MergeTest, MergingAResultWithItselfDoublesIt) {
    for (const bool asTree : {false, true}) {
        ZorbFunctionResult result, empty;
        ASSERT_TRUE(result.MergeResult(result) && result.MergeResult(empty));
        for (const char* guid : {"a", "b"}) result.AddFunctionResult_Info(guid, 1);
        if (asTree) result.ResultXMLDOMDoc();
        ASSERT_TRUE(result.MergeResult(result)) << result.GetLastError();
        std::string xml;
        ASSERT_TRUE(result.Save(xml));
        EXPECT_THAT(Entries(xml), ElementsAre("a info[return=1]", "b info[return=1]", "a info[return=1]",
                                              "b info[return=1]"));
    }
}

TEST(MergeTest, LookUpsSeeWhatIsMergedAndMarkupThatIsNoneIsRefused) {
    ZorbFunctionResult many, more;
    for (int entry = 0; entry < 20; ++entry) {
        ASSERT_TRUE(many.AddFunctionResult_Info("many" + std::to_string(entry), entry));
        ASSERT_TRUE(more.AddFunctionResult_Info("more" + std::to_string(entry), entry));
    }
    EXPECT_EQ(many.GetResultType("more19"), QORV_OUTPUT_UNKNOWN);
    ASSERT_TRUE(many.MergeResult(more));
    EXPECT_EQ(many.GetResultDataItem("more19", 0)->Item(1)->Value, "19");
    more.ResultXMLDOMDoc()->first_child().first_child().append_attribute("not a name");
    EXPECT_FALSE(many.MergeResult(more));
    EXPECT_THAT(many.GetLastError(), StartsWith("ZorbFunctionResult:"));
    std::string xml;
    ASSERT_TRUE(many.Save(xml));
    EXPECT_EQ(Entries(xml).size(), 40U);
    more.ResultXMLDOMDoc()->reset();
    EXPECT_TRUE(many.MergeResult(more)) << "a document without a root has no entries";
    EXPECT_FALSE(more.MergeResult(many)) << "and nothing to add any to";
}

class TransactionTest : public testing::Test {
protected:
    void SetUp() override {
        test::MakeDatabase(path_,
                           "create table t (a integer primary key);"
                           "create table child (a integer references t deferrable initially deferred)");
        std::string report;
        ASSERT_TRUE(engine_.LoadFunctionDefsXml(
            "<d><functiondef name='add'><paramdef><param name='a' type='integer'/></paramdef>"
            "<function name='public.executesql'><param name='sql'>insert into t values (%a%)</param>"
            "</function></functiondef><functiondef name='all'><function name='public.getdata'>"
            "<param name='sql' value='select a from t order by a'/></function></functiondef></d>",
            report));
        ASSERT_NE(engine_.SetDatabaseConnectionString(connectionString_), nullptr) << engine_.GetLastError();
    }

    static std::string Call(const std::string& guid, const std::string& sql,
                            const std::string& function = "public.executesql") {
        return "<function name='" + function + "' guid='" + guid + "'><param name='sql'>" + sql +
               "</param></function>";
    }
    static std::string Add(const std::string& guid, const std::string& value) {
        return "<function name='add' guid='" + guid + "'><param name='a' value='" + value + "'/></function>";
    }

    /// The answer, and the result in `xml_`, of a transaction with these calls.
    bool Run(const std::string& calls) {
        xml_ = "<transaction name='N' guid='T'>" + calls + "</transaction>";
        const bool done = engine_.RunTransaction(xml_, xml_);  // one text for both
        EXPECT_TRUE(xml_.empty() || xml_.starts_with("<result guid=\"T\" name=\"N\"")) << xml_;
        return done;
    }
    /// What is in the table for everybody, and that nobody holds a transaction open.
    std::string Rows() {
        auto other = test::MakeDatabase(path_, "begin immediate; rollback");
        return other->Execute("select coalesce(group_concat(a, ' '), '') from t")
            ->Fields()
            .Item(0)
            ->Value()
            .Text();
    }

    test::TemporaryFolder folder_;
    std::string path_ = folder_.PathOf("data.db");
    std::string connectionString_ = "Provider=SQLite;Busy Timeout=50;Data Source=" + path_;
    std::string xml_;
    ZorbDbAccessEngine engine_;
};

TEST_F(TransactionTest, WhatCannotBeginRunsNothing) {
    auto writer = test::MakeDatabase(path_, "begin immediate");
    EXPECT_FALSE(Run(Add("1", "1")));
    EXPECT_EQ(xml_, "");
    EXPECT_THAT(engine_.GetLastError(), HasSubstr("clsZorbTivCore:database is locked(ERR#: "));
    writer->Execute("rollback");

    xml_ = "old";
    EXPECT_FALSE(engine_.RunTransaction("<transaction><function name='add'>", xml_));
    EXPECT_EQ(xml_, "");
    EXPECT_EQ(engine_.GetLastError(),
              "ZorbDbAccessEngine:ZorbTransactionCall:Failed to load Xml Transaction.(ERR#: -1)");
    EXPECT_EQ(Rows(), "");
}

TEST_F(TransactionTest, ALostConnectionIsReestablishedBeforeNotWithin) {
    const std::string later = "请稍后再试。";
    engine_.GetDatabaseConnection()->Close();
    engine_.ReConnectInterval(3600);
    std::filesystem::rename(path_, path_ + ".away");
    EXPECT_FALSE(Run(Add("1", "2") + Add("2", "3")));
    EXPECT_THAT(Entries(xml_), ElementsAre(HasSubstr("1 error[number=-2147467259 ")))
        << "the first attempt's error: a second one would come too early";
    EXPECT_THAT(engine_.GetLastError(), EndsWith("(ERR#: -2147467259)"));
    std::filesystem::rename(path_ + ".away", path_);

    engine_.ReConnectInterval(-1);
    engine_.DisConnect();
    EXPECT_FALSE(Run(Add("1", "1") + Add("2", "2")));
    EXPECT_THAT(Entries(xml_), ElementsAre(HasSubstr("1 error[number=-1 description=ZorbDbAccessEngine:")));
    EXPECT_THAT(engine_.GetLastError(), EndsWith(later + "-1(ERR#: -1)"));
    EXPECT_TRUE(Run("")) << "nothing was asked of the connection";
    EXPECT_EQ(xml_, "<result guid=\"T\" name=\"N\"/>");
    EXPECT_THAT(engine_.GetLastError(), HasSubstr(later));
    EXPECT_FALSE(Run("<function name='nope'/>"));
    EXPECT_THAT(engine_.GetLastError(), HasSubstr("Function not found - nope."));

    engine_.ReConnectInterval(0);
    EXPECT_FALSE(Run(Add("1", "1") + Add("2", "1")));
    EXPECT_EQ(Rows(), "") << "the new connection is within the transaction from the first call on";
    engine_.GetDatabaseConnection()->Close();
    EXPECT_TRUE(Run(Add("1", "1"))) << engine_.GetLastError();
    EXPECT_EQ(Rows(), "1");
}

TEST_F(TransactionTest, ACallThatLosesItsTransactionsConnectionFails) {
    EngineState engine;
    engine.reConnectInterval = 0;
    engine.connectionString = connectionString_;
    ZorbFunctionCall call;
    ASSERT_TRUE(call.Parse(Call("1", "insert into t values (1)")));
    ZorbFunctionResult result;
    EXPECT_FALSE(ExecuteBuiltInFunction(engine, call, result, RunsIn::Transaction));
    EXPECT_EQ(result.GetResultType("1"), QORV_OUTPUT_ERROR);
    EXPECT_EQ(engine.errors.GetErrorMsg(),
              "ZorbDbAccessEngine:The connection was lost during the transaction.(ERR#: -1)");
    EXPECT_FALSE(engine.core.IsConnectionOK());
    EXPECT_TRUE(ExecuteBuiltInFunction(engine, call, result)) << engine.errors.GetErrorMsg();
    EXPECT_EQ(Rows(), "1");
}

}  // namespace
}  // namespace halvtiv
