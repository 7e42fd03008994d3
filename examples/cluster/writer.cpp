// Writes transactions into a cluster until it is told to end, and notes which of them were acknowledged.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include <halvtiv/halvtiv.hpp>

namespace {

using Clock = std::chrono::steady_clock;

volatile std::sig_atomic_t isToldToEnd = 0;

// Both rows of a transaction, or none: what one call writes alone would prove less.
std::string Transaction(int number) {
    halvtiv::ZorbTransactionCall transaction;
    for (int part = 1; part <= 2; ++part) {
        halvtiv::ZorbFunctionCall call;
        call.FunctionName("public.executesql");
        call.AddParam("sql", "insert into ledger (number, part) values (" + std::to_string(number) + ", " +
                                 std::to_string(part) + ")");
        transaction.AddFunction(call);
    }
    std::string xml;
    transaction.Save(xml);
    return xml;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::cerr
            << "Usage: cluster_writer CONNECTION FILE\n"
               "The numbers of the acknowledged transactions go into the file, one a line. The signal TERM "
               "ends it.\n";
        return 2;
    }
    halvtiv::ZorbDbAccessEngine engine;
    engine.ReConnectInterval(0);  // a lost connection is made anew before the next transaction
    if (!engine.SetDatabaseConnectionString(arguments[1])) {
        std::cerr << engine.GetLastError() << '\n';
        return 1;
    }
    std::signal(SIGTERM, [](int) { isToldToEnd = 1; });
    std::ofstream acknowledged(arguments[2]);
    auto lastDone = Clock::now();
    Clock::duration longestPause{};
    int done = 0;
    int failed = 0;
    std::string lastReason;
    for (int number = 1; isToldToEnd == 0; ++number) {
        std::string result;
        // "True" alone is not enough: the cluster may refuse the commit, which only the last error tells.
        const bool isDone =
            engine.RunTransaction(Transaction(number), result) && engine.GetLastError().empty();
        if (!isDone) {
            ++failed;
            if (const auto reason = engine.GetLastError(); reason != lastReason) {
                std::cout << "transaction " << number << ": " << reason << '\n';
                lastReason = reason;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            continue;
        }
        ++done;
        const auto now = Clock::now();
        longestPause = std::max(longestPause, now - lastDone);
        lastDone = now;
        acknowledged << number << '\n';
    }
    if (!acknowledged.flush()) {
        std::cerr << "The numbers cannot be written.\n";
        return 1;
    }
    std::cout << "acknowledged: " << done << "\nfailed: " << failed << "\nlongest pause: "
              << std::chrono::duration_cast<std::chrono::milliseconds>(longestPause).count() << " ms\n";
    return 0;
}
