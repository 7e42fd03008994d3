#include <array>
#include <cstdint>
#include <cstring>

#include <halvtiv_exporters/exporters.hpp>

#include "exporter_base.hpp"
#include "target_file.hpp"
#include "utf8.hpp"

namespace halvtiv::exporters {

namespace {

constexpr std::array<std::string_view, 1> kCsvTypes{"csv"};
constexpr std::array<std::string_view, 2> kTsvTypes{"tsv", "tab"};

bool HasTabExtension(const std::string& fileName) {
    const std::string lower = AsciiLower(fileName);
    return lower.ends_with(".tsv") || lower.ends_with(".tab");
}

/// Writes fields with their separators and lines.
class CsvFile {
public:
    CsvFile(const std::string& fileName, char separator) : file_(fileName), separator_(separator) {}

    void Field(std::string_view text, bool isNull) {
        if (!isFirst_) file_.Append(separator_);
        isFirst_ = false;
        if (text.empty()) {
            if (!isNull) file_.Append("\"\"");
        } else if (text.size() > kCopied || !CopyPlain(text)) {
            Careful(text);
        }
    }

    void EndLine(bool isSingleNull) {
        if (isSingleNull) file_.Append("\"\"");  // an empty line would be no record
        file_.Append("\r\n");
        isFirst_ = true;
    }

    void Commit() { file_.Commit(); }

private:
    static constexpr std::size_t kCopied = 4096;
    static constexpr std::size_t kWord = sizeof(std::uint64_t);

    /// A copy of a byte in each byte of a word.
    static constexpr std::uint64_t Each(unsigned char byte) { return byte * 0x0101010101010101U; }
    /// Not 0 when a byte of the word is 0, or is 0x80 or above.
    static constexpr std::uint64_t ZeroOrHigh(std::uint64_t word) {
        return ((word - Each(1)) | word) & Each(0x80);
    }

    /// Whether one of eight bytes may need care: a control character, a quote, the separator, no ASCII.
    bool MayNeedCare(std::uint64_t word) const {
        const std::uint64_t control = word - Each(0x20);
        return ((control | word | ZeroOrHigh(word ^ Each('"')) |
                 ZeroOrHigh(word ^ Each(static_cast<unsigned char>(separator_)))) &
                Each(0x80)) != 0;
    }

    /// Copies a text while looking at it, eight bytes at a time; false, with nothing written, when it may
    /// need care.
    bool CopyPlain(std::string_view text) {
        char* const room = file_.Reserve(text.size() + kWord);
        std::size_t at = 0;
        std::uint64_t word = 0;
        for (; at + kWord <= text.size(); at += kWord) {
            std::memcpy(&word, text.data() + at, kWord);
            if (MayNeedCare(word)) return false;
            std::memcpy(room + at, &word, kWord);
        }
        if (at < text.size()) {
            word = Each('x');
            std::memcpy(&word, text.data() + at, text.size() - at);
            if (MayNeedCare(word)) return false;
            std::memcpy(room + at, &word, kWord);
        }
        file_.Advance(room + text.size());
        return true;
    }

    void Careful(std::string_view text) {
        std::string repaired;
        if (!IsUtf8(text)) {
            repaired = RepairedUtf8(text);
            text = repaired;
        }
        const std::array<char, 4> special{'"', '\r', '\n', separator_};
        if (text.find_first_of(std::string_view(special.data(), special.size())) == std::string_view::npos) {
            file_.Append(text);
            return;
        }
        file_.Append('"');
        for (;;) {
            const std::size_t quote = text.find('"');
            file_.Append(text.substr(0, quote));
            if (quote == std::string_view::npos) break;
            file_.Append("\"\"");
            text.remove_prefix(quote + 1);
        }
        file_.Append('"');
    }

    FileWriter file_;
    char separator_;
    bool isFirst_ = true;
};

class CsvExporter final : public ExporterBase {
public:
    CsvExporter(Format format, bool withTabs) : ExporterBase(format), withTabs_(withTabs) {}

protected:
    std::int64_t Write(ExportTask& task) override {
        CsvFile file(task.fileName, withTabs_ || HasTabExtension(task.fileName) ? '\t' : ',');
        for (const SourceColumn& column : task.columns) file.Field(column.name, false);
        file.EndLine(false);
        const bool isSingle = task.columns.size() == 1;
        const std::int64_t rows = ForEachRow(task, [&](std::int64_t row) {
            bool isNull = false;
            for (const SourceColumn& column : task.columns) {
                if (column.kind == ColumnKind::Bytes) {
                    isNull = column.field->IsNull();
                    file.Field(isNull ? std::string() : BinaryCell(column, row, task.dataFolder), isNull);
                    continue;
                }
                const std::string_view text = column.field->Text();
                isNull = text.empty() && column.field->IsNull();
                file.Field(text, isNull);
            }
            file.EndLine(isSingle && isNull);
        });
        file.Commit();
        return rows;
    }

private:
    bool withTabs_;
};

}  // namespace

IZorbDataExporterPtr NewCsvExporter() {
    return std::make_shared<CsvExporter>(Format{"CSV file", kCsvTypes}, false);
}

IZorbDataExporterPtr NewTsvExporter() {
    return std::make_shared<CsvExporter>(Format{"Tab-separated file", kTsvTypes}, true);
}

}  // namespace halvtiv::exporters
