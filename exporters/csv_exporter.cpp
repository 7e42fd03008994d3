#include <array>
#include <cstdint>
#include <cstring>
#include <limits>

#include <halvtiv_exporters/exporters.hpp>

#include "exporter_base.hpp"
#include "file_writer.hpp"
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
    CsvFile(const ExportTask& task, char separator)
        : file_(task.fileName, task.rows), separator_(separator) {}

    void Field(std::string_view text, bool isNull) {
        if (text.size() > kCopied) {
            if (!isFirst_) file_.Append(separator_);
            Careful(text);
        } else {
            char* room = file_.Reserve(text.size() + 1);
            *room = separator_;
            if (!isFirst_) ++room;
            const bool isPlain = CopyPlain(text, room);
            file_.Advance(isPlain ? room + text.size() : room);
            if (!isPlain) Careful(text);
            if (text.empty() && !isNull) file_.Append("\"\"");
        }
        isFirst_ = false;
    }

    void EndLine(bool isSingleNull) {
        if (isSingleNull) file_.Append("\"\"");  // an empty line would be no record
        file_.Append("\r\n");
        isFirst_ = true;
    }

    void Commit() { file_.Commit(); }

private:
    static constexpr std::size_t kCopied = 4096;

    /// A copy of a byte in each byte of a word.
    static constexpr std::uint64_t Each(unsigned char byte) { return byte * 0x0101010101010101U; }
    /// Not 0 when a byte of the word is 0, or is 0x80 or above.
    static constexpr std::uint64_t ZeroOrHigh(std::uint64_t word) {
        return ((word - Each(1)) | word) & Each(0x80);
    }

    /// Not 0 when one of eight bytes may need care: a control character, a quote, the separator, no ASCII.
    std::uint64_t CareBits(std::uint64_t word) const {
        const std::uint64_t control = word - Each(0x20);
        return (control | word | ZeroOrHigh(word ^ Each('"')) |
                ZeroOrHigh(word ^ Each(static_cast<unsigned char>(separator_)))) &
               Each(0x80);
    }

    /// Plain bytes in the place of those that a shorter word lacks.
    template <typename Word>
    static constexpr std::uint64_t kFill = Each('x') & ~std::uint64_t{std::numeric_limits<Word>::max()};

    template <typename Word>
    static Word WordAt(const char* from) {
        Word word = 0;
        std::memcpy(&word, from, sizeof word);
        return word;
    }

    /// Copies a text while looking at it, a word at a time, the last one over the end of the one before;
    /// false when what was copied may need care.
    bool CopyPlain(std::string_view text, char* room) const {
        if (text.size() >= sizeof(std::uint64_t)) return CopyWords<std::uint64_t>(text, room);
        if (text.size() >= sizeof(std::uint32_t)) return CopyWords<std::uint32_t>(text, room);
        return text.empty() || CopyWords<std::uint8_t>(text, room);
    }

    template <typename Word>
    bool CopyWords(std::string_view text, char* room) const {
        std::uint64_t care = 0;
        const auto copy = [&](std::size_t at) {
            const Word word = WordAt<Word>(text.data() + at);
            std::memcpy(room + at, &word, sizeof word);
            care |= CareBits(word | kFill<Word>);
        };
        const std::size_t last = text.size() - sizeof(Word);
        for (std::size_t at = 0; at < last; at += sizeof(Word)) copy(at);
        copy(last);
        return care == 0;
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
        CsvFile file(task, withTabs_ || HasTabExtension(task.fileName) ? '\t' : ',');
        for (const SourceColumn& column : task.columns) file.Field(column.name, false);
        file.EndLine(false);
        const bool isSingle = task.columns.size() == 1;
        const std::int64_t rows = ForEachRow(task, [&](std::int64_t row) {
            bool isNull = false;
            for (const SourceColumn& column : task.columns) {
                if (column.kind == ColumnKind::Bytes) {
                    isNull = column.field->IsNull();
                    file.Field(isNull ? std::string() : BinaryCell(task, column, row), isNull);
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
