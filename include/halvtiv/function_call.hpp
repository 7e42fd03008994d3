#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <halvtiv/column_data_items.hpp>
#include <halvtiv/export.hpp>

namespace halvtiv {

/// A request: the name of a function and the values for it.
///
/// Values come as *parameters*, a flat list of named values in which names may repeat, and as *data
/// parameters*, named blocks of values (typically one value a table column). All positions count from 1;
/// names are compared trimmed and without regard to case unless a member says otherwise. Look-ups by name
/// search: their time grows with the number of parameters.
///
/// In a call of a defined function each parameter that the definition's body names, "sql" included, counts
/// instead of the body's. An engine is for callers that may run any SQL.
///
/// Every member but the properties, the counts, `Reset` and the two error members clears the last error,
/// lets no exception out and, when it fails, keeps the reason for `GetLastError` and returns false, -1,
/// "" or null. One object is used by one thread at a time.
class HALVTIV_API ZorbFunctionCall {
public:
    ZorbFunctionCall();
    ~ZorbFunctionCall();
    ZorbFunctionCall(const ZorbFunctionCall&) = delete;
    ZorbFunctionCall& operator=(const ZorbFunctionCall&) = delete;

    /// Replaces everything by what the XML text says; a failure leaves the call as it was. "Failed to load
    /// Xml Param." Names, values, types and extras are trimmed of blanks. A "param" with "col" children is a
    /// data parameter, any other a parameter: an empty block, written by `Save`, comes back as a parameter
    /// without a value.
    bool Parse(std::string_view xml);
    /// Writes the call as XML text. A call without a GUID gets one, once, and keeps it.
    bool Save(std::string& xml);
    /// `Save` to a file (UTF-8), which appears under its name only when it is complete.
    bool SaveToFile(std::string_view path);

    /// Raises the last error again; false when there is none.
    bool RaiseLastError() const;
    /// The last error as text with its number; "" when the last operation succeeded.
    std::string GetLastError() const;
    /// Empties name, GUID, parameters and data parameters.
    void Reset();

    /// Name of the function to call. Writing raises 5 for a text that XML cannot carry.
    std::string FunctionName() const;
    void FunctionName(std::string_view sFunctionName);
    /// Key of this call; the entries of its result carry it. Writing raises 5 as above.
    std::string FunctionGUID() const;
    void FunctionGUID(std::string_view sFunctionGUID);

    /// Number of parameters.
    std::int32_t ParamCount() const;
    /// Number of data parameters.
    std::int32_t DataParamCount() const;

    /// The values of all parameters of that name (ignoring case, not trimmed), in order, and their number;
    /// -1 with the array untouched when there is none.
    std::int32_t GetParamArray(std::string_view name, std::vector<std::string>& values);
    /// A parameter's fields. "Specified parameter index out of boundary."
    bool GetParamInfo(std::int32_t index, std::string& name, std::string& value, std::int32_t& type,
                      std::string& extra);
    /// The fields of the first parameter of that name at or after startIndex. "Specified parameter name
    /// not found - NAME."
    bool GetParamInfoByName(std::string_view name, std::string& value, std::int32_t& type, std::string& extra,
                            std::int32_t startIndex = 1);
    /// Replaces a parameter's value; false without an error when there is no such position. 5 for a text that
    /// XML cannot carry, here and in all members that add.
    bool SetParam(std::int32_t index, std::string_view value);
    /// Position of the first data parameter of that name at or after startIndex; -1 when there is none.
    std::int32_t GetDataParamIndex(std::string_view name, std::int32_t startIndex = 1);
    /// The fields of one value in a block. "Specified data parameter index out of boundary.", "Specified
    /// sub parameter index out of boundary."
    bool GetSubParamInfo(std::int32_t dataIndex, std::int32_t subIndex, std::string& name, std::string& value,
                         std::int32_t& type, std::string& extra);
    /// The same by name. "Specified sub parameter name not found - NAME."
    bool GetSubParamInfoByName(std::int32_t dataIndex, std::string_view name, std::string& value,
                               std::int32_t& type, std::string& extra, std::int32_t startIndex = 1);

    /// Appends a parameter and returns its position.
    std::int32_t AddParam(std::string_view name, std::string_view value, std::int32_t type = 0,
                          std::string_view extra = {});
    /// Appends a value to a block and returns its position in it. "Invalid data parameter index specified
    /// - INDEX."
    std::int32_t AddSubParam(std::int32_t dataIndex, std::string_view name, std::string_view value,
                             std::int32_t type = 0, std::string_view extra = {});
    /// Appends an empty block and returns its position.
    std::int32_t AddDataParam(std::string_view name);
    /// Appends a block read from XML text whose items are "col" elements; returns its position.
    std::int32_t AddDataParamXml(std::string_view name, std::string_view xml);
    /// Appends a copy of a block, named by its `Tag`; returns its position.
    std::int32_t AddDataParamBlock(const ZorbColumnDataItems& block);

    /// The live block at a position; null when there is none.
    ZorbColumnDataItemsPtr GetDataParam(std::int32_t index);
    /// The live block of that name at or after startIndex; null when there is none.
    ZorbColumnDataItemsPtr GetDataParamByName(std::string_view name, std::int32_t startIndex = 1);
    /// Removes a block; false without an error when there is no such position.
    bool RemoveDataParam(std::int32_t index);

    // The values alone; "" with the error of the member above that gives all fields when there is none.

    /// A parameter's value.
    std::string GetParam(std::int32_t index);
    /// A value of a block.
    std::string GetSubParam(std::int32_t dataIndex, std::int32_t subIndex);
    /// The first value of that name in a block.
    std::string GetSubParamByName(std::int32_t dataIndex, std::string_view name);
    /// The value of the first parameter of that name at or after startIndex.
    std::string GetParamByName(std::string_view name, std::int32_t startIndex = 1);
    /// Whether there is a parameter of that name; where not, the last error says so, too.
    bool ExistParam(std::string_view name);

private:
    friend struct CallInside;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
using ZorbFunctionCallPtr = std::shared_ptr<ZorbFunctionCall>;

}  // namespace halvtiv
