#include "documents/field_file.hpp"

#include "ado/value_file.hpp"
#include "foundation/err_object.hpp"
#include "foundation/this_utils.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv {

std::string FieldFileName(std::string_view columnName, std::int64_t rowIndex) {
    constexpr std::size_t kDigits = 6;
    const std::string number = std::to_string(rowIndex);
    std::string name(columnName);
    name += '.';
    if (number.size() < kDigits) name.append(kDigits - number.size(), '0');
    return name + number;
}

void WriteFieldToFile(const ado::RecordsetState& recordset, ado::RowSource& row, std::int32_t column,
                      std::string_view folder, std::string_view fileName) {
    if (!IsBlobField(recordset.Columns()[static_cast<std::size_t>(column)].type)) {
        throw OwnError("ZorbFunctionResult", "Not a valid field (neither binary nor long).");
    }
    if (fileName.find_first_of(std::string_view("/\\\0", 3)) != std::string_view::npos) {
        platform::RaiseRunTimeError(platform::RunTimeError::PathAccess, fileName);
    }
    const std::string filePath = std::string(folder) + std::string(fileName);
    recordset.RequireOtherFile(filePath);
    ado::CopyValueToFile(row, column, filePath);
}

}  // namespace halvtiv
