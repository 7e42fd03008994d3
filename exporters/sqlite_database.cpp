#include "sqlite_database.hpp"

#include <sqlite3.h>

#include <filesystem>

#include "errors.hpp"

namespace halvtiv::exporters {

namespace {

constexpr int kBusyTimeout = 5000;  // milliseconds

ErrorNumber NumberOf(int status) {
    switch (status) {
        case SQLITE_CONSTRAINT:
            return ErrorNumber::ConstraintViolation;
        case SQLITE_ERROR:
            return ErrorNumber::SqlError;
        case SQLITE_FULL:
            return ErrorNumber::DiskFull;
        case SQLITE_READONLY:
        case SQLITE_PERM:
            return ErrorNumber::PermissionDenied;
        case SQLITE_CANTOPEN:
            return ErrorNumber::PathAccess;
        case SQLITE_NOMEM:
            return ErrorNumber::OutOfMemory;
        default:
            return ErrorNumber::Unspecified;
    }
}

}  // namespace

void SqliteDatabase::CloseDatabase::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

SqliteDatabase::SqliteDatabase(const std::string& path) {
    sqlite3* opened = nullptr;
    // A whole path is nothing but a path: ":memory:" or "file:" by itself would mean something else.
    const std::string whole = std::filesystem::absolute(path).string();
    const int status =
        sqlite3_open_v2(whole.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(opened);
    if (status != SQLITE_OK) RaiseError();
    WaitForOthers(true);
}

void SqliteDatabase::WaitForOthers(bool wait) {
    sqlite3_busy_timeout(Handle(), wait ? kBusyTimeout : 0);
}

void SqliteDatabase::Run(const std::string& sql) {
    if (sqlite3_exec(Handle(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) RaiseError();
}

void SqliteDatabase::RaiseError() const {
    throw ErrorInfo(static_cast<std::int32_t>(NumberOf(sqlite3_errcode(Handle()))), sqlite3_errmsg(Handle()),
                    "SQLite");
}

void SqliteInsert::FinalizeStatement::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

SqliteInsert::SqliteInsert(SqliteDatabase& database, const std::string& sql) : database_(database) {
    sqlite3_stmt* prepared = nullptr;
    Check(sqlite3_prepare_v2(database.Handle(), sql.c_str(), -1, &prepared, nullptr));
    statement_.reset(prepared);
}

void SqliteInsert::Check(int status) const {
    if (status != SQLITE_OK) database_.RaiseError();
}

void SqliteInsert::BindNull(std::size_t parameter) {
    Check(sqlite3_bind_null(statement_.get(), static_cast<int>(parameter) + 1));
}

void SqliteInsert::BindInteger(std::size_t parameter, std::int64_t value) {
    Check(sqlite3_bind_int64(statement_.get(), static_cast<int>(parameter) + 1, value));
}

void SqliteInsert::BindDouble(std::size_t parameter, double value) {
    Check(sqlite3_bind_double(statement_.get(), static_cast<int>(parameter) + 1, value));
}

void SqliteInsert::BindText(std::size_t parameter, std::string_view text) {
    Check(sqlite3_bind_text64(statement_.get(), static_cast<int>(parameter) + 1,
                              text.empty() ? "" : text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void SqliteInsert::BindBytes(std::size_t parameter, std::string_view bytes) {
    Check(sqlite3_bind_blob64(statement_.get(), static_cast<int>(parameter) + 1,
                              bytes.empty() ? "" : bytes.data(), bytes.size(), SQLITE_TRANSIENT));
}

void SqliteInsert::Run() {
    if (sqlite3_step(statement_.get()) != SQLITE_DONE) database_.RaiseError();
    Check(sqlite3_reset(statement_.get()));
}

std::string QuotedName(std::string_view name) {
    std::string quoted = "\"";
    for (const char character : name) {
        if (character == '"') quoted += '"';
        quoted += character;
    }
    return quoted + '"';
}

}  // namespace halvtiv::exporters
