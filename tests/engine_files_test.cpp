// Data files and exports that an engine is asked for.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <halvtiv_exporters/exporters.hpp>

#include "export_support.hpp"

namespace halvtiv {
namespace {

using test::Entries;
using test::ExportTest;
using test::kMany;
using test::Updater;
using testing::ElementsAre;
using testing::StartsWith;

class EngineFilesTest : public ExportTest {
protected:
    void SetUp() override {
        ASSERT_NE(engine_.SetDatabaseConnection_MDBFile(folder_.PathOf("source.db"), "", ""), nullptr);
        exporters::AddAllExporters(engine_);
    }
    std::vector<std::string> Run(std::string_view function, test::Params params) {
        std::string xml;
        EXPECT_TRUE(engine_.RunFunction(test::Request(function, params), xml)) << engine_.GetLastError();
        return Entries(xml);
    }

    ZorbDbAccessEngine engine_;
};

TEST_F(EngineFilesTest, ADataFileHoldsTheRowsAndTheResultItsName) {
    const std::string file = folder_.PathOf("out.xml");
    const std::string data = folder_.PathOf("d");
    std::filesystem::create_directory(data);
    EXPECT_THAT(Run("public.getdatatofile", {{"sql", "select id, Name, photo from t where id < 3"},
                                             {"filename", file},
                                             {"datafolder", data}}),
                ElementsAre("K file[file=" + file + "(file)]"));
    EXPECT_EQ(
        test::ReadFile(file),
        "<data guid=\"K\" type=\"file\" datafolder=\"" + data +
            "\\\"><row index=\"0\"><col name=\"id\" value=\"integer\"/><col name=\"name\" value=\"text\"/>"
            "<col name=\"photo\" value=\"binary\" type=\"file\"/></row><row index=\"1\"><col name=\"id\" "
            "value=\"1\"/><col name=\"name\" value=\"北京 &quot;x&quot;, y\"/><col name=\"photo\" "
            "value=\"photo.000001\" type=\"file\"/></row><row index=\"2\"><col name=\"id\" value=\"2\"/>"
            "<col name=\"name\" value=\"مرحبا 😀\"/><col name=\"photo\" value=\"photo.000002\" type=\"file\"/>"
            "</row></data>");
    EXPECT_EQ(test::ReadFile(data + "/photo.000001"), std::string("\0\xFF\1\n", 4));

    EXPECT_THAT(Run("public.getdatatofile", {{"sql", kMany}, {"filename", file}}),
                ElementsAre("K file[file=" + file + "(file)]"));
    const std::vector<std::string> rows = Entries("<r>" + test::ReadFile(file) + "</r>");
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(std::count(rows[0].begin(), rows[0].end(), '|'), 20000);
    EXPECT_THAT(rows[0], testing::EndsWith("|i=20000 s=some text 20000]"));
}

TEST_F(EngineFilesTest, ADataFileThatFailsLeavesNothingBehind) {
    const std::string old = folder_.PathOf("old.xml");
    test::WriteFile(old, "old");
    const struct {
        std::string sql, file, error;
    } cases[] = {
        {"", old, "-1 description=ZorbDbAccessEngine:Invalid Xml - sql parameter missed."},
        {"select 1 as a", "", "-1 description=ZorbDbAccessEngine:Invalid Xml - filename not specified."},
        {"select 1 as a", folder_.PathOf("no/x.xml"), "76 "},
        {"select 1 as a", folder_.PathOf(""), "75 "},
        {kMany, "/dev/full", "61 "},
        {"select * from nope", old, "-2147217865 "},
        {"create table u (a)", old, "-2146824584 "},
        {"select abs(-9223372036854775807 - id) as a, id as b from t order by id", old, "-2147217900 "}};
    for (const auto& [sql, file, error] : cases) {
        EXPECT_THAT(Run("public.getdatatofile", {{"sql", sql}, {"filename", file}}),
                    ElementsAre(StartsWith("K error[number=" + error)));
    }
    EXPECT_EQ(test::ReadFile(old), "old");
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("old.xml", "source.db"));

    ZorbFunctionResult result;
    ado::RecordsetPtr rows = Query("select 1 as a");
    EXPECT_FALSE(result.AddFunctionResult_DataFile("k", rows, folder_.PathOf("a\x01z"), "c:\\out"));
    EXPECT_FALSE(result.AddFunctionResult_DataFile("k", rows, folder_.PathOf("no/x"), "c:\\out"));
    EXPECT_EQ(result.GetResultDataXml("k"), R"(<data guid="k" type="file" datafolder="c:\out\"/>)");
    rows = nullptr;
    EXPECT_FALSE(result.AddFunctionResult_DataFile("k", rows, old, ""));
    EXPECT_THAT(result.GetLastError(), testing::EndsWith("(ERR#: 91)"));
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("old.xml", "source.db"));
}

TEST_F(EngineFilesTest, TheOpenDatabaseIsNeverTheFileThatIsWritten) {
    const std::string folder = folder_.PathOf("");
    std::filesystem::create_symlink("source.db", folder + "link");
    std::filesystem::create_hard_link(folder + "source.db", folder + "photo.000001");
    test::WriteFile(folder + "second.db", "");
    Run("public.executesql", {{"sql", "attach '" + folder + "second.db' as s; create table s.u (a)"}});
    const std::string source = test::ReadFile(folder + "source.db");
    for (const char* name :
         {"source.db", "link", "photo.000001", "source.db-journal", "source.db-wal", "second.db"}) {
        const std::string file = folder + name;
        std::vector<std::vector<std::string>> answers{
            Run("public.getbinarydata",
                {{"sql", "select photo from t"}, {"colname", "photo"}, {"filename", file}})};
        for (const char* type : {"", "csv", "jsonl", "xlsx"}) {
            answers.push_back(
                Run(*type == 0 ? "public.getdatatofile" : "public.getdatatoexportfile",
                    {{"sql", "select id, photo from t"}, {"filename", file}, {"exporttype", type}}));
        }
        EXPECT_THAT(answers, testing::Each(ElementsAre(StartsWith("K error[number=75 ")))) << name;
    }
    EXPECT_THAT(Run("public.getdata", {{"sql", "select photo from t where id = 1"}, {"datafolder", folder}}),
                ElementsAre("K data[photo=binary(file)|photo=photo.000001(error)]"));
    EXPECT_EQ(test::ReadFile(folder + "source.db"), source);
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("link", "photo.000001", "second.db", "source.db"));
}

TEST_F(EngineFilesTest, AnExportIsAskedForByItsType) {
    const std::string file = folder_.PathOf("out.bin");
    const auto updater = std::make_shared<Updater>();
    engine_.SetProgressUpdater(updater);
    EXPECT_THAT(
        Run("public.getdatatoexportfile",
            {{"sql", kMany}, {"sqlcount", "select 20000"}, {"filename", file}, {"exporttype", "CSV"}}),
        ElementsAre("K file[file=" + file + "(file)]"));
    EXPECT_EQ(ReadBack("csv", "out.bin").back(), (std::vector<std::string>{"20000", "some text 20000"}));
    EXPECT_THAT(updater->reports,
                ElementsAre(std::pair(5000, 20000), std::pair(10000, 20000), std::pair(15000, 20000),
                            std::pair(20000, 20000), std::pair(20000, 20000)));
    std::filesystem::remove(file);

    const auto export_ = [&](const char* sql, const char* type, const char* clear) {
        return Run("public.getdatatoexportfile", {{"sql", sql},
                                                  {"filename", file},
                                                  {"exporttype", type},
                                                  {"tablename", "x"},
                                                  {"cleardata", clear}})
            .front();
    };
    const char* batch =
        "create table if not exists u (a); select count(*) as n from t; select 1 as a, 2 as b;"
        "insert into u values (9)";
    for (const char* clear : {"1", "0", "", "abc", "0"}) {
        EXPECT_EQ(export_(batch, "sqlite", clear), "K file[file=" + file + "(file)]");
    }
    EXPECT_EQ(RowsOf(test::MakeDatabase(file), "select * from x").size(), 3U)
        << "emptied by abc, then added to";
    EXPECT_EQ(RowsOf(connection_, "select * from u").size(), 6U) << "the rest of the batch runs";

    const std::pair<std::pair<const char*, const char*>, const char*> failing[] = {
        {{"select 1 as a, 2 as b", ""},
         "-1 description=ZorbDbAccessEngine:Invalid Xml - Export Type not specified."},
        {{"select 1 as a, 2 as b", "pdf"},
         "-1 description=ZorbDbAccessEngine:Corresponding Data Exporter not installed - pdf."},
        {{"select 1 as one", "csv"}, "91 "},
        {{"select 1 as a, 'nope' as nope", "sqlite"},
         "-2147217900 description=ZorbDbAccessEngine:ZorbFunctionResult:table x has no column named nope"}};
    for (const auto& [what, error] : failing) {
        EXPECT_THAT(export_(what.first, what.second, "0"),
                    StartsWith(std::string("K error[number=") + error));
    }
}

/// Fails in one of the ways in which a client's exporter may.
class FailingExporter : public IZorbDataExporter {
public:
    bool MatchExportType(std::string_view type) override {
        way_ = type;
        return type != "csv";
    }
    std::string GetLastError() override { return "its own words"; }
    void RaiseLastError() override {
        if (way_ == "negative") throw ErrorInfo(-77, "its own words", "exporter");
    }
    std::int32_t ExportData(ado::RecordsetPtr& rows, std::string& /*file*/, std::string& /*table*/,
                            std::string /*folder*/) override {
        if (way_ == "throws") throw std::runtime_error("its own words");
        if (way_ == "anything") throw 42;
        if (way_ == "number 0") throw ErrorInfo(0, "its own words");
        if (way_ == "none") return rows ? -2 : 0;
        if (way_ == "takes") rows.reset();
        return way_ == "takes" ? 0 : -2;
    }

private:
    std::string way_;
};

TEST_F(EngineFilesTest, AnExporterThatFailsLeavesTheEngineUsable) {
    ZorbDbAccessEngine engine;
    ASSERT_NE(engine.SetDatabaseConnection_MDBFile(folder_.PathOf("source.db"), "", ""), nullptr);
    ASSERT_TRUE(engine.AddDataExporter(std::make_shared<FailingExporter>()));
    const std::pair<const char*, const char*> cases[] = {
        {"negative",
         "K error[number=-77 description=ZorbDbAccessEngine:ZorbFunctionResult:its own words source=exp"},
        {"silent", "K error[number=-1 description=ZorbDbAccessEngine:ZorbFunctionResult:its own words"},
        {"throws",
         "K error[number=-2147467259 description=ZorbDbAccessEngine:ZorbFunctionResult:its own words"},
        {"anything", "K error[number=-2147467259 description="},
        {"number 0",
         "K error[number=-2147467259 description=ZorbDbAccessEngine:ZorbFunctionResult:its own words"},
        {"takes", "K file[file=x(file)]"},
        {"none", "K file[file=x(file)]"}};
    for (const auto& [way, entry] : cases) {
        std::string xml;
        const char* const sql =
            std::string_view(way) == "none" ? "select 1 as a; select 2 as b" : "select id, Name from t";
        EXPECT_TRUE(engine.RunFunction(test::Request("public.getdatatoexportfile",
                                                     {{"sql", sql}, {"filename", "x"}, {"exporttype", way}}),
                                       xml));
        EXPECT_THAT(Entries(xml), ElementsAre(StartsWith(entry))) << way;
        EXPECT_TRUE(engine.RunFunction(test::Request("public.getdata", {{"sql", "select 1 as a"}}), xml));
        EXPECT_THAT(Entries(xml), ElementsAre("K data[a=integer|a=1]"));
    }
}

}  // namespace
}  // namespace halvtiv
