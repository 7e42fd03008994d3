#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "documents/call_inside.hpp"
#include "documents/result_hand_over.hpp"
#include "engine/built_in_functions.hpp"
#include "engine/handler_steps.hpp"
#include "foundation/guarded.hpp"

namespace halvtiv {

namespace {

constexpr std::int32_t kRanWithoutRows = 1;

/// The batch's first result with rows from this one on; null when there is none.
ado::RecordsetPtr SkipClosed(ado::RecordsetPtr recordset) {
    while (recordset && recordset->State() != ado::adStateOpen) recordset = recordset->NextRecordset();
    return recordset;
}

std::string RequireColumnName(const ZorbFunctionCall& call) {
    return RequireParam(call, "colname", "Invalid Xml - colname not specified.");
}

/// What a handler does whose work is counted: the count becomes the result's one entry, a negative one is the
/// core's failure.
template <typename Work>
bool Counted(EngineState& engine, const ZorbFunctionCall& call, ZorbFunctionResult& result, Work&& work) {
    return Succeeds(engine.errors, [&] {
        const std::int32_t count = work();
        if (count < 0) engine.core.RaiseLastError();
        if (!result.AddFunctionResult_Info(CallInside::Guid(call), count)) result.RaiseLastError();
    });
}

}  // namespace

bool BuiltIn_AddData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Counted(engine, call, result, [&] {
        return engine.core.AddData(RequireSql(call), CallInside::FindBlock(call, "data").get());
    });
}

bool BuiltIn_UpdateData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Counted(engine, call, result, [&] {
        return engine.core.UpdateData(RequireSql(call), CallInside::FindBlock(call, "data").get());
    });
}

bool BuiltIn_UpdateDataEx(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Counted(engine, call, result, [&] {
        return engine.core.UpdateDataEx(RequireSql(call), CallInside::FindBlock(call, "data").get());
    });
}

bool BuiltIn_UpdateDataColAdd(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Counted(engine, call, result, [&] {
        const std::string_view sql = RequireSql(call);
        const std::string column = RequireParam(call, "col", "Invalid Xml - 'col' parameter missed.");
        return engine.core.UpdateDataColAdd(sql, column, CallInside::FindBlock(call, "data").get());
    });
}

bool BuiltIn_DeleteData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Counted(engine, call, result, [&] { return engine.core.DeleteData(RequireSql(call)); });
}

bool BuiltIn_GetBinaryData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Counted(engine, call, result, [&] {
        const std::string_view sql = RequireSql(call);
        const std::string column = RequireColumnName(call);
        const std::string file = RequireFileName(call);
        return engine.core.GetBinaryData(sql, column, file);
    });
}

// Without a file the columns are made null, so its name is not asked for.
bool BuiltIn_SetBinaryData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Counted(engine, call, result, [&] {
        const std::string_view sql = RequireSql(call);
        const std::string column = RequireColumnName(call);
        return engine.core.SetBinaryData(sql, column, CallInside::ParamValue(call, "filename"));
    });
}

bool BuiltIn_DeleteBinaryData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Counted(engine, call, result, [&] {
        const std::string_view sql = RequireSql(call);
        return engine.core.DeleteBinaryData(sql, RequireColumnName(call));
    });
}

bool BuiltIn_ExecuteSQL(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Succeeds(engine.errors, [&] {
        const std::string_view sql = RequireSql(call);
        const std::string dataFolder = CallInside::ParamValue(call, "datafolder");
        const std::string& guid = CallInside::Guid(call);

        ado::RecordsetPtr recordset;
        if (!engine.core.ExecuteSQL(sql, dataFolder, &recordset)) engine.core.RaiseLastError();
        recordset = SkipClosed(std::move(recordset));
        if (!recordset) {
            if (!result.AddFunctionResult_Info(guid, kRanWithoutRows)) result.RaiseLastError();
            return;
        }

        std::int32_t number = 0;
        while (recordset) {
            ++number;
            AddRows(result, guid + "." + std::to_string(number), recordset, dataFolder);
            recordset = SkipClosed(recordset->NextRecordset());
        }
        // The last one carries the call's own key.
        if (!ResultHandOver::ChangeKey(result, guid + "." + std::to_string(number), guid))
            result.RaiseLastError();
    });
}

}  // namespace halvtiv
