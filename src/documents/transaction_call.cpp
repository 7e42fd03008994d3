#include <halvtiv/transaction_call.hpp>

#include <utility>
#include <vector>

#include <halvtiv/data_types.hpp>

#include "documents/call_inside.hpp"
#include "documents/item_xml.hpp"
#include "documents/markup_writer.hpp"
#include "foundation/err_object.hpp"
#include "foundation/guarded.hpp"
#include "platform/text.hpp"
#include "platform/xml_reader.hpp"

namespace halvtiv {

namespace {

constexpr std::string_view kClass = "ZorbTransactionCall";

struct TransactionParts {
    std::string name;
    std::string guid;
    std::vector<ZorbFunctionCallPtr> calls;
};

ZorbFunctionCallPtr ParseCall(std::string_view xml) {
    auto call = std::make_shared<ZorbFunctionCall>();
    if (!call->Parse(xml)) call->RaiseLastError();
    return call;
}

/// Cuts the transaction into the texts of its calls and has each of them read as the document it is.
class TransactionReader final : public platform::XmlHandler {
public:
    explicit TransactionReader(TransactionParts& parts) : parts_(parts) {}

    void StartElement(std::string_view name, std::span<const platform::XmlAttribute> attributes) override {
        if (depth_ == 0) {
            for (const auto& [attribute, value] : attributes) {
                if (attribute == "name") parts_.name = platform::TrimBlanks(value);
                if (attribute == "guid") parts_.guid = platform::TrimBlanks(value);
            }
        }
        if (depth_ == kCall && name == "function") inCall_ = true;
        if (inCall_) markup_.StartElement(xml_, name, attributes);
        ++depth_;
    }

    void EndElement(std::string_view name) override {
        --depth_;
        if (!inCall_) return;
        markup_.EndElement(xml_, name);
        if (depth_ > kCall) return;
        inCall_ = false;
        parts_.calls.push_back(ParseCall(xml_.ToString()));
        xml_ = platform::TextBuffer(kUsualCall);
    }

    void Text(std::string_view text) override {
        if (inCall_) markup_.Text(xml_, text);
    }
    // These part one text from the next.
    void Comment(std::string_view text) override {
        if (inCall_) markup_.Comment(xml_, text);
    }
    void ProcessingInstruction(std::string_view target, std::string_view data) override {
        if (inCall_) markup_.ProcessingInstruction(xml_, target, data);
    }

private:
    static constexpr int kCall = 1;                  // elements around a call
    static constexpr std::size_t kUsualCall = 1024;  // bytes

    TransactionParts& parts_;
    MarkupWriter markup_;
    platform::TextBuffer xml_{kUsualCall};  // of the current call
    int depth_ = 0;                         // elements open
    bool inCall_ = false;
};

}  // namespace

struct ZorbTransactionCall::Impl {
    TransactionParts parts;
    clsZorbErrObject errors{kProductName, kClass};

    void Reset() { parts = {}; }

    /// The call at a position from 1 to `last`; null when there is none.
    ZorbFunctionCallPtr CallAt(std::int32_t index, std::size_t last) const {
        if (index < 1 || static_cast<std::size_t>(index) > last) return nullptr;
        return parts.calls[static_cast<std::size_t>(index) - 1];
    }

    /// The call at a position before the last one's; null when there is none.
    ZorbFunctionCallPtr CallBeforeLast(std::int32_t index) const {
        return CallAt(index, parts.calls.empty() ? 0 : parts.calls.size() - 1);
    }

    /// The first call of which a text, ignoring case, is the wanted one; null when there is none.
    ZorbFunctionCallPtr Find(const std::string& (*textOf)(const ZorbFunctionCall&),
                             std::string_view wanted) const {
        for (const ZorbFunctionCallPtr& call : parts.calls) {
            if (platform::EqualIgnoringCase(textOf(*call), wanted)) return call;
        }
        return nullptr;
    }

    ZorbFunctionCallPtr Append(std::string_view callXml) {
        parts.calls.push_back(ParseCall(callXml));
        return parts.calls.back();
    }

    std::string BuildXml() {
        if (parts.guid.empty()) parts.guid = CreateGUIDString(1);
        platform::TextBuffer xml(1024);
        xml.Append("<transaction");
        AppendAttribute(xml, "name", parts.name);
        AppendAttribute(xml, "guid", parts.guid);
        xml.Append(parts.calls.empty() ? "/>" : ">");
        std::string callXml;
        for (const ZorbFunctionCallPtr& call : parts.calls) {
            if (!call->Save(callXml)) call->RaiseLastError();
            xml.Append(callXml);
        }
        if (!parts.calls.empty()) xml.Append("</transaction>");
        return xml.ToString();
    }
};

ZorbTransactionCall::ZorbTransactionCall() : impl_(std::make_unique<Impl>()) {}
ZorbTransactionCall::~ZorbTransactionCall() = default;

bool ZorbTransactionCall::Parse(std::string_view sXmlTrans) {
    return Succeeds(
        impl_->errors,
        [&] {
            TransactionParts parts;
            TransactionReader reader(parts);
            if (!platform::ReadXmlText(sXmlTrans, reader)) {
                throw OwnError(kClass, "Failed to load Xml Transaction.");
            }
            impl_->parts = std::move(parts);
        },
        [&] { impl_->Reset(); });
}

bool ZorbTransactionCall::Save(std::string& xml) {
    return Succeeds(impl_->errors, [&] { xml = impl_->BuildXml(); });
}

void ZorbTransactionCall::Reset() {
    impl_->Reset();
}

bool ZorbTransactionCall::RaiseLastError() const {
    return impl_->errors.Raise();
}

std::string ZorbTransactionCall::GetLastError() const {
    return impl_->errors.GetErrorMsg();
}

std::int32_t ZorbTransactionCall::FunctionCount() const {
    return static_cast<std::int32_t>(impl_->parts.calls.size());
}

std::string ZorbTransactionCall::TransName() const {
    return impl_->parts.name;
}

void ZorbTransactionCall::TransName(std::string_view sTransName) {
    RequireXmlText(sTransName);
    impl_->parts.name = sTransName;
}

std::string ZorbTransactionCall::TransGUID() const {
    return impl_->parts.guid;
}

void ZorbTransactionCall::TransGUID(std::string_view sTransGUID) {
    RequireXmlText(sTransGUID);
    impl_->parts.guid = sTransGUID;
}

std::string ZorbTransactionCall::FunctionName(std::int32_t lIndex) const {
    const ZorbFunctionCallPtr call = impl_->CallBeforeLast(lIndex);
    return call ? call->FunctionName() : std::string();
}

std::string ZorbTransactionCall::FunctionGUID(std::int32_t lIndex) const {
    const ZorbFunctionCallPtr call = impl_->CallBeforeLast(lIndex);
    return call ? call->FunctionGUID() : std::string();
}

ZorbFunctionCallPtr ZorbTransactionCall::GetFunction(std::int32_t lIndex) {
    return Guarded(impl_->errors, nullptr, [&] { return impl_->CallAt(lIndex, impl_->parts.calls.size()); });
}

ZorbFunctionCallPtr ZorbTransactionCall::GetFunctionByName(std::string_view name) {
    return Guarded(impl_->errors, nullptr, [&] { return impl_->Find(CallInside::Name, name); });
}

ZorbFunctionCallPtr ZorbTransactionCall::GetFunctionByGUID(std::string_view sGUID) {
    return Guarded(impl_->errors, nullptr, [&] { return impl_->Find(CallInside::Guid, sGUID); });
}

ZorbFunctionCallPtr ZorbTransactionCall::AddFunctionXml(std::string_view sFuncCallXml) {
    return Guarded(impl_->errors, nullptr, [&] { return impl_->Append(sFuncCallXml); });
}

ZorbFunctionCallPtr ZorbTransactionCall::AddFunction(ZorbFunctionCall& cCall) {
    return Guarded(impl_->errors, nullptr, [&] {
        std::string xml;
        if (!cCall.Save(xml)) cCall.RaiseLastError();
        return impl_->Append(xml);
    });
}

}  // namespace halvtiv
