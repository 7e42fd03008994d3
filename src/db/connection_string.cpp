#include <halvtiv/connection_string.hpp>

#include <halvtiv/data_types.hpp>

#include "platform/files.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

constexpr std::string_view kJetBase =
    "PROVIDER=Microsoft.Jet.OLEDB.4.0;Data Source=%DBN%;User ID=%UID%;Password=%PWD%";
constexpr std::string_view kSQLServerBase =
    "Provider=SQLOLEDB.1;User ID=%UID%;Password=%PWD%;Initial Catalog=%DBN%;Data Source=%SVR%";
constexpr std::string_view kFolderPlaceholder = "%APPPATH%";

}  // namespace

ZorbConnectionString::ZorbConnectionString() = default;
ZorbConnectionString::~ZorbConnectionString() = default;

std::string ZorbConnectionString::GetConnectionStringBase_Jet() const {
    return std::string(kJetBase);
}

std::string ZorbConnectionString::GetConnectionStringBase_SQLServer() const {
    return std::string(kSQLServerBase);
}

std::string ZorbConnectionString::ServerName() const {
    return serverName_;
}
void ZorbConnectionString::ServerName(std::string_view sSVR) {
    serverName_ = sSVR;
}

std::string ZorbConnectionString::DatabaseName() const {
    return databaseName_;
}
void ZorbConnectionString::DatabaseName(std::string_view sDBN) {
    databaseName_ = sDBN;
}

std::string ZorbConnectionString::UserID() const {
    return userID_;
}
void ZorbConnectionString::UserID(std::string_view sUID) {
    userID_ = sUID;
}

std::string ZorbConnectionString::Password() const {
    return password_;
}
void ZorbConnectionString::Password(std::string_view sPWD) {
    password_ = sPWD;
}

std::string ZorbConnectionString::ConnectionStringBase() const {
    return connectionStringBase_;
}
void ZorbConnectionString::ConnectionStringBase(std::string_view sConnStrBase) {
    connectionStringBase_ = sConnStrBase;
}

void ZorbConnectionString::SetParams(std::string_view sDBN, std::string_view sSVR, std::string_view sUID,
                                     std::string_view sPWD, std::string_view ConStrBase) {
    databaseName_ = sDBN;
    serverName_ = sSVR;
    userID_ = sUID;
    password_ = sPWD;
    connectionStringBase_ = platform::TrimBlanks(ConStrBase);
    if (connectionStringBase_.empty()) connectionStringBase_ = kJetBase;
}

void ZorbConnectionString::CopyFrom(const ZorbConnectionString* cDbConnParm) {
    if (cDbConnParm == nullptr) return;
    databaseName_ = cDbConnParm->databaseName_;
    password_ = cDbConnParm->password_;
    serverName_ = cDbConnParm->serverName_;
    userID_ = cDbConnParm->userID_;
    connectionStringBase_ = cDbConnParm->connectionStringBase_;
}

std::string ZorbConnectionString::GenerateConnectionString() const {
    return GenerateConnectionStringWithParams(
        connectionStringBase_.empty() ? kJetBase : connectionStringBase_, serverName_, databaseName_, userID_,
        password_);
}

std::string ZorbConnectionString::GenerateConnectionStringWithParams(std::string_view sConnStrBase,
                                                                     std::string_view sSVR,
                                                                     std::string_view sDBN,
                                                                     std::string_view sUID,
                                                                     std::string_view sPWD) const {
    // In this order: a value may bring in a later placeholder.
    std::string text = platform::ReplaceAllIgnoringCase(sConnStrBase, "%SVR%", sSVR);
    text = platform::ReplaceAllIgnoringCase(text, "%DBN%", sDBN);
    text = platform::ReplaceAllIgnoringCase(text, "%UID%", sUID);
    text = platform::ReplaceAllIgnoringCase(text, "%PWD%", sPWD);
    if (platform::ReplaceAllIgnoringCase(text, kFolderPlaceholder, {}) == text) return text;
    text = platform::ReplaceAllIgnoringCase(text, std::string(kFolderPlaceholder) + "\\", kFolderPlaceholder);
    return platform::ReplaceAllIgnoringCase(text, kFolderPlaceholder,
                                            AddPathSeparator(platform::LibraryFolder()));
}

std::string ZorbConnectionString::GenerateConnectionString_Jet(std::string_view sDBN, std::string_view sUID,
                                                               std::string_view sPWD) const {
    return GenerateConnectionStringWithParams(kJetBase, {}, sDBN, sUID, sPWD);
}

std::string ZorbConnectionString::GenerateConnectionString_SQLServer(std::string_view sSVR,
                                                                     std::string_view sDBN,
                                                                     std::string_view sUID,
                                                                     std::string_view sPWD) const {
    return GenerateConnectionStringWithParams(kSQLServerBase, sSVR, sDBN, sUID, sPWD);
}

}  // namespace halvtiv
