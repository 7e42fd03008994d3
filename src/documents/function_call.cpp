#include <halvtiv/function_call.hpp>

#include <algorithm>
#include <utility>

#include <halvtiv/data_types.hpp>

#include "documents/call_inside.hpp"
#include "documents/call_reader.hpp"
#include "documents/item_xml.hpp"
#include "foundation/err_object.hpp"
#include "foundation/guarded.hpp"
#include "platform/text.hpp"
#include "platform/xml_reader.hpp"

namespace halvtiv {

namespace {

constexpr std::string_view kClass = "ZorbFunctionCall";

[[noreturn]] void Raise(std::string message) {
    throw OwnError(kClass, std::move(message));
}

std::string Concerning(std::string_view message, std::string_view what) {
    std::string words(message);
    words += what;
    words += '.';
    return words;
}

bool SameTrimmedName(std::string_view left, std::string_view right) {
    return platform::EqualIgnoringCase(platform::TrimBlanks(left), platform::TrimBlanks(right));
}

std::int32_t AppendParamItem(ZorbColumnDataItems& items, std::string_view name, std::string_view value,
                             std::int32_t type, std::string_view extra) {
    if (!items.Add(name, value, type, extra)) Raise("Failed to add a new parameter.");
    return items.Count();
}

void WriteItemsXml(platform::TextBuffer& xml, const ZorbColumnDataItems& items,
                   std::string_view elementName) {
    for (const ZorbColumnDataItemPtr& item : items) AppendItem(xml, elementName, *item, WriteExtra::Always);
}

/// What the four outputs of a look-up are set to.
void GetItemFields(const ZorbColumnDataItem& item, std::string& value, std::int32_t& type,
                   std::string& extra) {
    value = item.Value;
    type = item.DataType;
    extra = item.ExtraValue;
}

}  // namespace

struct ZorbFunctionCall::Impl {
    std::string functionName;
    std::string functionGUID;
    ZorbColumnDataItems params;
    std::vector<ZorbColumnDataItemsPtr> dataParams;
    clsZorbErrObject errors{kProductName, kClass};

    void Reset() {
        functionName.clear();
        functionGUID.clear();
        params.Reset();
        dataParams.clear();
    }

    ZorbColumnDataItemsPtr Block(std::int32_t index) const {
        if (index < 1 || static_cast<std::size_t>(index) > dataParams.size()) return nullptr;
        return dataParams[static_cast<std::size_t>(index) - 1];
    }

    ZorbColumnDataItems& RequireBlock(std::int32_t index) const {
        const ZorbColumnDataItemsPtr block = Block(index);
        if (!block) Raise("Specified data parameter index out of boundary.");
        return *block;
    }

    const ZorbColumnDataItem& RequireParamAt(std::int32_t index) const {
        if (index < 1 || index > params.Count()) Raise("Specified parameter index out of boundary.");
        return *params.Item(index);
    }

    const ZorbColumnDataItem& RequireSubParam(std::int32_t dataIndex, std::int32_t subIndex) const {
        const ZorbColumnDataItems& block = RequireBlock(dataIndex);
        if (subIndex < 1 || subIndex > block.Count()) Raise("Specified sub parameter index out of boundary.");
        return *block.Item(subIndex);
    }

    const ZorbColumnDataItem& RequireSubParamByName(std::int32_t dataIndex, std::string_view name,
                                                    std::int32_t startIndex) const {
        const ZorbColumnDataItemPtr item = RequireBlock(dataIndex).GetItemByName(name, startIndex);
        if (!item) Raise(Concerning("Specified sub parameter name not found - ", name));
        return *item;
    }

    const ZorbColumnDataItem* FindParam(std::string_view name, std::int32_t startIndex) const {
        std::int32_t index = 0;
        for (const ZorbColumnDataItemPtr& item : params) {
            if (++index >= startIndex && SameTrimmedName(item->Name, name)) return item.get();
        }
        return nullptr;
    }

    /// `FindParam` that records why there is none: parameters are often left out, and raising takes its time.
    const ZorbColumnDataItem* FindParamOrRecord(std::string_view name, std::int32_t startIndex) {
        const ZorbColumnDataItem* const item = FindParam(name, startIndex);
        if (!item) {
            const ErrorInfo error =
                OwnError(kClass, Concerning("Specified parameter name not found - ", name));
            errors.SetError(&error);
        }
        return item;
    }

    std::int32_t AddBlock(std::string_view name) {
        auto block = std::make_shared<ZorbColumnDataItems>();
        block->Tag(name);
        dataParams.push_back(std::move(block));
        return static_cast<std::int32_t>(dataParams.size());
    }

    ZorbColumnDataItemsPtr AddCopyOf(const ZorbColumnDataItems& block) {
        auto copy = std::make_shared<ZorbColumnDataItems>();
        copy->CopyFrom(block);
        dataParams.push_back(copy);
        return copy;
    }

    std::int32_t BlockIndex(std::string_view name, std::int32_t startIndex) const {
        for (std::size_t index = static_cast<std::size_t>(std::max(startIndex, 1));
             index <= dataParams.size(); ++index) {
            if (SameTrimmedName(dataParams[index - 1]->Tag(), name)) return static_cast<std::int32_t>(index);
        }
        return -1;
    }

    void Take(CallParts&& parts) noexcept {
        functionName = std::move(parts.name);
        functionGUID = std::move(parts.guid);
        params.TakeFrom(parts.params);
        dataParams = std::move(parts.dataParams);
    }

    platform::TextBuffer BuildCallXml() {
        platform::TextBuffer xml(512);
        if (functionGUID.empty()) functionGUID = CreateGUIDString(1);
        xml.Append("<function");
        AppendAttribute(xml, "name", functionName);
        AppendAttribute(xml, "guid", functionGUID);
        if (params.Count() == 0 && dataParams.empty()) {
            xml.Append("/>");
            return xml;
        }
        xml.Append('>');
        WriteItemsXml(xml, params, "param");
        for (const ZorbColumnDataItemsPtr& block : dataParams) {
            xml.Append("<param");
            AppendAttribute(xml, "name", block->Tag());
            xml.Append(block->Count() == 0 ? "/>" : ">");
            WriteItemsXml(xml, *block, "col");
            if (block->Count() > 0) xml.Append("</param>");
        }
        xml.Append("</function>");
        return xml;
    }
};

ZorbFunctionCall::ZorbFunctionCall() : impl_(std::make_unique<Impl>()) {}
ZorbFunctionCall::~ZorbFunctionCall() = default;

bool ZorbFunctionCall::Parse(std::string_view xml) {
    return Succeeds(impl_->errors, [&] {
        CallParts parts;  // aside: a text that does not load leaves the call as it was
        CallReader reader(parts);
        if (!platform::ReadXmlText(xml, reader)) Raise("Failed to load Xml Param.");
        impl_->Take(std::move(parts));
    });
}

bool ZorbFunctionCall::Save(std::string& xml) {
    return Succeeds(impl_->errors, [&] { xml = impl_->BuildCallXml().ToString(); });
}

bool ZorbFunctionCall::SaveToFile(std::string_view path) {
    return Succeeds(impl_->errors, [&] { SaveXmlFile(impl_->BuildCallXml(), path); });
}

bool ZorbFunctionCall::RaiseLastError() const {
    return impl_->errors.Raise();
}

std::string ZorbFunctionCall::GetLastError() const {
    return impl_->errors.GetErrorMsg();
}

void ZorbFunctionCall::Reset() {
    impl_->Reset();
}

std::string ZorbFunctionCall::FunctionName() const {
    return impl_->functionName;
}

void ZorbFunctionCall::FunctionName(std::string_view sFunctionName) {
    RequireXmlText(sFunctionName);
    impl_->functionName = sFunctionName;
}

std::string ZorbFunctionCall::FunctionGUID() const {
    return impl_->functionGUID;
}

void ZorbFunctionCall::FunctionGUID(std::string_view sFunctionGUID) {
    RequireXmlText(sFunctionGUID);
    impl_->functionGUID = sFunctionGUID;
}

std::int32_t ZorbFunctionCall::ParamCount() const {
    return impl_->params.Count();
}

std::int32_t ZorbFunctionCall::DataParamCount() const {
    return static_cast<std::int32_t>(impl_->dataParams.size());
}

std::int32_t ZorbFunctionCall::GetParamArray(std::string_view name, std::vector<std::string>& values) {
    return Guarded(impl_->errors, -1, [&] {
        const std::string wanted = platform::ToUpper(name);
        std::vector<std::string> found;
        for (const ZorbColumnDataItemPtr& item : impl_->params) {
            if (platform::ToUpper(item->Name) == wanted) found.push_back(item->Value);
        }
        if (found.empty()) return -1;
        values = std::move(found);
        return static_cast<std::int32_t>(values.size());
    });
}

bool ZorbFunctionCall::GetParamInfo(std::int32_t index, std::string& name, std::string& value,
                                    std::int32_t& type, std::string& extra) {
    return Succeeds(impl_->errors, [&] {
        const ZorbColumnDataItem& item = impl_->RequireParamAt(index);
        name = item.Name;
        GetItemFields(item, value, type, extra);
    });
}

bool ZorbFunctionCall::GetParamInfoByName(std::string_view name, std::string& value, std::int32_t& type,
                                          std::string& extra, std::int32_t startIndex) {
    return Guarded(impl_->errors, false, [&] {
        const ZorbColumnDataItem* const item = impl_->FindParamOrRecord(name, startIndex);
        if (item) GetItemFields(*item, value, type, extra);
        return item != nullptr;
    });
}

bool ZorbFunctionCall::SetParam(std::int32_t index, std::string_view value) {
    return Guarded(impl_->errors, false, [&] {
        if (index < 1 || index > ParamCount()) return false;
        RequireXmlText(value);
        impl_->params.Item(index)->Value = value;
        return true;
    });
}

std::int32_t ZorbFunctionCall::GetDataParamIndex(std::string_view name, std::int32_t startIndex) {
    return Guarded(impl_->errors, -1, [&] { return impl_->BlockIndex(name, startIndex); });
}

bool ZorbFunctionCall::GetSubParamInfo(std::int32_t dataIndex, std::int32_t subIndex, std::string& name,
                                       std::string& value, std::int32_t& type, std::string& extra) {
    return Succeeds(impl_->errors, [&] {
        const ZorbColumnDataItem& item = impl_->RequireSubParam(dataIndex, subIndex);
        name = item.Name;
        GetItemFields(item, value, type, extra);
    });
}

bool ZorbFunctionCall::GetSubParamInfoByName(std::int32_t dataIndex, std::string_view name,
                                             std::string& value, std::int32_t& type, std::string& extra,
                                             std::int32_t startIndex) {
    return Succeeds(impl_->errors, [&] {
        GetItemFields(impl_->RequireSubParamByName(dataIndex, name, startIndex), value, type, extra);
    });
}

std::int32_t ZorbFunctionCall::AddParam(std::string_view name, std::string_view value, std::int32_t type,
                                        std::string_view extra) {
    return Guarded(impl_->errors, -1,
                   [&] { return AppendParamItem(impl_->params, name, value, type, extra); });
}

std::int32_t ZorbFunctionCall::AddSubParam(std::int32_t dataIndex, std::string_view name,
                                           std::string_view value, std::int32_t type,
                                           std::string_view extra) {
    return Guarded(impl_->errors, -1, [&] {
        const ZorbColumnDataItemsPtr block = impl_->Block(dataIndex);
        if (!block) Raise(Concerning("Invalid data parameter index specified - ", std::to_string(dataIndex)));
        return AppendParamItem(*block, name, value, type, extra);
    });
}

std::int32_t ZorbFunctionCall::AddDataParam(std::string_view name) {
    return Guarded(impl_->errors, -1, [&] { return impl_->AddBlock(name); });
}

std::int32_t ZorbFunctionCall::AddDataParamXml(std::string_view name, std::string_view xml) {
    return Guarded(impl_->errors, -1, [&] {
        auto block = std::make_shared<ZorbColumnDataItems>();
        block->Tag(name);
        block->Parse(xml, "col");
        impl_->dataParams.push_back(std::move(block));
        return DataParamCount();
    });
}

std::int32_t ZorbFunctionCall::AddDataParamBlock(const ZorbColumnDataItems& block) {
    return Guarded(impl_->errors, -1, [&] {
        impl_->AddCopyOf(block);
        return DataParamCount();
    });
}

ZorbColumnDataItemsPtr ZorbFunctionCall::GetDataParam(std::int32_t index) {
    return Guarded(impl_->errors, nullptr, [&] { return impl_->Block(index); });
}

ZorbColumnDataItemsPtr ZorbFunctionCall::GetDataParamByName(std::string_view name, std::int32_t startIndex) {
    return Guarded(impl_->errors, nullptr, [&] { return impl_->Block(impl_->BlockIndex(name, startIndex)); });
}

bool ZorbFunctionCall::RemoveDataParam(std::int32_t index) {
    return Guarded(impl_->errors, false, [&] {
        if (!impl_->Block(index)) return false;
        impl_->dataParams.erase(impl_->dataParams.begin() + (index - 1));
        return true;
    });
}

std::string ZorbFunctionCall::GetParam(std::int32_t index) {
    return Guarded(impl_->errors, std::string(), [&] { return impl_->RequireParamAt(index).Value; });
}

std::string ZorbFunctionCall::GetSubParam(std::int32_t dataIndex, std::int32_t subIndex) {
    return Guarded(impl_->errors, std::string(),
                   [&] { return impl_->RequireSubParam(dataIndex, subIndex).Value; });
}

std::string ZorbFunctionCall::GetSubParamByName(std::int32_t dataIndex, std::string_view name) {
    return Guarded(impl_->errors, std::string(),
                   [&] { return impl_->RequireSubParamByName(dataIndex, name, 1).Value; });
}

std::string ZorbFunctionCall::GetParamByName(std::string_view name, std::int32_t startIndex) {
    return Guarded(impl_->errors, std::string(), [&] {
        const ZorbColumnDataItem* const item = impl_->FindParamOrRecord(name, startIndex);
        return item ? item->Value : std::string();
    });
}

bool ZorbFunctionCall::ExistParam(std::string_view name) {
    return Guarded(impl_->errors, false, [&] { return impl_->FindParamOrRecord(name, 1) != nullptr; });
}

const std::string& CallInside::Name(const ZorbFunctionCall& call) {
    return call.impl_->functionName;
}

const std::string& CallInside::Guid(const ZorbFunctionCall& call) {
    return call.impl_->functionGUID;
}

const ZorbColumnDataItems& CallInside::Params(const ZorbFunctionCall& call) {
    return call.impl_->params;
}

ZorbColumnDataItems& CallInside::Params(ZorbFunctionCall& call) {
    return call.impl_->params;
}

const ZorbColumnDataItem* CallInside::FindParam(const ZorbFunctionCall& call, std::string_view name) {
    return call.impl_->FindParam(name, 1);
}

std::string CallInside::ParamValue(const ZorbFunctionCall& call, std::string_view name) {
    const ZorbColumnDataItem* const item = FindParam(call, name);
    return item ? item->Value : std::string();
}

const std::vector<ZorbColumnDataItemsPtr>& CallInside::Blocks(const ZorbFunctionCall& call) {
    return call.impl_->dataParams;
}

ZorbColumnDataItemsPtr CallInside::FindBlock(const ZorbFunctionCall& call, std::string_view name) {
    return call.impl_->Block(call.impl_->BlockIndex(name, 1));
}

ZorbColumnDataItemsPtr CallInside::AddBlock(ZorbFunctionCall& call, const ZorbColumnDataItems& block) {
    return call.impl_->AddCopyOf(block);
}

}  // namespace halvtiv
