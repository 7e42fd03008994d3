#include "documents/field_file.hpp"

#include <array>

#include "foundation/err_object.hpp"
#include "foundation/this_utils.hpp"
#include "platform/files.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv {

namespace {

constexpr std::size_t kChunkSize = 4096;

std::string_view AsText(const std::array<std::uint8_t, kChunkSize>& bytes, std::size_t count) {
    return {reinterpret_cast<const char*>(bytes.data()), count};
}

}  // namespace

std::string FieldFileName(std::string_view columnName, std::int64_t rowIndex) {
    constexpr std::size_t kDigits = 6;
    const std::string number = std::to_string(rowIndex);
    std::string name(columnName);
    name += '.';
    if (number.size() < kDigits) name.append(kDigits - number.size(), '0');
    return name + number;
}

void WriteFieldToFile(ado::RowSource& row, std::int32_t column, const ado::ColumnInfo& info,
                      std::string_view folder, std::string_view fileName) {
    if (!IsBlobField(info.type)) {
        throw OwnError("ZorbFunctionResult", "Not a valid field (neither binary nor long).");
    }
    if (fileName.find_first_of(std::string_view("/\\\0", 3)) != std::string_view::npos) {
        platform::RaiseRunTimeError(platform::RunTimeError::PathAccess, fileName);
    }
    const std::string filePath = std::string(folder) + std::string(fileName);
    platform::CreateEmptyFile(filePath);
    const std::int64_t size = row.Size(column);
    if (size <= 0) return;
    platform::OutputFile file(filePath);
    std::array<std::uint8_t, kChunkSize> chunk;
    std::int64_t written = 0;
    while (written < size) {
        const std::size_t count = row.Read(column, written, chunk);
        if (count == 0) break;
        file.Write(AsText(chunk, count));
        written += static_cast<std::int64_t>(count);
    }
    file.Commit();
}

}  // namespace halvtiv
