// The halvtiv command at long work: exports, progress, Ctrl-C.

#include <chrono>
#include <vector>

#include "command_support.hpp"
#include "progress.hpp"

namespace {

namespace fs = std::filesystem;
using halvtiv::test::CommandTest;
using halvtiv::test::Contains;
using halvtiv::test::Outcome;
using halvtiv::test::ReadFile;

class CommandExportTest : public CommandTest {
protected:
    CommandExportTest() {
        Write("names.xml",
              "<functions><functiondef name='item.names'><paramdef><param name='least' "
              "type='integer'/></paramdef>"
              "<function name='public.getdata'><param name='sql' value='select id, name from item where id "
              "&gt;= "
              "%least% order by id'/></function></functiondef><functiondef name='item.wipe'>"
              "<function name='public.deletedata'><param name='sql' value='item'/></function></functiondef>"
              "</functions>");
    }

    /// Presses Ctrl-C once a file is there.
    Outcome Interrupt(const std::vector<std::string>& arguments, const std::string& sign) {
        return Stop(arguments, SIGINT, [&] { return HasFile(sign); });
    }
    bool HasFile(const std::string& part) const {
        for (const auto& entry : fs::directory_iterator(folder_)) {
            if (Contains(entry.path().filename().string(), part)) return true;
        }
        return false;
    }
};

// Two rows are written, so that the journal tells when the statement runs; then it goes on for ever.
constexpr const char* kEndless =
    "sql=insert into item (name) with recursive n(i) as (select 1 union all select i + 1 from n) "
    "select 'x' from n where i < 3";

TEST_F(CommandExportTest, AFunctionThatReadsIsExported) {
    Write("request.xml", "<function name='item.names' guid='N'><param name='least' value='10'/></function>");
    const struct {
        std::string arguments;
        std::string file;
        std::string content;
    } rows[] = {
        {"item.names least=9 --to a.csv", "a.csv",
         "id,name\r\n9,\u4e2d\u6587\r\n10,\"e\u0301\r\n\"\"a\"\", b\"\r\n"},
        {"item.names least=10 --to a.jsonl", "a.jsonl",
         "{\"id\":10,\"name\":\"e\u0301\\r\\n\\\"a\\\", b\"}\n"},
        {"request.xml least=99 --to a.csv", "a.csv", "id,name\r\n"},
        {"PUBLIC.GetData sql='select 1 a, 2 b' --to B.TSV", "B.TSV", "a\tb\r\n1\t2\r\n"},
        {"public.getdatatoexportfile exporttype=xlsx sql='select 1 a, 2 b' --to c.csv", "c.csv",
         "a,b\r\n1,2\r\n"},
        {"public.getdata sql=\"select 1 a, x'4142' b\" --to c.csv --data-folder .", "b.000001", "AB"},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Run("export " + row.arguments + " --db shop.db --defs names.xml");
        EXPECT_EQ(outcome.status, 0) << row.arguments << " says: " << outcome.err;
        EXPECT_EQ(outcome.err, "") << row.arguments;
        EXPECT_TRUE(Contains(outcome.out, "type=\"file\"")) << outcome.out;
        EXPECT_EQ(ReadFile(folder_ / row.file), row.content) << row.arguments;
    }
}

TEST_F(CommandExportTest, OfSeveralBodiesTheOneForTheDatabaseCounts) {
    const std::string read = "'><param name='sql' value='select 1 a, 2 b'/></function>";
    const std::string wipe = "'><param name='sql' value='delete from item'/></function>";
    Write("bodies.xml",
          "<functions><functiondef name='other.first'><function provider='MariaDB, postgresql' "
          "name='public.executesql" +
              wipe + "<function name='public.getdata" + read +
              "</functiondef><functiondef name='own.last'><function name='public.executesql" + wipe +
              "<function provider='MariaDB,sqlite' name='public.getdatatofile" + read +
              "</functiondef><functiondef name='own.wipes'><function name='public.getdata" + read +
              "<function provider='SQLite' name='public.executesql" + wipe + "</functiondef></functions>");
    const std::string end = " --to bodies.csv --db shop.db --defs bodies.xml";
    for (const char* name : {"other.first", "own.last"}) {
        fs::remove(folder_ / "bodies.csv");
        EXPECT_EQ(Run(std::string("export ") + name + end).status, 0) << name;
        EXPECT_EQ(ReadFile(folder_ / "bodies.csv"), "a,b\r\n1,2\r\n") << name;
    }
    ExpectRefused("export own.wipes" + end, "it is based on public.executesql");
}

TEST_F(CommandExportTest, ATableIsAddedToUnlessItIsCleared) {
    const auto count = [this](const std::string& table) {
        return Run("call public.getdata sql='select count(*) n from " + table + "' --db new.db --format csv")
            .out;
    };
    const std::string line = "export item.names least=1 --to new.db --table t --db shop.db --defs names.xml";
    EXPECT_EQ(Run(line).status, 0);
    EXPECT_EQ(Run(line).status, 0);
    EXPECT_EQ(count("t"), "n\r\n4\r\n");
    EXPECT_EQ(Run(line + " --clear").status, 0);
    EXPECT_EQ(count("t"), "n\r\n2\r\n");
}

TEST_F(CommandExportTest, WhatCannotBeExportedIsRefused) {
    Write("trans.xml", "<transaction/>");
    Write("old.csv", "old");
    const std::string end = " --db shop.db --defs names.xml";
    ExpectRefused("export item.names least=1 --to a.pdf" + end, ".xlsx");
    ExpectRefused("export item.wipe --to old.csv" + end, "it is based on public.deletedata");
    ExpectRefused("export public.executesql sql='delete from item' --to old.csv" + end, "Cannot export");
    ExpectRefused("export no.such --to old.csv" + end, "Function not found - no.such.");
    ExpectRefused("export item.names --to old.csv" + end, "No value provided");
    ExpectRefused("export trans.xml --to old.csv" + end, "not of a transaction");
    ExpectRefused("export item.names least=1" + end, "--to FILE");
    ExpectRefused("export --to old.csv" + end, "Name a function or a request file");
    const Outcome single = Run("export public.getdata sql='select 1 a' --to old.csv" + end);
    EXPECT_EQ(single.status, 1);
    EXPECT_TRUE(Contains(single.err, "two columns or more")) << single.err;
    EXPECT_EQ(ReadFile(folder_ / "old.csv"), "old");
    EXPECT_TRUE(
        Contains(Run("call public.getdata sql='select count(*) n from item' --format csv" + end).out, "2"));
}

TEST_F(CommandExportTest, CtrlCCancelsACallAndUndoesIt) {
    const Outcome outcome =
        Interrupt({"call", "public.executesql", kEndless, "--db", "shop.db"}, "shop.db-journal");
    EXPECT_EQ(outcome.status, 130);
    EXPECT_TRUE(Contains(outcome.err, "(ERR#: -2147217842)")) << outcome.err;
    EXPECT_TRUE(Contains(outcome.out, "type=\"error\"")) << outcome.out;
    EXPECT_EQ(Run("call public.getdata sql='select count(*) n from item' --db shop.db --format csv").out,
              "n\r\n2\r\n");
}

TEST_F(CommandExportTest, CtrlCLeavesTheOldFile) {
    Write("old.csv", "old");
    const std::string endless =
        "sql=with recursive n(i) as (select 1 union all select i + 1 from n) select i, i j from n where i < "
        "9";
    const Outcome outcome =
        Interrupt({"export", "public.getdata", "--to", "old.csv", "--db", "shop.db", endless}, ".old.csv.");
    EXPECT_EQ(outcome.status, 130) << outcome.err;
    EXPECT_TRUE(Contains(outcome.err, "-2147217842")) << outcome.err;
    EXPECT_EQ(ReadFile(folder_ / "old.csv"), "old");
    EXPECT_FALSE(HasFile(".old.csv."));
}

TEST_F(CommandExportTest, ProgressIsForTerminals) {
    if (std::system("command -v script >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "needs the program \"script\", which gives a command a terminal";
    }
    const std::string line = "export item.names least=1 --to a.csv --db shop.db --defs names.xml";
    const Outcome shown = Shell("script -qec \"'" HALVTIV_COMMAND "' " + line + "\" /dev/null");
    EXPECT_TRUE(Contains(shown.out, "\r\x1b[K2 rows")) << shown.out;
    EXPECT_TRUE(Contains(shown.out, "\r\x1b[Kfile: a.csv")) << shown.out;

    halvtiv::ado::Connection writer;
    writer.Open("Provider=SQLite;Data Source=" + (folder_ / "shop.db").string());
    writer.Execute("create table photo (id integer primary key, content blob)");
    writer.Close();
    fs::resize_file((Write("large", ""), folder_ / "large"), (std::uintmax_t{8} << 20) + 1);
    const Outcome copied = Shell("script -qec \"'" HALVTIV_COMMAND
                                 "' call public.adddata sql=photo --set-file content=large --db shop.db\" "
                                 "/dev/null");
    EXPECT_TRUE(Contains(copied.out, " %  ") && Contains(copied.out, " MiB/s  0:0")) << copied.out;
}

TEST_F(CommandExportTest, BashCompletesIt) {
    Write("complete", "source '" HALVTIV_COMPLETION
                      "'\ncompopt() { :; }\nCOMP_WORDS=(\"$@\")\nCOMP_CWORD=$(($# - 1))\n"
                      "_halvtiv\nprintf '%s ' \"${COMPREPLY[@]}\"\n");
    const std::string command = "'" HALVTIV_COMMAND "' ";
    EXPECT_EQ(Shell("bash complete halvtiv e").out, "export ");
    EXPECT_EQ(Shell("bash complete halvtiv export --t").out, "--to --table ");
    EXPECT_EQ(Shell("bash complete halvtiv export --to sho").out, "shop.db ");
    EXPECT_EQ(Shell("bash complete halvtiv copy --from-p").out, "--from-password-file ");
    EXPECT_EQ(Shell("bash complete halvtiv copy --from sho").out, "shop.db ");
    EXPECT_EQ(Shell("bash complete " + command + "export --to a.csv --defs names.xml item.n").out,
              "item.names ");
    EXPECT_EQ(Shell("bash complete " + command + "export get").out, "get.xml ");
}

TEST(ProgressText, SaysWhatIsKnown) {
    using halvtiv::cli::ProgressText;
    using halvtiv::cli::Unit;
    using Seconds = std::chrono::duration<double>;
    EXPECT_EQ(ProgressText(5000, -1, Unit::Rows, Seconds(0)), "5,000 rows");
    EXPECT_EQ(ProgressText(1234567, -1, Unit::Rows, Seconds(2)), "1,234,567 rows  617,284 rows/s");
    EXPECT_EQ(ProgressText(250, 1000, Unit::Rows, Seconds(100)),
              "[#####...............]  25 %  250 rows  3 rows/s  5:00 left");
    EXPECT_EQ(ProgressText(1 << 20, 5 << 20, Unit::Bytes, Seconds(1000)),
              "[####................]  20 %  1.0 MiB  0.0 MiB/s  1:06:40 left");
    EXPECT_EQ(ProgressText(20, 10, Unit::Rows, Seconds(1)), "20 rows  20 rows/s") << "the count was wrong";
}

}  // namespace
