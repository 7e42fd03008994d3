#include "engine/simple_calls.hpp"

#include <utility>

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
        // The function's failure, which its error entry repeats, or that of saving the result. The entry is
        // not asked: it may be what could not be made.
        engine.errors.Raise();
        ZorbFunctionResult result;
        if (!result.Parse(resultXml)) result.RaiseLastError();
        useAnswer(result, call.FunctionGUID());
        result.RaiseLastError();  // none when there is just no row
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
                                    if (row) text = itemForm ? RowText(*row) : result.GetResultDataXml(guid);
                                });
    output = std::move(text);
    return done;
}

bool SimpleExecute(EngineState& engine, std::string_view function, const ZorbColumnDataItems* params,
                   std::string* output, bool itemForm) {
    std::string text;
    const bool done = RunSimple(
        engine, function, params, std::nullopt, [&](ZorbFunctionResult& result, const std::string& guid) {
            if (output == nullptr) return;
            text = itemForm ? result.GetResultDataItemXml(guid, 1) : result.GetResultDataXml(guid);
        });
    if (done && output != nullptr) *output = std::move(text);
    return done;
}

}  // namespace halvtiv
