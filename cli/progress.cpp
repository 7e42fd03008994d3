#include "progress.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <halvtiv_exporters/exporters.hpp>
#include <iostream>
#include <utility>

#include "platform/streams.hpp"

namespace halvtiv::cli {
namespace {

constexpr double kMiB = 1024.0 * 1024.0;
constexpr std::int64_t kLargeFile = std::int64_t{8} << 20;
constexpr std::string_view kEraseLine = "\r\x1b[K";

/// "1,234,567"
std::string Grouped(std::int64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t place = digits.size(); place > 3;) {
        place -= 3;
        digits.insert(place, ",");
    }
    return digits;
}

std::string Amount(double amount, Unit unit) {
    if (unit == Unit::Rows) return Grouped(std::llround(amount)) + " rows";
    char text[64];
    std::snprintf(text, sizeof text, "%.1f MiB", amount / kMiB);
    return text;
}

/// "1:05", "2:00:00"
std::string TimeText(double seconds) {
    constexpr double kLongest = 359999;  // 99:59:59
    const auto all = static_cast<int>(std::ceil(std::min(seconds, kLongest)));
    char text[64];
    if (all >= 3600) {
        std::snprintf(text, sizeof text, "%d:%02d:%02d", all / 3600, all / 60 % 60, all % 60);
    } else {
        std::snprintf(text, sizeof text, "%d:%02d", all / 60, all % 60);
    }
    return text;
}

std::string Bar(double share) {
    constexpr int kWidth = 20;
    const auto filled = static_cast<std::size_t>(share * kWidth);
    char percent[16];
    std::snprintf(percent, sizeof percent, "%3d %%", static_cast<int>(share * 100));
    return '[' + std::string(filled, '#') + std::string(kWidth - filled, '.') + "] " + percent + "  ";
}

/// Shows an exporter's rows.
class RowsUpdater final : public IProgressUpdater {
public:
    explicit RowsUpdater(std::shared_ptr<ProgressLine> line) : line_(std::move(line)) {}
    void UpdateProgress(std::int64_t done, std::int64_t total) override {
        line_->Show(done, total, Unit::Rows);
    }

private:
    std::shared_ptr<ProgressLine> line_;
};

/// Shows the bytes of large files.
class BytesUpdater final : public IProgressUpdater {
public:
    explicit BytesUpdater(std::shared_ptr<ProgressLine> line) : line_(std::move(line)) {}
    void UpdateProgress(std::int64_t done, std::int64_t total) override {
        if (total > kLargeFile) line_->Show(done, total, Unit::Bytes);
    }

private:
    std::shared_ptr<ProgressLine> line_;
};

/// An exporter that keeps its own updater, which counts rows, when the engine hands it the one for bytes.
class CommandExporter final : public IZorbDataExporter {
public:
    CommandExporter(IZorbDataExporterPtr exporter, const IProgressUpdaterPtr& updater)
        : exporter_(std::move(exporter)) {
        exporter_->SetProgressUpdater(updater);
    }

    std::string GetLastError() override { return exporter_->GetLastError(); }
    void RaiseLastError() override { exporter_->RaiseLastError(); }
    std::string ExportTypeString() override { return exporter_->ExportTypeString(); }
    void DataCount(std::int32_t count) override { exporter_->DataCount(count); }
    bool ClearTableBeforeExport() override { return exporter_->ClearTableBeforeExport(); }
    void ClearTableBeforeExport(bool clear) override { exporter_->ClearTableBeforeExport(clear); }
    void GetExporterInfo(std::string& sFileTypeString, std::string& sFileExtensionName) override {
        exporter_->GetExporterInfo(sFileTypeString, sFileExtensionName);
    }
    bool MatchExportType(std::string_view sExportTypeString) override {
        return exporter_->MatchExportType(sExportTypeString);
    }
    std::int32_t ExportData(ado::RecordsetPtr& rsSrc, std::string& sFilename, std::string& sTableName,
                            std::string sDataFolder) override {
        return exporter_->ExportData(rsSrc, sFilename, sTableName, std::move(sDataFolder));
    }

private:
    IZorbDataExporterPtr exporter_;
};

}  // namespace

std::string ProgressText(std::int64_t done, std::int64_t total, Unit unit,
                         std::chrono::duration<double> elapsed) {
    const bool isTotalKnown = total > 0 && done <= total;  // a count may be out of date
    const auto amount = static_cast<double>(done);
    std::string text = isTotalKnown ? Bar(amount / static_cast<double>(total)) : "";
    text += Amount(amount, unit);
    const double seconds = elapsed.count();
    if (done <= 0 || seconds <= 0) return text;
    const double rate = amount / seconds;
    text += "  " + Amount(rate, unit) + "/s";
    if (isTotalKnown) text += "  " + TimeText(static_cast<double>(total - done) / rate) + " left";
    return text;
}

ProgressLine::ProgressLine() : isOnTerminal_(platform::ErrorsAreOnTerminal()) {}

void ProgressLine::Show(std::int64_t done, std::int64_t total, Unit unit) {
    constexpr auto kInterval = std::chrono::milliseconds(100);
    if (!isOnTerminal_) return;
    const auto now = Clock::now();
    if (done < lastDone_) start_ = now;
    lastDone_ = done;
    if (now < nextTime_) return;
    nextTime_ = now + kInterval;
    isShown_ = true;
    std::cerr << kEraseLine << ProgressText(done, total, unit, now - start_) << std::flush;
}

void ProgressLine::Clear() {
    if (isShown_) std::cerr << kEraseLine << std::flush;
    isShown_ = false;
}

void AddExportersAndProgress(ZorbDbAccessEngine& engine, const std::shared_ptr<ProgressLine>& line) {
    const auto rows = std::make_shared<RowsUpdater>(line);
    for (IZorbDataExporterPtr& exporter : exporters::AllExporters()) {
        if (!engine.AddDataExporter(std::make_shared<CommandExporter>(std::move(exporter), rows))) {
            engine.RaiseLastError();
        }
    }
    engine.SetProgressUpdater(std::make_shared<BytesUpdater>(line));
}

}  // namespace halvtiv::cli
