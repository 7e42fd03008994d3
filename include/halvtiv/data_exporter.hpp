#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <halvtiv/ado.hpp>
#include <halvtiv/export.hpp>

namespace halvtiv {

/// What an exporter, or an engine that copies a long value, reports its progress to.
class HALVTIV_API IProgressUpdater {
public:
    virtual ~IProgressUpdater();
    /// How much is done and how much there is in all, -1 when unknown: rows of an exporter, bytes of a value
    /// that an engine copies from or to a file. Called on the thread that does the work.
    virtual void UpdateProgress(std::int64_t done, std::int64_t total);
};
using IProgressUpdaterPtr = std::shared_ptr<IProgressUpdater>;

/// What a client implements to write query results in a format of its own, and registers with
/// `ZorbDbAccessEngine::AddDataExporter`.
///
/// Every member does nothing by default. The engine calls them on the thread that runs the request; an
/// exception that leaves one becomes the request's error.
class HALVTIV_API IZorbDataExporter {
public:
    virtual ~IZorbDataExporter();

    /// The exporter's last error as text; "" when there is none.
    virtual std::string GetLastError();
    /// Raises the exporter's last error: called after `ExportData` answered a negative number.
    virtual void RaiseLastError();
    /// The export type that this exporter handles.
    virtual std::string ExportTypeString();
    /// The number of rows about to be exported; -1 when unknown.
    virtual void DataCount(std::int32_t count);
    /// Whether the target table is emptied before rows are written.
    virtual bool ClearTableBeforeExport();
    /// Sets that, before each export.
    virtual void ClearTableBeforeExport(bool clear);
    /// Fills a description of the file type and the file extension without a dot.
    virtual void GetExporterInfo(std::string& sFileTypeString, std::string& sFileExtensionName);
    /// Whether this exporter handles an export type. The first registered one that does is used.
    virtual bool MatchExportType(std::string_view sExportTypeString);
    /// Hands over the object to report progress to.
    virtual void SetProgressUpdater(IProgressUpdaterPtr cProgUpdater);
    /// Writes the records of rsSrc to a file, into the table or sheet sTableName; sDataFolder is a working
    /// folder and may be empty. rsSrc may be null. A negative answer means failure.
    virtual std::int32_t ExportData(ado::RecordsetPtr& rsSrc, std::string& sFilename, std::string& sTableName,
                                    std::string sDataFolder = {});
};
using IZorbDataExporterPtr = std::shared_ptr<IZorbDataExporter>;

}  // namespace halvtiv
