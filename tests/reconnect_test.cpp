// Servers that restart, crash, drop a connection or fall silent, and several hosts that stand in for each
// other.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "support.hpp"
#include "test_server.hpp"

namespace halvtiv {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::AddressOf;
using test::Entries;
using test::FreePort;
using test::Request;
using test::TcpProxy;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Trouble = TcpProxy::Trouble;
using Clock = std::chrono::steady_clock;

struct Kind {
    std::string server;
    std::string sleep;   ///< a query that takes % seconds
    std::string whoAmI;  ///< the server's number for the connection
    std::string kill;    ///< ends the connection with the number %
    std::string rows;    ///< 20,000 rows, longer than what a network holds on its way
};

const std::array<Kind, 2> kKinds{
    Kind{"postgresql", "select pg_sleep(%)", "select pg_backend_pid()", "select pg_terminate_backend(%)",
         "select n, repeat('x', 500) x from generate_series(1, 20000) n"},
    Kind{"mariadb", "select sleep(%)", "select connection_id()", "kill %",
         "select seq n, repeat('x', 500) x from seq_1_to_20000"}};
constexpr int kRowCount = 20000;

std::string Fill(std::string text, const std::string& value) {
    return text.replace(text.find('%'), 1, value);
}

/// Runs any code in the middle of a transaction's call, the rows read unless the table is called "unread".
class Intruder : public IZorbDataExporter {
public:
    explicit Intruder(const std::function<void()>& deed) : deed_(deed) {}
    bool MatchExportType(std::string_view type) override { return type == "intruder"; }
    std::int32_t ExportData(ado::RecordsetPtr& rows, std::string& /*file*/, std::string& table,
                            std::string /*folder*/) override {
        if (table != "unread") rows->Close();
        deed_();
        return 1;
    }

private:
    const std::function<void()>& deed_;
};

class ServersGoAway : public testing::TestWithParam<Kind> {
protected:
    // Making a server takes seconds: all tests share one of each kind.
    static std::map<std::string, std::unique_ptr<test::TestServer>>& Servers() {
        static std::map<std::string, std::unique_ptr<test::TestServer>> servers;
        return servers;
    }

    void SetUp() override {
        auto& server = Servers()[GetParam().server];
        if (!server) server = std::make_unique<test::TestServer>(GetParam().server);
        server_ = server.get();
        if (!server_->IsThere()) GTEST_SKIP() << "NOT TESTED: " << GetParam().server << " is not installed";
        server_->Start();
        Admin("drop table if exists t");
        Admin("create table t (n integer)");
        engine_.ReConnectInterval(0);
        engine_.AddDataExporter(std::make_shared<Intruder>(deed_));
    }

    /// On a connection of its own: the first cell.
    std::string Admin(const std::string& sql) const {
        ado::Connection connection;
        connection.Open(server_->ConnectionString());
        const auto rows = connection.Execute(sql);
        return rows->State() == ado::adStateOpen ? rows->Fields().Item(0)->Value().Text() : "";
    }
    std::string Count() const { return Admin("select count(*) from t"); }

    void Connect(const std::string& string) {
        ASSERT_TRUE(engine_.SetDatabaseConnectionString(string)) << engine_.GetLastError();
    }
    std::vector<std::string> Run(const std::string& sql) {
        std::string result;
        EXPECT_TRUE(engine_.RunFunction(Request("public.executesql", {{"sql", sql}}), result));
        return Entries(result);
    }
    std::string MyNumber() {
        const auto entry = Run(GetParam().whoAmI).at(0);
        const auto begin = entry.rfind('=') + 1;
        return entry.substr(begin, entry.size() - 1 - begin);
    }
    bool RunTransaction(const std::vector<std::string>& calls) {
        std::string xml = "<transaction>";
        for (const auto& call : calls) xml += call;
        return engine_.RunTransaction(xml + "</transaction>", result_);
    }
    static std::string Insert(int n) {
        return Request("public.executesql", {{"sql", "insert into t values (" + std::to_string(n) + ")"}});
    }
    /// A call that succeeds, in which the deed is done.
    static std::string Intrude(const std::string& table = "read") {
        return Request("public.getdatatoexportfile", {{"sql", "select 1 a, 2 b"},
                                                      {"exporttype", "intruder"},
                                                      {"filename", "none"},
                                                      {"tablename", table}});
    }
    /// Whether something ends by itself within the limit, and how long it took.
    static void EndsWithin(seconds limit, const std::function<void()>& action) {
        const auto begin = Clock::now();
        action();
        EXPECT_LT(Clock::now() - begin, limit);
    }

    test::TestServer* server_ = nullptr;
    ZorbDbAccessEngine engine_;
    std::string result_;
    std::function<void()> deed_ = [] {};  // what the intruder does
};

TEST_P(ServersGoAway, AServerThatRestartsIsFoundAgainAtTheNextCall) {
    Connect(server_->ConnectionString());
    EXPECT_THAT(Run("insert into t values (1)"), ElementsAre(StartsWith("K info")));
    server_->Restart();
    EXPECT_THAT(Run("insert into t values (2)"), ElementsAre(StartsWith("K info")));
    server_->Restart();
    EXPECT_TRUE(RunTransaction({Insert(3), Insert(4)})) << engine_.GetLastError();

    server_->Stop(test::TestServer::Ending::Order);
    EXPECT_FALSE(engine_.IsConnectionOK());
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(Run("insert into t values (5)"), ElementsAre(HasSubstr("建立数据库连接时出现如下错误")));
        EXPECT_FALSE(RunTransaction({Insert(6), Insert(7)}));
        EXPECT_THAT(Entries(result_), ElementsAre(HasSubstr("建立数据库连接时出现如下错误")));
        EXPECT_THAT(engine_.GetLastError(), Not(HasSubstr(server_->Password())));
    }
    engine_.ReConnectInterval(-1);
    server_->Start();
    EXPECT_THAT(Run("insert into t values (8)"),
                ElementsAre(HasSubstr("数据库连接已经断开，请稍后再试。-1")));
    EXPECT_FALSE(RunTransaction({Insert(9)}));
    EXPECT_THAT(engine_.GetLastError(), HasSubstr("数据库连接已经断开，请稍后再试。-1"));
    EXPECT_EQ(Count(), "4");
    engine_.ReConnectInterval(0);
    EXPECT_THAT(Run("insert into t values (10)"), ElementsAre(StartsWith("K info")));
}

TEST_P(ServersGoAway, ACallUnderWayFailsAndTheConnectionIsDead) {
    Connect(server_->ConnectionString());
    const std::function<void()> deeds[] = {
        [this, number = MyNumber()] { Admin(Fill(GetParam().kill, number)); },
        [this] { server_->Stop(); },
    };
    for (const auto& deed : deeds) {
        std::thread later([&] {
            std::this_thread::sleep_for(milliseconds(300));
            deed();
        });
        EndsWithin(seconds(10), [&] {
            EXPECT_THAT(Run(Fill(GetParam().sleep, "20")),
                        ElementsAre(HasSubstr("error[number=-2147467259")));
        });
        later.join();
        EXPECT_FALSE(engine_.IsConnectionOK());
        const auto connection = engine_.GetDatabaseConnection();
        ado::Recordset rows;
        for (const std::function<void()>& use :
             {std::function<void()>([&] { connection->Execute("select 7 a"); }),
              std::function<void()>([&] { connection->BeginTrans(); }), std::function<void()>([&] {
                  rows.Open("select 7 a", connection, ado::adOpenForwardOnly, ado::adLockReadOnly);
              })}) {
            EXPECT_EQ(test::ErrorOf(use).Number, -2147467259);
        }
        server_->Restart();
        EXPECT_THAT(Run("select 7 a"), ElementsAre(HasSubstr("a=7")));
    }
}

TEST_P(ServersGoAway, ATransactionNeverGoesOnOnANewConnection) {
    Connect(server_->ConnectionString());
    std::string number;
    const auto kill = [&] { Admin(Fill(GetParam().kill, number)); };
    const auto stop = [&] { server_->Stop(); };
    for (const std::function<void()>& deed : {std::function<void()>(kill), std::function<void()>(stop)}) {
        // Between two calls.
        number = MyNumber();
        deed_ = deed;
        EXPECT_FALSE(RunTransaction({Insert(1), Intrude(), Insert(2)}));
        EXPECT_THAT(
            engine_.GetLastError(),
            AnyOf(HasSubstr("The connection was lost during the transaction."), HasSubstr("-2147467259")));
        server_->Start();
        EXPECT_EQ(Count(), "0");
        // Within a call.
        number = MyNumber();
        std::thread later([&] {
            std::this_thread::sleep_for(milliseconds(300));
            deed();
        });
        EXPECT_FALSE(RunTransaction(
            {Insert(1), Request("public.executesql", {{"sql", Fill(GetParam().sleep, "20")}}), Insert(2)}));
        later.join();
        EXPECT_THAT(engine_.GetLastError(), HasSubstr("-2147467259"));
        EXPECT_FALSE(engine_.IsConnectionOK());
        server_->Start();
        EXPECT_EQ(Count(), "0");
    }
    // Before the commit, whose failure is said.
    deed_ = kill;
    for (const std::string rows : {"read", "unread"}) {
        number = MyNumber();
        RunTransaction({Insert(1), Intrude(rows)});
        EXPECT_THAT(engine_.GetLastError(), HasSubstr("(ERR#: -2147467259)")) << "lost, not out of memory";
        EXPECT_EQ(Count(), "0");
    }
    EXPECT_TRUE(RunTransaction({Insert(1), Insert(2)}));
    EXPECT_EQ(engine_.GetLastError(), "");
    EXPECT_EQ(Count(), "2");
}

// At whichever byte the network breaks: a result is whole or an error, and what has been acknowledged is
// there.
TEST_P(ServersGoAway, NoBrokenResultIsTakenForAWholeOneAndNoCommitIsMadeUp) {
    TcpProxy proxy(server_->Port());
    Connect(server_->ConnectionString(AddressOf(proxy.Port())));
    const auto before = proxy.Passed();
    ASSERT_TRUE(RunTransaction({Insert(0), Insert(0)}));
    const auto bytes = proxy.Passed() - before;
    int acknowledged = 0;
    int failed = 0;
    // Further than one step beyond the end: a single connection that is slow to come about is no failure.
    for (long long after = 0; after <= bytes + 64; after += 8) {
        ASSERT_TRUE(engine_.ReConnect()) << engine_.GetLastError();
        const auto n = 100 + static_cast<int>(after);
        proxy.Break(Trouble::Drop, after);
        const bool isDone = RunTransaction({Insert(n), Insert(n)}) && engine_.GetLastError().empty();
        proxy.Repair();
        const auto count = Admin("select count(*) from t where n = " + std::to_string(n));
        if (isDone) {
            EXPECT_EQ(count, "2") << after << " of " << bytes;
        } else {
            EXPECT_THAT(count, AnyOf("0", "2")) << after << " of " << bytes << ": " << engine_.GetLastError();
        }
        ++(isDone ? acknowledged : failed);
    }
    EXPECT_GT(acknowledged, 0) << bytes << ": " << engine_.GetLastError();
    EXPECT_GT(failed, 5);

    int whole = 0;
    for (const long long after : {0LL, 1LL, 100LL, 50'000LL, 5'000'000LL, 9'999'000LL, 12'000'000LL}) {
        ASSERT_TRUE(engine_.ReConnect()) << engine_.GetLastError();
        proxy.Break(Trouble::Drop, after);
        std::string result;
        EXPECT_TRUE(engine_.RunFunction(Request("public.getdata", {{"sql", GetParam().rows}}), result));
        proxy.Repair();
        ZorbFunctionResult read;
        ASSERT_TRUE(read.Parse(result));
        if (engine_.GetLastError().empty()) {
            ++whole;
            EXPECT_EQ(read.GetResultDataCount("K"), kRowCount) << after;
        } else {
            EXPECT_THAT(Entries(result).back(), StartsWith("K error[number=-2147467259")) << after;
        }
    }
    EXPECT_EQ(whole, 1);
}

TEST_P(ServersGoAway, ASilentServerIsGivenUpAsTheConnectionStringSays) {
    TcpProxy proxy(server_->Port());
    const struct {
        Trouble trouble;
        std::string limit;
    } cases[] = {{Trouble::Freeze, "Read Timeout=1"}, {Trouble::Lose, "Link Timeout=1"}};
    for (const auto& [trouble, limit] : cases) {
        SCOPED_TRACE(limit);
        Connect(server_->ConnectionString(AddressOf(proxy.Port()), limit));
        for (const auto& sql : {GetParam().rows, Fill(GetParam().sleep, "1")}) {
            ASSERT_TRUE(engine_.ReConnect()) << engine_.GetLastError();
            proxy.Break(trouble, sql == GetParam().rows ? 300'000 : 0);
            EndsWithin(seconds(8),
                       [&] { EXPECT_THAT(Run(sql).back(), StartsWith("K error[number=-2147467259")); });
            EXPECT_FALSE(engine_.IsConnectionOK());
            proxy.Repair();
        }
        // Nor does a transaction wait for ever, at any of its steps.
        for (const long long after : {0LL, 60LL}) {
            ASSERT_TRUE(engine_.ReConnect()) << engine_.GetLastError();
            proxy.Break(trouble, after);
            EndsWithin(seconds(12), [&] {
                EXPECT_FALSE(RunTransaction({Insert(1), Insert(2), Insert(3), Insert(4)}) &&
                             engine_.GetLastError().empty());
            });
            proxy.Repair();
        }
    }
    // A network that works is no reason to end a statement that takes its time.
    Connect(server_->ConnectionString(AddressOf(proxy.Port()), "Link Timeout=1"));
    EXPECT_THAT(Run(Fill(GetParam().sleep, "4")), ElementsAre(StartsWith("K data")));
    for (const char* wrong : {"Read Timeout=soon", "Link Timeout=-1"}) {
        EXPECT_FALSE(engine_.SetDatabaseConnectionString(server_->ConnectionString({}, wrong)));
        EXPECT_THAT(engine_.GetLastError(), HasSubstr("is not a number of seconds."));
    }
}

TEST_P(ServersGoAway, AConnectionThatDoesNotComeAboutIsGivenUp) {
    TcpProxy proxy(server_->Port());
    for (const auto trouble : {Trouble::Freeze, Trouble::Drop}) {
        for (const long long after : {0LL, 130LL, 180LL}) {
            SCOPED_TRACE(after);
            proxy.Break(trouble, after);
            EndsWithin(seconds(8), [&] {
                const bool isOpen = engine_.SetDatabaseConnectionString(
                                        server_->ConnectionString(AddressOf(proxy.Port()))) != nullptr;
                EXPECT_TRUE(isOpen || !engine_.GetLastError().empty());
                if (after < 100) {
                    EXPECT_FALSE(isOpen);
                }
            });
            proxy.Repair();
        }
    }
}

TEST_P(ServersGoAway, CancellingDoesNotWaitForASilentServer) {
    for (const auto trouble : {Trouble::Freeze, Trouble::Lose}) {
        TcpProxy proxy(server_->Port());
        Connect(server_->ConnectionString(AddressOf(proxy.Port())));
        const auto run = [&](long long after, const std::function<void()>& call) {
            ASSERT_TRUE(engine_.ReConnect()) << engine_.GetLastError();
            proxy.Break(trouble, after);
            std::atomic<bool> isOver = false;
            std::thread later([&] {
                // More than once: what comes before the call has begun is forgotten.
                do {
                    for (int i = 0; i < 25 && !isOver; ++i) std::this_thread::sleep_for(milliseconds(20));
                    if (!isOver) EndsWithin(seconds(15), [&] { engine_.Cancel(); });
                } while (!isOver);
            });
            EndsWithin(seconds(15), call);
            isOver = true;
            later.join();
            EXPECT_FALSE(engine_.IsConnectionOK());
            proxy.Repair();
        };
        run(300'000,
            [&] { EXPECT_THAT(Run(GetParam().rows).back(), StartsWith("K error[number=-2147217842")); });
        run(60, [&] {
            EXPECT_FALSE(RunTransaction({Insert(1), Insert(2), Insert(3)}));
            EXPECT_THAT(engine_.GetLastError(), HasSubstr("-2147217842"));
        });
        // Nor for a commit, of which nobody knows then whether it was done.
        Connect(server_->ConnectionString(AddressOf(proxy.Port())));
        std::thread later;
        deed_ = [&] {
            proxy.Break(trouble, 0);
            later = std::thread([&] {
                std::this_thread::sleep_for(milliseconds(500));
                EndsWithin(seconds(15), [&] { engine_.Cancel(); });
            });
        };
        EndsWithin(seconds(15), [&] { RunTransaction({Insert(1), Intrude()}); });
        ASSERT_TRUE(later.joinable());
        later.join();
        // Cancelled where it had not been sent.
        EXPECT_THAT(engine_.GetLastError(), AnyOf(HasSubstr("-2147467259"), HasSubstr("-2147217842")));
        EXPECT_FALSE(engine_.IsConnectionOK());
        proxy.Repair();
        EXPECT_THAT(Run("select 7 a"), ElementsAre(HasSubstr("a=7")));
    }
}

TEST_P(ServersGoAway, OfSeveralHostsOneThatAnswersIsTaken) {
    const auto dead = AddressOf(FreePort());
    const auto live = AddressOf(server_->Port());
    TcpProxy silent(server_->Port());
    silent.Break(Trouble::Freeze, 0);
    for (const auto& hosts : {dead + "," + live, live + ", " + dead, AddressOf(silent.Port()) + "," + live}) {
        Connect(server_->ConnectionString(hosts));
        EXPECT_THAT(Run("select 7 a"), ElementsAre(HasSubstr("a=7"))) << hosts;
    }
    const auto alsoDead = AddressOf(FreePort());
    for (const auto& hosts : {dead + "," + alsoDead, AddressOf(silent.Port()) + "," + dead,
                              dead + "," + AddressOf(silent.Port())}) {
        EXPECT_FALSE(engine_.SetDatabaseConnectionString(server_->ConnectionString(hosts)));
        const auto words = engine_.GetLastError();
        for (std::size_t begin = 0; begin < hosts.size();) {
            const auto end = std::min(hosts.find(',', begin), hosts.size());
            const auto port = hosts.substr(begin, end - begin).substr(hosts.find(':') + 1);
            EXPECT_THAT(words, HasSubstr(port)) << words;
            begin = end + 1;
        }
        EXPECT_THAT(words, HasSubstr("-2147467259"));
        EXPECT_THAT(words, Not(HasSubstr(server_->Password())));
    }
    // A name that swallows the password is not shown.
    EXPECT_FALSE(engine_.SetDatabaseConnectionString(
        server_->ConnectionString(live, "User ID=me Password=wrong-12345")));
    EXPECT_THAT(engine_.GetLastError(), HasSubstr("there is a \";\" missing"));
    EXPECT_THAT(engine_.GetLastError(), Not(HasSubstr("wrong-12345")));
    // A refused login is not tried elsewhere.
    EXPECT_FALSE(engine_.SetDatabaseConnectionString(
        server_->ConnectionString(live + "," + dead, "Password=wrong-12345")));
    EXPECT_THAT(engine_.GetLastError(), HasSubstr("-2147217843"));
    EXPECT_THAT(engine_.GetLastError(), Not(HasSubstr("wrong-12345")));

    if (GetParam().server != "postgresql") return;
    Connect(server_->ConnectionString(dead + "," + live, "target_session_attrs=read-write"));
    EXPECT_FALSE(engine_.SetDatabaseConnectionString(
        server_->ConnectionString(dead + "," + live, "target_session_attrs=standby")));
    EXPECT_THAT(engine_.GetLastError(), HasSubstr("not in hot standby"));
}

TEST_P(ServersGoAway, ReconnectingGoesToTheNextHost) {
    auto first = std::make_unique<TcpProxy>(server_->Port());
    TcpProxy second(server_->Port());
    Connect(server_->ConnectionString(AddressOf(first->Port()) + "," + AddressOf(second.Port())));
    EXPECT_THAT(Run("insert into t values (1)"), ElementsAre(StartsWith("K info")));
    EXPECT_EQ(second.Passed(), 0);
    first.reset();
    std::this_thread::sleep_for(milliseconds(20));  // a provider looks at its server every few milliseconds
    EXPECT_THAT(Run("insert into t values (2)"), ElementsAre(StartsWith("K info")));
    EXPECT_TRUE(RunTransaction({Insert(3)})) << engine_.GetLastError();
    EXPECT_GT(second.Passed(), 0);
    EXPECT_EQ(Count(), "3");
}

INSTANTIATE_TEST_SUITE_P(Servers, ServersGoAway, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return kind.param.server; });

}  // namespace
}  // namespace halvtiv
