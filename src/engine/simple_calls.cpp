#include "engine/simple_calls.hpp"

#include <utility>

#include <halvtiv/data_types.hpp>
#include <halvtiv/function_call.hpp>
#include <halvtiv/function_result.hpp>

#include "engine/function_run.hpp"
#include "foundation/guarded.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

/// Gives the call the function, a parameter for each item, and the block.
void FillCall(ZorbFunctionCall& call, std::string_view function, const ZorbColumnDataItems* params,
              std::optional<std::string_view> dataXml) {
    if (params != nullptr) {
        for (const ZorbColumnDataItemPtr& item : *params) {
            if (call.AddParam(item->Name, item->Value) < 0) call.RaiseLastError();
        }
    }
    call.FunctionName(function);
    if (dataXml && !platform::TrimBlanks(*dataXml).empty() && call.AddDataParamXml("data", *dataXml) < 0) {
        call.RaiseLastError();
    }
}

/// Runs a call and lets `useAnswer` take from the result, under the call's key, what the caller wants.
template <typename UseAnswer>
bool RunSimple(EngineState& engine, std::string_view function, const ZorbColumnDataItems* params,
               std::optional<std::string_view> dataXml, UseAnswer&& useAnswer) {
    return Guarded(engine.errors, false, [&] {
        ZorbFunctionCall call;
        FillCall(call, function, params, dataXml);
        std::string requestXml;
        if (!call.Save(requestXml)) call.RaiseLastError();

        std::string resultXml;
        if (!RunFunction(engine, requestXml, resultXml)) return false;
        ZorbFunctionResult result;
        if (!result.Parse(resultXml)) result.RaiseLastError();
        const std::string guid = call.FunctionGUID();
        if (result.GetResultType(guid) == QORV_OUTPUT_ERROR) result.RaiseResultError(guid);
        useAnswer(result, guid);
        return true;
    });
}

std::string RowText(const ZorbColumnDataItems& row) {
    std::string xml;
    std::string message;
    if (!row.Save(xml, "row", "col", message)) RaiseEngineError(message);
    return xml;
}

}  // namespace

bool SimpleCall(EngineState& engine, std::string_view function, const ZorbColumnDataItems* params,
                std::optional<std::string_view> dataXml) {
    return RunSimple(engine, function, params, dataXml, [](ZorbFunctionResult&, const std::string&) {});
}

bool SimpleGet(EngineState& engine, std::string_view function, const ZorbColumnDataItems* params,
               std::string& output, bool itemForm) {
    std::string text;  // aside: the name may be a view of the output
    const bool done = RunSimple(engine, function, params, std::nullopt,
                                [&](ZorbFunctionResult& result, const std::string& guid) {
                                    const ZorbColumnDataItemsPtr row = result.GetResultDataItem(guid, 1);
                                    if (row) {
                                        text = itemForm ? RowText(*row) : result.GetResultDataXml(guid);
                                    } else {
                                        result.RaiseLastError();  // none when there is just no such row
                                    }
                                });
    output = std::move(text);
    return done;
}

bool SimpleExecute(EngineState& engine, std::string_view function, const ZorbColumnDataItems* params,
                   std::string* output, bool itemForm) {
    return RunSimple(
        engine, function, params, std::nullopt, [&](ZorbFunctionResult& result, const std::string& guid) {
            if (output == nullptr) return;
            *output = itemForm ? result.GetResultDataItemXml(guid, 1) : result.GetResultDataXml(guid);
        });
}

}  // namespace halvtiv
