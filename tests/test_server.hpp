#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include <halvtiv/halvtiv.hpp>

#include "support.hpp"
#include "tcp_proxy.hpp"

namespace halvtiv::test {

/// A database server of the test's own, to be stopped, killed and started again at will.
class TestServer {
public:
    /// kind: "postgresql" or "mariadb". It is made and started; `IsThere` is false where it is not installed.
    explicit TestServer(std::string kind) : kind_(std::move(kind)), port_(FreePort()) {
        constexpr int kNotInstalled = 3;
        const int status = std::system((Script() + " make " + kind_ + " " + Folder()).c_str());
        if (WEXITSTATUS(status) == kNotInstalled) return;
        if (status != 0) throw std::runtime_error("the server's data cannot be made");
        password_ = ReadFile(Folder() + "/password");
        Start();
    }
    ~TestServer() { Stop(); }
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    bool IsThere() const { return !password_.empty(); }
    int Port() const { return port_; }
    const std::string& Password() const { return password_; }
    /// With more behind it; dataSource instead of the server's own address where it is not "".
    std::string ConnectionString(const std::string& dataSource = {}, const std::string& more = {}) const {
        const bool isPostgresql = kind_ == "postgresql";
        return std::string("Provider=") + (isPostgresql ? "PostgreSQL" : "MariaDB") +
               ";Data Source=" + (dataSource.empty() ? AddressOf(port_) : dataSource) +
               ";Initial Catalog=" + (isPostgresql ? "postgres" : "test") +
               ";User ID=halvtiv;Password=" + password_ + ";" + more;
    }

    /// Unless it runs; returns when it takes connections. From one thread alone, with whose end the server
    /// ends.
    void Start() {
        const auto port = std::to_string(port_);
        const auto script = Script();
        const auto log = Folder() + "/server.log";
        for (int attempt = 0; attempt < 300; ++attempt) {
            if (pid_ == 0) {
                pid_ = ::fork();
                if (pid_ == 0) {
                    ::prctl(PR_SET_PDEATHSIG, SIGQUIT);  // the server does not outlive a test that crashes
                    const int file = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
                    ::dup2(file, STDOUT_FILENO);
                    ::dup2(file, STDERR_FILENO);
                    ::execl(script.c_str(), script.c_str(), "run", kind_.c_str(), Folder().c_str(),
                            port.c_str(), nullptr);
                    ::_exit(1);
                }
            }
            ado::Connection attemptToConnect;
            if (ErrorOf([&] { attemptToConnect.Open(ConnectionString()); }).Number == 0) return;
            // What a killed server leaves behind may keep its successor from starting for a while.
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_) pid_ = 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        throw std::runtime_error("the server does not start: " + ReadFile(log));
    }
    /// In order, saying goodbye to its clients, or as a crash.
    enum class Ending { Order, Crash };
    void Stop(Ending ending = Ending::Crash) {
        if (pid_ <= 0) return;
        // A PostgreSQL server is many processes, which end at once by another signal.
        if (kind_ == "postgresql") {
            ::kill(pid_, ending == Ending::Order ? SIGINT : SIGQUIT);
        } else {
            ::kill(pid_, ending == Ending::Order ? SIGTERM : SIGKILL);
        }
        ::waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }
    void Restart() {
        Stop();
        Start();
    }

private:
    static std::string Script() { return std::string(HALVTIV_SCRIPTS) + "/database-server"; }
    std::string Folder() const { return folder_.PathOf("."); }

    std::string kind_;
    TemporaryFolder folder_;
    int port_;
    std::string password_;
    pid_t pid_ = 0;
};

}  // namespace halvtiv::test
