#include <cstdint>
#include <utility>

#include "documents/call_inside.hpp"
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

}  // namespace

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
        if (!result.ChangeResultDataGUID(guid + "." + std::to_string(number), guid)) result.RaiseLastError();
    });
}

}  // namespace halvtiv
