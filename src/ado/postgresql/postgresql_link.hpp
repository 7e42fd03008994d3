#pragma once

#include <libpq-fe.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ado/cancel_switch.hpp"
#include "ado/errors.hpp"

namespace halvtiv::ado {

/// The source of PostgreSQL's errors.
inline constexpr std::string_view kPostgresqlName = "PostgreSQL";

/// What a statement may hold with all its values: the server takes 1 GiB at a time, its own marks included.
inline constexpr std::int64_t kMostSentBytes = (std::int64_t{1} << 30) - 65536;

/// Raises -2147217900 for values beyond that.
[[noreturn]] void RaiseTooLong();

struct ClosePostgresql {
    void operator()(PGconn* connection) const noexcept { PQfinish(connection); }
};
using PostgresqlHandle = std::unique_ptr<PGconn, ClosePostgresql>;

struct ClearPostgresqlResult {
    void operator()(PGresult* result) const noexcept { PQclear(result); }
};
using PostgresqlResult = std::unique_ptr<PGresult, ClearPostgresqlResult>;

/// The values for a statement's places, in order.
class PostgresqlParameters {
public:
    void AddNull() { Add(nullptr, 0, 0); }
    /// A text in the form that the place's type reads; raises where it holds a NUL.
    void AddText(std::string_view text);
    /// Bytes as they are, for a bytea.
    void AddBytes(std::string bytes);

    int Count() const { return static_cast<int>(values_.size()); }
    const char* const* Values() const { return values_.data(); }
    const int* Lengths() const { return lengths_.data(); }
    const int* Formats() const { return formats_.data(); }

private:
    void Add(const char* value, std::size_t length, int format);

    std::int64_t size_ = 0;

    std::list<std::string> kept_;  // the values stay where they are
    std::vector<const char*> values_;
    std::vector<int> lengths_;
    std::vector<int> formats_;
};

/// How a statement is sent.
struct PostgresqlSending {
    bool rowByRow = false;  ///< each row is a result of its own, received while the server produces the next
    bool binary = false;    ///< the form in which values come back
};

/// The line to a server, on which one statement runs at a time. Whoever waits on it can be stopped, by the
/// cancel switch or by the time-out of a command.
class PostgresqlLink {
public:
    PostgresqlLink(PostgresqlHandle connection, std::shared_ptr<CancelSwitch> cancel);

    /// False once the server has gone; a free line is looked at for that, though not more often than every
    /// few milliseconds.
    bool IsAlive();
    bool InTransaction() const noexcept;
    /// A number that stays the same from the statement that begins a transaction to the one that ends it.
    std::uint64_t TransactionSerial() const noexcept { return transactionSerial_; }
    void SetCommandTimeout(std::chrono::seconds timeout) noexcept { commandTimeout_ = timeout; }
    /// How long nothing may be heard from the server while it is waited for, 0 for no limit. The line is lost
    /// after that, whatever it does.
    void SetReadTimeout(std::chrono::seconds timeout) noexcept { readTimeout_ = timeout; }
    /// Whether the line was lost because nothing was heard.
    bool HasFallenSilent() const noexcept { return hasFallenSilent_; }
    /// The line does not stop for the switch or the time-out while this is set.
    void Uninterrupted(bool isSo) noexcept { uninterrupted_ = isSo; }
    bool IsUninterrupted() const noexcept { return uninterrupted_; }

    // One statement begins. What it answers must be received to its end before the next one.

    void SendText(const std::string& text, PostgresqlSending sending);
    void SendPrepared(const std::string& name, const PostgresqlParameters& parameters,
                      PostgresqlSending sending);
    /// The next result, a row where it was sent row by row; null at the statement's end. The statement's
    /// error is raised, the line free then.
    PostgresqlResult Receive();
    /// Drops what is left; asks the server to stop where that saves time and harms nothing.
    void GiveUp(bool mayStop);

    // One whole statement.

    void Prepare(const std::string& name, const std::string& text);
    PostgresqlResult Describe(const std::string& name);
    /// The last result.
    PostgresqlResult ReceiveAll();
    PostgresqlResult Run(const std::string& text);
    /// Several statements that need no answers, sent as one.
    void RunScript(const std::string& text);

    /// The server's code of the last statement's error; "" where it has failed otherwise or not at all.
    const std::string& LastState() const noexcept { return lastState_; }
    /// Raises -2147217842 when the running work has been cancelled.
    void StopIfCancelled();

private:
    using Clock = std::chrono::steady_clock;
    enum class Stop { None, Cancelled, TimedOut };

    void BeginSending();
    void RequireSent(int isSent, bool rowByRow = false);
    PostgresqlResult ReceiveRaw() noexcept;
    void AwaitAnswer();
    void Drain(Clock::time_point until) noexcept;
    void DrainOrDrop() noexcept;
    void Drop() noexcept;
    /// Whether the server has been asked in time. Where it has not, it may hear of it later: the line must
    /// not be used for anything else.
    bool AskToStop() noexcept;
    void StopAndDrain() noexcept;
    bool IsCancelled() const noexcept { return !uninterrupted_ && cancel_->IsThrown(); }
    [[noreturn]] void RaiseStopped(Stop reason);
    [[noreturn]] void RaiseLost();
    [[noreturn]] void RaiseSilent();
    [[noreturn]] void RaiseFailure(const PGresult* failed);

    PostgresqlHandle connection_;
    std::shared_ptr<CancelSwitch> cancel_;
    std::chrono::seconds commandTimeout_{0};  // 0: no limit
    std::chrono::seconds readTimeout_{0};     // likewise
    bool hasFallenSilent_ = false;
    bool uninterrupted_ = false;
    bool isBusy_ = false;    // a statement has been sent and not been received to its end
    bool rowByRow_ = false;  // that statement is
    bool rowsCome_ = false;  // and has begun to give rows
    bool wasInTransaction_ = false;
    Stop stopping_ = Stop::None;  // why the server was asked to stop
    std::uint64_t transactionSerial_ = 0;
    std::string lastState_;
    Clock::time_point lastLook_{};
};

/// A kind for what the server calls by a code of five characters.
AdoError KindOfSqlState(std::string_view state);

}  // namespace halvtiv::ado
