#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <limits>
#include <new>
#include <string>

#include "support.hpp"

namespace {

constexpr std::int64_t kAll = std::numeric_limits<std::int64_t>::max();

/// Which of this thread's allocations fail: those so many ahead, as many as `times`.
struct AllocationFailure {
    std::int64_t number = 0;
    std::int64_t times = 0;
    bool reached = false;

    bool Now() {
        if (times == 0 || number-- > 0) return false;
        number = 0;
        reached = true;
        --times;
        return true;
    }
};
thread_local AllocationFailure failure;

void* Allocate(std::size_t size) noexcept {
    return failure.Now() ? nullptr : std::malloc(size > 0 ? size : 1);
}

/// SQLite's allocations fail likewise, each by itself: without its pool of small pieces.
sqlite3_mem_methods sqliteMemory;
const bool isSqliteIncluded = [] {
    sqlite3_mem_methods failing;
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &sqliteMemory);
    failing = sqliteMemory;
    failing.xMalloc = [](int size) { return failure.Now() ? nullptr : sqliteMemory.xMalloc(size); };
    failing.xRealloc = [](void* memory, int size) {
        return failure.Now() ? nullptr : sqliteMemory.xRealloc(memory, size);
    };
    sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
    return sqlite3_config(SQLITE_CONFIG_MALLOC, &failing) == SQLITE_OK;
}();

}  // namespace

// Not inlined, so that the compiler takes the pairs for what they are.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (void* memory = Allocate(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
    return operator new(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace halvtiv {
namespace {

constexpr const char* kOutOfMemory = "Out of memory.(ERR#: 7)";

/// Fails every single allocation of an attempt in turn, alone, with the next two and with all after it, the
/// tree's own included; looks after each at what has become of it. Of a long attempt, every `step`th will do.
template <typename Attempt, typename Check>
void FailEachAllocation(Attempt&& attempt, Check&& check, std::int64_t step = 1) {
    pugi::set_memory_management_functions(&Allocate, &std::free);
    for (const std::int64_t times : {std::int64_t{1}, std::int64_t{3}, kAll}) {
        for (std::int64_t number = 0; !testing::Test::HasFailure(); number += step) {
            SCOPED_TRACE("allocation " + std::to_string(number) + ", as many as " + std::to_string(times));
            failure = {number, times, false};
            bool escaped = false;
            try {
                attempt();
            } catch (...) {
                escaped = true;
            }
            const bool reached = failure.reached;
            failure = {};
            EXPECT_FALSE(escaped);
            check();
            if (!reached) break;
        }
    }
    pugi::set_memory_management_functions(&std::malloc, &std::free);
}

constexpr const char* kCall =
    R"(<function name="a function's long name" guid="0123456789ABCDEF0123456789ABCDEF"><param name="n" )"
    R"(value="a value beyond any small buffer" extra=""/><param name="block"><col name="c" value="1" extra=""/></param>)"
    R"(</function>)";
constexpr const char* kResult =
    R"(<result name="n"><data guid="k" type="data"><row index="0"><col name="a" value="text"/></row><row index="1">)"
    R"(<col name="a" value="another value beyond any small buffer"/></row></data></result>)";
constexpr const char* kDefinitions =
    R"(<d><functiondef name="a.function"><paramdef><param name="a long parameter name" type="text" extra="quote"/>)"
    R"(<param name="n" type="integer"/></paramdef><function name="public.getcomplexdata">)"
    R"(<param name="sql" value="select v from t where v = '%a long parameter name%' or %n%"/>)"
    R"(<param name="csql" value="select '%v%' as copy"/><param name="refcols"><col name="v" value="v" extra="quoted"/>)"
    R"(</param></function></functiondef></d>)";

std::shared_ptr<pugi::xml_document> Document(ZorbFunctionResult& result) {
    try {
        return result.ResultXMLDOMDoc();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

TEST(MemoryTest, DocumentsSurviveAnyFailedAllocation) {
    bool done = false;
    std::string xml;
    ZorbFunctionCall call;
    FailEachAllocation([&] { done = call.Parse(kCall) && call.Save(xml); },
                       [&] {
                           EXPECT_TRUE(done ? xml == kCall : call.GetLastError().ends_with(kOutOfMemory));
                           EXPECT_TRUE(call.Parse(kCall) && call.Save(xml)) << call.GetLastError();
                           EXPECT_EQ(xml, kCall);
                       });

    ZorbFunctionResult result;
    ZorbColumnDataItemsPtr row;
    for (const bool live : {false, true}) {
        const auto work = [&] {
            done = result.Parse(kResult) && result.GetResultType("x' or @guid='k") == QORV_OUTPUT_DATA;
            const auto document = done && live ? Document(result) : nullptr;
            done = done && (document || !live);
            row = done ? result.GetResultDataItem("k", 1) : nullptr;
            done = row &&
                   result.AddFunctionResult_Error("k", -1, "a description beyond any small buffer", "") &&
                   result.AddFunctionResult_Info("k", 5) && result.ChangeResultDataGUID("k", "l") &&
                   result.Save(xml);
        };
        const auto isRight = [&] {
            return done && row->Count() == 1 && test::Entries(xml).size() == 2 &&
                   result.GetResultType("l") == QORV_OUTPUT_ERROR;
        };
        FailEachAllocation(work, [&] {
            const std::string error = result.GetLastError();
            EXPECT_TRUE(done ? isRight() : (live && error.empty()) || error.ends_with(kOutOfMemory)) << xml;
            work();
            EXPECT_TRUE(isRight()) << result.GetLastError();
        });
    }
}

TEST(MemoryTest, ARequestIsAnsweredRightlyOrSaysThatMemoryRanOut) {
    const test::TemporaryFolder folder;
    const std::string path = folder.PathOf("data.db");
    test::MakeDatabase(path,
                       "create table t (v text primary key); insert into t values ('a value beyond any small "
                       "buffer'), ('b');"
                       "create table child (v text references t deferrable initially deferred)");
    ZorbDbAccessEngine engine;
    ASSERT_NE(engine.SetDatabaseConnectionString("Provider=SQLite;Data Source=" + path), nullptr);
    std::string report;
    bool done = engine.LoadFunctionDefsXml(kDefinitions, report);
    FailEachAllocation(
        [&] { done = engine.LoadFunctionDefsXml(kDefinitions, report); },
        [&] {
            EXPECT_TRUE(done || engine.GetLastError().ends_with(kOutOfMemory)) << engine.GetLastError();
            EXPECT_TRUE(engine.IsFunctionDefined("a.function")) << "the old one stays";
            EXPECT_TRUE(engine.LoadFunctionDefsXml(kDefinitions, report));
            EXPECT_TRUE(report.ends_with("(0 failed, 0 new added and 1 updated).\r\n")) << report;
        });

    const std::string request = test::Request(
        "a.function", {{"a long parameter name", "a value beyond any small buffer"}, {"n", "0"}});
    std::string xml, expected;
    ASSERT_TRUE(engine.RunFunction(request, expected)) << engine.GetLastError();
    ASSERT_THAT(test::Entries(expected),
                testing::ElementsAre("K data[v=text|v=a value beyond any small buffer]",
                                     "K.1.1 data[copy=text|copy=a value beyond any small buffer]"));
    FailEachAllocation(
        [&] { done = engine.RunFunction(request, xml); },
        [&] {
            const std::string error = engine.GetLastError();
            EXPECT_TRUE(error.empty() ? done && xml == expected : error.ends_with(kOutOfMemory))
                << error << xml;
            EXPECT_TRUE(done || xml.empty());
            EXPECT_TRUE(engine.RunFunction(request, xml)) << engine.GetLastError();
            EXPECT_EQ(xml, expected);
        });

    // A function that fails is never taken for one that succeeds, nor a failed commit for another failure.
    ZorbColumnDataItems params;
    params.Add("sql", "select a column that is not there");
    FailEachAllocation([&] { done = engine.SimpleExecuteSQL("public.executesql", &params, &xml, true); },
                       [&] { EXPECT_TRUE(!done && !engine.GetLastError().empty()); });
    params.Item(1)->Value = "select 'a value beyond any small buffer' as v";
    FailEachAllocation(
        [&] { done = engine.SimpleExecuteSQL("public.executesql", &params, &xml, true); },
        [&] {
            EXPECT_TRUE(done ? xml.ends_with(" buffer\"/></row>") : !engine.GetLastError().empty()) << xml;
        });
    const std::string transaction =
        "<t>" + test::Request("public.executesql", {{"sql", "insert into child values (9)"}}) + "</t>";
    FailEachAllocation([&] { done = engine.RunTransaction(transaction, xml); },
                       [&] {
                           const std::string error = engine.GetLastError();
                           EXPECT_TRUE(done ? error.starts_with("ZorbDbAccessEngine:The commit failed: ")
                                            : error.ends_with(kOutOfMemory))
                               << error;
                       });
}

TEST(MemoryTest, ATransactionIsWholeOrUndoneWhateverAllocationFails) {
    ASSERT_TRUE(isSqliteIncluded);
    const test::TemporaryFolder folder;
    const std::string path = folder.PathOf("data.db");
    const std::string file = folder.PathOf("file");
    test::WriteFile(file, std::string(1100000, 'x'));
    const auto own = test::MakeDatabase(path,
                                        "pragma page_size = 65536; create table t (id integer primary key, n "
                                        "integer); create table c (n integer); "
                                        "insert into c values (0); create table b (id integer primary key, b "
                                        "blob); insert into b (id) values (1)");
    ZorbDbAccessEngine engine;
    engine.ReConnectInterval(0);
    std::string string = "Provider=SQLite;Data Source=" + path;
    const auto connect = [&] {
        engine.SetDatabaseConnectionString(string)->Execute(
            "pragma journal_mode = memory; pragma synchronous = off");
    };
    connect();
    const std::vector<test::Item> one{{"n", "1"}};
    const std::string again =
        "<transaction>" + test::Request("public.executesql", {{"sql", "insert into t (n) values (3), (4)"}}) +
        test::Request("public.executesql", {{"sql", "update c set n = n + 1"}}) + "</transaction>";
    const std::string transaction =
        "<transaction>" + test::Request("public.adddata", {{"sql", "t"}}, &one) +
        test::Request("public.updatedatacoladd", {{"sql", "c"}, {"col", "n"}}, &one) +
        test::Request("public.setbinarydata", {{"sql", "b"}, {"colname", "b"}, {"filename", file}}) +
        test::Request("public.executesql", {{"sql", "insert into t (n) values (2)"}}) + "</transaction>";
    std::string xml;
    bool done = false;
    int expected = 0;
    const auto run = [&](const std::string& request) { done = engine.RunTransaction(request, xml); };
    const auto look = [&] {
        done = done && engine.GetLastError().empty();  // a commit that failed is no failed run
        if (done) ++expected;
        EXPECT_EQ(test::RestOf(own->Execute("select count(*), (select n from c) from t")),
                  std::to_string(2 * expected) + " " + std::to_string(expected))
            << done << engine.GetLastError();
    };
    FailEachAllocation([&] { run(transaction); },
                       [&] {
                           look();
                           run(again);
                           look();
                           EXPECT_TRUE(done) << engine.GetLastError();
                           connect();  // all statements are prepared anew
                       },
                       7);

    const std::string created = folder.PathOf("new.db");
    string = "Provider=SQLite;Create=1;Data Source=" + created;
    FailEachAllocation([&] { done = engine.SetDatabaseConnectionString(string) != nullptr; },
                       [&] {
                           engine.DisConnect();
                           EXPECT_EQ(std::filesystem::remove(created), done) << "no empty file is left";
                       });
}

}  // namespace
}  // namespace halvtiv
