#include <algorithm>
#include <utility>
#include <vector>

#include <halvtiv/data_types.hpp>

#include "definitions/function_def.hpp"
#include "documents/call_inside.hpp"
#include "foundation/this_utils.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

[[noreturn]] void Raise(const std::string& message) {
    throw OwnError("clsZorbFunctionDef", "Compile error: " + message);
}

/// What stands for a declared parameter's placeholder.
struct Substitution {
    std::string placeholder;
    std::string text;
};
using Substitutions = std::vector<Substitution>;

/// Checks the values given for the declared parameters and says what stands for each placeholder.
Substitutions CheckValues(const ZorbFunctionCall& call, const ZorbColumnDataItems& paramDefs) {
    Substitutions substitutions;
    for (const ZorbColumnDataItemPtr& paramDef : paramDefs) {
        const ZorbColumnDataItem* const param = CallInside::FindParam(call, paramDef->Name);
        if (!param) Raise("No value provided for defined parameter - \"" + paramDef->Name + "\".");
        if (!IsValidDataValue(param->Value, paramDef->DataType)) {
            Raise("Invalid data type for provided parameter value - \"" + paramDef->Name + "\"(required " +
                  paramDef->Value + ".)");
        }
        const bool doubleQuotes = paramDef->DataType == QORV_STOCKDT_TEXT && paramDef->ExtraValue == "quote";
        substitutions.push_back(
            {"%" + paramDef->Name + "%", doubleQuotes ? EscapeSqlQuotes(param->Value) : param->Value});
    }
    return substitutions;
}

/// What the call does not name itself comes from the body.
void MergeParams(ZorbFunctionCall& call, const ZorbFunctionCall& body) {
    for (const ZorbColumnDataItemPtr& item : CallInside::Params(body)) {
        if (CallInside::FindParam(call, item->Name)) continue;
        if (!CallInside::Params(call).Add(item->Name, item->Value)) {
            Raise("Failed to add function parameter - \"" + item->Name + ".");
        }
    }
}

void MergeBlock(ZorbColumnDataItems& block, const ZorbColumnDataItems& bodyBlock) {
    for (const ZorbColumnDataItemPtr& item : bodyBlock) {
        if (block.GetItemByName(item->Name)) continue;
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

/// The length that a text may grow to. Values may hold placeholders that double it again and again.
std::size_t LongestText(std::string_view text, const Substitutions& substitutions) {
    constexpr std::size_t kAlwaysAllowed = std::size_t{64} << 20;
    std::size_t given = text.size();
    for (const Substitution& substitution : substitutions) given += substitution.text.size();
    return std::max(kAlwaysAllowed, 2 * given);
}

std::size_t SizeAfter(std::string_view text, std::string_view placeholder, std::string_view substitute) {
    std::size_t count = 0;
    for (std::size_t at = text.find(placeholder); at != std::string_view::npos;
         at = text.find(placeholder, at + placeholder.size())) {
        ++count;
    }
    return text.size() - count * placeholder.size() + count * substitute.size();
}

/// One after the other on the text as it has become: a value may bring in a later parameter's placeholder.
void Substitute(const ZorbColumnDataItems& items, const Substitutions& substitutions) {
    for (const ZorbColumnDataItemPtr& item : items) {
        if (item->Value.find('%') == std::string::npos) continue;
        const std::size_t limit = LongestText(item->Value, substitutions);
        for (const auto& [placeholder, text] : substitutions) {
            if (SizeAfter(item->Value, placeholder, text) > limit) {
                Raise("Text too long after substitution - \"" + item->Name + "\".");
            }
            item->Value = platform::ReplaceAll(item->Value, placeholder, text);
        }
    }
}

}  // namespace

void clsZorbFunctionDef::Compile(ZorbFunctionCall& call, std::string_view database) {
    if (call.FunctionName() != functionName_) {
        Raise("function name not match - \"" + call.FunctionName() + "\" and \"" + functionName_ + "\".");
    }
    const Substitutions substitutions = CheckValues(call, paramDefs_);
    const ZorbFunctionCall& body = BodyFor(database);
    call.FunctionName(body.FunctionName());
    MergeParams(call, body);
    MergeDataParams(call, body);
    Substitute(CallInside::Params(call), substitutions);
    for (const ZorbColumnDataItemsPtr& block : CallInside::Blocks(call)) Substitute(*block, substitutions);
}

}  // namespace halvtiv
