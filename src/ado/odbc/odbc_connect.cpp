#include "ado/odbc/odbc_connect.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "ado/errors.hpp"
#include "ado/odbc/odbc_diagnostics.hpp"
#include "ado/odbc/odbc_session.hpp"
#include "ado/odbc/odbc_text.hpp"
#include "ado/odbc/odbc_traits.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

// States by which the driver manager says that there is no such driver or data source.
bool IsMissingDriver(const OdbcDiagnostic& diagnostic) {
    return diagnostic.state == "IM002" || diagnostic.state == "IM003" || diagnostic.state == "IM004" ||
           (diagnostic.state == "01000" && diagnostic.words.starts_with("Can't open lib"));
}

[[noreturn]] void RaiseConnectError(SQLHDBC connection, bool isWide, std::string_view source,
                                    const std::vector<std::string>& secrets) {
    const auto diagnostics = ReadOdbcDiagnostics(SQL_HANDLE_DBC, connection, isWide);
    if (std::any_of(diagnostics.begin(), diagnostics.end(), IsMissingDriver)) {
        RaiseAdoError(AdoError::ProviderNotFound);
    }
    auto error = MakeOdbcError(diagnostics, source);
    // No command has run out of time: nothing has answered.
    if (error.Number == static_cast<std::int32_t>(AdoError::CommandTimeout)) {
        error.Number = static_cast<std::int32_t>(AdoError::Unspecified);
    }
    for (const auto& secret : secrets) {
        error.Description = platform::ReplaceAll(error.Description, secret, "***");
    }
    throw error;
}

}  // namespace

OdbcEnvironment::OdbcEnvironment() : environment_(SQL_HANDLE_ENV, nullptr) {
    SQLSetEnvAttr(environment_.Get(), SQL_ATTR_ODBC_VERSION,
                  reinterpret_cast<SQLPOINTER>(SQLULEN{SQL_OV_ODBC3}), 0);
}

std::vector<std::string> OdbcEnvironment::Drivers() const {
    std::vector<std::string> names;
    std::array<SQLCHAR, 512> name{};
    std::array<SQLCHAR, 4096> attributes{};
    SQLSMALLINT nameLength = 0;
    SQLSMALLINT attributesLength = 0;
    SQLUSMALLINT direction = SQL_FETCH_FIRST;
    while (SQL_SUCCEEDED(SQLDrivers(environment_.Get(), direction, name.data(), name.size(), &nameLength,
                                    attributes.data(), attributes.size(), &attributesLength))) {
        names.emplace_back(reinterpret_cast<const char*>(name.data()));
        direction = SQL_FETCH_NEXT;
    }
    return names;
}

std::shared_ptr<OdbcSession> OdbcEnvironment::Connect(const std::string& connectionString,
                                                      std::string_view source, std::int32_t connectionTimeout,
                                                      const std::vector<std::string>& secrets,
                                                      std::shared_ptr<CancelSwitch> cancel) {
    OdbcHandle connection(SQL_HANDLE_DBC, environment_.Get());
    if (connectionTimeout > 0) {
        SQLSetConnectAttr(connection.Get(), SQL_ATTR_LOGIN_TIMEOUT,
                          reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(connectionTimeout)),
                          SQL_IS_UINTEGER);
    }
    // The driver is not there to be asked yet. Some take this call as a sign of what the caller speaks.
    const bool isWide = !IsNarrowOdbcDriver(connectionString);
    SQLSMALLINT length = 0;
    SQLRETURN status = SQL_ERROR;
    if (isWide) {
        auto text = ToWide(connectionString);
        status = SQLDriverConnectW(connection.Get(), nullptr, text.data(), SQL_NTS, nullptr, 0, &length,
                                   SQL_DRIVER_NOPROMPT);
    } else {
        std::string text = connectionString;
        status = SQLDriverConnect(connection.Get(), nullptr, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS,
                                  nullptr, 0, &length, SQL_DRIVER_NOPROMPT);
    }
    if (!SQL_SUCCEEDED(status)) {
        RaiseConnectError(connection.Get(), isWide, source, secrets);
    }
    auto traits = ReadOdbcTraits(connection.Get());
    auto session = std::make_shared<OdbcSession>(std::move(environment_), std::move(connection),
                                                 std::move(traits), std::move(cancel));
    session->AskForStandardSql();
    return session;
}

OdbcConnectionText& OdbcConnectionText::Add(std::string_view key, std::string_view value) {
    if (value.empty()) return *this;
    text_ += key;
    text_ += '=';
    const bool isBraced = value.front() == '{' && value.back() == '}' && value.find(';') == value.npos;
    if (!isBraced && value.find_first_of(";{}[](),?*=!@ ") != std::string_view::npos) {
        text_ += '{' + platform::ReplaceAll(value, "}", "}}") + '}';
    } else {
        text_ += value;
    }
    text_ += ';';
    return *this;
}

}  // namespace halvtiv::ado
