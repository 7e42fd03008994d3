// Exports into files, beside loops by hand into the same format.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <xlsxwriter.h>

#include <charconv>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include <halvtiv_exporters/exporters.hpp>

#include "process_memory.hpp"
#include "ratios.hpp"
#include "sample_table.hpp"
#include "xml_by_hand.hpp"

namespace halvtiv::bench {

namespace {

constexpr int kCsvRows = 5000000;
constexpr int kXlsxRows = 500000;
constexpr const char* kHeader[] = {"id", "amount", "price", "code", "note", "made", "remark", "kind"};

const SampleTable& CsvTable() {
    static const SampleTable table(kCsvRows);
    return table;
}

const SampleTable& XlsxTable() {
    static const SampleTable table(kXlsxRows);
    return table;
}

/// A file to export into, gone with this object.
class ExportFile {
public:
    explicit ExportFile(const SampleTable& table, const char* extension) : path_(table.Path() + extension) {}
    ~ExportFile() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    ExportFile(const ExportFile&) = delete;
    ExportFile& operator=(const ExportFile&) = delete;
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

/// CSV as a program by hand writes it: blocks of 64 KiB, a field of text looked at byte by byte.
class HandCsv {
public:
    explicit HandCsv(const std::string& path) : file_(std::fopen(path.c_str(), "wb")) {
        Require(file_ != nullptr, "open " + path);
        std::setvbuf(file_.get(), nullptr, _IONBF, 0);
    }

    template <typename Number>
    void PutNumber(Number number) {
        char* const room = Room(32);
        used_ = static_cast<std::size_t>(std::to_chars(room, room + 32, number).ptr - block_);
    }

    /// A text of less than 16 KiB.
    void PutText(std::string_view text) {
        char* to = Room(2 * text.size() + 2);
        bool isPlain = true;
        for (const char byte : text) {
            isPlain = isPlain && byte != '"' && byte != ',' && byte != '\r' && byte != '\n';
        }
        if (isPlain) {
            std::memcpy(to, text.data(), text.size());
            used_ += text.size();
            return;
        }
        *to++ = '"';
        for (const char byte : text) {
            if (byte == '"') *to++ = '"';
            *to++ = byte;
        }
        *to++ = '"';
        used_ = static_cast<std::size_t>(to - block_);
    }

    void Put(char byte) {
        *Room(1) = byte;
        ++used_;
    }
    void EndLine() {
        Put('\r');
        Put('\n');
    }
    void Flush() {
        Require(std::fwrite(block_, 1, used_, file_.get()) == used_, "write by hand");
        used_ = 0;
    }

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    char* Room(std::size_t count) {
        if (sizeof block_ - used_ < count) Flush();
        return block_ + used_;
    }

    std::unique_ptr<std::FILE, CloseFile> file_;
    std::size_t used_ = 0;
    char block_[65536];
};

void CsvByHand(const std::string& path) {
    const SampleTable::Database database = CsvTable().Open();
    const Statement statement = Prepare(database.get(), "select * from t");
    sqlite3_stmt* const row = statement.get();
    HandCsv csv(path);
    for (const char* name : kHeader) {
        if (name != kHeader[0]) csv.Put(',');
        csv.PutText(name);
    }
    csv.EndLine();
    while (sqlite3_step(row) == SQLITE_ROW) {
        csv.PutNumber(sqlite3_column_int64(row, 0));
        csv.Put(',');
        csv.PutNumber(sqlite3_column_int64(row, 1));
        csv.Put(',');
        csv.PutNumber(sqlite3_column_double(row, 2));
        for (int column = 3; column < 7; ++column) {
            csv.Put(',');
            csv.PutText(TextOf(row, column));
        }
        csv.Put(',');
        csv.PutNumber(sqlite3_column_int64(row, 7));
        csv.EndLine();
    }
    csv.Flush();
}

void XlsxByHand(const std::string& path) {
    const SampleTable::Database database = XlsxTable().Open();
    const Statement statement = Prepare(database.get(), "select * from t");
    sqlite3_stmt* const row = statement.get();
    lxw_workbook_options options{};
    options.constant_memory = LXW_TRUE;
    lxw_workbook* const book = workbook_new_opt(path.c_str(), &options);
    lxw_worksheet* const sheet = workbook_add_worksheet(book, "t");
    lxw_format* const bold = workbook_add_format(book);
    format_set_bold(bold);
    lxw_format* const moment = workbook_add_format(book);
    format_set_num_format(moment, "yyyy-mm-dd hh:mm:ss");
    for (lxw_col_t column = 0; column < 8; ++column) {
        worksheet_write_string(sheet, 0, column, kHeader[column], bold);
    }
    for (lxw_row_t at = 1; sqlite3_step(row) == SQLITE_ROW; ++at) {
        for (const int column : {0, 1, 2}) {
            worksheet_write_number(sheet, at, static_cast<lxw_col_t>(column),
                                   sqlite3_column_double(row, column), nullptr);
        }
        for (const int column : {3, 4}) {
            worksheet_write_string(sheet, at, static_cast<lxw_col_t>(column), TextOf(row, column).data(),
                                   nullptr);
        }
        lxw_datetime made{};
        const char* const text = TextOf(row, 5).data();
        const auto digits = [text](int from, int count) {
            int value = 0;
            std::from_chars(text + from, text + from + count, value);
            return value;
        };
        made.year = digits(0, 4);
        made.month = digits(5, 2);
        made.day = digits(8, 2);
        made.hour = digits(11, 2);
        made.min = digits(14, 2);
        made.sec = digits(17, 2);
        worksheet_write_datetime(sheet, at, 5, &made, moment);
        if (sqlite3_column_type(row, 6) != SQLITE_NULL) {
            worksheet_write_string(sheet, at, 6, TextOf(row, 6).data(), nullptr);
        }
        worksheet_write_number(sheet, at, 7, sqlite3_column_double(row, 7), nullptr);
    }
    Require(workbook_close(book) == LXW_NO_ERROR, "write a workbook by hand");
}

/// Exports the whole table.
void ExportWith(const IZorbDataExporterPtr& exporter, const SampleTable& table, int rows, std::string path) {
    ado::ConnectionPtr connection = std::make_shared<ado::Connection>();
    connection->Open("Provider=SQLite;Data Source=" + table.Path());
    ado::RecordsetPtr recordset = connection->Execute("select * from t");
    std::string name = "t";
    Require(exporter->ExportData(recordset, path, name) == rows, "export: " + exporter->GetLastError());
}

void CsvHand(benchmark::State& state) {
    const ExportFile file(CsvTable(), ".hand.csv");
    for (auto _ : state) CsvByHand(file.Path());
}

void CsvExport(benchmark::State& state) {
    const ExportFile file(CsvTable(), ".csv");
    const IZorbDataExporterPtr exporter = exporters::NewCsvExporter();
    std::int64_t peak = 0;
    for (auto _ : state) {
        ::malloc_trim(0);  // what earlier runs have left would hide what this one takes
        peak = std::max(peak, PeakOf([&] { ExportWith(exporter, CsvTable(), kCsvRows, file.Path()); }));
    }
    state.counters["peak_mib"] = static_cast<double>(peak) / (1 << 20);
}

void DataFileHand(benchmark::State& state) {
    const ExportFile file(CsvTable(), ".hand.xml");
    for (auto _ : state) {
        const SampleTable::Database database = CsvTable().Open();
        const Statement statement = Prepare(database.get(), "select * from t");
        std::FILE* const opened = std::fopen(file.Path().c_str(), "wb");
        Require(opened != nullptr, "open " + file.Path());
        std::setvbuf(opened, nullptr, _IONBF, 0);
        {
            BlockWriter writer([opened](std::string_view block) {
                Require(std::fwrite(block.data(), 1, block.size(), opened) == block.size(), "write by hand");
            });
            writer.Put("<data guid=\"k\" type=\"file\">");
            WriteRowsByHand(statement.get(), writer);
            writer.Put("</data>");
        }
        std::fclose(opened);
    }
}

void DataFile(benchmark::State& state) {
    const ExportFile file(CsvTable(), ".xml");
    const auto engine = CsvTable().Engine();
    ado::RecordsetPtr rows;
    std::int64_t peak = 0;
    for (auto _ : state) {
        ZorbFunctionResult result;
        rows = engine->GetDatabaseConnection()->Execute("select * from t");
        ::malloc_trim(0);
        peak = std::max(peak, PeakOf([&] {
                            Require(result.AddFunctionResult_DataFile("k", rows, file.Path(), ""),
                                    result.GetLastError());
                        }));
    }
    state.counters["peak_mib"] = static_cast<double>(peak) / (1 << 20);
}

void XlsxHand(benchmark::State& state) {
    const ExportFile file(XlsxTable(), ".hand.xlsx");
    for (auto _ : state) XlsxByHand(file.Path());
}

void XlsxExport(benchmark::State& state) {
    const ExportFile file(XlsxTable(), ".xlsx");
    const IZorbDataExporterPtr exporter = exporters::NewXlsxExporter();
    for (auto _ : state) ExportWith(exporter, XlsxTable(), kXlsxRows, file.Path());
}

BENCHMARK(CsvHand)->Name("export/csv by hand")->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(CsvExport)->Name("export/csv")->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(DataFileHand)->Name("export/data file by hand")->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(DataFile)->Name("export/data file")->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(XlsxHand)->Name("export/xlsx by hand")->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(XlsxExport)->Name("export/xlsx")->Unit(benchmark::kMillisecond)->Iterations(1);

const Promised kCsvTime({"CSV of 5,000,000 x 8 rows, time against the loop by hand", "export/csv",
                         "export/csv by hand", "", 1.3});
const Promised kCsvMemory({"the same, peak memory in MiB", "export/csv", "", "peak_mib", 32.0});
const Promised kDataFileTime({"data file of 5,000,000 x 8 rows, time against the loop by hand",
                              "export/data file", "export/data file by hand", "", 1.3});
const Promised kDataFile({"the same, peak memory in MiB", "export/data file", "", "peak_mib", 32.0});
const Promised kXlsxTime({"XLSX of 500,000 x 8 rows, time against the library by hand", "export/xlsx",
                          "export/xlsx by hand", "", 1.3});

}  // namespace

}  // namespace halvtiv::bench
