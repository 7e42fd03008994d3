#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <langinfo.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <halvtiv_exporters/exporters.hpp>

#include "export_support.hpp"
#include "workbook_check.hpp"

namespace halvtiv {
namespace {

using test::ErrorOf;
using testing::ElementsAre;
using testing::HasSubstr;

using test::ExportTest;
using test::kMany;
using test::Table;
using test::Updater;

TEST_F(ExportTest, PythonReadsInCsvWhatTheDatabaseHolds) {
    const std::string columns = "id, Name, note, price, amount, big, ok, day, at, made";
    const std::string sql = "select " + columns + " from t order by id";
    const Table expected = RowsOf(connection_, sql);
    ASSERT_EQ(Export(exporters::NewCsvExporter(), sql, "t.csv"), 4);
    EXPECT_EQ(ReadBack("csv", "t.csv"), expected);
    for (const auto& [exporter, file] :
         {std::pair(exporters::NewTsvExporter(), "t.txt"), std::pair(exporters::NewCsvExporter(), "t.TSV")}) {
        ASSERT_EQ(Export(exporter, sql, file), 4);
        EXPECT_EQ(ReadBack("tsv", file), expected) << file;
    }
    const std::pair<const char*, const char*> cases[] = {
        {"select 'a,b' as \"x\"\"y\", 1.5 as n", "\"x\"\"y\",n\r\n\"a,b\",1.5\r\n"},
        {"select null as n", "n\r\n\"\"\r\n"},
        {"select '' as e, null as n, 'z' as z", "e,n,z\r\n\"\",,z\r\n"},
        {"select '12345678' || char(10) as a, '1234567\"' as b, cast(x'41FF42' as text) as c",
         "a,b,c\r\n\"12345678\n\",\"1234567\"\"\",A\xEF\xBF\xBD"
         "B\r\n"},
        {"select 1 as a, 2 as b where 0", "a,b\r\n"}};
    for (const auto& [query, text] : cases) {
        EXPECT_GE(Export(exporters::NewCsvExporter(), query, "c.csv"), 0) << query;
        EXPECT_EQ(test::ReadFile(folder_.PathOf("c.csv")), text) << query;
    }
}

TEST_F(ExportTest, BinaryColumnsGoToFilesBesideTheTable) {
    const std::string data = folder_.PathOf("data");
    std::filesystem::create_directory(data);
    for (const auto& [type, exporter] :
         {std::pair("csv", exporters::NewCsvExporter()), std::pair("xlsx", exporters::NewXlsxExporter())}) {
        const std::string prefix = std::string(type) == "xlsx" ? "s:" : "";
        ASSERT_EQ(Export(exporter, "select photo as Photo, id from t order by id", "p", "t", data), 4)
            << exporter->GetLastError();
        Table rows = ReadBack(type, "p");
        if (!prefix.empty()) rows.erase(rows.begin());
        EXPECT_EQ(rows[1][0], prefix + "Photo.000001");
        EXPECT_EQ(rows[2][0], prefix + "Photo.000002");
        EXPECT_EQ(rows[3][0], "") << "a null has no file";
        EXPECT_THAT(folder_.FilesIn("data"), ElementsAre("Photo.000001", "Photo.000002"));
        EXPECT_EQ(test::ReadFile(data + "/Photo.000001"), std::string("\0\xFF\1\n", 4));
        EXPECT_EQ(test::ReadFile(data + "/Photo.000002"), "");
        ASSERT_EQ(Export(exporter, "select id, photo from t where id = 1", "p"), 1);
        rows = ReadBack(type, "p");
        EXPECT_EQ(rows.back().back(), prefix + "(skipped)");
        ASSERT_EQ(Export(exporter, "select photo as \"../photo\", id from t", "p2", "t", data), -1);
        EXPECT_EQ(ErrorOf([&] { exporter->RaiseLastError(); }).Number, 75);
    }
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("data", "p", "source.db"));
}

TEST_F(ExportTest, AWorkbookHoldsTypedCells) {
    const auto exporter = exporters::NewXlsxExporter();
    ASSERT_EQ(
        Export(exporter, "select id, Name, note, price, amount, big, ok, day, at, made from t order by id",
               "t.xlsx", "a/b: 北京 and more than 31 characters"),
        4)
        << exporter->GetLastError();
    const Table expected{
        {"a_b_ 北京 and more than 31 charac", "A2"},
        {"S:id", "S:Name", "S:note", "S:price", "S:amount", "S:big", "S:ok", "S:day", "S:at", "S:made"},
        {"n:1", "s:北京 \"x\", y", "s:a\r\nb", "n:0.1", "n:12.5", "s:9007199254740993", "b:1",
         "n:45351 yyyy-mm-dd", "n:0.5451388888888888 hh:mm:ss", "n:45351.5 yyyy-mm-dd hh:mm:ss"},
        {"n:2", "s:مرحبا 😀", "", "n:-1E+300", "s:1234567890123456", "n:9007199254740992", "b:0",
         "s:1900-02-28", "n:0 hh:mm:ss", "n:61.75000578703704 yyyy-mm-dd hh:mm:ss.000"},
        {"n:3"},
        {"n:4", "s:tab\t", "s:=1+1", "n:2", "n:0.25", "n:-5", "b:1", "s:soon",
         "n:0.2500028935185185 hh:mm:ss.000", "n:2958465 yyyy-mm-dd hh:mm:ss"}};
    EXPECT_EQ(ReadBack("xlsx", "t.xlsx"), expected);

    for (const auto& [wanted, name] :
         {std::pair("'quoted'", "_quoted_"), std::pair("History", "History_"), std::pair("", "Sheet1"),
          std::pair("[]:*?/\\", "_______"), std::pair("\xEF\xBF\xBF!", "_!")}) {
        ASSERT_EQ(Export(exporter, "select 1 as a", "n.xlsx", wanted), 1) << wanted;
        EXPECT_EQ(ReadBack("xlsx", "n.xlsx")[0][0], name);
    }
}

TEST_F(ExportTest, ACellKeepsATextThatLooksLikeSomethingElse) {
    const std::pair<const char*, const char*> cases[] = {{"'_x0041_'", "s:_x0041_"},
                                                         {"'_x_x00e9_'", "s:_x_x00e9_"},
                                                         {"char(65534, 65535)", "s:\xEF\xBF\xBE\xEF\xBF\xBF"},
                                                         {"char(1, 13)", "s:\x01\r"},
                                                         {"' =1'", "s: =1"},
                                                         {"1 union all select '007'", "s:007"},
                                                         {"1 union all select '-00.5'", "s:-00.5"},
                                                         {"0.5 union all select '00.5'", "s:00.5"}};
    for (const auto& [value, cell] : cases) {
        ASSERT_GT(Export(exporters::NewXlsxExporter(), std::string("select ") + value + " as a", "c.xlsx"),
                  0);
        EXPECT_EQ(ReadBack("xlsx", "c.xlsx").back(), std::vector<std::string>{cell}) << value;
    }
    connection_->Execute(
        "create table late (made DATETIME); insert into late values"
        " ('9999-12-31 23:59:59.9991'), ('9999-12-31 23:59:59.999999')");
    ASSERT_EQ(Export(exporters::NewXlsxExporter(), "select * from late", "late.xlsx"), 2);
    EXPECT_EQ(ReadBack("xlsx", "late.xlsx").back(), std::vector<std::string>{"s:9999-12-31 23:59:59.999999"})
        << "no sheet has a next day";
}

using OfficeTest = ExportTest;

TEST_F(OfficeTest, ASpreadsheetProgramReadsAWorkbook) {
    ASSERT_EQ(
        Export(exporters::NewXlsxExporter(),
               "select id, Name, note, price, amount, big, ok, day, at, made from t order by id", "t.xlsx"),
        4);
    const Table rows = ReadBack("office", "t.xlsx");
    if (rows.empty()) GTEST_SKIP() << "no LibreOffice; scripts/check-office installs it";
    const Table expected{
        {"id", "Name", "note", "price", "amount", "big", "ok", "day", "at", "made"},
        {"1", "北京 \"x\", y", "a\nb", "0.1", "12.5", "9007199254740993", "TRUE", "2024-02-29", "13:05:00",
         "2024-02-29 12:00:00"},
        {"2", "مرحبا 😀", "", "-1E+300", "1234567890123456", "9.00719925474099E+015", "FALSE", "1900-02-28",
         "00:00:00", "1900-03-01 18:00:00.500"},
        {"3", "", "", "", "", "", "", "", "", ""},
        {"4", "tab\t", "=1+1", "2", "0.25", "-5", "TRUE", "soon", "06:00:00.250", "9999-12-31 00:00:00"}};
    EXPECT_EQ(rows, expected);
}

TEST_F(ExportTest, WhatASheetCannotHoldIsAnErrorAndTheOldFileStays) {
    const auto exporter = exporters::NewXlsxExporter();
    test::WriteFile(folder_.PathOf("old.xlsx"), "old");
    const std::pair<const char*, const char*> cases[] = {
        {"select 1 as n, printf('%.*c', 32768, 'x') as \"long\"", "Row 1 of column \"long\""},
        {"select cast(replace(printf('%.*c', 32768, 'x'), 'x', cast(x'80' as text)) as text) as bad",
         "Row 1 of column \"bad\""},
        {"with recursive n(i) as (select 1 union all select i + 1 from n where i < 1048576) select i from n",
         "1,048,575 rows"}};
    for (const auto& [sql, message] : cases) {
        EXPECT_EQ(Export(exporter, sql, "old.xlsx"), -1);
        EXPECT_THAT(exporter->GetLastError(), HasSubstr(message));
    }
    exporter->DataCount(1048576);
    EXPECT_EQ(Export(exporter, "select 1 as n", "old.xlsx"), -1) << "known before the first row";
    EXPECT_EQ(Export(exporter, "select printf('%.*c', 32767, 'x') as most", "most.xlsx"), 1)
        << "the number of rows counts for one export: " << exporter->GetLastError();
    EXPECT_EQ(test::ReadFile(folder_.PathOf("old.xlsx")), "old");
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("most.xlsx", "old.xlsx", "source.db"));
}

TEST_F(ExportTest, JsonLinesKeepEachValueAsItIs) {
    const auto exporter = exporters::NewJsonLinesExporter();
    const std::pair<const char*, const char*> cases[] = {
        {"select id, big, price, amount, ok, day, photo from t where id < 4 order by id",
         "{\"id\":1,\"big\":9007199254740993,\"price\":0.1,\"amount\":12.5,\"ok\":true,\"day\":\"2024-02-"
         "29\","
         "\"photo\":\"AP8BCg==\"}\n"
         "{\"id\":2,\"big\":9007199254740992,\"price\":-1e+300,\"amount\":1234567890123456,\"ok\":false,"
         "\"day\":\"1900-02-28\",\"photo\":\"\"}\n"
         "{\"id\":3,\"big\":null,\"price\":null,\"amount\":null,\"ok\":null,\"day\":null,\"photo\":null}\n"},
        {"select Name as \"n\"\"\", '' as \"n\"\"\", note as \"n\"\"#2\" from t where id = 1",
         "{\"n\\\"\":\"北京 \\\"x\\\", y\",\"n\\\"#2\":\"\",\"n\\\"#2#2\":\"a\\r\\nb\"}\n"},
        {"select char(1, 92) as a, 9e999 as i, cast(x'61FF' as text) as u, x'0102' as two, x'010203' as "
         "three",
         "{\"a\":\"\\u0001\\\\\",\"i\":\"inf\",\"u\":\"a\xEF\xBF\xBD\",\"two\":\"AQI=\",\"three\":\"AQID\"}"
         "\n"}};
    for (const auto& [sql, text] : cases) {
        EXPECT_GT(Export(exporter, sql, "t.jsonl"), 0) << exporter->GetLastError();
        EXPECT_EQ(test::ReadFile(folder_.PathOf("t.jsonl")), text);
    }
}

TEST_F(ExportTest, ATableOfADatabaseIsMadeFilledAndReplaced) {
    const auto exporter = exporters::NewSqliteExporter();
    const std::string sql = "select *, 7 as \"ID\" from t order by id";
    ASSERT_EQ(Export(exporter, sql, "out.db", "The \"T\""), 4) << exporter->GetLastError();
    const auto out = test::MakeDatabase(folder_.PathOf("out.db"));
    const Table copy = RowsOf(out, "select * from \"The \"\"T\"\"\"");
    Table expected = RowsOf(connection_, sql);
    expected[0].back() = "ID#2";
    EXPECT_EQ(copy, expected);
    const ado::RecordsetPtr made = out->Execute("select * from \"The \"\"T\"\"\"");
    const ado::RecordsetPtr source = Query("select * from t");
    for (std::int32_t at = 0; at < source->Fields().Count(); ++at) {
        EXPECT_EQ(made->Fields().Item(at)->Type(), source->Fields().Item(at)->Type()) << at;
    }
    made->Close();
    source->Close();

    out->Execute("create table d (b TEXT, a INTEGER, c NUMERIC default 5); insert into d values ('x', 1, 1)")
        ->Close();
    ASSERT_EQ(Export(exporter, "select 2 as A, '1.50' as b", "out.db", "d"), 1) << exporter->GetLastError();
    EXPECT_EQ(RowsOf(out, "select * from d"), (Table{{"b", "a", "c"}, {"x", "1", "1"}, {"1.50", "2", "5"}}));
    exporter->ClearTableBeforeExport(true);
    EXPECT_EQ(Export(exporter, "select 3 as a, 4 as nope", "out.db", "d"), -1);
    EXPECT_THAT(exporter->GetLastError(), HasSubstr("no column named nope"));
    EXPECT_EQ(RowsOf(out, "select * from d").size(), 3U) << "emptied and filled, or neither";
    ASSERT_EQ(Export(exporter, "select 3 as a", "out.db", "d"), 1);
    EXPECT_EQ(RowsOf(out, "select a from d"), (Table{{"a"}, {"3"}}));
    ASSERT_EQ(Export(exporter, "select id, Name from t", "source.db", "t2"), 4)
        << "into the file that is read: " << exporter->GetLastError();
    test::WriteFile(folder_.PathOf("no.db"), "this is no database, however long one looks at it");
    EXPECT_EQ(Export(exporter, sql, "no.db"), -1);
    EXPECT_EQ(ErrorOf([&] { exporter->RaiseLastError(); }).Source, "SQLite");
}

TEST_F(ExportTest, NumbersComeIntoATableAsTheyAre) {
    connection_->Execute(
        "create table n (a NUMERIC, i INTEGER, d DOUBLE); insert into n values"
        " (0.1 + 0.2, 1.0 / 3, 0.1 + 0.2), (1e20, 9223372036854775807, 'nan'), (-1e-7, '7', 9e999)");
    const std::string sql = "select * from n order by rowid";
    const Table expected = RowsOf(connection_, sql);
    const auto exporter = exporters::NewSqliteExporter();
    const auto out =
        test::MakeDatabase(folder_.PathOf("out.db"), "create table texts (a TEXT, i TEXT, d CHAR(30))");
    for (const char* table : {"made", "texts"}) {
        ASSERT_EQ(Export(exporter, sql, "out.db", table), 3) << exporter->GetLastError();
        EXPECT_EQ(RowsOf(out, std::string("select * from ") + table + " order by rowid"), expected) << table;
    }
    EXPECT_EQ(
        RowsOf(out, "select typeof(a), typeof(i), typeof(d) from made where rowid < 3"),
        (Table{
            {"typeof(a)", "typeof(i)", "typeof(d)"}, {"real", "real", "real"}, {"real", "integer", "text"}}));

    out->Execute("create table reals (a REAL)");
    EXPECT_EQ(Export(exporter, "select 9007199254740992 as a", "out.db", "reals"), 1);
    for (const char* odd : {"9007199254740993", "9223372036854775807"}) {
        EXPECT_EQ(Export(exporter, std::string("select ") + odd + " as a", "out.db", "reals"), -1);
        EXPECT_THAT(exporter->GetLastError(), HasSubstr(std::string("would round ") + odd));
    }
}

/// Has another export make the file while rows are on their way.
class MakesTheFile : public IProgressUpdater {
public:
    MakesTheFile(ado::ConnectionPtr connection, std::string file)
        : connection_(std::move(connection)), file_(std::move(file)) {}
    void UpdateProgress(std::int64_t, std::int64_t) override {
        ado::RecordsetPtr rows = connection_->Execute("select 5 as a");
        std::string table = "other";
        exporters::NewSqliteExporter()->ExportData(rows, file_, table);
    }

private:
    ado::ConnectionPtr connection_;
    std::string file_;
};

TEST_F(ExportTest, ANewDatabaseDoesNotReplaceAnotherOfThatName) {
    const auto exporter = exporters::NewSqliteExporter();
    exporter->SetProgressUpdater(std::make_shared<MakesTheFile>(connection_, folder_.PathOf("new.db")));
    EXPECT_EQ(Export(exporter, "select 1 as a", "new.db"), -1);
    EXPECT_THAT(exporter->GetLastError(), HasSubstr("meantime"));
    EXPECT_EQ(RowsOf(test::MakeDatabase(folder_.PathOf("new.db")), "select a from other"),
              (Table{{"a"}, {"5"}}));
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("new.db", "source.db"));
}

TEST_F(ExportTest, ManyRowsGoIntoTheDatabaseThatTheyComeFrom) {
    connection_->Execute(std::string("create table source as select i, s || hex(zeroblob(200)) as s from (") +
                         kMany + ")");
    const auto start = std::chrono::steady_clock::now();
    const auto exporter = exporters::NewSqliteExporter();
    EXPECT_EQ(Export(exporter, "select * from source", "source.db", "copy"), 20000)
        << exporter->GetLastError();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5))
        << "waits for its own reader";
    EXPECT_EQ(RowsOf(connection_, "select count(*), sum(i) from copy")[1],
              (std::vector<std::string>{"20000", "200010000"}));
}

TEST_F(ExportTest, ADatabaseIsTheFileOfThatName) {
    const auto exporter = exporters::NewSqliteExporter();
    const auto earlier = std::filesystem::current_path();
    std::filesystem::current_path(folder_.PathOf(""));
    for (const char* name : {":memory:", "file:x.db?mode=memory"}) {
        for (const char* sql : {"select 1 as a", "select 2 as a"}) {
            ado::RecordsetPtr rows = Query(sql);
            std::string path = name, table = "t";
            EXPECT_EQ(exporter->ExportData(rows, path, table), 1) << exporter->GetLastError();
        }
        EXPECT_EQ(RowsOf(test::MakeDatabase(folder_.PathOf(name)), "select * from t"),
                  (Table{{"a"}, {"1"}, {"2"}}));
    }
    std::filesystem::current_path(earlier);
    EXPECT_EQ(Export(exporter, "select 1 as a", std::string("source.db\0x", 11), "t3"), -1);
    EXPECT_EQ(ErrorOf([&] { exporter->RaiseLastError(); }).Number, 75);

    {  // the log of a database that is gone
        const auto old =
            test::MakeDatabase(folder_.PathOf("w.db"), "pragma journal_mode = wal; create table old (a)");
        std::filesystem::copy_file(folder_.PathOf("w.db-wal"), folder_.PathOf("kept"));
    }
    std::filesystem::remove(folder_.PathOf("w.db"));
    std::filesystem::rename(folder_.PathOf("kept"), folder_.PathOf("w.db-wal"));
    ASSERT_EQ(Export(exporter, "select 1 as a", "w.db", "new"), 1);
    EXPECT_EQ(RowsOf(test::MakeDatabase(folder_.PathOf("w.db")), "select name from sqlite_master"),
              (Table{{"name"}, {"new"}}));
}

TEST_F(ExportTest, ExportersAreFoundByTypeAndByFileName) {
    const std::pair<const char*, const char*> cases[] = {
        {"a.csv", "csv"},           {"A.CSV", "csv"},     {"a.tsv", "tsv"},      {"a.tab", "tsv"},
        {"dir.csv/a.xlsx", "xlsx"}, {"a.jsonl", "jsonl"}, {"a.ndjson", "jsonl"}, {"a.sqlite", "sqlite"},
        {"a.DB", "sqlite"},         {"b\\a.csv", "csv"}};
    for (const auto& [file, type] : cases) {
        const IZorbDataExporterPtr exporter = exporters::ExporterForFile(file);
        ASSERT_NE(exporter, nullptr) << file;
        EXPECT_EQ(exporter->ExportTypeString(), type);
    }
    for (const char* file : {"", "csv", "a.pdf", "a.csv/b", "a."}) {
        EXPECT_EQ(exporters::ExporterForFile(file), nullptr) << file;
    }
    ZorbDbAccessEngine engine;
    exporters::AddAllExporters(engine);
    EXPECT_EQ(engine.GetExportFileFilterString(),
              "CSV file(*.CSV)|*.csv|Tab-separated file(*.TSV)|*.tsv|XLSX workbook(*.XLSX)|*.xlsx|"
              "JSON lines(*.JSONL)|*.jsonl|SQLite database(*.SQLITE)|*.sqlite");
}

std::ptrdiff_t OpenFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST_F(ExportTest, AProgramsLocaleStaysDuringAnExport) {
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no such locale here";
    const auto exporter = exporters::NewXlsxExporter();
    std::string charset;
    exporter->SetProgressUpdater(std::make_shared<Updater>([&charset] { charset = ::nl_langinfo(CODESET); }));
    EXPECT_EQ(Export(exporter, kMany, "l.xlsx"), 20000);
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(charset, "UTF-8");
}

TEST_F(ExportTest, AnExportThatEndsHalfWayLeavesTheOldFile) {
    std::signal(SIGXFSZ, SIG_IGN);
    for (const IZorbDataExporterPtr& exporter : exporters::AllExporters()) {
        const std::string type = exporter->ExportTypeString();
        SCOPED_TRACE(type);
        const std::string name = "old." + type;
        ASSERT_EQ(Export(exporter, "select 'old' as s, 1 as i", name), 1);
        const std::string old = test::ReadFile(folder_.PathOf(name));
        const auto files = folder_.FilesIn();

        const auto open = OpenFiles();
        exporter->SetProgressUpdater(std::make_shared<Updater>([] { throw std::runtime_error("stop it"); }));
        EXPECT_EQ(Export(exporter, kMany, name), -1);
        EXPECT_EQ(exporter->GetLastError(), "stop it(ERR#: -2147467259)");
        EXPECT_EQ(OpenFiles(), open) << "nothing stays open";
        exporter->SetProgressUpdater(nullptr);

        rlimit limit{};
        ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
        const rlimit low{64 * 1024, limit.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &low), 0);
        EXPECT_EQ(Export(exporter, kMany, name), -1);
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(ErrorOf([&] { exporter->RaiseLastError(); }).Number, type == "sqlite" ? -2147467259 : 61)
            << exporter->GetLastError();
        EXPECT_EQ(folder_.FilesIn(), files);

        const pid_t child = ::fork();
        if (child == 0) {
            exporter->SetProgressUpdater(std::make_shared<Updater>([] { ::raise(SIGKILL); }));
            const auto connection = test::MakeDatabase(":memory:");
            ado::RecordsetPtr rows = connection->Execute(kMany);
            std::string path = folder_.PathOf(name), table = "t";
            exporter->ExportData(rows, path, table);
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        EXPECT_EQ(test::ReadFile(folder_.PathOf(name)), old);
        EXPECT_EQ(Export(exporter, kMany, name), 20000) << exporter->GetLastError();
    }
}

TEST_F(ExportTest, AWorkbookIsWholeOrNotThere) {
    const auto exporter = exporters::NewXlsxExporter();
    ASSERT_EQ(Export(exporter, "select 1 as a, 'x' as b", "good.xlsx"), 1);
    const std::string path = folder_.PathOf("good.xlsx");
    const std::string good = test::ReadFile(path);
    exporters::SheetContent content;
    content.cells = 4;
    content.formattedCells = content.columns = 2;
    const auto numberOf = [&](const std::string& bytes) {
        test::WriteFile(path, bytes);
        return ErrorOf([&] { exporters::RequireWholeWorkbook(path, content, "name"); }).Number;
    };
    EXPECT_EQ(numberOf(good), 0);
    std::vector<std::string> broken{"", good + "x"};
    for (std::size_t size = 1; size < good.size(); size += 50) broken.push_back(good.substr(0, size));
    for (const std::size_t at :
         {std::size_t{1}, std::size_t{100}, good.find("PK\1\2") + 16, good.size() - 8}) {
        broken.push_back(good);
        broken.back()[at] = static_cast<char>(broken.back()[at] ^ 0x15);
    }
    for (const std::string& bytes : broken) EXPECT_EQ(numberOf(bytes), 57) << bytes.size();
    content.cells = 5;
    EXPECT_EQ(numberOf(good), 57);

    test::WriteFile(path, "old");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    for (rlim_t most = 50; most < good.size(); most += 700) {
        const rlimit low{most, limit.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &low), 0);
        EXPECT_EQ(Export(exporter, "select 1 as a, 'x' as b", "good.xlsx"), -1) << most;
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    EXPECT_EQ(test::ReadFile(path), "old");
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("good.xlsx", "source.db"));
}

TEST_F(ExportTest, WhereNoFileCanBeTheReasonIsSaid) {
    std::filesystem::create_directory(folder_.PathOf("folder"));
    for (const IZorbDataExporterPtr& exporter : exporters::AllExporters()) {
        const bool isDatabase = exporter->ExportTypeString() == "sqlite";
        for (const auto& [file, number] : {std::pair("missing/x", 76), std::pair("", 76),
                                           std::pair("folder", 75), std::pair("folder/", 75)}) {
            ado::RecordsetPtr rows = Query("select 1 as a, 2 as b");
            std::string path = *file == '\0' ? file : folder_.PathOf(file), table = "t";
            EXPECT_EQ(exporter->ExportData(rows, path, table), -1);
            EXPECT_EQ(ErrorOf([&] { exporter->RaiseLastError(); }).Number, number)
                << exporter->GetLastError() << isDatabase;
        }
        ado::RecordsetPtr none;
        std::string path = folder_.PathOf("none"), table;
        EXPECT_EQ(exporter->ExportData(none, path, table), -1);
        EXPECT_THAT(exporter->GetLastError(), testing::EndsWith("(ERR#: 91)"));
        none = std::make_shared<ado::Recordset>();
        EXPECT_EQ(exporter->ExportData(none, path, table), -1);
        EXPECT_THAT(exporter->GetLastError(), testing::EndsWith("(ERR#: -2146824584)"));
    }
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("folder", "source.db"));
}

}  // namespace
}  // namespace halvtiv
