#include <halvtiv/function_result.hpp>

#include <utility>

#include <halvtiv/data_types.hpp>

#include "ado/recordset_state.hpp"
#include "documents/data_file.hpp"
#include "documents/item_xml.hpp"
#include "documents/recordset_rows.hpp"
#include "documents/result_content.hpp"
#include "documents/result_hand_over.hpp"
#include "foundation/err_object.hpp"
#include "foundation/guarded.hpp"
#include "foundation/this_utils.hpp"
#include "platform/number.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv {

namespace {

constexpr std::string_view kClass = "ZorbFunctionResult";

[[noreturn]] void Raise(std::string message) {
    throw OwnError(kClass, std::move(message));
}

ResultEntry NewEntry(std::string_view guid, QorvResultTypeEnum type, std::string_view dataFolder = {}) {
    RequireXmlText(guid);
    RequireXmlText(dataFolder);
    ResultEntry entry;
    entry.attributes.reserve(3);
    entry.attributes.emplace_back("guid", guid);
    entry.attributes.emplace_back("type", ResultTypeToName(type));
    if (!dataFolder.empty()) entry.attributes.emplace_back("datafolder", dataFolder);
    return entry;
}

/// Row 0 of an entry that is no table.
template <typename... Cells>
void AppendSingleRow(ResultEntry& entry, const Cells&... cells) {
    entry.content.Append("<row index=\"0\">");
    (AppendItem(entry.content, "col", cells, WriteExtra::WhenNotEmpty), ...);
    entry.content.Append("</row>");
}

}  // namespace

struct ZorbFunctionResult::Impl {
    std::unique_ptr<ResultContent> content = NewTextContent();
    std::shared_ptr<pugi::xml_document> document;  // under the content, once it has been handed out
    std::unique_ptr<ResultContent> snapshot;       // of the document, for look-ups while nobody else holds it
    int searches = 0;                              // of the document since the last snapshot was dropped
    clsZorbErrObject errors{kProductName, kClass};

    void Become(std::unique_ptr<ResultContent> other) {
        DropSnapshot();
        content = std::move(other);
        document.reset();
    }

    void BecomeTree() {
        DropSnapshot();
        if (document) return;
        std::shared_ptr<pugi::xml_document> tree = TreeOf(*content);
        content = NewTreeContent(tree);
        document = std::move(tree);
    }

    void DropSnapshot() noexcept {
        snapshot.reset();
        searches = 0;
    }

    /// The content, to be changed or written.
    ResultContent& Content() noexcept {
        DropSnapshot();
        return *content;
    }

    /// The content, for a look-up. A tree is searched each time as long as its holder may change it.
    const ResultContent& Searched() {
        constexpr long kOwnPointers = 2;  // the content has one, too
        constexpr int kPatience = 16;     // making the text takes as long as some searches
        if (!document || document.use_count() > kOwnPointers) return Content();
        if (++searches == kPatience) TakeSnapshot();
        return snapshot ? *snapshot : *content;
    }

    /// Takes none where the tree is not XML, or holds what no text keeps, such as white space alone.
    void TakeSnapshot() {
        std::string text, again;
        try {
            content->CopyTo(text);
        } catch (const ErrorInfo&) {
            return;
        }
        std::unique_ptr<ResultContent> parsed = ParseTextContent(text);
        if (!parsed) return;
        parsed->CopyTo(again);
        if (again == text) snapshot = std::move(parsed);
    }

    void AppendRecords(std::string_view guid, const ado::RecordsetPtr& recordset,
                       std::string_view dataFolder) {
        const std::string folder = AddPathSeparator(dataFolder);
        ResultEntry entry = NewEntry(guid, QORV_OUTPUT_DATA, folder);
        std::size_t complete = 0;
        try {
            ado::RecordsetState& state = ado::RecordsetState::Of(recordset);
            const RecordsetRows rows(state, folder, errors);
            entry.content = platform::TextBuffer(rows.UsualSize());
            rows.AppendHeader(entry.content);
            complete = entry.content.Size();
            for (std::int64_t index = 1; !state.AtEnd(); ++index) {
                state.ReadRow([&](ado::RowSource& row) { rows.AppendRow(entry.content, row, index); });
                complete = entry.content.Size();
                state.MoveNext();
            }
        } catch (...) {  // what came before the failure stays
            entry.content.CutTo(complete);
            Content().AppendEntry(std::move(entry));
            throw;
        }
        Content().AppendEntry(std::move(entry));
    }

    void ReplaceByError(std::string_view guid, std::int32_t number, std::string_view description,
                        std::string_view source, KeyMeans means) {
        ResultEntry entry = NewEntry(guid, QORV_OUTPUT_ERROR);
        AppendSingleRow(entry, ZorbColumnDataItem{"number", std::to_string(number), QORV_COLUMN_DATA, {}},
                        ZorbColumnDataItem{"description", std::string(description), QORV_COLUMN_DATA, {}},
                        ZorbColumnDataItem{"source", std::string(source), QORV_COLUMN_DATA, {}});
        Content().RemoveEntries(guid, means);
        Content().AppendEntry(std::move(entry));
    }

    /// Appends an entry that names a file. write(entry, folder) makes the file; where it fails, the entry
    /// stays without a name.
    template <typename Write>
    void AppendFile(std::string_view guid, std::string_view fileName, std::string_view dataFolder,
                    Write&& write) {
        const std::string folder = AddPathSeparator(dataFolder);
        ResultEntry entry = NewEntry(guid, QORV_OUTPUT_FILE, folder);
        ResultEntry named =
            NewEntry(guid, QORV_OUTPUT_FILE,
                     folder);  // first: a name that no document can carry leaves no file behind
        AppendSingleRow(named, ZorbColumnDataItem{"file", std::string(fileName), QORV_COLUMN_FILE, {}});
        try {
            write(std::as_const(entry), folder);
        } catch (...) {
            Content().AppendEntry(std::move(entry));
            throw;
        }
        Content().AppendEntry(std::move(named));
    }
};

ZorbFunctionResult::ZorbFunctionResult() : impl_(std::make_unique<Impl>()) {}
ZorbFunctionResult::~ZorbFunctionResult() = default;

std::shared_ptr<pugi::xml_document> ZorbFunctionResult::ResultXMLDOMDoc() {
    impl_->BecomeTree();
    return impl_->document;
}

std::string ZorbFunctionResult::ResultGUID() const {
    return impl_->content->RootAttribute("guid");
}

void ZorbFunctionResult::ResultGUID(std::string_view sResultGUID) {
    RequireXmlText(sResultGUID);
    impl_->Content().SetRootAttribute("guid", sResultGUID);
}

std::string ZorbFunctionResult::ResultName() const {
    return impl_->content->RootAttribute("name");
}

void ZorbFunctionResult::ResultName(std::string_view sResultName) {
    RequireXmlText(sResultName);
    impl_->Content().SetRootAttribute("name", sResultName);
}

void ZorbFunctionResult::Reset() {
    impl_->Become(NewTextContent());
    impl_->errors.Clear();
}

std::int32_t ZorbFunctionResult::GetResultType(std::string_view guid) {
    return Guarded(impl_->errors, static_cast<std::int32_t>(QORV_OUTPUT_UNKNOWN), [&] {
        const std::optional<std::string> type = impl_->Searched().EntryType(guid);
        return type ? ResultTypeFromName(*type) : static_cast<std::int32_t>(QORV_OUTPUT_UNKNOWN);
    });
}

void ZorbFunctionResult::RaiseResultError(std::string_view guid) {
    std::string number, description, source;
    if (GetResultType(guid) == QORV_OUTPUT_ERROR) {
        if (const ZorbColumnDataItemsPtr row = GetResultDataItem(guid, 0)) {
            number = row->GetItemValueByName("number");
            source = row->GetItemValueByName("source");
            description = row->GetItemValueByName("description");
        }
    }
    // Converted before anything is tested: a key without an error raises 13.
    const std::int32_t errorNumber = platform::TextToInt32(number);
    if (description.empty() && errorNumber == 0 && source.empty()) return;
    throw ErrorInfo(errorNumber, description, source);
}

std::int32_t ZorbFunctionResult::GetResultDataCount(std::string_view guid) {
    return Guarded(impl_->errors, -1, [&] {
        const std::optional<std::string> index = impl_->Searched().LastRowIndex(guid);
        if (!index) Raise("Specified data not found - " + std::string(guid) + ".");
        return platform::TextToInt32(*index);
    });
}

ZorbColumnDataItemsPtr ZorbFunctionResult::GetResultDataItem(std::string_view guid, std::int32_t index) {
    return Guarded(impl_->errors, ZorbColumnDataItemsPtr(), [&] {
        const std::optional<std::string> row = impl_->Searched().RowXml(guid, index);
        if (!row) return ZorbColumnDataItemsPtr();
        auto items = std::make_shared<ZorbColumnDataItems>();
        items->Parse(*row, "col");
        return items;
    });
}

std::string ZorbFunctionResult::GetResultDataItemXml(std::string_view guid, std::int32_t index) {
    return Guarded(impl_->errors, std::string(),
                   [&] { return impl_->Searched().RowXml(guid, index).value_or(std::string()); });
}

std::string ZorbFunctionResult::GetResultDataXml(std::string_view guid) {
    return Guarded(impl_->errors, std::string(), [&] {
        std::optional<std::string> entry = impl_->Searched().EntryXml(guid);
        if (!entry) Raise("Specified data not found.");
        return std::move(*entry);
    });
}

bool ZorbFunctionResult::ChangeResultDataGUID(std::string_view oldGuid, std::string_view newGuid) {
    return Succeeds(impl_->errors, [&] {
        RequireXmlText(newGuid);
        if (!impl_->Content().RenameEntry(oldGuid, newGuid, KeyMeans::ExpressionOrText))
            Raise("Specified data not found.");
    });
}

bool ResultHandOver::ChangeKey(ZorbFunctionResult& result, std::string_view oldGuid,
                               std::string_view newGuid) {
    return Succeeds(result.impl_->errors, [&] {
        if (!result.impl_->Content().RenameEntry(oldGuid, newGuid, KeyMeans::Text))
            Raise("Specified data not found.");
    });
}

bool ZorbFunctionResult::AddFunctionResult_Error(std::string_view guid, std::int32_t number,
                                                 std::string_view description, std::string_view source) {
    return Succeeds(impl_->errors, [&] {
        impl_->ReplaceByError(guid, number, description, source, KeyMeans::ExpressionOrText);
    });
}

bool ResultHandOver::AddError(ZorbFunctionResult& result, std::string_view guid, std::int32_t number,
                              std::string_view description, std::string_view source) {
    return Succeeds(result.impl_->errors,
                    [&] { result.impl_->ReplaceByError(guid, number, description, source, KeyMeans::Text); });
}

bool ZorbFunctionResult::AddFunctionResult_Info(std::string_view guid, std::int32_t returnValue) {
    return Succeeds(impl_->errors, [&] {
        ResultEntry entry = NewEntry(guid, QORV_OUTPUT_INFO);
        AppendSingleRow(entry,
                        ZorbColumnDataItem{"return", std::to_string(returnValue), QORV_COLUMN_DATA, {}});
        impl_->Content().AppendEntry(std::move(entry));
    });
}

bool ZorbFunctionResult::AddFunctionResult_Data(std::string_view guid, ado::RecordsetPtr& recordset,
                                                std::string_view dataFolder) {
    // A cell's file that could not be written is recorded, too, although this succeeds.
    return Succeeds(impl_->errors, [&] { impl_->AppendRecords(guid, recordset, dataFolder); });
}

bool ZorbFunctionResult::AddFunctionResult_DataFile(std::string_view guid, ado::RecordsetPtr& recordset,
                                                    std::string_view fileName, std::string_view dataFolder) {
    return Succeeds(impl_->errors, [&] {
        impl_->AppendFile(
            guid, fileName, dataFolder, [&](const ResultEntry& entry, const std::string& folder) {
                WriteDataFile(fileName, entry, ado::RecordsetState::Of(recordset), folder, impl_->errors);
            });
    });
}

bool ZorbFunctionResult::AddFunctionResult_ExportFile(std::string_view guid, ado::RecordsetPtr& recordset,
                                                      const IZorbDataExporterPtr& exporter,
                                                      std::string_view fileName,
                                                      std::string_view exportOption,
                                                      std::string_view dataFolder) {
    return Succeeds(impl_->errors, [&] {
        impl_->AppendFile(guid, fileName, dataFolder,
                          [&](const ResultEntry& /*entry*/, const std::string& folder) {
                              if (!exporter) {
                                  platform::RaiseRunTimeError(platform::RunTimeError::ObjectNotSet);
                              }
                              std::string file(fileName);
                              std::string table(exportOption);
                              if (exporter->ExportData(recordset, file, table, folder) >= 0) return;
                              exporter->RaiseLastError();
                              // It has failed, even though it does not raise why.
                              std::string words = exporter->GetLastError();
                              Raise(words.empty() ? "Export failed." : std::move(words));
                          });
    });
}

bool ZorbFunctionResult::Save(std::string& xml) {
    xml.clear();
    return Succeeds(
        impl_->errors, [&] { impl_->Content().CopyTo(xml); }, [&] { xml.clear(); });
}

bool ResultHandOver::Save(ZorbFunctionResult& result, std::string& xml) {
    xml.clear();
    return Succeeds(
        result.impl_->errors, [&] { result.impl_->Content().MoveTo(xml); }, [&] { xml.clear(); });
}

bool ZorbFunctionResult::SaveToFile(std::string_view path) {
    return Succeeds(impl_->errors, [&] { SaveXmlFile(impl_->Content().ToText(), path); });
}

bool ZorbFunctionResult::MergeResult(ZorbFunctionResult& other) {
    return Succeeds(impl_->errors,
                    [&] { impl_->Content().AppendEntries(other.impl_->Content().CopyEntries()); });
}

bool ResultHandOver::Merge(ZorbFunctionResult& result, ZorbFunctionResult& other) {
    return Succeeds(result.impl_->errors,
                    [&] { result.impl_->Content().AppendEntries(other.impl_->Content().TakeEntries()); });
}

bool ZorbFunctionResult::Parse(std::string_view xml) {
    return Succeeds(
        impl_->errors,
        [&] {
            impl_->Become(NewTextContent());
            std::unique_ptr<ResultContent> parsed = ParseTextContent(xml);
            if (!parsed) Raise("Failed to load Xml Param.");
            impl_->Become(std::move(parsed));
        },
        [&] { impl_->Become(NewTextContent()); });
}

bool ZorbFunctionResult::RaiseLastError() const {
    return impl_->errors.Raise();
}

std::string ZorbFunctionResult::GetLastError() const {
    return impl_->errors.GetErrorMsg();
}

}  // namespace halvtiv
