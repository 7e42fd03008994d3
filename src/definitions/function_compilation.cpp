#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <halvtiv/data_types.hpp>

#include "definitions/function_def.hpp"
#include "documents/call_inside.hpp"
#include "documents/placeholders.hpp"
#include "foundation/this_utils.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

[[noreturn]] void Raise(const std::string& message) {
    throw OwnError("clsZorbFunctionDef", "Compile error: " + message);
}

/// How names of parameters are compared.
std::string ComparedName(std::string_view name) {
    return platform::ToLower(platform::TrimBlanks(name));
}

/// Checks the values given for the declared parameters and takes them for their placeholders.
Placeholders CheckValues(const ZorbFunctionCall& call, const ZorbColumnDataItems& paramDefs) {
    std::unordered_map<std::string, const ZorbColumnDataItem*> params;
    for (const ZorbColumnDataItemPtr& param : CallInside::Params(call)) {
        params.try_emplace(ComparedName(param->Name), param.get());
    }
    Placeholders placeholders;
    for (const ZorbColumnDataItemPtr& paramDef : paramDefs) {
        const auto found = params.find(ComparedName(paramDef->Name));
        if (found == params.end()) {
            Raise("No value provided for defined parameter - \"" + paramDef->Name + "\".");
        }
        const std::string& value = found->second->Value;
        if (!IsValidDataValue(value, paramDef->DataType)) {
            Raise("Invalid data type for provided parameter value - \"" + paramDef->Name + "\"(required " +
                  paramDef->Value + ".)");
        }
        const bool doubles =
            paramDef->DataType == QORV_STOCKDT_TEXT && DoublesQuotes(paramDef->ExtraValue).value_or(false);
        placeholders.Add(paramDef->Name, doubles ? EscapeSqlQuotes(value) : value);
    }
    return placeholders;
}

/// Takes over what the call does not name itself: of each name the first, but every child query.
void MergeParams(ZorbFunctionCall& call, const ZorbFunctionCall& body) {
    constexpr std::string_view kMayRepeat = "csql";
    std::unordered_set<std::string> names;
    for (const ZorbColumnDataItemPtr& item : CallInside::Params(call)) names.insert(ComparedName(item->Name));
    const bool repeats = names.count(std::string(kMayRepeat)) == 0;
    for (const ZorbColumnDataItemPtr& item : CallInside::Params(body)) {
        const bool isAdded = names.insert(ComparedName(item->Name)).second;
        if (!isAdded && !(repeats && ComparedName(item->Name) == kMayRepeat)) continue;
        if (!CallInside::Params(call).Add(item->Name, item->Value)) {
            Raise("Failed to add function parameter - \"" + item->Name + ".");
        }
    }
}

void MergeBlock(ZorbColumnDataItems& block, const ZorbColumnDataItems& bodyBlock) {
    std::unordered_set<std::string> names;
    for (const ZorbColumnDataItemPtr& item : block) names.insert(platform::ToLower(item->Name));
    for (const ZorbColumnDataItemPtr& item : bodyBlock) {
        if (!names.insert(platform::ToLower(item->Name)).second) continue;
        if (!block.AddItem(*item)) {
            Raise("Failed to merge function data parameter - \"" + bodyBlock.Tag() + ".");
        }
    }
}

void MergeDataParams(ZorbFunctionCall& call, const ZorbFunctionCall& body) {
    for (const ZorbColumnDataItemsPtr& bodyBlock : CallInside::Blocks(body)) {
        if (const ZorbColumnDataItemsPtr block = CallInside::FindBlock(call, bodyBlock->Tag())) {
            MergeBlock(*block, *bodyBlock);
        } else if (!CallInside::AddBlock(call, *bodyBlock)) {
            Raise("Failed to add function data parameter - \"" + bodyBlock->Tag() + ".");
        }
    }
}

bool IsSql(const std::string& name) {
    const std::string compared = ComparedName(name);
    return compared == "sql" || compared == "csql" || compared == "sqlcount";
}

/// Fills all values of a call. The bound is on all of them together: a small request may have many.
void FillValues(const ZorbFunctionCall& call, const Placeholders& placeholders, FilledText sql) {
    std::vector<std::pair<ZorbColumnDataItem*, FilledText>> filled;
    std::size_t given = 0;
    const auto collect = [&](const ZorbColumnDataItems& items, bool mayBeSql) {
        for (const ZorbColumnDataItemPtr& item : items) {
            if (item->Value.find('%') == std::string::npos) continue;
            filled.emplace_back(item.get(), mayBeSql && IsSql(item->Name) ? sql : FilledText::Plain);
            given += item->Value.size();
        }
    };
    collect(CallInside::Params(call), true);
    for (const ZorbColumnDataItemsPtr& block : CallInside::Blocks(call)) collect(*block, false);

    std::size_t room = placeholders.Room(given);
    for (const auto& [item, kind] : filled) {
        if (!placeholders.Fill(item->Value, kind, room)) {
            Raise("Text too long after substitution - \"" + item->Name + "\".");
        }
    }
}

}  // namespace

void clsZorbFunctionDef::Compile(ZorbFunctionCall& call, std::string_view database) {
    if (call.FunctionName() != functionName_) {
        Raise("function name not match - \"" + call.FunctionName() + "\" and \"" + functionName_ + "\".");
    }
    const Placeholders placeholders = CheckValues(call, paramDefs_);
    const ZorbFunctionCall& body = BodyFor(database);
    call.FunctionName(body.FunctionName());
    MergeParams(call, body);
    MergeDataParams(call, body);
    FillValues(call, placeholders, SqlFor(database));
}

}  // namespace halvtiv
