#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <halvtiv/export.hpp>

namespace halvtiv {

/// Builds a connection string from a template and four values.
///
/// Placeholders, in any letter case: "%SVR%" server, "%DBN%" database, "%UID%" user, "%PWD%" password,
/// "%APPPATH%" the folder that holds this library. Values are put in as they are, without quoting.
/// Nothing here fails. One object is used by one thread at a time.
class HALVTIV_API ZorbConnectionString {
public:
    ZorbConnectionString();
    ~ZorbConnectionString();
    ZorbConnectionString(const ZorbConnectionString&) = delete;
    ZorbConnectionString& operator=(const ZorbConnectionString&) = delete;

    /// The template of the file database: the default wherever a template is missing.
    std::string GetConnectionStringBase_Jet() const;
    /// The template of SQL Server.
    std::string GetConnectionStringBase_SQLServer() const;

    // Plain values, "" at first; writing stores the text as it is.

    /// The server: "%SVR%".
    std::string ServerName() const;
    void ServerName(std::string_view sSVR);
    /// The database, or the file database's path: "%DBN%".
    std::string DatabaseName() const;
    void DatabaseName(std::string_view sDBN);
    /// The user's name: "%UID%".
    std::string UserID() const;
    void UserID(std::string_view sUID);
    /// The user's password: "%PWD%".
    std::string Password() const;
    void Password(std::string_view sPWD);
    /// The template.
    std::string ConnectionStringBase() const;
    void ConnectionStringBase(std::string_view sConnStrBase);

    /// Sets all five, the database before the server. The template is trimmed; an empty one means the
    /// file database's.
    void SetParams(std::string_view sDBN, std::string_view sSVR, std::string_view sUID, std::string_view sPWD,
                   std::string_view ConStrBase);
    /// Copies the five values of another builder; null changes nothing.
    void CopyFrom(const ZorbConnectionString* cDbConnParm);

    /// The string from the five values.
    std::string GenerateConnectionString() const;
    /// The string from the arguments, the server before the database. An empty template gives "".
    std::string GenerateConnectionStringWithParams(std::string_view sConnStrBase, std::string_view sSVR,
                                                   std::string_view sDBN, std::string_view sUID,
                                                   std::string_view sPWD) const;
    /// The same from the file database's template.
    std::string GenerateConnectionString_Jet(std::string_view sDBN, std::string_view sUID,
                                             std::string_view sPWD) const;
    /// The same from SQL Server's template.
    std::string GenerateConnectionString_SQLServer(std::string_view sSVR, std::string_view sDBN,
                                                   std::string_view sUID, std::string_view sPWD) const;

private:
    std::string serverName_;
    std::string databaseName_;
    std::string userID_;
    std::string password_;
    std::string connectionStringBase_;
};
using ZorbConnectionStringPtr = std::shared_ptr<ZorbConnectionString>;

}  // namespace halvtiv
