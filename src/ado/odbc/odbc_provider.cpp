#include "ado/odbc/odbc_provider.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "ado/connection_keywords.hpp"
#include "ado/errors.hpp"
#include "ado/left_behind.hpp"
#include "ado/link_limits.hpp"
#include "ado/odbc/odbc_catalog.hpp"
#include "ado/odbc/odbc_connect.hpp"
#include "ado/odbc/odbc_peer.hpp"
#include "platform/files.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::string_view kMariaDbName = "MariaDB";

const std::array<std::string, 11> kMariaDbKeywords{
    "Initial Catalog", "Database",  "UID",      "PWD",          "SSLCA",       "SSLCERT",
    "SSLKEY",          "SSLVERIFY", "FORCETLS", "Link Timeout", "Read Timeout"};
const std::array<std::string, 14> kSqlServerKeywords{"Server",
                                                     "Initial Catalog",
                                                     "Database",
                                                     "UID",
                                                     "PWD",
                                                     "Integrated Security",
                                                     "Trusted_Connection",
                                                     "Encrypt",
                                                     "Use Encryption for Data",
                                                     "TrustServerCertificate",
                                                     "MultiSubnetFailover",
                                                     "ApplicationIntent",
                                                     "Application Name",
                                                     "APP"};
const std::array<std::string, 4> kAccessKeywords{"Create", "Read Only", "Mode", "Busy Timeout"};

bool Contains(std::string_view text, std::string_view lowerCaseWord) {
    return platform::ToLower(text).find(lowerCaseWord) != std::string::npos;
}

// The first of the installed drivers whose name contains one of the words, the words in their order; of
// several the one with the last name, whose version is the newest.
std::string RequireDriver(const OdbcEnvironment& environment,
                          std::initializer_list<std::string_view> lowerCaseWords) {
    auto drivers = environment.Drivers();
    std::sort(drivers.rbegin(), drivers.rend());
    for (const auto part : lowerCaseWords) {
        for (const auto& driver : drivers) {
            if (Contains(driver, part)) return driver;
        }
    }
    RaiseAdoError(AdoError::ProviderNotFound);
}

// What no message may show: the password, also as the driver manager's form spells it.
std::vector<std::string> SecretsOf(const ConnectionParameters& parameters) {
    std::vector<std::string> secrets;
    for (auto& value : parameters.Secrets()) {
        secrets.push_back(platform::ReplaceAll(value, "}", "}}"));
        secrets.push_back(std::move(value));
    }
    return secrets;
}

std::string_view FirstOf(const ConnectionParameters& parameters, std::initializer_list<const char*> keys) {
    for (const auto* key : keys) {
        if (const auto value = parameters.Get(key); !value.empty()) return value;
    }
    return {};
}

struct HostAndPort {
    std::string_view host;
    std::string_view port;
};

// host, host:port, [address]:port, or an address of the sixth version by itself.
HostAndPort SplitPort(std::string_view text) {
    text = platform::TrimBlanks(text);
    if (text.starts_with('[')) {
        const auto end = std::min(text.find(']'), text.size());
        const auto behind = text.substr(std::min(end + 1, text.size()));
        return {text.substr(1, end - 1), behind.starts_with(':') ? behind.substr(1) : std::string_view()};
    }
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || text.find(':', colon + 1) != std::string_view::npos) {
        return {text, {}};
    }
    return {text.substr(0, colon), text.substr(colon + 1)};
}

bool IsTrusted(const ConnectionParameters& parameters) {
    const auto value = FirstOf(parameters, {"Integrated Security", "Trusted_Connection"});
    return platform::EqualIgnoringCase(value, "SSPI") || platform::EqualIgnoringCase(value, "yes") ||
           platform::EqualIgnoringCase(value, "true");
}

// Drivers and versions know different words for it; these values turn encryption off.
bool IsEncrypted(const ConnectionParameters& parameters) {
    const auto value = platform::ToLower(FirstOf(parameters, {"Encrypt", "Use Encryption for Data"}));
    return !value.empty() && value != "no" && value != "false" && value != "0" && value != "optional";
}

// In the driver manager's form. silent is how long the driver waits for the server's next bytes.
OdbcConnectionText MariaDbText(const ConnectionParameters& parameters, const std::string& driver,
                               std::string_view dataSource, std::chrono::seconds silent) {
    // Rows found count as affected, no prompt, rows straight from the server and forward only.
    constexpr const char* kOptions = "3145746";  // 2 + 16 + 1048576 + 2097152
    OdbcConnectionText text;
    text.Add("Driver", "{" + driver + "}");
    if (dataSource.starts_with('/')) {
        text.Add("Server", "localhost").Add("Socket", dataSource);
    } else {
        const auto [host, port] = SplitPort(dataSource);
        text.Add("Server", host.empty() ? "localhost" : host).Add("Port", port);
    }
    text.Add("Database", FirstOf(parameters, {"Initial Catalog", "Database"}));
    text.Add("UID", FirstOf(parameters, {"User ID", "UID"}));
    text.Add("PWD", FirstOf(parameters, {"Password", "PWD"}));
    text.Add("CHARSET", "utf8mb4").Add("OPTION", kOptions);
    for (const auto* key : {"SSLCA", "SSLCERT", "SSLKEY", "SSLVERIFY", "FORCETLS"}) {
        text.Add(key, parameters.Get(key));
    }
    if (silent.count() > 0) {
        const auto seconds = std::to_string(silent.count());
        text.Add("READ_TIMEOUT", seconds).Add("WRITE_TIMEOUT", seconds);
    }
    return text;
}

std::shared_ptr<Session> OpenMariaDbHost(const ConnectionParameters& parameters, const std::string& driver,
                                         const std::string& dataSource, const LinkLimits& limits,
                                         std::int32_t connectionTimeout,
                                         const std::shared_ptr<CancelSwitch>& cancel) {
    constexpr std::chrono::seconds kSecondTakes{3};
    const auto port = SplitPort(dataSource).port;
    std::string address(dataSource.starts_with('/') ? dataSource : port.empty() ? "3306" : port);
    auto peer = std::make_unique<OdbcPeer>(std::move(address),
                                           MariaDbText(parameters, driver, dataSource, kSecondTakes).Text());
    auto session =
        OdbcEnvironment().Connect(MariaDbText(parameters, driver, dataSource, limits.silent).Text(),
                                  kMariaDbName, connectionTimeout, SecretsOf(parameters), cancel);
    peer->Meet(*session, limits);
    session->UsePeer(std::move(peer));
    return session;
}

// The driver knows a limit for its first steps only.
std::shared_ptr<Session> OpenWithin(std::chrono::seconds limit, CancelSwitch& cancel,
                                    std::function<std::shared_ptr<Session>()> open) {
    constexpr std::chrono::milliseconds kLookAtSwitch{50};
    if (limit.count() <= 0) return open();
    auto opened = ThatMayBeLeftBehind(std::move(open));
    const auto until = std::chrono::steady_clock::now() + limit;
    while (opened.wait_for(kLookAtSwitch) != std::future_status::ready) {
        if (cancel.Take()) {
            throw MakeProviderError(AdoError::Cancelled, MakeAdoError(AdoError::Cancelled).Description,
                                    kMariaDbName);
        }
        if (std::chrono::steady_clock::now() >= until) {
            throw MakeProviderError(AdoError::Unspecified, "The server has not answered in time.",
                                    kMariaDbName);
        }
    }
    return opened.get();
}

}  // namespace

std::shared_ptr<Session> OpenOdbcSession(const ConnectionParameters& parameters,
                                         std::int32_t connectionTimeout,
                                         std::shared_ptr<CancelSwitch> cancel) {
    RequirePlainNames(parameters, "ODBC");
    std::string text = parameters.TextWithout("Provider");
    OdbcConnectionText more;
    // Those that came beside the string.
    if (!parameters.Find("UID")) more.Add("UID", parameters.Get("User ID"));
    if (!parameters.Find("PWD")) more.Add("PWD", parameters.Get("Password"));
    auto session = OdbcEnvironment().Connect(text + more.Text(), "ODBC", connectionTimeout,
                                             SecretsOf(parameters), std::move(cancel));
    // Drivers find their files by one of these keys; with a Server keyword, they do not name a file.
    const bool isFile = FirstOf(parameters, {"Server", "Servername"}).empty();
    std::vector<std::string> files;
    for (const char* key : {"Data Source", "Database", "DBQ"}) {
        if (isFile && platform::FileExists(parameters.Get(key))) files.emplace_back(parameters.Get(key));
    }
    // The file that a DSN names is known to the driver only. It may be created by the first statement.
    std::array<char, 4096> name{};
    const auto dialect = session->Traits().dialect;
    if ((dialect == OdbcDialect::Sqlite || dialect == OdbcDialect::Access) &&
        SQL_SUCCEEDED(
            SQLGetInfo(session->Connection(), SQL_DATABASE_NAME, name.data(), name.size(), nullptr)) &&
        name.front() != '\0') {
        files.emplace_back(name.data());
    }
    session->SetFiles(std::move(files));
    return session;
}

std::shared_ptr<Session> OpenMariaDbSession(const ConnectionParameters& parameters,
                                            std::int32_t connectionTimeout,
                                            std::shared_ptr<CancelSwitch> cancel) {
    RequirePlainNames(parameters, kMariaDbName);
    RequireKnownKeywords(parameters, kMariaDbKeywords, kMariaDbName);
    const auto limits = ReadLinkLimits(parameters, kMariaDbName);
    const auto driver = RequireDriver(OdbcEnvironment(), {"mariadb", "mysql"});
    const auto dataSource = parameters.Get("Data Source");
    const bool isPath = dataSource.starts_with('/');
    const auto shared = std::move(cancel);  // by all attempts
    std::string earlier;                    // why the hosts so far were left
    for (std::string_view rest = dataSource;;) {
        const auto end = isPath ? rest.size() : std::min(rest.find(','), rest.size());
        const auto host = platform::TrimBlanks(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        try {
            const auto open = [parameters, driver, name = std::string(host), limits, connectionTimeout,
                               shared] {
                return OpenMariaDbHost(parameters, driver, name, limits, connectionTimeout, shared);
            };
            // The driver's own words come a little earlier where it has some.
            return OpenWithin(std::chrono::seconds(connectionTimeout > 0 ? connectionTimeout + 1 : 0),
                              *shared, open);
        } catch (ErrorInfo& error) {
            // One of several says which one it is.
            const bool isOne = rest.empty() && earlier.empty();
            if (!isOne && !IsCancelled(error)) {
                error.Description.insert(0, earlier + std::string(host) + ": ");
            }
            // The next one would refuse a login as well.
            if (rest.empty() || error.Number != static_cast<std::int32_t>(AdoError::Unspecified)) throw;
            earlier = error.Description + '\n';
        }
    }
}

std::string SqlServerConnectionText(const ConnectionParameters& parameters, std::string_view driver) {
    OdbcConnectionText text;
    text.Add("Driver", "{" + std::string(driver) + "}");
    std::string server(platform::TrimBlanks(FirstOf(parameters, {"Data Source", "Server"})));
    const bool isFreeTds = Contains(driver, "freetds");
    if (isFreeTds && platform::ToLower(server).starts_with("tcp:")) server.erase(0, 4);
    const auto host = server.substr(0, server.find_first_of("\\,"));
    if (const auto name = platform::TrimBlanks(host);
        name == "." || platform::EqualIgnoringCase(name, "(local)")) {
        server.replace(0, host.size(), "localhost");
    }
    if (isFreeTds) {
        const auto comma = server.find(',');
        text.Add("Server", platform::TrimBlanks(std::string_view(server).substr(0, comma)));
        if (comma != std::string::npos) {
            text.Add("Port", platform::TrimBlanks(std::string_view(server).substr(comma + 1)));
        } else if (server.find('\\') == std::string::npos) {  // an instance tells its port itself
            text.Add("Port", "1433");
        }
        text.Add("TDS_Version", "7.4").Add("ClientCharset", "UTF-8");
        if (IsEncrypted(parameters)) text.Add("Encryption", "require");
    } else {
        text.Add("Server", server);
        text.Add("Encrypt", FirstOf(parameters, {"Encrypt", "Use Encryption for Data"}));
        for (const auto* key : {"TrustServerCertificate", "MultiSubnetFailover", "ApplicationIntent"}) {
            text.Add(key, parameters.Get(key));
        }
    }
    text.Add("Database", FirstOf(parameters, {"Initial Catalog", "Database"}));
    if (IsTrusted(parameters)) {
        text.Add("Trusted_Connection", "Yes");
    } else {
        text.Add("UID", FirstOf(parameters, {"User ID", "UID"}));
        text.Add("PWD", FirstOf(parameters, {"Password", "PWD"}));
    }
    text.Add("APP", FirstOf(parameters, {"Application Name", "APP"}));
    return text.Text();
}

std::shared_ptr<Session> OpenSqlServerSession(const ConnectionParameters& parameters,
                                              std::int32_t connectionTimeout,
                                              std::shared_ptr<CancelSwitch> cancel) {
    RequirePlainNames(parameters, "SQL Server");
    RequireKnownKeywords(parameters, kSqlServerKeywords, "SQL Server");
    OdbcEnvironment environment;
    const auto driver = RequireDriver(environment, {"for sql server", "freetds"});
    return environment.Connect(SqlServerConnectionText(parameters, driver), "SQL Server", connectionTimeout,
                               SecretsOf(parameters), std::move(cancel));
}

std::shared_ptr<Session> OpenAccessSession(const ConnectionParameters& parameters,
                                           std::int32_t connectionTimeout,
                                           std::shared_ptr<CancelSwitch> cancel) {
    RequireKnownKeywords(parameters, kAccessKeywords, "Access");
    IsReadOnly(parameters, "Access");  // Validates Mode; Access files are always read-only.
    OdbcEnvironment environment;
    OdbcConnectionText text;
    text.Add("Driver", "{" + RequireDriver(environment, {"mdb"}) + "}");
    // That driver reads no braces.
    const auto connectionText =
        text.Text() + "DBQ=" + platform::NativePath(parameters.Get("Data Source")) + ";";
    auto session = environment.Connect(connectionText, "Access", connectionTimeout, SecretsOf(parameters),
                                       std::move(cancel));
    session->SetFiles({std::string(parameters.Get("Data Source"))});
    // The driver opens what it cannot read, too.
    if (!HasOdbcTables(*session)) {
        throw MakeProviderError(AdoError::Unspecified, "The Access file cannot be read.", "Access");
    }
    return session;
}

}  // namespace halvtiv::ado
