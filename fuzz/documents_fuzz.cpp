// Requests, transactions and results as anybody may send them, and keys that look into them.

#include <string>

#include <halvtiv/halvtiv.hpp>

#include "platform/plain_xml.hpp"
#include "property.hpp"
#include "xml_transcript.hpp"

namespace halvtiv::fuzz {
namespace {

/// The reader of plain documents tells nothing, or what the parser tells.
void ReadPlain(std::string_view text) {
    test::Transcript transcript;
    const bool isRead = platform::ReadPlainXml(text, transcript);
    const std::string words = transcript.words.str();
    Require(words == (isRead ? test::Parsed(text) : std::string()), "a plain document is read otherwise");
}

/// What a document writes, it reads, and writes again.
template <typename Document>
void GoRound(Document& document, std::string_view text) {
    if (!document.Parse(text)) {
        Require(!document.GetLastError().empty(), "a refusal has no reason");
        return;
    }
    std::string saved;
    std::string again;
    Document other;
    Require(document.Save(saved), "what was read is not written");
    Require(other.Parse(saved) && other.Save(again), "what was written is not read");
    Require(again == saved, "what was written changes");
}

void LookInto(ZorbFunctionResult& result, std::string_view key) {
    (void)result.GetResultType(key);
    (void)result.GetResultDataCount(key);
    for (const std::int32_t index : {-1, 0, 1, 2}) {
        const auto row = result.GetResultDataItem(key, index);
        Require(row != nullptr || result.GetResultDataItemXml(key, index).empty(), "a row is only a text");
    }
    try {
        result.RaiseResultError(key);
    } catch (const ErrorInfo& error) {
        Require(error.Number != 0 || !error.Description.empty() || !error.Source.empty(),
                "an error says nothing");
    }
    if (result.ChangeResultDataGUID(key, "changed")) {
        Require(!result.GetResultDataXml("changed").empty(), "an entry is lost with its key");
    }
    std::string merged;
    Require(result.MergeResult(result) && result.Save(merged), "a result does not take itself in");
    Require(ZorbFunctionResult().Parse(merged), "a merged result is not read");
}

void LookInto(ZorbFunctionCall& call, std::string_view name) {
    std::string value;
    std::string extra;
    std::int32_t type = 0;
    const bool isThere = call.ExistParam(name);
    Require(call.GetParamInfoByName(name, value, type, extra) == isThere, "a parameter is there and is not");
    const auto block = call.GetDataParamByName(name);
    Require((call.GetDataParamIndex(name) > 0) == (block != nullptr), "a block is there and is not");
}

}  // namespace
}  // namespace halvtiv::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace halvtiv;
    const auto [key, text] = fuzz::FirstLineAndRest(fuzz::TextOf(data, size));
    fuzz::ReadPlain(text);
    ZorbFunctionCall call;
    fuzz::GoRound(call, text);
    fuzz::LookInto(call, key);
    ZorbTransactionCall transaction;
    fuzz::GoRound(transaction, text);
    ZorbFunctionResult result;
    fuzz::GoRound(result, text);
    fuzz::LookInto(result, key);
    return 0;
}
