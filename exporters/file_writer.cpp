#include "file_writer.hpp"

#include <algorithm>
#include <cstring>

namespace halvtiv::exporters {

namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;

const std::string& RequireOtherFile(const std::string& fileName, const ado::Recordset& rows) {
    rows.RequireOtherFile(fileName);
    return fileName;
}

}  // namespace

FileWriter::FileWriter(const std::string& fileName, const ado::Recordset& rows)
    : file_(RequireOtherFile(fileName, rows)),
      buffer_(std::make_unique_for_overwrite<char[]>(kBufferSize)),
      capacity_(kBufferSize) {}

void FileWriter::Flush() {
    file_.Write({buffer_.get(), used_});
    used_ = 0;
}

void FileWriter::MakeRoom(std::size_t count) {
    Flush();
    if (count <= capacity_) return;
    buffer_ = std::make_unique_for_overwrite<char[]>(count);
    capacity_ = count;
}

void FileWriter::Append(std::string_view text) {
    while (!text.empty()) {
        const std::size_t count = std::min(text.size(), kBufferSize);
        char* const room = Reserve(count);
        std::memcpy(room, text.data(), count);
        Advance(room + count);
        text.remove_prefix(count);
    }
}

void FileWriter::Commit() {
    Flush();
    file_.Commit();
}

}  // namespace halvtiv::exporters
