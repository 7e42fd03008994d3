#include "ado/sqlite/sqlite_file.hpp"

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <limits>
#include <string>
#include <utility>

#include "ado/connection_keywords.hpp"
#include "ado/errors.hpp"
#include "ado/sqlite/sqlite_session.hpp"
#include "platform/files.hpp"
#include "platform/keywords.hpp"
#include "platform/number.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::string_view kMemory = ":memory:";
const std::array<std::string, 4> kKeywords{"Create", "Read Only", "Mode", "Busy Timeout"};

[[noreturn]] void RaiseCannotOpen(const std::string& words) {
    throw MakeProviderError(AdoError::Unspecified, words, kSqliteName);
}

// The name for the database library, which would take some as a URI or as something in memory.
std::string PlainFileName(std::string_view dataSource) {
    auto name = platform::NativePath(dataSource);
    return name.starts_with("file:") || name.starts_with(':') ? "./" + name : name;
}

std::string ShownName(const std::string& name) {
    return "\"" + platform::Shown(name) + "\"";
}

void RequireFile(std::string_view dataSource, bool mayBeMissing) {
    const std::string name(dataSource);
    if (name.empty()) RaiseCannotOpen("No database file is named: \"Data Source\" is empty.");
    if (name.find('\0') != std::string::npos)
        RaiseCannotOpen("The database file's name holds a NUL character.");
    if (platform::FileExists(name)) return;
    if (platform::FolderExists(name)) RaiseCannotOpen(ShownName(name) + " is a folder, not a database file.");
    if (!mayBeMissing) RaiseCannotOpen("The database file " + ShownName(name) + " does not exist.");
    if (platform::HoldsSecretPair(name)) {  // which would be a new file's name
        RaiseCannotOpen("The value of \"Data Source\" holds a password: there is a \";\" missing before it.");
    }
}

std::chrono::milliseconds BusyTimeoutOf(const ConnectionParameters& parameters) {
    const auto text = parameters.Get("Busy Timeout");
    if (text.empty()) return std::chrono::seconds(5);
    const auto value = platform::ParseNumber(text);
    if (!value || *value < 0 || *value > std::numeric_limits<std::int32_t>::max()) {
        RaiseCannotOpen("\"Busy Timeout\" is not a number of milliseconds.");
    }
    return std::chrono::milliseconds(static_cast<std::int64_t>(*value));
}

std::shared_ptr<Session> OpenFile(const ConnectionParameters& parameters,
                                  std::shared_ptr<CancelSwitch> cancel) {
    const auto dataSource = parameters.Get("Data Source");
    RequireKnownKeywords(parameters, kKeywords, kSqliteName);
    const auto busyTimeout = BusyTimeoutOf(parameters);
    const bool readOnly = IsReadOnly(parameters, kSqliteName);
    const bool create = parameters.IsSet("Create") && !readOnly;
    const bool inMemory = dataSource == kMemory;
    if (!inMemory) RequireFile(dataSource, create);

    int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    flags |= readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
    if (create || inMemory) flags |= SQLITE_OPEN_CREATE;
    const auto fileName = inMemory ? std::string(kMemory) : PlainFileName(dataSource);
    sqlite3* opened = nullptr;
    const int status = sqlite3_open_v2(fileName.c_str(), &opened, flags, nullptr);
    SqliteHandle database(opened);
    if ((status & 0xff) == SQLITE_CANTOPEN) {
        RaiseCannotOpen(sqlite3_errmsg(opened) + (" (" + ShownName(std::string(dataSource)) + ")"));
    }
    if (status != SQLITE_OK) RaiseSqliteError(opened, status);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr);
    // A misspelt name in double quotes is an error, not a text.
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    auto session = std::make_shared<SqliteSession>(std::move(database), busyTimeout, std::move(cancel));
    // The library reads the file only when it has to; a file that is no database fails here.
    if (const int read = sqlite3_exec(opened, "PRAGMA schema_version", nullptr, nullptr, nullptr);
        read != SQLITE_OK) {
        RaiseSqliteError(opened, read);
    }
    return session;
}

}  // namespace

std::shared_ptr<Session> OpenSqliteSession(const ConnectionParameters& parameters,
                                           std::int32_t /*connectionTimeout*/,
                                           std::shared_ptr<CancelSwitch> cancel) {
    const std::string path = platform::NativePath(parameters.Get("Data Source"));
    const bool isNew = parameters.IsSet("Create") && path != kMemory && !platform::FileExists(path);
    try {
        return OpenFile(parameters, std::move(cancel));
    } catch (...) {
        if (isNew) platform::RemoveEmptyFile(path);
        throw;
    }
}

}  // namespace halvtiv::ado
