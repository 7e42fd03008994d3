#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <halvtiv/data_exporter.hpp>
#include <halvtiv/error_info.hpp>

#include "source_columns.hpp"

namespace halvtiv::exporters {

/// What an exporter is called and goes by.
struct Format {
    std::string_view description;  ///< for file dialogs
    std::span<const std::string_view>
        types;  ///< export types, lower-case, also extensions; the first is the main one
};

/// One export.
struct ExportTask {
    ado::Recordset& rows;
    std::vector<SourceColumn> columns;
    std::string fileName;
    std::string tableName;   ///< may be empty
    std::string dataFolder;  ///< empty, or ending in a separator
    bool clearTable;
    std::int64_t expectedRows;  ///< -1 when unknown
};

/// Writes a non-null binary value to the data folder and returns the file's name; returns "(skipped)" without
/// a folder. `row` counts from 1. Raises 75 for a name that leads out
/// of the folder or to a file of the database that the rows come from.
std::string BinaryCell(const ExportTask& task, const SourceColumn& column, std::int64_t row);

/// What all exporters share: they differ in how a task is written.
class ExporterBase : public IZorbDataExporter {
public:
    explicit ExporterBase(Format format) : format_(format) {}

    std::string GetLastError() final;
    void RaiseLastError() final;
    std::string ExportTypeString() final;
    void DataCount(std::int32_t count) final { expectedRows_ = count; }
    bool ClearTableBeforeExport() final { return clearTable_; }
    void ClearTableBeforeExport(bool clear) final { clearTable_ = clear; }
    void GetExporterInfo(std::string& sFileTypeString, std::string& sFileExtensionName) final;
    bool MatchExportType(std::string_view sExportTypeString) final;
    void SetProgressUpdater(IProgressUpdaterPtr cProgUpdater) final;
    std::int32_t ExportData(ado::RecordsetPtr& rsSrc, std::string& sFilename, std::string& sTableName,
                            std::string sDataFolder) final;

protected:
    /// Writes the file from the current record on; answers the number of rows and raises what fails.
    virtual std::int64_t Write(ExportTask& task) = 0;

    /// Calls writeRow(number) for each record, numbers from 1, reporting the progress; answers their number.
    template <typename WriteRow>
    std::int64_t ForEachRow(const ExportTask& task, WriteRow&& writeRow) {
        std::int64_t row = 0;
        for (; !task.rows.IsEOF(); task.rows.MoveNext()) {
            writeRow(++row);
            if (row % kRowsPerReport == 0) Report(row, task);
        }
        Report(row, task);
        return row;
    }

private:
    static constexpr std::int64_t kRowsPerReport = 5000;
    void Report(std::int64_t row, const ExportTask& task);

    Format format_;
    std::optional<ErrorInfo> lastError_;
    IProgressUpdaterPtr updater_;
    std::int64_t expectedRows_ = -1;
    bool clearTable_ = false;
};

}  // namespace halvtiv::exporters
