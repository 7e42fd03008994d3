#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "db/tiv_core.hpp"
#include "support.hpp"

namespace halvtiv {
namespace {

using test::Request;
using testing::ElementsAre;
using testing::HasSubstr;

/// The most that a file of this process may hold, while this object lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, signal_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*signal_)(int);
    rlimit before_{};
};

/// A process that does one thing and ends; `Wait` tells whether it did it.
class Process {
public:
    explicit Process(const std::function<bool()>& work) : id_(::fork()) {
        if (id_ == 0) ::_exit(work() ? 0 : 1);
    }
    bool Wait() {
        int status = -1;
        return ::waitpid(id_, &status, 0) == id_ && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    pid_t id_;
};

class DurabilityTest : public testing::Test {
protected:
    bool Connect(ZorbDbAccessEngine& engine, const std::string& more = {}) const {
        return engine.SetDatabaseConnectionString("Provider=SQLite;Create=1;Data Source=" + path_ + more) !=
               nullptr;
    }
    static std::string Run(ZorbDbAccessEngine& engine, std::string_view function, test::Params params,
                           const std::vector<test::Item>& items = {}) {
        std::string xml;
        const auto request = test::Request("public." + std::string(function), params, &items);
        if (!engine.RunFunction(request, xml)) return engine.GetLastError();
        const auto entries = test::Entries(xml);
        return entries.empty() ? "" : entries.back();
    }
    std::string Run(std::string_view function, test::Params params,
                    const std::vector<test::Item>& items = {}) {
        return Run(engine_, function, params, items);
    }
    std::string Sql(const std::string& sql) { return Run("executesql", {{"sql", sql}}); }
    /// A file of zeros, which takes no room on the disk.
    std::string BigFile(std::uintmax_t size) {
        test::WriteFile(folder_.PathOf("big"), "x");
        std::filesystem::resize_file(folder_.PathOf("big"), size);
        return folder_.PathOf("big");
    }
    ado::Connection& Connection() { return *engine_.GetDatabaseConnection(); }
    /// Runs something that is cancelled once it is well under way.
    std::string RunCancelled(const std::function<std::string()>& run) {
        std::atomic<bool> done = false;
        std::thread canceller([&] {
            while (!done) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                engine_.Cancel();
            }
        });
        std::string outcome = run();
        done = true;
        canceller.join();
        return outcome;
    }

    test::TemporaryFolder folder_;
    std::string path_ = folder_.PathOf("data.db");
    ZorbDbAccessEngine engine_;
};

const char* const kDone = "K info[return=1]";

TEST_F(DurabilityTest, ALockThatAnotherProcessKeepsIsAnError) {
    test::MakeDatabase(path_,
                       "create table t (id integer primary key, a integer); insert into t values (1, 1)")
        ->Close();
    int ready[2], end[2];
    ASSERT_TRUE(::pipe(ready) == 0 && ::pipe(end) == 0);
    Process holder([&] {
        const auto connection = test::MakeDatabase(path_);
        connection->BeginTrans();
        char byte = 'r';
        return ::write(ready[1], &byte, 1) == 1 && ::read(end[0], &byte, 1) == 1;
    });
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_TRUE(Connect(engine_, ";Busy Timeout=30"));
    const auto file = BigFile(9);
    const std::vector<std::string> outcomes{
        Run("adddata", {{"sql", "t"}}, {{"a", "5"}}),
        Run("updatedata", {{"sql", "t"}}, {{"a", "5"}}),
        Run("updatedatacoladd", {{"sql", "t"}, {"col", "a"}}, {{"a", "5"}}),
        Run("deletedata", {{"sql", "t"}}),
        Run("setbinarydata", {{"sql", "t"}, {"colname", "a"}}),
        Sql("delete from t")};
    for (const auto& outcome : outcomes) {
        EXPECT_THAT(outcome, HasSubstr("number=-2147467259")) << outcome;
        EXPECT_THAT(outcome, HasSubstr("database is locked")) << outcome;
    }
    EXPECT_EQ(Run("getdata", {{"sql", "t"}}), "K data[id=integer a=integer|id=1 a=1]")
        << "reading is possible";
    ASSERT_EQ(::write(end[1], &byte, 1), 1);
    EXPECT_TRUE(holder.Wait());
    EXPECT_EQ(Run("adddata", {{"sql", "t"}}, {{"a", "5"}}), kDone);
    for (const int descriptor : {ready[0], ready[1], end[0], end[1]}) ::close(descriptor);
}

TEST_F(DurabilityTest, AFullDiskLeavesWhatWasThere) {
    ASSERT_TRUE(Connect(engine_));
    Sql("create table t (id integer primary key, a text, b blob)");
    Sql("with n (i) as (select 1 union all select i + 1 from n where i < 50) insert into t select i, 'a', "
        "x'00' from n");
    const std::string big = BigFile(9 << 20);
    const std::string before =
        Run("getdata", {{"sql", "select count(*), sum(length(a)), sum(length(b)) from t"}});
    const auto fillUp = [&] {
        return std::vector<std::string>{
            Run("adddata", {{"sql", "t"}}, {{"b", big, 1}}),
            Run("adddata", {{"sql", "t"}}, {{"a", std::string(1 << 20, 'x')}}),
            Run("setbinarydata", {{"sql", "t"}, {"colname", "b"}, {"filename", big}}),
            Sql("update t set b = zeroblob(99999)")};
    };
    const auto expectNothingChanged = [&](const std::vector<std::string>& outcomes) {
        for (const auto& outcome : outcomes) {
            EXPECT_THAT(outcome, HasSubstr("number=-2147467259"));
            EXPECT_THAT(outcome, testing::AnyOf(HasSubstr("disk I/O error"), HasSubstr("disk is full")))
                << outcome;
        }
        EXPECT_EQ(Run("getdata", {{"sql", "select count(*), sum(length(a)), sum(length(b)) from t"}}),
                  before);
        EXPECT_THAT(Sql("pragma integrity_check"), HasSubstr("=ok]"));
    };
    std::vector<std::string> outcomes;
    {
        const FileSizeLimit limit(300000);
        outcomes = fillUp();
    }
    expectNothingChanged(outcomes);
    Sql("pragma max_page_count = 60");
    expectNothingChanged(fillUp());
    Sql("pragma max_page_count = 1000000");

    // On the way out: no part of it stands there as if it were the whole.
    EXPECT_EQ(
        Run("setbinarydata", {{"sql", "select * from t where id = 1"}, {"colname", "b"}, {"filename", big}}),
        kDone);
    const std::string out = folder_.PathOf("out");
    test::WriteFile(out, "old");
    test::WriteFile(folder_.PathOf("b.000001"), "old");
    std::string failed;
    {
        const FileSizeLimit limit(5 << 20);
        failed = Run("getbinarydata", {{"sql", "t"}, {"colname", "b"}, {"filename", out}});
        EXPECT_THAT(
            Run("getdata", {{"sql", "select b from t where id = 1"}, {"datafolder", folder_.PathOf("")}}),
            HasSubstr("b=b.000001(error)"));
    }
    EXPECT_THAT(failed, HasSubstr("K error[number="));
    EXPECT_EQ(test::ReadFile(out), "old");
    EXPECT_EQ(test::ReadFile(folder_.PathOf("b.000001")), "old");
    std::filesystem::remove(folder_.PathOf("b.000001"));
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("big", "data.db", "out"));
    EXPECT_EQ(Run("getbinarydata", {{"sql", "t"}, {"colname", "b"}, {"filename", out}}), kDone);
    EXPECT_EQ(std::filesystem::file_size(out), std::uintmax_t{9} << 20);
}

TEST_F(DurabilityTest, ACommitThatFailsLeavesNothingOpen) {
    ASSERT_TRUE(Connect(engine_));
    Sql("create table p (id integer primary key)");
    Sql("create table t (id integer primary key, p integer references p deferrable initially deferred, b "
        "blob)");
    Sql("insert into p values (1); insert into t values (1, 1, null), (2, 1, null)");
    const char* violated = "number=-2147217873 description=ZorbDbAccessEngine:clsZorbTivCore:FOREIGN KEY";
    EXPECT_THAT(Run("updatedata", {{"sql", "t"}}, {{"p", "7"}}), HasSubstr(violated));
    EXPECT_THAT(Run("updatedataex", {{"sql", "select * from t where id = 9"}}, {{"p", "7"}}),
                HasSubstr(violated));
    EXPECT_THAT(Run("adddata", {{"sql", "t"}}, {{"p", "7"}}), HasSubstr(violated));
    EXPECT_THAT(Run("deletedata", {{"sql", "p"}}), HasSubstr(violated));
    EXPECT_THAT(Run("setbinarydata", {{"sql", "t"}, {"colname", "p"}}), "K info[return=2]");
    Sql("update t set p = 1");
    Connection().BeginTrans();
    EXPECT_EQ(Run("updatedata", {{"sql", "t"}}, {{"p", "7"}}), "K info[return=2]") << "it may be mended yet";
    EXPECT_EQ(test::ErrorOf([&] { Connection().CommitTrans(); }).Number, -2147217873);
    EXPECT_EQ(test::ErrorOf([&] { Connection().RollbackTrans(); }).Number, -2147168242) << "it is over";
    EXPECT_EQ(Run("getdata", {{"sql", "select id, p from t"}}),
              "K data[id=integer p=integer|id=1 p=1|id=2 p=1]");
}

TEST_F(DurabilityTest, TwoProcessesCountTogetherWithoutLosingOne) {
    constexpr int kTimes = 300;
    test::MakeDatabase(path_, "create table t (id integer primary key, n integer)")->Close();
    const auto count = [&] {
        ZorbDbAccessEngine engine;
        if (!Connect(engine)) return false;
        Run(engine, "executesql", {{"sql", "pragma synchronous = off"}});
        for (int i = 0; i < kTimes; ++i) {
            const auto outcome = Run(engine, "updatedatacoladd", {{"sql", "t"}, {"col", "n"}}, {{"n", "1"}});
            if (outcome != kDone) return std::fprintf(stderr, "%s\n", outcome.c_str()) < 0;
        }
        return true;
    };
    Process first(count);
    Process second(count);
    EXPECT_TRUE(first.Wait());
    EXPECT_TRUE(second.Wait());
    ASSERT_TRUE(Connect(engine_));
    EXPECT_EQ(Run("getdata", {{"sql", "t"}}), "K data[id=integer n=integer|id=1 n=600]");
}

TEST_F(DurabilityTest, WhatIsCancelledFailsAndTheRestGoesOn) {
    ASSERT_TRUE(Connect(engine_));
    Sql("pragma synchronous = off");
    Sql("create table t (id integer primary key, a integer, b blob)");
    Sql("create table many (id integer primary key, a integer)");
    Sql("create table big (b blob)");
    Sql("with n (i) as (select 1 union all select i + 1 from n where i < 300000) insert into many select i, "
        "i from n");
    Sql("insert into big values (zeroblob(80000000))");
    const std::string endless =
        "with recursive n (i) as (select 1 union all select i + 1 from n) select count(*) from n";
    const std::string file = BigFile(900000000);
    const std::string out = folder_.PathOf("out");
    test::WriteFile(out, "old");
    const std::function<std::string()> runs[] = {
        [&] {
            return Run("getdata", {{"sql", endless}});
        },
        [&] { return Sql(endless); },
        [&] {
            return Run("updatedata", {{"sql", "many"}}, {{"a", "0"}});
        },
        [&] {
            return Run("updatedata", {{"sql", "many"}}, {{"a", "1"}});
        },
        [&] {
            return Run("setbinarydata", {{"sql", "t"}, {"colname", "b"}, {"filename", file}});
        },
        [&] {
            return Run("getbinarydata", {{"sql", "big"}, {"colname", "b"}, {"filename", out}});
        }};
    std::int32_t rows = 0;
    for (const auto& run : runs) {
        Connection().BeginTrans();
        EXPECT_EQ(Run("adddata", {{"sql", "t"}}, {{"a", "1"}}), kDone);
        EXPECT_THAT(RunCancelled(run), testing::MatchesRegex("K error.number=-2147217842 .*canceled.*"))
            << rows;
        EXPECT_EQ(Run("adddata", {{"sql", "t"}}, {{"a", "2"}}), kDone);
        EXPECT_EQ(test::ErrorOf([&] { Connection().CommitTrans(); }).Number, 0);
        rows += 2;
        EXPECT_THAT(Sql("select count(*) as n from t"), HasSubstr("|n=" + std::to_string(rows) + "]"));
    }
    EXPECT_THAT(Sql("select count(b) as n from t"), HasSubstr("|n=0]"));
    EXPECT_THAT(test::ReadFile(out), testing::AnyOf("", "old"));
    EXPECT_THAT(folder_.FilesIn(), ElementsAre("big", "data.db", "out")) << "no part of a copy is left";
    EXPECT_THAT(Sql("pragma integrity_check"), HasSubstr("=ok]"));
}

/// The most memory that this process has had at once since `ForgetPeak`.
std::size_t PeakBytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        std::size_t kilobytes = 0;
        if (word == "VmHWM:" && status >> kilobytes) return kilobytes * 1024;
    }
    return 0;
}
void ForgetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

TEST_F(DurabilityTest, ALargeFileIsNeverHeldWhole) {
    constexpr std::size_t kSize = 200'000'000;
    ASSERT_TRUE(Connect(engine_));
    Sql("pragma synchronous = off");
    Sql("create table t (id integer primary key, name text, photo blob)");
    Sql("insert into t (name) values ('first')");
    const std::string file = folder_.PathOf("in");
    std::string block(std::size_t{1} << 20, '\0');
    {
        std::ofstream content(file, std::ios::binary);
        for (std::size_t written = 0, number = 0; written < kSize; written += block.size(), ++number) {
            for (std::size_t i = 0; i < block.size(); ++i)
                block[i] = static_cast<char>(i * 31 + (i >> 9) + number);
            content.write(block.data(),
                          static_cast<std::streamsize>(std::min(block.size(), kSize - written)));
        }
    }
    const auto isSame = [&](const std::string& name) {
        std::ifstream left(file, std::ios::binary), right(folder_.PathOf(name), std::ios::binary);
        std::string other(block.size(), '\0');
        while (left.read(block.data(), static_cast<std::streamsize>(block.size())), left.gcount() > 0) {
            right.read(other.data(), static_cast<std::streamsize>(other.size()));
            if (left.gcount() != right.gcount() || block != other) return false;
        }
        return right.peek() == EOF;
    };
    ForgetPeak();
    const std::size_t before = PeakBytes();
    ASSERT_GT(before, 0U);
    EXPECT_EQ(Run("setbinarydata", {{"sql", "t"}, {"colname", "photo"}, {"filename", file}}), kDone);
    EXPECT_EQ(Run("adddata", {{"sql", "t"}}, {{"photo", file, 1}}), kDone);
    EXPECT_EQ(Run("getbinarydata", {{"sql", "t"}, {"colname", "photo"}, {"filename", folder_.PathOf("out")}}),
              kDone);
    EXPECT_THAT(
        Run("getdata", {{"sql", "select * from t where id = 2"}, {"datafolder", folder_.PathOf("") + "\\"}}),
        HasSubstr("(file)"));
#ifndef __SANITIZE_ADDRESS__  // which keeps freed memory for a while
    EXPECT_LT(PeakBytes() - before, std::size_t{64} << 20);
#endif
    EXPECT_TRUE(isSame("out"));
    EXPECT_TRUE(isSame("photo.000001"));
}

}  // namespace
}  // namespace halvtiv
