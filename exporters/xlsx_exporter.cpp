#include <fcntl.h>
#include <locale.h>
#include <xlsxwriter.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>

#include <halvtiv/output_file.hpp>

#include <halvtiv_exporters/exporters.hpp>

#include "errors.hpp"
#include "exporter_base.hpp"
#include "spreadsheet_values.hpp"
#include "utf8.hpp"
#include "workbook_check.hpp"

namespace halvtiv::exporters {

namespace {

constexpr std::array<std::string_view, 1> kTypes{"xlsx"};
constexpr std::int64_t kMostRows = 1048575;  // beside the header
constexpr std::size_t kMostColumns = 16384;
constexpr std::size_t kMostCharacters = 32767;
constexpr std::int64_t kRowsMeasured = 1000;  // for the columns' widths

/// While it lives, this thread writes numbers with a point, whatever locale the program has set.
class PointLocale {
public:
    PointLocale() {
        const locale_t copy = ::duplocale(::uselocale(nullptr));  // all but the numbers stays
        if (copy == nullptr) throw std::bad_alloc();
        plain_ = ::newlocale(LC_NUMERIC_MASK, "C", copy);
        if (plain_ == nullptr) {
            ::freelocale(copy);
            throw std::bad_alloc();
        }
        earlier_ = ::uselocale(plain_);
    }
    ~PointLocale() {
        ::uselocale(earlier_);
        ::freelocale(plain_);
    }
    PointLocale(const PointLocale&) = delete;
    PointLocale& operator=(const PointLocale&) = delete;

private:
    locale_t plain_ = nullptr;
    locale_t earlier_ = nullptr;
};

[[noreturn]] void RaiseWorkbookError(lxw_error error, int systemError, const std::string& name) {
    if (error == LXW_ERROR_MEMORY_MALLOC_FAILED || systemError == ENOMEM) throw std::bad_alloc();
    if (systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG) {
        Raise(ErrorNumber::DiskFull, "Disk full. (" + name + ")");
    }
    if (systemError == EACCES || systemError == EPERM) {
        Raise(ErrorNumber::PermissionDenied, "Permission denied. (" + name + ")");
    }
    Raise(ErrorNumber::DeviceIo, std::string(lxw_strerror(error)) + " (" + name + ")");
}

/// The library returns null when memory is exhausted.
template <typename Made>
Made* RequireNotNull(Made* made) {
    if (made == nullptr) throw std::bad_alloc();
    return made;
}

/// The workbook's one sheet, row by row.
class Sheet {
public:
    Sheet(const OutputFile& target, const std::string& name, const std::vector<SourceColumn>& columns)
        : name_(target.Path()), path_(target.TemporaryPath()), widths_(columns.size(), 0) {
        std::string folder = std::filesystem::path(path_).parent_path().string();
        if (folder.empty()) folder = ".";
        lxw_workbook_options options{};
        options.constant_memory = LXW_TRUE;
        options.tmpdir = folder.data();  // where there is room for the file there may be for its parts
        book_.reset(workbook_new_opt(path_.c_str(), &options));
        if (!book_) throw std::bad_alloc();
        errno = 0;
        sheet_ = workbook_add_worksheet(book_.get(), name.c_str());
        if (sheet_ == nullptr) RaiseWorkbookError(LXW_ERROR_CREATING_TMPFILE, errno, name_);
        ::fcntl(::fileno(sheet_->optimize_tmpfile), F_SETFD, FD_CLOEXEC);
        dateFormat_ = NewFormat("yyyy-mm-dd");
        timeFormat_ = NewFormat("hh:mm:ss");
        bothFormat_ = NewFormat("yyyy-mm-dd hh:mm:ss");
        finerTimeFormat_ = NewFormat("hh:mm:ss.000");
        finerBothFormat_ = NewFormat("yyyy-mm-dd hh:mm:ss.000");
        lxw_format* const bold = RequireNotNull(workbook_add_format(book_.get()));
        format_set_bold(bold);
        worksheet_freeze_panes(sheet_, 1, 0);
        for (std::size_t index = 0; index < columns.size(); ++index) {
            Text(0, index, columns[index].name, columns[index], bold);
        }
    }

    void Cell(std::int64_t row, std::size_t column, const SourceColumn& source, const ExportTask& task) {
        if (source.kind == ColumnKind::Bytes) {
            if (!source.field->IsNull()) Text(row, column, BinaryCell(task, source, row), source);
            return;
        }
        const std::string_view text = source.field->Text();
        if (text.empty() || (source.kind != ColumnKind::Text && Typed(row, column, source, text))) return;
        Text(row, column, source.kind == ColumnKind::DateTime ? source.field->Text() : text, source);
    }

    void Finish() {
        for (std::size_t column = 0; column < widths_.size(); ++column) {
            constexpr std::size_t kNarrow = 8;
            constexpr std::size_t kWide = 60;
            const auto at = static_cast<lxw_col_t>(column);
            const auto width = static_cast<double>(std::clamp(widths_[column], kNarrow, kWide) + 1);
            Check(worksheet_set_column(sheet_, at, at, width, nullptr));
        }
        const SheetContent written = WrittenRows();
        constexpr std::uint64_t kMostInPlainZip = 0xF0000000U;
        book_->options.use_zip64 = written.size > kMostInPlainZip ? LXW_TRUE : LXW_FALSE;
        errno = 0;
        if (const lxw_error error = workbook_close(book_.release()); error != LXW_NO_ERROR) {
            RaiseWorkbookError(error, errno, name_);
        }
        RequireWholeWorkbook(path_, written, name_);
    }

private:
    struct FreeBook {
        void operator()(lxw_workbook* book) const {
            lxw_worksheet* sheet = nullptr;
            STAILQ_FOREACH(sheet, book->worksheets, list_pointers) {
                // Freeing it leaves the file open that it keeps the rows in.
                if (sheet->optimize_tmpfile != nullptr) std::fclose(sheet->optimize_tmpfile);
                sheet->optimize_tmpfile = nullptr;
            }
            lxw_workbook_free(book);
        }
    };

    /// The rows in the file that the library keeps them in, all but the last. ferror
    /// reports an earlier failed write.
    SheetContent WrittenRows() {
        std::FILE* const file = sheet_->optimize_tmpfile;
        errno = 0;
        SheetContent written = written_;
        written.columns = widths_.size();
        if (std::fflush(file) != 0 || std::fseek(file, 0, SEEK_SET) != 0) RaiseRowsLost();
        std::array<char, 64 * 1024> piece;
        while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), file)) {
            written.size += count;
            written.checksum = static_cast<std::uint32_t>(::crc32(
                written.checksum, reinterpret_cast<const Bytef*>(piece.data()), static_cast<uInt>(count)));
        }
        if (std::fseek(file, 0, SEEK_END) != 0 || std::ferror(file) != 0) RaiseRowsLost();
        return written;
    }
    [[noreturn]] void RaiseRowsLost() const { RaiseWorkbookError(LXW_ERROR_CREATING_TMPFILE, errno, name_); }

    lxw_format* NewFormat(const char* pattern) {
        lxw_format* const format = RequireNotNull(workbook_add_format(book_.get()));
        format_set_num_format(format, pattern);
        return format;
    }

    void Measure(std::int64_t row, std::size_t column, std::string_view text) {
        if (row <= kRowsMeasured) widths_[column] = std::max(widths_[column], DisplayWidth(text));
    }

    [[noreturn]] static void RaiseTooLong(std::int64_t row, const SourceColumn& source) {
        Raise(ErrorNumber::Own, "Row " + std::to_string(row) + " of column \"" + source.name +
                                    "\" has more than 32,767 characters, the most a cell can hold.");
    }

    void Check(lxw_error error) const {
        if (error != LXW_NO_ERROR) RaiseWorkbookError(error, 0, name_);
    }
    void CheckCell(lxw_error error, const lxw_format* format = nullptr) {
        Check(error);
        ++written_.cells;
        if (format != nullptr) ++written_.formattedCells;
    }

    void Number(std::int64_t row, std::size_t column, double value, lxw_format* format = nullptr) {
        CheckCell(worksheet_write_number(sheet_, static_cast<lxw_row_t>(row), static_cast<lxw_col_t>(column),
                                         value, format),
                  format);
    }

    void Text(std::int64_t row, std::size_t column, std::string_view text, const SourceColumn& source,
              lxw_format* format = nullptr) {
        text_ = CellText(text);
        if (text.size() > kMostCharacters && Utf16Length(RepairedUtf8(text)) > kMostCharacters) {
            RaiseTooLong(row, source);
        }
        Measure(row, column, text_);
        const lxw_error error = worksheet_write_string(sheet_, static_cast<lxw_row_t>(row),
                                                       static_cast<lxw_col_t>(column), text_.c_str(), format);
        // Escapes count, too.
        if (error == LXW_ERROR_MAX_STRING_LENGTH_EXCEEDED) RaiseTooLong(row, source);
        CheckCell(error, format);
    }

    /// Writes a value as what its column holds; false when a cell cannot hold it as that.
    bool Typed(std::int64_t row, std::size_t column, const SourceColumn& source, std::string_view text) {
        switch (source.kind) {
            case ColumnKind::Integer:
                return Number(row, column, text, ExactInteger(text));
            case ColumnKind::Decimal:
                return Number(row, column, text, ExactDecimal(text));
            case ColumnKind::Double:
                return Number(row, column, text, FiniteDouble(text));
            case ColumnKind::Boolean:
                if (text != "True" && text != "False") return false;
                Measure(row, column, text);
                CheckCell(worksheet_write_boolean(sheet_, static_cast<lxw_row_t>(row),
                                                  static_cast<lxw_col_t>(column), text == "True" ? 1 : 0,
                                                  nullptr));
                return true;
            default:
                return Date(row, column, *source.field);
        }
    }

    bool Number(std::int64_t row, std::size_t column, std::string_view text, std::optional<double> value) {
        if (!value) return false;
        Measure(row, column, text);
        Number(row, column, *value);
        return true;
    }

    bool Date(std::int64_t row, std::size_t column, ado::Field& field) {
        const ado::Variant value = field.Value();
        const DateTime* const date = value.AsDateTime();
        if (date == nullptr) return false;
        const std::optional<double> serial = DateSerial(*date);
        if (!serial) return false;
        Measure(row, column, "2000-01-01 00:00:00");
        Number(row, column, *serial, FormatOf(*date));
        return true;
    }

    lxw_format* FormatOf(const DateTime& date) const {
        const bool isFiner = date.Nanosecond != 0;
        switch (date.Which) {
            case DateTime::Parts::Date:
                return dateFormat_;
            case DateTime::Parts::Time:
                return isFiner ? finerTimeFormat_ : timeFormat_;
            default:
                return isFiner ? finerBothFormat_ : bothFormat_;
        }
    }

    std::string name_;
    std::string path_;
    SheetContent written_;
    std::vector<std::size_t> widths_;
    std::unique_ptr<lxw_workbook, FreeBook> book_;
    lxw_worksheet* sheet_ = nullptr;
    lxw_format* dateFormat_ = nullptr;
    lxw_format* timeFormat_ = nullptr;
    lxw_format* bothFormat_ = nullptr;
    lxw_format* finerTimeFormat_ = nullptr;
    lxw_format* finerBothFormat_ = nullptr;
    std::string text_;  // ends in NUL, as the library wants it
};

class XlsxExporter final : public ExporterBase {
public:
    XlsxExporter() : ExporterBase(Format{"XLSX workbook", kTypes}) {}

protected:
    std::int64_t Write(ExportTask& task) override {
        if (task.columns.size() > kMostColumns) {
            Raise(ErrorNumber::Own,
                  "A sheet can hold 16,384 columns; there are " + std::to_string(task.columns.size()) + ".");
        }
        RequireRoom(task.expectedRows);
        task.rows.RequireOtherFile(task.fileName);
        OutputFile target(task.fileName);
        if (target.TemporaryPath().empty()) RaisePathAccess(target.Path());
        const PointLocale locale;
        Sheet sheet(target, SheetName(task.tableName), task.columns);
        const std::int64_t rows = ForEachRow(task, [&](std::int64_t row) {
            RequireRoom(row);
            for (std::size_t column = 0; column < task.columns.size(); ++column) {
                sheet.Cell(row, column, task.columns[column], task);
            }
        });
        sheet.Finish();
        target.Commit();
        return rows;
    }

private:
    static void RequireRoom(std::int64_t rows) {
        if (rows > kMostRows) {
            Raise(ErrorNumber::Own, "A sheet can hold 1,048,575 rows and a header; there are more.");
        }
    }
};

}  // namespace

IZorbDataExporterPtr NewXlsxExporter() {
    return std::make_shared<XlsxExporter>();
}

}  // namespace halvtiv::exporters
