#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <pugixml.hpp>

#include <halvtiv/ado.hpp>
#include <halvtiv/column_data_items.hpp>
#include <halvtiv/data_exporter.hpp>
#include <halvtiv/export.hpp>

namespace halvtiv {

/// What a call produced: a list of entries, each under a key (GUID text). An entry is a table of rows, a
/// reference to a file, an error or a return value. Keys need not be unique: look-ups take the first.
///
/// The document is kept as text and becomes a tree only when `ResultXMLDOMDoc` asks for one. A look-up by
/// key, and reading a row, costs the same however many there are. A tree may be changed by its holder at any
/// time, so each look-up searches it as long as the pointer is held.
///
/// A key with an apostrophe is no plain text but a part of the expression `/*/data[@guid='KEY']`: the first
/// entry that it selects is found. Raised as the last error are -2147467259 for a key that breaks the
/// expression ("it's"), and -1 "Key is an expression that ..." for one that could take too long. A key may
/// read attributes of its entry and the elements inside by child steps; `..`, `//`, absolute paths, other
/// axes, a closed predicate, `@*`, `translate`, `lang`, `id` and `processing-instruction` are refused, and so
/// is a key whose length times the bytes that it reads of each entry (to the power of the paths that lead
/// into the entry) is above 10^10.
///
/// Every member from `GetResultType` on, but for `RaiseResultError` and the two error members, clears
/// the last error, lets no exception out and, when it fails, keeps the reason for `GetLastError` and
/// returns false, -1, "" or null. One object is used by one thread at a time.
class HALVTIV_API ZorbFunctionResult {
public:
    ZorbFunctionResult();
    ~ZorbFunctionResult();
    ZorbFunctionResult(const ZorbFunctionResult&) = delete;
    ZorbFunctionResult& operator=(const ZorbFunctionResult&) = delete;

    /// The live document: changes through it are changes of the result. Hold the pointer while you change
    /// nodes: while nobody holds it, look-ups may answer from a copy, which `Save`, this member and every
    /// change of the result drop. `Reset` and `Parse` make a new document and leave this one to its holder.
    /// Costs a tree of the whole result: many times its text.
    std::shared_ptr<pugi::xml_document> ResultXMLDOMDoc();

    /// The root's "guid"; "" when it has none. Writing raises 5 for a text that XML cannot carry.
    std::string ResultGUID() const;
    void ResultGUID(std::string_view sResultGUID);
    /// The root's "name", likewise.
    std::string ResultName() const;
    void ResultName(std::string_view sResultName);
    /// Makes the result an empty document and clears the last error.
    void Reset();

    /// `QorvResultTypeEnum` of an entry; -1, without an error, when there is none under that key.
    std::int32_t GetResultType(std::string_view guid);
    /// Raises the error that an error entry holds, with the number of the entry, 0 included; nothing for an
    /// entry without number, description and source. Raises 13 "Type mismatch." for any other key: ask
    /// `GetResultType` first. What it raises is not kept as the last error.
    void RaiseResultError(std::string_view guid);
    /// Number of records of an entry; 0 for errors, files and return values. "Specified data not found -
    /// GUID."
    std::int32_t GetResultDataCount(std::string_view guid);
    /// One row of an entry, 0 being the header; null, without an error, when there is no such row.
    ZorbColumnDataItemsPtr GetResultDataItem(std::string_view guid, std::int32_t index);
    /// The same as XML text; "" when there is no such row.
    std::string GetResultDataItemXml(std::string_view guid, std::int32_t index);
    /// A whole entry as XML text. "Specified data not found."
    std::string GetResultDataXml(std::string_view guid);
    /// Gives the first entry under oldGuid another key. "Specified data not found."
    bool ChangeResultDataGUID(std::string_view oldGuid, std::string_view newGuid);

    /// Replaces all entries under the key by one error entry.
    bool AddFunctionResult_Error(std::string_view guid, std::int32_t number, std::string_view description,
                                 std::string_view source);
    /// Appends an entry that holds a return value.
    bool AddFunctionResult_Info(std::string_view guid, std::int32_t returnValue);
    /// Appends the records from the recordset's current one to its end, which leaves it at its end.
    /// Binary and long columns go to files in dataFolder, or are skipped when it is empty; a cell whose
    /// file could not be written says so by its type "error" and the last error, and the rest goes on.
    /// A file is named after its column and its row's number ("photo.000001") and replaces an earlier one:
    /// give columns names that differ within a row, and among the entries that share a folder. 91 for no
    /// recordset.
    bool AddFunctionResult_Data(std::string_view guid, ado::RecordsetPtr& recordset,
                                std::string_view dataFolder);
    /// Writes the same records to an XML file of their own, in constant memory, and appends an entry that
    /// names it. The file's root is the "data" element with header and rows. It appears under its name only
    /// when it is complete; run-time errors 53, 57, 61, 70, 75 or 76 say why it could not be written, and
    /// what stays of a failure is the entry without a file name.
    bool AddFunctionResult_DataFile(std::string_view guid, ado::RecordsetPtr& recordset,
                                    std::string_view fileName, std::string_view dataFolder);
    /// Has an exporter write the records, and appends an entry that names the file. exportOption is what the
    /// exporter gets as its table name. When it answers a negative number, the error that its
    /// `RaiseLastError` raises becomes the last error and the entry stays without a file name. 91 for no
    /// exporter; no recordset is the exporter's to refuse.
    bool AddFunctionResult_ExportFile(std::string_view guid, ado::RecordsetPtr& recordset,
                                      const IZorbDataExporterPtr& exporter, std::string_view fileName,
                                      std::string_view exportOption, std::string_view dataFolder);

    /// Writes the document as XML text.
    bool Save(std::string& xml);
    /// `Save` to a file (UTF-8), which appears under its name only when it is complete.
    bool SaveToFile(std::string_view path);
    /// Appends copies of all entries of another result, which stays as it is. Keys are not compared: where
    /// both have one, look-ups find the earlier entry. Merging a result with itself doubles its entries.
    bool MergeResult(ZorbFunctionResult& other);
    /// Replaces the document by an XML text. "Failed to load Xml Param."
    bool Parse(std::string_view xml);

    /// Raises the last error again; false when there is none.
    bool RaiseLastError() const;
    /// The last error as text with its number; "" when there is none.
    std::string GetLastError() const;

private:
    friend struct ResultHandOver;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
using ZorbFunctionResultPtr = std::shared_ptr<ZorbFunctionResult>;

}  // namespace halvtiv
