#include <cstdint>
#include <utility>

#include "ado/recordset_state.hpp"
#include "documents/call_inside.hpp"
#include "engine/built_in_functions.hpp"
#include "engine/handler_steps.hpp"
#include "foundation/guarded.hpp"
#include "foundation/this_utils.hpp"

namespace halvtiv {

namespace {

/// The first result of a batch that is a table: statements that return no rows are passed over, and so is a
/// single column, such as a count. Null when there is none.
ado::RecordsetPtr FirstTable(ado::RecordsetPtr recordset) {
    const auto isTable = [](ado::Recordset& result) {
        return result.State() == ado::adStateOpen && result.Fields().Count() > 1;
    };
    while (recordset && !isTable(*recordset)) recordset = recordset->NextRecordset();
    return recordset;
}

void Configure(const EngineState& engine, IZorbDataExporter& exporter, bool clearData, std::int32_t count) {
    exporter.ClearTableBeforeExport(clearData);
    exporter.DataCount(count);
    if (engine.progressUpdater) exporter.SetProgressUpdater(engine.progressUpdater);
}

}  // namespace

bool BuiltIn_GetDataToFile(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Succeeds(engine.errors, [&] {
        const std::string_view sql = RequireSql(call);
        const std::string dataFolder = CallInside::ParamValue(call, "datafolder");
        const std::string fileName = RequireFileName(call);

        ado::RecordsetPtr recordset = OpenData(engine, sql, ado::adOpenForwardOnly);
        if (!result.AddFunctionResult_DataFile(CallInside::Guid(call), recordset, fileName, dataFolder)) {
            result.RaiseLastError();
        }
        recordset->Close();
    });
}

bool BuiltIn_GetDataToExportFile(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Succeeds(engine.errors, [&] {
        const std::string_view sql = RequireSql(call);
        const std::string countSql = CallInside::ParamValue(call, "sqlcount");
        const std::string dataFolder = CallInside::ParamValue(call, "datafolder");
        const std::string fileName = RequireFileName(call);
        const std::string tableName = CallInside::ParamValue(call, "tablename");
        const std::string exportType =
            RequireParam(call, "exporttype", "Invalid Xml - Export Type not specified.");
        const bool clearData = StrToLongDef(CallInside::ParamValue(call, "cleardata"), 1) != 0;

        ado::RecordsetPtr recordset;
        std::int32_t count = -1;
        if (!engine.core.GetDataAndCount(sql, countSql, recordset, count)) engine.core.RaiseLastError();
        recordset = FirstTable(std::move(recordset));
        const ado::RecordsetPtr exported = recordset;  // whatever the exporter does with the other

        const IZorbDataExporterPtr exporter = engine.exporters.GetDataExporterByTypeString(exportType);
        if (!exporter) {
            RaiseEngineError("Corresponding Data Exporter not installed - " + exportType + ".");
        }
        Configure(engine, *exporter, clearData, count);
        if (!result.AddFunctionResult_ExportFile(CallInside::Guid(call), recordset, exporter, fileName,
                                                 tableName, dataFolder)) {
            ado::RecordsetState::EndBatch(exported);  // an exporter may keep the recordset
            result.RaiseLastError();
            RaiseEngineError("Export failed.");  // the exporter's error has number 0, which is none
        }
        // What is left of the batch runs, unless the exporter has seen to it.
        if (recordset && recordset->State() == ado::adStateOpen) recordset->Close();
    });
}

}  // namespace halvtiv
