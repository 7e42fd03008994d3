#include "export/data_exporter_mgr.hpp"

#include <utility>

#include "foundation/guarded.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

[[noreturn]] void Raise(std::string message) {
    throw OwnError("clsZorbDataExporterMgr", std::move(message));
}

/// The list as it is now: an exporter may add others while it is asked.
std::vector<IZorbDataExporterPtr> Listed(const std::vector<IZorbDataExporterPtr>& exporters) {
    return exporters;
}

}  // namespace

bool clsZorbDataExporterMgr::AddDataExporter(const IZorbDataExporterPtr& exporter) {
    return Succeeds(errors_, [&] {
        if (!exporter) Raise("No exporter specified.");
        exporters_.push_back(exporter);
    });
}

IZorbDataExporterPtr clsZorbDataExporterMgr::GetDataExporterByTypeString(std::string_view exportType) {
    return Guarded(errors_, IZorbDataExporterPtr(), [&] {
        for (const IZorbDataExporterPtr& exporter : Listed(exporters_)) {
            if (exporter->MatchExportType(exportType)) return exporter;
        }
        return IZorbDataExporterPtr();
    });
}

IZorbDataExporterPtr clsZorbDataExporterMgr::GetDataExporter(std::int32_t index) {
    return Guarded(errors_, IZorbDataExporterPtr(), [&] {
        if (index < 1 || index > DataExporterCount()) Raise("Invalid index specified.");
        return exporters_[static_cast<std::size_t>(index) - 1];
    });
}

std::string clsZorbDataExporterMgr::GetFileFilterString() {
    return Guarded(errors_, std::string(), [&] {
        std::string filter;
        bool isFirst = true;
        for (const IZorbDataExporterPtr& exporter : Listed(exporters_)) {
            std::string type, extension;
            exporter->GetExporterInfo(type, extension);
            if (!std::exchange(isFirst, false)) filter += '|';
            filter += type + "(*." + platform::ToUpper(extension) + ")|*." + extension;
        }
        return filter;
    });
}

}  // namespace halvtiv
