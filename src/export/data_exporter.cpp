#include <halvtiv/data_exporter.hpp>

namespace halvtiv {

IProgressUpdater::~IProgressUpdater() = default;
void IProgressUpdater::UpdateProgress(std::int64_t /*done*/, std::int64_t /*total*/) {}

IZorbDataExporter::~IZorbDataExporter() = default;
std::string IZorbDataExporter::GetLastError() {
    return {};
}
void IZorbDataExporter::RaiseLastError() {}
std::string IZorbDataExporter::ExportTypeString() {
    return {};
}
void IZorbDataExporter::DataCount(std::int32_t /*count*/) {}
bool IZorbDataExporter::ClearTableBeforeExport() {
    return false;
}
void IZorbDataExporter::ClearTableBeforeExport(bool /*clear*/) {}
void IZorbDataExporter::GetExporterInfo(std::string& /*sFileTypeString*/,
                                        std::string& /*sFileExtensionName*/) {}
bool IZorbDataExporter::MatchExportType(std::string_view /*sExportTypeString*/) {
    return false;
}
// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface says so
void IZorbDataExporter::SetProgressUpdater(IProgressUpdaterPtr /*cProgUpdater*/) {}
// NOLINTBEGIN(performance-unnecessary-value-param): likewise
std::int32_t IZorbDataExporter::ExportData(ado::RecordsetPtr& /*rsSrc*/, std::string& /*sFilename*/,
                                           std::string& /*sTableName*/, std::string /*sDataFolder*/) {
    return 0;
}
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace halvtiv
