#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace halvtiv::exporters {

/// A database file that is written. Raises the database's own words.
class SqliteDatabase {
public:
    /// Opens a file that exists; one of no bytes is a new database.
    explicit SqliteDatabase(const std::string& path);

    void Run(const std::string& sql);
    /// Whether statements wait a while for what others hold; they do from the start.
    void WaitForOthers(bool wait);
    sqlite3* Handle() const { return database_.get(); }
    /// Raises what the last call has found.
    [[noreturn]] void RaiseError() const;
    /// Closes it before the object goes.
    void Close() { database_.reset(); }

private:
    struct CloseDatabase {
        void operator()(sqlite3* database) const;
    };
    std::unique_ptr<sqlite3, CloseDatabase> database_;
};

/// A prepared statement that inserts rows, its parameters counted from 0.
class SqliteInsert {
public:
    SqliteInsert(SqliteDatabase& database, const std::string& sql);

    // What is bound is copied.
    void BindNull(std::size_t parameter);
    void BindInteger(std::size_t parameter, std::int64_t value);
    void BindDouble(std::size_t parameter, double value);
    void BindText(std::size_t parameter, std::string_view text);
    void BindBytes(std::size_t parameter, std::string_view bytes);
    void Run();

private:
    struct FinalizeStatement {
        void operator()(sqlite3_stmt* statement) const;
    };
    void Check(int status) const;

    SqliteDatabase& database_;
    std::unique_ptr<sqlite3_stmt, FinalizeStatement> statement_;
};

/// A name in double quotes.
std::string QuotedName(std::string_view name);

}  // namespace halvtiv::exporters
