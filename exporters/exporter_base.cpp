#include "exporter_base.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include <halvtiv/data_types.hpp>
#include <halvtiv/output_file.hpp>

#include "errors.hpp"

namespace halvtiv::exporters {

std::string BinaryCell(const ExportTask& task, const SourceColumn& column, std::int64_t row) {
    constexpr std::size_t kDigits = 6;
    constexpr std::int64_t kPiece = std::int64_t{64} * 1024;
    if (task.dataFolder.empty()) return "(skipped)";
    std::string number = std::to_string(row);
    if (number.size() < kDigits) number.insert(0, kDigits - number.size(), '0');
    std::string name = column.name + "." + number;
    if (name.find_first_of(std::string_view("/\\\0", 3)) != std::string::npos) RaisePathAccess(name);
    const std::string path = task.dataFolder + name;
    task.rows.RequireOtherFile(path);
    OutputFile file(path);
    for (;;) {
        const ado::Bytes piece = column.field->GetChunk(kPiece);
        if (piece.empty()) break;
        file.Write({reinterpret_cast<const char*>(piece.data()), piece.size()});
    }
    file.Commit();
    return name;
}

std::string ExporterBase::GetLastError() {
    if (!lastError_) return {};
    return lastError_->Description + "(ERR#: " + std::to_string(lastError_->Number) + ")";
}

void ExporterBase::RaiseLastError() {
    if (lastError_) throw ErrorInfo(*lastError_);
}

std::string ExporterBase::ExportTypeString() {
    return std::string(format_.types.front());
}

void ExporterBase::GetExporterInfo(std::string& sFileTypeString, std::string& sFileExtensionName) {
    sFileTypeString = format_.description;
    sFileExtensionName = format_.types.front();
}

bool ExporterBase::MatchExportType(std::string_view sExportTypeString) {
    const std::string wanted = AsciiLower(sExportTypeString);
    return std::find(format_.types.begin(), format_.types.end(), wanted) != format_.types.end();
}

void ExporterBase::SetProgressUpdater(IProgressUpdaterPtr cProgUpdater) {
    updater_ = std::move(cProgUpdater);
}

std::int32_t ExporterBase::ExportData(ado::RecordsetPtr& rsSrc, std::string& sFilename,
                                      std::string& sTableName, std::string sDataFolder) {
    lastError_.reset();
    const std::int64_t expected = std::exchange(expectedRows_, -1);
    try {
        // Stays, whatever an updater does with the caller's.
        const ado::RecordsetPtr rows = rsSrc;  // NOLINT(performance-unnecessary-copy-initialization)
        if (!rows) {
            Raise(ErrorNumber::ObjectNotSet, "Object variable or With block variable not set.");
        }
        ExportTask task{*rows,       ColumnsOf(*rows), sFilename, sTableName, AddPathSeparator(sDataFolder),
                        clearTable_, expected};
        return static_cast<std::int32_t>(
            std::min<std::int64_t>(Write(task), std::numeric_limits<std::int32_t>::max()));
    } catch (...) {
        lastError_ = CurrentError();
    }
    return -1;
}

void ExporterBase::Report(std::int64_t row, const ExportTask& task) {
    const IProgressUpdaterPtr updater = updater_;  // it may set another
    if (updater) updater->UpdateProgress(row, task.expectedRows);
}

}  // namespace halvtiv::exporters
