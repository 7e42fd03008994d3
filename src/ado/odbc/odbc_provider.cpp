#include "ado/odbc/odbc_provider.hpp"

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ado/errors.hpp"
#include "ado/odbc/odbc_catalog.hpp"
#include "ado/odbc/odbc_connect.hpp"
#include "platform/files.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

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
    for (const auto* key : {"Password", "PWD"}) {
        const std::string value(parameters.Get(key));
        if (value.empty()) continue;
        secrets.push_back(platform::ReplaceAll(value, "}", "}}"));
        secrets.push_back(value);
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

}  // namespace

std::shared_ptr<Session> OpenOdbcSession(const ConnectionParameters& parameters,
                                         std::int32_t connectionTimeout,
                                         std::shared_ptr<CancelSwitch> cancel) {
    std::string text = parameters.TextWithout("Provider");
    OdbcConnectionText more;
    // Those that came beside the string.
    if (!parameters.Find("UID")) more.Add("UID", parameters.Get("User ID"));
    if (!parameters.Find("PWD")) more.Add("PWD", parameters.Get("Password"));
    return OdbcEnvironment().Connect(text + more.Text(), "ODBC", connectionTimeout, SecretsOf(parameters),
                                     std::move(cancel));
}

std::shared_ptr<Session> OpenMariaDbSession(const ConnectionParameters& parameters,
                                            std::int32_t connectionTimeout,
                                            std::shared_ptr<CancelSwitch> cancel) {
    // Rows found count as affected, no prompt, rows straight from the server and forward only.
    constexpr const char* kOptions = "3145746";  // 2 + 16 + 1048576 + 2097152
    const auto dataSource = parameters.Get("Data Source");
    const auto shared = std::move(cancel);  // by all attempts
    for (std::string_view rest = dataSource;;) {
        OdbcEnvironment environment;
        OdbcConnectionText text;
        text.Add("Driver", "{" + RequireDriver(environment, {"mariadb", "mysql"}) + "}");
        const auto end = std::min(rest.find(','), rest.size());
        if (dataSource.starts_with('/')) {
            text.Add("Server", "localhost").Add("Socket", dataSource);
            rest = {};
        } else {
            const auto [host, port] = SplitPort(rest.substr(0, end));
            text.Add("Server", host.empty() ? "localhost" : host).Add("Port", port);
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        text.Add("Database", FirstOf(parameters, {"Initial Catalog", "Database"}));
        text.Add("UID", FirstOf(parameters, {"User ID", "UID"}));
        text.Add("PWD", FirstOf(parameters, {"Password", "PWD"}));
        text.Add("CHARSET", "utf8mb4").Add("OPTION", kOptions);
        for (const auto* key : {"SSLCA", "SSLCERT", "SSLKEY", "SSLVERIFY", "FORCETLS"}) {
            text.Add(key, parameters.Get(key));
        }
        try {
            return environment.Connect(text.Text(), "MariaDB", connectionTimeout, SecretsOf(parameters),
                                       shared);
        } catch (const ErrorInfo& error) {
            // The next one would refuse a login as well.
            if (rest.empty() || error.Number != static_cast<std::int32_t>(AdoError::Unspecified)) throw;
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
    } else {
        text.Add("Server", server);
        for (const auto* key : {"Encrypt", "TrustServerCertificate", "MultiSubnetFailover"}) {
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
    text.Add("APP", parameters.Get("Application Name"));
    return text.Text();
}

std::shared_ptr<Session> OpenSqlServerSession(const ConnectionParameters& parameters,
                                              std::int32_t connectionTimeout,
                                              std::shared_ptr<CancelSwitch> cancel) {
    OdbcEnvironment environment;
    const auto driver = RequireDriver(environment, {"for sql server", "freetds"});
    return environment.Connect(SqlServerConnectionText(parameters, driver), "SQL Server", connectionTimeout,
                               SecretsOf(parameters), std::move(cancel));
}

std::shared_ptr<Session> OpenAccessSession(const ConnectionParameters& parameters,
                                           std::int32_t connectionTimeout,
                                           std::shared_ptr<CancelSwitch> cancel) {
    OdbcEnvironment environment;
    OdbcConnectionText text;
    text.Add("Driver", "{" + RequireDriver(environment, {"mdb"}) + "}");
    // That driver reads no braces.
    const auto connectionText =
        text.Text() + "DBQ=" + platform::NativePath(parameters.Get("Data Source")) + ";";
    auto session = environment.Connect(connectionText, "Access", connectionTimeout, SecretsOf(parameters),
                                       std::move(cancel));
    // The driver opens what it cannot read, too.
    if (!HasOdbcTables(*session)) {
        throw MakeProviderError(AdoError::Unspecified, "The Access file cannot be read.", "Access");
    }
    return session;
}

}  // namespace halvtiv::ado
