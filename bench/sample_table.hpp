#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>

#include <halvtiv/halvtiv.hpp>

namespace halvtiv::bench {

/// A database file under the system's temporary folder, gone with this object: table t with eight columns of
/// usual kinds (integer key, integer, real, short text, 40-character text with characters that XML escapes,
/// date-time, nullable text, integer).
class SampleTable {
public:
    explicit SampleTable(int rows);
    ~SampleTable();
    SampleTable(const SampleTable&) = delete;
    SampleTable& operator=(const SampleTable&) = delete;

    const std::string& Path() const { return path_; }

    /// An engine on the file; fails the benchmark's process when it cannot be opened.
    std::unique_ptr<ZorbDbAccessEngine> Engine() const;

    struct CloseDatabase {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
    };
    using Database = std::unique_ptr<sqlite3, CloseDatabase>;
    /// The file, opened as a program by hand would: without the library's own locks.
    Database Open() const;

private:
    std::string path_;
};

struct FinalizeStatement {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

Statement Prepare(sqlite3* database, const std::string& sql);

/// Ends the process with a message unless the condition holds: a benchmark on wrong results says nothing.
void Require(bool condition, const std::string& what);

}  // namespace halvtiv::bench
