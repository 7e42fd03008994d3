#include "engine/handler_steps.hpp"

#include "documents/call_inside.hpp"

namespace halvtiv {

std::string_view RequireSql(const ZorbFunctionCall& call) {
    const ZorbColumnDataItem* const param = CallInside::FindParam(call, "sql");
    if (!param || param->Value.empty()) RaiseEngineError("Invalid Xml - sql parameter missed.");
    return param->Value;
}

std::string RequireParam(const ZorbFunctionCall& call, std::string_view name, const char* message) {
    std::string value = CallInside::ParamValue(call, name);
    if (value.empty()) RaiseEngineError(message);
    return value;
}

std::string RequireFileName(const ZorbFunctionCall& call) {
    return RequireParam(call, "filename", "Invalid Xml - filename not specified.");
}

ado::RecordsetPtr OpenData(EngineState& engine, std::string_view sql, ado::CursorTypeEnum cursorType) {
    ado::RecordsetPtr recordset;
    if (!engine.core.GetData(sql, recordset, cursorType)) engine.core.RaiseLastError();
    return recordset;
}

void AddRows(ZorbFunctionResult& result, std::string_view guid, ado::RecordsetPtr& recordset,
             std::string_view dataFolder) {
    if (!result.AddFunctionResult_Data(guid, recordset, dataFolder)) result.RaiseLastError();
}

}  // namespace halvtiv
