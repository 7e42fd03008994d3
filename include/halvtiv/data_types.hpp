#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <halvtiv/export.hpp>

namespace halvtiv {

/// The data type of a column or of a definition's parameter; in documents "integer", "double", "text",
/// "datetime" and "binary".
enum QorvStockDataTypeEnum : std::int32_t {
    QORV_STOCKDT_UNKNOWN = -1,  ///< none of these
    QORV_STOCKDT_INTEGER = 0,   ///< integers of any width, and truth values
    QORV_STOCKDT_DOUBLE = 1,    ///< floating and exact numbers
    QORV_STOCKDT_TEXT = 2,      ///< texts that are not long, and GUIDs
    QORV_STOCKDT_DATETIME = 3,  ///< dates, times, or both
    QORV_STOCKDT_BINARY = 4     ///< bytes and long texts, which stay out of rows
};

/// The type of a result's entry; in documents "data", "file", "error" and "info".
enum QorvResultTypeEnum : std::int32_t {
    QORV_OUTPUT_UNKNOWN = -1,  ///< none of these
    QORV_OUTPUT_DATA = 0,      ///< a table of rows
    QORV_OUTPUT_FILE = 1,      ///< the name of a file that holds the rows
    QORV_OUTPUT_ERROR = 2,     ///< number, description and source of an error
    QORV_OUTPUT_INFO = 3       ///< a return value
};

/// The type of one cell of a row and of a call's parameter; in documents "data", "file" and "error".
enum QorvColumnTypeEnum : std::int32_t {
    QORV_COLUMN_UNKNOWN = -1,  ///< none of these
    QORV_COLUMN_DATA = 0,      ///< the value itself
    QORV_COLUMN_FILE = 1,      ///< the name of a file that holds the value
    QORV_COLUMN_ERROR = 2      ///< a value that could not be written as it is
};

/// The document name of a `QorvStockDataTypeEnum` code; "(unknown)" for any other number.
HALVTIV_API std::string DataTypeToName(std::int32_t dataType);

/// The `QorvStockDataTypeEnum` code of a name in any letter case, untrimmed; -1 for any other text.
HALVTIV_API std::int32_t DataTypeFromName(std::string_view name);

/// A new random GUID in upper-case hexadecimal. Format 0: in braces with hyphens (38 characters);
/// format 1: the 32 digits alone; any other format, or no randomness to be had: "".
HALVTIV_API std::string CreateGUIDString(std::int32_t format);

/// The path with "\" appended unless it is empty or ends in one. Forward slashes stay as they are.
HALVTIV_API std::string AddPathSeparator(std::string_view path);

/// The path as this system opens it: every "\" turned into the system's own separator. Documents carry
/// data folders with "\"; use this before opening a file that a result names.
HALVTIV_API std::string NativePath(std::string_view path);

}  // namespace halvtiv
