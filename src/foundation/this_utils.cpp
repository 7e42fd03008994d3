#include "foundation/this_utils.hpp"

#include <array>
#include <optional>
#include <span>

#include <halvtiv/ado.hpp>
#include <halvtiv/error_info.hpp>

#include "platform/date_time.hpp"
#include "platform/files.hpp"
#include "platform/guid.hpp"
#include "platform/number.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

// The code of a name is its place.
constexpr std::array<std::string_view, 5> kDataTypeNames{"integer", "double", "text", "datetime", "binary"};
constexpr std::array<std::string_view, 4> kResultTypeNames{"data", "file", "error", "info"};
constexpr std::span<const std::string_view> kColumnTypeNames(kResultTypeNames.data(), 3);
constexpr std::string_view kUnknownName = "(unknown)";

std::string_view NameOf(std::int32_t code, std::span<const std::string_view> names) noexcept {
    if (code < 0 || static_cast<std::size_t>(code) >= names.size()) return kUnknownName;
    return names[static_cast<std::size_t>(code)];
}

std::int32_t CodeOf(std::string_view name, std::span<const std::string_view> names) {
    const std::string lower = platform::ToLower(name);
    for (std::size_t code = 0; code < names.size(); ++code) {
        if (names[code] == lower) return static_cast<std::int32_t>(code);
    }
    return -1;
}

}  // namespace

std::string CreateGUIDString(std::int32_t format) {
    if (format != 0 && format != 1) return {};
    const auto guid = platform::NewGuid();
    if (!guid) return {};
    std::string text;
    for (std::size_t byte = 0; byte < guid->size(); ++byte) {
        if (format == 0 && (byte == 4 || byte == 6 || byte == 8 || byte == 10)) text += '-';
        text += platform::HexPadded((*guid)[byte], 2);
    }
    return format == 0 ? "{" + text + "}" : text;
}

std::int32_t StrToLongDef(std::string_view text, std::int32_t defaultValue) {
    const std::optional<double> number = platform::ParseNumber(text);
    if (!number) return defaultValue;
    try {
        return platform::RoundToInt32(*number);
    } catch (const ErrorInfo&) {
        return defaultValue;
    }
}

std::string DataTypeToName(std::int32_t dataType) {
    return std::string(DataTypeText(dataType));
}

std::string_view DataTypeText(std::int32_t dataType) noexcept {
    return NameOf(dataType, kDataTypeNames);
}

std::int32_t DataTypeFromName(std::string_view name) {
    return CodeOf(name, kDataTypeNames);
}

std::string ResultTypeToName(std::int32_t resultType) {
    return std::string(NameOf(resultType, kResultTypeNames));
}

std::int32_t ResultTypeFromName(std::string_view name) {
    return name.empty() ? QORV_OUTPUT_DATA : CodeOf(name, kResultTypeNames);
}

std::string ColumnTypeToName(std::int32_t columnType) {
    return std::string(NameOf(columnType, kColumnTypeNames));
}

std::int32_t ColumnTypeFromName(std::string_view name) {
    return name.empty() ? QORV_COLUMN_DATA : CodeOf(name, kColumnTypeNames);
}

std::int32_t AdoTypeToDataType(std::int32_t fieldType) {
    switch (fieldType) {
        case ado::adSmallInt:
        case ado::adInteger:
        case ado::adBoolean:
        case ado::adTinyInt:
        case ado::adUnsignedTinyInt:
        case ado::adUnsignedSmallInt:
        case ado::adUnsignedInt:
        case ado::adBigInt:
        case ado::adUnsignedBigInt:
            return QORV_STOCKDT_INTEGER;
        case ado::adSingle:
        case ado::adDouble:
        case ado::adCurrency:
        case ado::adDecimal:
        case ado::adNumeric:
        case ado::adVarNumeric:
            return QORV_STOCKDT_DOUBLE;
        case ado::adBSTR:
        case ado::adGUID:
        case ado::adChar:
        case ado::adWChar:
        case ado::adVarChar:
        case ado::adVarWChar:
            return QORV_STOCKDT_TEXT;
        case ado::adFileTime:
        case ado::adDBDate:
        case ado::adDBTime:
        case ado::adDBTimeStamp:
            return QORV_STOCKDT_DATETIME;
        case ado::adBinary:
        case ado::adLongVarChar:
        case ado::adLongVarWChar:
        case ado::adVarBinary:
        case ado::adLongVarBinary:
            return QORV_STOCKDT_BINARY;
        default:
            return QORV_STOCKDT_UNKNOWN;
    }
}

bool IsBlobField(std::int32_t fieldType) {
    return AdoTypeToDataType(fieldType) == QORV_STOCKDT_BINARY;
}

bool IsValidDataValue(std::string_view text, std::int32_t dataType) {
    switch (dataType) {
        case QORV_STOCKDT_INTEGER: {
            const std::optional<double> number = platform::ParseNumber(text);
            return number && static_cast<double>(platform::RoundToInt32(*number)) == *number;
        }
        case QORV_STOCKDT_DOUBLE:
            return platform::ParseNumber(text).has_value();
        case QORV_STOCKDT_TEXT:
            return true;
        case QORV_STOCKDT_DATETIME:
            return platform::ParseDateTime(text).has_value();
        default:
            return false;  // binary values never come as text
    }
}

std::string AddPathSeparator(std::string_view path) {
    std::string completed(path);
    if (!completed.empty() && completed.back() != '\\') completed += '\\';
    return completed;
}

std::optional<bool> DoublesQuotes(std::string_view extra) {
    if (extra.empty()) return false;
    const std::string lower = platform::ToLower(extra);
    return lower == "quote" || lower == "quoted" ? std::optional<bool>(true) : std::nullopt;
}

std::string EscapeSqlQuotes(std::string_view text) {
    return platform::ReplaceAll(text, "'", "''");
}

std::string NativePath(std::string_view path) {
    return platform::NativePath(path);
}

}  // namespace halvtiv
