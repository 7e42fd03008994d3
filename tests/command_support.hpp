#pragma once

// The halvtiv command as its users meet it: the built program, run in a folder of its own.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support.hpp"

namespace halvtiv::test {

namespace fs = std::filesystem;

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

inline bool Contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

class CommandTest : public testing::Test {
protected:
    CommandTest() {
        MakeDatabase(folder_ / "shop.db",
                     "create table item (id INTEGER PRIMARY KEY, name TEXT, price REAL);"
                     "insert into item values (9, '\u4e2d\u6587', 2.5),"
                     "(10, 'e\u0301' || char(13, 10) || '\"a\", b', null)");
        Write("get.xml", Request("public.getdata", "select * from item order by id"));
        Write("defs.xml",
              "<functions><functiondef name='item.byid'><paramdef>"
              "<param name='id' type='integer' value='number of the item'/>"
              "<param name='word' type='TEXT'/></paramdef>"
              "<function name='public.getdata'>"
              "<param name='sql' value='select name from item where id=%id%'/>"
              "</function></functiondef></functions>");
        Write("broken.xml",
              "<functions><functiondef name='a'/><functiondef name='b'>"
              "<function name='public.getdata'/></functiondef></functions>");
    }
    ~CommandTest() override {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    static std::string Request(const std::string& function, const std::string& sql) {
        return "<function name=\"" + function + "\" guid=\"G1\"><param name=\"sql\" value=\"" + sql +
               "\"/></function>";
    }

    void Write(const std::string& name, const std::string& content) {
        std::ofstream(folder_ / name, std::ios::binary) << content;
    }

    /// Runs a shell line in the folder; "halvtiv" in it is the command.
    Outcome Shell(const std::string& line) {
        const std::string script =
            "cd '" + folder_.string() + "' && unset HALVTIV_CONNECTION HALVTIV_PASSWORD; " +
            "halvtiv() { '" HALVTIV_COMMAND "' \"$@\"; }; exec >out 2>err </dev/null; " + line;
        Write("script", script);
        const int status = std::system(("sh '" + (folder_ / "script").string() + "'").c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(folder_ / "out"),
                ReadFile(folder_ / "err")};
    }
    Outcome Run(const std::string& arguments) { return Shell("halvtiv " + arguments); }

    /// Starts the command, sends it a signal once it is time, and waits for its end; -1 when the signal ended
    /// it.
    Outcome Stop(std::vector<std::string> arguments, int signal, const std::function<bool()>& isTime) {
        arguments.insert(arguments.begin(), HALVTIV_COMMAND);
        const pid_t child = ::fork();
        if (child == 0) {
            if (::chdir(folder_.c_str()) != 0) ::_exit(99);
            ::signal(SIGINT, SIG_DFL);
            ::dup2(::open("out", O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
            ::dup2(::open("err", O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
            std::vector<char*> words;
            words.reserve(arguments.size() + 1);
            for (std::string& word : arguments) words.push_back(word.data());
            words.push_back(nullptr);
            ::execv(HALVTIV_COMMAND, words.data());
            ::_exit(99);
        }
        int status = 0;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        bool isSent = false;
        while (::waitpid(child, &status, WNOHANG) == 0) {
            if (!isSent && isTime()) isSent = ::kill(child, signal) == 0;
            if (std::chrono::steady_clock::now() > deadline) ::kill(child, SIGKILL);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_TRUE(isSent) << ReadFile(folder_ / "err");
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(folder_ / "out"),
                ReadFile(folder_ / "err")};
    }

    /// Nothing was run: status 2, a reason, and not a byte on standard output.
    void ExpectRefused(const std::string& arguments, const std::string& reason) {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
        EXPECT_TRUE(Contains(outcome.err, reason)) << arguments << " says: " << outcome.err;
    }

    fs::path folder_ = MakeTemporaryFolder();
};

}  // namespace halvtiv::test
