#include "ado/postgresql/postgresql_open.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ado/connection_keywords.hpp"
#include "ado/errors.hpp"
#include "ado/link_limits.hpp"
#include "ado/postgresql/postgresql_link.hpp"
#include "ado/postgresql/postgresql_session.hpp"
#include "platform/sockets.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

using Clock = std::chrono::steady_clock;
using Settings = std::vector<std::pair<std::string, std::string>>;

constexpr std::chrono::milliseconds kLookAtSwitch{50};

[[noreturn]] void Raise(AdoError kind, const std::string& words) {
    throw MakeProviderError(kind, words, kPostgresqlName);
}

struct Host {
    std::string name;
    std::string port;  // "" for the default
};

bool IsNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// "host:port", "[address]:port", "/folder:port", each with or without a port.
Host ReadHost(std::string_view text) {
    text = platform::TrimBlanks(text);
    if (text.starts_with('[')) {
        const auto close = std::min(text.find(']'), text.size());
        Host host{std::string(text.substr(1, close - 1)), ""};
        const auto rest = text.substr(std::min(close + 1, text.size()));
        if (rest.starts_with(':')) host.port = rest.substr(1);
        return host;
    }
    const auto colon = text.rfind(':');
    const bool hasPort = colon != std::string_view::npos && text.find(':') == colon &&
                         (IsNumber(text.substr(colon + 1)) || !text.starts_with('/'));
    if (!hasPort) return {std::string(text), ""};
    return {std::string(text.substr(0, colon)), std::string(text.substr(colon + 1))};
}

std::vector<Host> ReadHosts(std::string_view dataSource) {
    std::vector<Host> hosts;
    while (!dataSource.empty()) {
        const auto end = std::min(dataSource.find(','), dataSource.size());
        hosts.push_back(ReadHost(dataSource.substr(0, end)));
        dataSource.remove_prefix(std::min(end + 1, dataSource.size()));
    }
    return hosts;
}

// The settings of libpq's own keywords. Refuses what neither libpq nor this provider knows.
Settings PassedThrough(const ConnectionParameters& parameters) {
    constexpr std::array<std::string_view, 3> kOwn{"client_encoding", "connect_timeout",
                                                   "fallback_application_name"};
    Settings settings;
    std::vector<std::string> names{"Initial Catalog", "Link Timeout", "Read Timeout"};
    const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> known(PQconndefaults(),
                                                                             PQconninfoFree);
    for (const auto* option = known.get(); option && option->keyword; ++option) {
        const std::string_view keyword = option->keyword;
        if (keyword == "replication") continue;  // another language than SQL
        names.emplace_back(keyword);
        if (std::find(kOwn.begin(), kOwn.end(), keyword) != kOwn.end()) continue;
        if (const auto value = parameters.Find(keyword)) settings.emplace_back(keyword, *value);
    }
    RequireKnownKeywords(parameters, names, kPostgresqlName);
    const auto encoding = platform::ToLower(parameters.Get("client_encoding"));
    if (!encoding.empty() && encoding != "utf8" && encoding != "utf-8" && encoding != "unicode") {
        Raise(AdoError::Unspecified, "\"client_encoding\" cannot be anything but UTF8 here.");
    }
    return settings;
}

void Set(Settings& settings, const std::string& keyword, std::string value) {
    if (value.empty()) return;
    std::erase_if(settings, [&](const auto& setting) { return setting.first == keyword; });
    settings.emplace_back(keyword, std::move(value));
}

void SetDefault(Settings& settings, const std::string& keyword, std::int64_t value) {
    const bool isSet = std::any_of(settings.begin(), settings.end(),
                                   [&](const auto& setting) { return setting.first == keyword; });
    if (!isSet) settings.emplace_back(keyword, std::to_string(value));
}

// The library's own keywords for it count where the string has them.
void WatchLink(Settings& settings, std::chrono::seconds limit) {
    if (limit.count() == 0) return;
    SetDefault(settings, "keepalives_idle", std::max<std::int64_t>(limit.count() / 2, 1));
    SetDefault(settings, "keepalives_interval", std::max<std::int64_t>(limit.count() / 6, 1));
    SetDefault(settings, "keepalives_count", 3);
    SetDefault(settings, "tcp_user_timeout", limit.count() * 1000);
}

void SetHosts(Settings& settings, std::span<const Host> hosts) {
    if (hosts.empty()) return;
    std::string names;
    std::string ports;
    for (const auto& host : hosts) {
        if (&host != &hosts.front()) {
            names += ',';
            ports += ',';
        }
        names += host.name;
        ports += host.port;
    }
    const bool hasPorts =
        std::any_of(hosts.begin(), hosts.end(), [](const auto& h) { return !h.port.empty(); });
    std::erase_if(settings, [](const auto& setting) { return setting.first == "host"; });
    settings.emplace_back("host", names);
    if (hasPorts) Set(settings, "port", ports);
}

/// The server's code in a message with codes, such as "FATAL:  28P01: ...", taken out of it with the lines
/// that tell where in the server it happened.
struct ConnectFailure {
    std::string words;
    bool isLogin = false;
};

ConnectFailure ReadFailure(std::string_view message) {
    constexpr std::size_t kCodeLength = 5;
    constexpr std::string_view kCodeCharacters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    ConnectFailure failure;
    while (!message.empty()) {
        const auto end = std::min(message.find('\n'), message.size());
        std::string line(message.substr(0, end));
        message.remove_prefix(std::min(end + 1, message.size()));
        if (line.starts_with("LOCATION:")) continue;
        const auto mark = line.find(":  ");
        if (mark != std::string::npos) {
            const auto code = line.substr(mark + 3, kCodeLength);
            const bool isCode = code.size() == kCodeLength &&
                                line.substr(mark + 3 + kCodeLength, 2) == ": " &&
                                code.find_first_not_of(kCodeCharacters) == std::string::npos;
            if (isCode) {
                failure.isLogin = failure.isLogin || KindOfSqlState(code) == AdoError::LoginFailed;
                line.erase(mark + 3, kCodeLength + 2);
            }
        }
        if (!failure.words.empty()) failure.words += '\n';
        failure.words += line;
    }
    failure.words.erase(failure.words.find_last_not_of(" \r\n") + 1);
    return failure;
}

[[noreturn]] void RaiseFailure(const PGconn* connection) {
    auto failure = ReadFailure(PQerrorMessage(connection));
    const bool isLogin = failure.isLogin || PQconnectionNeedsPassword(connection) != 0;
    Raise(isLogin ? AdoError::LoginFailed : AdoError::Unspecified, failure.words);
}

PostgresqlHandle Begin(const Settings& settings) {
    std::vector<const char*> keywords;
    std::vector<const char*> values;
    for (const auto& [keyword, value] : settings) {
        keywords.push_back(keyword.c_str());
        values.push_back(value.c_str());
    }
    keywords.push_back(nullptr);
    values.push_back(nullptr);
    PostgresqlHandle connection(PQconnectStartParams(keywords.data(), values.data(), 0));
    if (!connection) throw std::bad_alloc();
    if (PQstatus(connection.get()) == CONNECTION_BAD) RaiseFailure(connection.get());
    // With the server's code: a refused login is told from other failures by that alone.
    PQsetErrorVerbosity(connection.get(), PQERRORS_VERBOSE);
    PQsetNoticeReceiver(
        connection.get(), [](void*, const PGresult*) {}, nullptr);
    PQsetNoticeProcessor(
        connection.get(), [](void*, const char*) {}, nullptr);
    return connection;
}

struct Attempt {
    std::unique_ptr<PostgresqlLink> link;  // null where a host has taken too long
    std::string slowHost;
    std::string slowPort;
    std::string words;  // why the hosts before that one were left, and that one
};

Attempt TooSlow(std::string host, std::string port, std::string earlier) {
    if (!earlier.empty()) earlier += '\n';
    earlier += "connection to server at \"" + host + "\", port " + port +
               " failed: The server has not answered in time.";
    return {nullptr, std::move(host), std::move(port), std::move(earlier)};
}

Attempt Try(const Settings& settings, std::chrono::seconds limit,
            const std::shared_ptr<CancelSwitch>& cancel) {
    using platform::SocketReady;
    auto connection = Begin(settings);
    std::string host;
    std::string port;
    auto begin = Clock::now();
    for (auto wanted = SocketReady::Writing;;) {
        if (cancel->Take()) Raise(AdoError::Cancelled, MakeAdoError(AdoError::Cancelled).Description);
        if (host != PQhost(connection.get()) || port != PQport(connection.get())) {
            host = PQhost(connection.get());
            port = PQport(connection.get());
            begin = Clock::now();
        }
        if (limit.count() > 0 && Clock::now() - begin >= limit) {
            return TooSlow(host, port, ReadFailure(PQerrorMessage(connection.get())).words);
        }
        if (!platform::AwaitSocket(PQsocket(connection.get()), wanted, kLookAtSwitch)) continue;
        const auto state = PQconnectPoll(connection.get());
        if (state == PGRES_POLLING_OK) break;
        if (state == PGRES_POLLING_FAILED) RaiseFailure(connection.get());
        wanted = state == PGRES_POLLING_READING ? SocketReady::Reading : SocketReady::Writing;
    }
    PQsetErrorVerbosity(connection.get(), PQERRORS_DEFAULT);
    auto link = std::make_unique<PostgresqlLink>(std::move(connection), cancel);
    link->SetReadTimeout(limit);
    try {
        link->RunScript(kPostgresqlSettings);
    } catch (const ErrorInfo&) {
        if (!link->HasFallenSilent()) throw;
        return TooSlow(host, port, {});
    }
    return {std::move(link), {}, {}, {}};
}

std::unique_ptr<PostgresqlLink> Connect(Settings settings, std::vector<Host> hosts,
                                        std::chrono::seconds limit,
                                        const std::shared_ptr<CancelSwitch>& cancel) {
    std::string earlier;  // why hosts are not in the list any more
    for (;;) {
        SetHosts(settings, hosts);
        Attempt attempt;
        try {
            attempt = Try(settings, limit, cancel);
        } catch (ErrorInfo& error) {
            if (error.Number != static_cast<std::int32_t>(AdoError::Cancelled)) {
                error.Description.insert(0, earlier);
            }
            throw;
        }
        if (attempt.link) return std::move(attempt.link);
        earlier += attempt.words;
        // The hosts behind the one that does not answer have not had their turn.
        const auto slow = std::find_if(hosts.begin(), hosts.end(), [&](const Host& host) {
            return host.name == attempt.slowHost && (host.port.empty() || host.port == attempt.slowPort);
        });
        if (slow == hosts.end() || std::next(slow) == hosts.end()) Raise(AdoError::Unspecified, earlier);
        earlier += '\n';
        hosts.erase(hosts.begin(), std::next(slow));
    }
}

}  // namespace

std::shared_ptr<Session> OpenPostgresqlSession(const ConnectionParameters& parameters,
                                               std::int32_t connectionTimeout,
                                               std::shared_ptr<CancelSwitch> cancel) {
    RequirePlainNames(parameters, kPostgresqlName);
    const auto shared = std::move(cancel);  // by all attempts
    const auto limits = ReadLinkLimits(parameters, kPostgresqlName);
    Settings settings = PassedThrough(parameters);
    WatchLink(settings, limits.lost);
    Set(settings, "dbname", std::string(parameters.Get("Initial Catalog")));
    Set(settings, "user", std::string(parameters.Get("User ID")));
    Set(settings, "password", std::string(parameters.Get("Password")));
    Set(settings, "client_encoding", "UTF8");
    Set(settings, "fallback_application_name", "halvtiv");
    auto link = Connect(std::move(settings), ReadHosts(parameters.Get("Data Source")),
                        std::chrono::seconds(std::max(connectionTimeout, 0)), shared);
    link->SetReadTimeout(limits.silent);
    return std::make_shared<PostgresqlSession>(std::move(link));
}

}  // namespace halvtiv::ado
