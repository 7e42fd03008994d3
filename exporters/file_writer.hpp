#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include <halvtiv/ado.hpp>
#include <halvtiv/output_file.hpp>

namespace halvtiv::exporters {

/// Writes an `OutputFile` from its start to its end through a buffer that callers fill in place.
class FileWriter {
public:
    /// Raises 75 for a file of the database that the rows come from.
    FileWriter(const std::string& fileName, const ado::Recordset& rows);

    /// Room for `count` bytes: write there, then `Advance` to the end of what was written.
    char* Reserve(std::size_t count) {
        if (capacity_ - used_ < count) MakeRoom(count);
        return buffer_.get() + used_;
    }
    void Advance(const char* end) { used_ = static_cast<std::size_t>(end - buffer_.get()); }
    void Append(std::string_view text);
    void Append(char character) {
        char* const room = Reserve(1);
        *room = character;
        Advance(room + 1);
    }
    void Commit();

private:
    void MakeRoom(std::size_t count);
    void Flush();

    OutputFile file_;
    std::unique_ptr<char[]> buffer_;
    std::size_t capacity_;
    std::size_t used_ = 0;
};

}  // namespace halvtiv::exporters
