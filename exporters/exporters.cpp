#include <halvtiv_exporters/exporters.hpp>

namespace halvtiv::exporters {

std::vector<IZorbDataExporterPtr> AllExporters() {
    return {NewCsvExporter(), NewTsvExporter(), NewXlsxExporter(), NewJsonLinesExporter(),
            NewSqliteExporter()};
}

IZorbDataExporterPtr ExporterForFile(std::string_view fileName) {
    const std::string_view name = fileName.substr(fileName.find_last_of("/\\") + 1);
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos) return nullptr;
    for (const IZorbDataExporterPtr& exporter : AllExporters()) {
        if (exporter->MatchExportType(name.substr(dot + 1))) return exporter;
    }
    return nullptr;
}

void AddAllExporters(ZorbDbAccessEngine& engine) {
    for (const IZorbDataExporterPtr& exporter : AllExporters()) {
        if (!engine.AddDataExporter(exporter)) engine.RaiseLastError();
    }
}

}  // namespace halvtiv::exporters
