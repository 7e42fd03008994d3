#include "ado/postgresql/postgresql_link.hpp"

#include <algorithm>
#include <array>
#include <future>
#include <utility>

#include "ado/left_behind.hpp"
#include "platform/sockets.hpp"

namespace halvtiv::ado {
namespace {

using std::chrono::milliseconds;

// How long somebody who cancels waits at most before it is noticed.
constexpr milliseconds kLookAtSwitch{50};
constexpr milliseconds kLookAtServer{5};
// What is left of rows that nobody wants is received for that long before the server is asked to stop.
constexpr milliseconds kPatience{100};
// A server that has been asked to stop and does not answer counts as gone; so does one that does not come to
// the end of what is not stopped, from the cancelling on.
constexpr std::chrono::seconds kStopTakes{10};
// Asking goes through a connection of its own, which may not come about either.
constexpr std::chrono::seconds kAskingTakes{3};

constexpr std::array<std::string_view, 24> kSqlErrorClasses{"08", "0A", "0L", "0P", "20", "21", "22", "24",
                                                            "25", "26", "27", "2B", "2F", "34", "38", "39",
                                                            "3B", "3F", "42", "54", "55", "58", "HV", "P0"};

std::string FieldOf(const PGresult* result, int field) {
    const char* text = PQresultErrorField(result, field);
    return text ? text : "";
}

std::string WordsOf(const PGconn* connection) {
    std::string words = PQerrorMessage(connection);
    words.erase(words.find_last_not_of(" \r\n") + 1);
    return words;
}

}  // namespace

AdoError KindOfSqlState(std::string_view state) {
    if (state == "42P01") return AdoError::NoSuchTable;
    if (state == "57014") return AdoError::Cancelled;
    const auto group = state.substr(0, 2);
    if (group == "23" || group == "44") return AdoError::ConstraintViolation;
    if (group == "28") return AdoError::LoginFailed;
    const bool isSqlError =
        std::find(kSqlErrorClasses.begin(), kSqlErrorClasses.end(), group) != kSqlErrorClasses.end();
    return isSqlError ? AdoError::SqlError : AdoError::Unspecified;
}

void RaiseTooLong() {
    throw MakeProviderError(AdoError::SqlError,
                            "The row's values are longer than the 1 GiB that the server takes at a time.",
                            kPostgresqlName);
}

void PostgresqlParameters::Add(const char* value, std::size_t length, int format) {
    size_ += static_cast<std::int64_t>(length);
    if (size_ > kMostSentBytes) RaiseTooLong();
    values_.push_back(value);
    lengths_.push_back(static_cast<int>(length));
    formats_.push_back(format);
}

void PostgresqlParameters::AddText(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        throw MakeProviderError(AdoError::SqlError, "The database does not hold texts with a NUL character.",
                                kPostgresqlName);
    }
    const auto& kept = kept_.emplace_back(text);
    Add(kept.c_str(), kept.size(), 0);
}

void PostgresqlParameters::AddBytes(std::string bytes) {
    const auto& kept = kept_.emplace_back(std::move(bytes));
    Add(kept.data(), kept.size(), 1);
}

PostgresqlLink::PostgresqlLink(PostgresqlHandle connection, std::shared_ptr<CancelSwitch> cancel)
    : connection_(std::move(connection)), cancel_(std::move(cancel)) {
    // Sending waits here, where it can be stopped, and not inside the library.
    PQsetnonblocking(connection_.get(), 1);
}

bool PostgresqlLink::IsAlive() {
    auto* const connection = connection_.get();
    if (PQstatus(connection) != CONNECTION_OK) return false;
    if (isBusy_) return true;  // whoever receives hears of it
    const auto now = Clock::now();
    if (now - lastLook_ < kLookAtServer) return true;
    lastLook_ = now;
    // On a free line there is something to read only where the server has news, such as that it ends.
    while (platform::AwaitSocket(PQsocket(connection), platform::SocketReady::Reading, milliseconds(0))) {
        if (PQconsumeInput(connection) == 0 || PQstatus(connection) != CONNECTION_OK) return false;
        PQisBusy(connection);
        while (PGnotify* const news = PQnotifies(connection)) PQfreemem(news);
    }
    return true;
}

bool PostgresqlLink::InTransaction() const noexcept {
    const auto status = PQtransactionStatus(connection_.get());
    if (status == PQTRANS_ACTIVE) return wasInTransaction_;
    return status == PQTRANS_INTRANS || status == PQTRANS_INERROR;
}

void PostgresqlLink::BeginSending() {
    lastState_.clear();
    if (PQstatus(connection_.get()) != CONNECTION_OK) RaiseLost();
    StopIfCancelled();
    wasInTransaction_ = InTransaction();
    if (!wasInTransaction_) ++transactionSerial_;
    stopping_ = Stop::None;
}

void PostgresqlLink::RequireSent(int isSent, bool rowByRow) {
    if (isSent == 0) {
        if (PQstatus(connection_.get()) != CONNECTION_OK) RaiseLost();
        throw MakeProviderError(AdoError::Unspecified, WordsOf(connection_.get()), kPostgresqlName);
    }
    isBusy_ = true;
    rowsCome_ = false;
    rowByRow_ = rowByRow && PQsetSingleRowMode(connection_.get()) != 0;
}

void PostgresqlLink::SendText(const std::string& text, PostgresqlSending sending) {
    BeginSending();
    RequireSent(PQsendQueryParams(connection_.get(), text.c_str(), 0, nullptr, nullptr, nullptr, nullptr,
                                  sending.binary ? 1 : 0),
                sending.rowByRow);
}

void PostgresqlLink::SendPrepared(const std::string& name, const PostgresqlParameters& parameters,
                                  PostgresqlSending sending) {
    BeginSending();
    RequireSent(PQsendQueryPrepared(connection_.get(), name.c_str(), parameters.Count(), parameters.Values(),
                                    parameters.Lengths(), parameters.Formats(), sending.binary ? 1 : 0),
                sending.rowByRow);
}

void PostgresqlLink::Prepare(const std::string& name, const std::string& text) {
    BeginSending();
    RequireSent(PQsendPrepare(connection_.get(), name.c_str(), text.c_str(), 0, nullptr));
    ReceiveAll();
}

PostgresqlResult PostgresqlLink::Describe(const std::string& name) {
    BeginSending();
    RequireSent(PQsendDescribePrepared(connection_.get(), name.c_str()));
    return ReceiveAll();
}

PostgresqlResult PostgresqlLink::Run(const std::string& text) {
    SendText(text, {});
    return ReceiveAll();
}

void PostgresqlLink::RunScript(const std::string& text) {
    BeginSending();
    RequireSent(PQsendQuery(connection_.get(), text.c_str()));
    ReceiveAll();
}

PostgresqlResult PostgresqlLink::ReceiveAll() {
    PostgresqlResult last;
    while (auto result = Receive()) last = std::move(result);
    return last;
}

PostgresqlResult PostgresqlLink::Receive() {
    if (!isBusy_) return nullptr;
    if (rowsCome_ && IsCancelled()) {
        // Rows on their way are not waited for; whether a statement has been done is.
        StopAndDrain();
        RaiseStopped(Stop::Cancelled);
    }
    if (PQisBusy(connection_.get()) != 0) AwaitAnswer();
    auto result = ReceiveRaw();
    if (!result) return nullptr;
    const auto status = PQresultStatus(result.get());
    rowsCome_ = status == PGRES_SINGLE_TUPLE;
    if (status == PGRES_FATAL_ERROR || status == PGRES_BAD_RESPONSE) RaiseFailure(result.get());
    return result;
}

PostgresqlResult PostgresqlLink::ReceiveRaw() noexcept {
    PostgresqlResult result(PQgetResult(connection_.get()));
    if (!result) isBusy_ = false;
    return result;
}

void PostgresqlLink::AwaitAnswer() {
    using platform::SocketReady;
    auto* const connection = connection_.get();
    const auto begin = Clock::now();
    auto lastHeard = begin;
    auto givenUpAt = Clock::time_point::max();
    do {
        const int unsent = PQflush(connection);
        if (unsent < 0) RaiseLost();
        const bool isReady = platform::AwaitSocket(
            PQsocket(connection), unsent > 0 ? SocketReady::Either : SocketReady::Reading, kLookAtSwitch);
        if (isReady && PQconsumeInput(connection) == 0) RaiseLost();
        if (PQisBusy(connection) == 0) return;
        const auto now = Clock::now();
        if (isReady) lastHeard = now;
        if (readTimeout_.count() > 0 && stopping_ == Stop::None && now - lastHeard >= readTimeout_) {
            RaiseSilent();
        }
        if (uninterrupted_) {
            // It is not stopped, but not waited for without end either.
            if (!cancel_->IsThrown()) continue;
            givenUpAt = std::min(givenUpAt, now + kStopTakes);
            if (now < givenUpAt) continue;
            Drop();
            RaiseLost();
        }
        const bool isOverTime = commandTimeout_.count() > 0 && now - begin >= commandTimeout_;
        if (stopping_ == Stop::None && (isOverTime || IsCancelled())) {
            stopping_ = IsCancelled() ? Stop::Cancelled : Stop::TimedOut;
            givenUpAt = AskToStop() ? Clock::now() + kStopTakes : now;
        }
        if (now >= givenUpAt) {
            const auto reason = stopping_;
            Drop();
            RaiseStopped(reason);
        }
    } while (true);
}

void PostgresqlLink::Drop() noexcept {
    connection_.reset();
    isBusy_ = false;
}

void PostgresqlLink::DrainOrDrop() noexcept {
    Drain(Clock::now() + kStopTakes);
    if (isBusy_) Drop();
}

// Errors on the way do not count any more.
void PostgresqlLink::Drain(Clock::time_point until) noexcept {
    auto* const connection = connection_.get();
    while (isBusy_) {
        while (PQisBusy(connection) != 0) {
            if (Clock::now() >= until) return;
            const bool isReady =
                platform::AwaitSocket(PQsocket(connection), platform::SocketReady::Reading, kLookAtSwitch);
            if (isReady && PQconsumeInput(connection) == 0) {
                isBusy_ = false;
                return;
            }
        }
        ReceiveRaw();
        if (rowByRow_ && Clock::now() >= until) return;
    }
}

void PostgresqlLink::GiveUp(bool mayStop) {
    if (!isBusy_) return;
    if (!mayStop || InTransaction()) {
        // Stopping would spoil the transaction, or undo what the statement has done.
        ReceiveAll();
        return;
    }
    Drain(Clock::now() + kPatience);
    if (!isBusy_) return;
    StopAndDrain();
}

// The library knows no limit for this.
bool PostgresqlLink::AskToStop() noexcept {
    try {
        std::shared_ptr<PGcancel> request(PQgetCancel(connection_.get()), PQfreeCancel);
        if (!request) return false;
        auto asked = ThatMayBeLeftBehind<bool>([request = std::move(request)] {
            std::array<char, 256> words{};
            return PQcancel(request.get(), words.data(), static_cast<int>(words.size())) != 0;
        });
        return asked.wait_for(kAskingTakes) == std::future_status::ready && asked.get();
    } catch (...) {
        return false;
    }
}

void PostgresqlLink::StopAndDrain() noexcept {
    if (AskToStop()) {
        DrainOrDrop();
    } else {
        Drop();
    }
}

void PostgresqlLink::StopIfCancelled() {
    if (IsCancelled()) RaiseStopped(Stop::Cancelled);
}

void PostgresqlLink::RaiseStopped(Stop reason) {
    if (reason == Stop::Cancelled) cancel_->Take();
    const auto kind = reason == Stop::Cancelled ? AdoError::Cancelled : AdoError::CommandTimeout;
    throw MakeProviderError(kind, MakeAdoError(kind).Description, kPostgresqlName);
}

void PostgresqlLink::RaiseLost() {
    isBusy_ = false;
    auto words = connection_ ? WordsOf(connection_.get()) : std::string();
    if (words.empty()) words = kConnectionLost;
    throw MakeProviderError(AdoError::Unspecified, words, kPostgresqlName);
}

void PostgresqlLink::RaiseSilent() {
    Drop();
    hasFallenSilent_ = true;
    throw MakeProviderError(AdoError::Unspecified,
                            "Nothing has been heard from the server for " +
                                std::to_string(readTimeout_.count()) +
                                " seconds; the connection has been given up.",
                            kPostgresqlName);
}

void PostgresqlLink::RaiseFailure(const PGresult* failed) {
    lastState_ = FieldOf(failed, PG_DIAG_SQLSTATE);
    auto words = FieldOf(failed, PG_DIAG_MESSAGE_PRIMARY);
    if (words.empty()) words = WordsOf(connection_.get());
    if (const auto detail = FieldOf(failed, PG_DIAG_MESSAGE_DETAIL); !detail.empty()) {
        words += "\nDetail: " + detail;
    }
    if (const auto hint = FieldOf(failed, PG_DIAG_MESSAGE_HINT); !hint.empty()) words += "\nHint: " + hint;
    DrainOrDrop();
    auto kind = KindOfSqlState(lastState_);
    // Other protocol violations, a pooler's for example, keep their words.
    const bool isUnbound = lastState_ == "08P01" && words.find("bind message") != std::string::npos;
    if (isUnbound && PQstatus(connection_.get()) == CONNECTION_OK) {
        words = UnboundMarker("$1");
        kind = AdoError::SqlError;
    }
    if (PQstatus(connection_.get()) != CONNECTION_OK) kind = AdoError::Unspecified;
    if (kind == AdoError::Cancelled) {
        if (stopping_ != Stop::None) RaiseStopped(stopping_);
        // Stopped by somebody else: by the server's own limit, or by its administrator.
        if (words.find("timeout") != std::string::npos) kind = AdoError::CommandTimeout;
    }
    throw MakeProviderError(kind, words, kPostgresqlName);
}

}  // namespace halvtiv::ado
