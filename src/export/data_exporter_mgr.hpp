#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <halvtiv/data_exporter.hpp>

#include "foundation/err_object.hpp"

namespace halvtiv {

/// The exporters of one engine, in the order in which they were added; positions count from 1.
///
/// Guarded as all classes, but for `DataExporterCount` and `Reset`.
class clsZorbDataExporterMgr {
public:
    std::int32_t DataExporterCount() const { return static_cast<std::int32_t>(exporters_.size()); }
    /// Empties the list; the last error stays.
    void Reset() { exporters_.clear(); }

    /// Appends an exporter; the same one may stand in the list twice. "No exporter specified."
    bool AddDataExporter(const IZorbDataExporterPtr& exporter);
    /// The first exporter that handles an export type; null, without an error, when none does.
    IZorbDataExporterPtr GetDataExporterByTypeString(std::string_view exportType);
    /// "Invalid index specified."
    IZorbDataExporterPtr GetDataExporter(std::int32_t index);
    /// The filter of a file dialog, "TYPE(*.EXT)|*.ext" an exporter; "" when one of them fails.
    std::string GetFileFilterString();

    bool RaiseLastError() const { return errors_.Raise(); }
    std::string GetLastError() const { return errors_.GetErrorMsg(); }

private:
    std::vector<IZorbDataExporterPtr> exporters_;
    clsZorbErrObject errors_{kProductName, "clsDataExpMgr"};
};

}  // namespace halvtiv
