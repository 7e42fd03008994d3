#include <array>
#include <cstdint>

#include <halvtiv_exporters/exporters.hpp>

#include "exporter_base.hpp"
#include "file_writer.hpp"
#include "utf8.hpp"

namespace halvtiv::exporters {

namespace {

constexpr std::array<std::string_view, 2> kTypes{"jsonl", "ndjson"};

std::string_view TakeDigits(std::string_view& text) {
    const std::string_view digits = text.substr(0, text.find_first_not_of("0123456789"));
    text.remove_prefix(digits.size());
    return digits;
}

/// Whether a text is a number as JSON writes it.
bool IsJsonNumber(std::string_view text) {
    if (text.starts_with('-')) text.remove_prefix(1);
    const std::string_view whole = TakeDigits(text);
    if (whole.empty() || (whole.size() > 1 && whole.front() == '0')) return false;
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        if (TakeDigits(text).empty()) return false;
    }
    if (text.starts_with('e') || text.starts_with('E')) {
        text.remove_prefix(1);
        if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
        if (TakeDigits(text).empty()) return false;
    }
    return text.empty();
}

void AppendEscaped(FileWriter& file, char character) {
    constexpr char kHex[] = "0123456789abcdef";
    switch (character) {
        case '"':
            return file.Append("\\\"");
        case '\\':
            return file.Append("\\\\");
        case '\n':
            return file.Append("\\n");
        case '\r':
            return file.Append("\\r");
        case '\t':
            return file.Append("\\t");
        default:
            file.Append("\\u00");
            file.Append(kHex[static_cast<unsigned char>(character) >> 4]);
            file.Append(kHex[character & 15]);
    }
}

constexpr bool NeedsEscape(char character) {
    return static_cast<unsigned char>(character) < 0x20 || character == '"' || character == '\\';
}

void AppendText(FileWriter& file, std::string_view text) {
    std::string repaired;
    if (!IsUtf8(text)) {
        repaired = RepairedUtf8(text);
        text = repaired;
    }
    file.Append('"');
    std::size_t from = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!NeedsEscape(text[at])) continue;
        file.Append(text.substr(from, at - from));
        AppendEscaped(file, text[at]);
        from = at + 1;
    }
    file.Append(text.substr(from));
    file.Append('"');
}

void AppendBase64(FileWriter& file, ado::Field& field) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr std::int64_t kPiece = std::int64_t{3} * 16384;  // in threes: only the last piece is padded
    file.Append('"');
    for (;;) {
        const ado::Bytes piece = field.GetChunk(kPiece);
        if (piece.empty()) break;
        char* to = file.Reserve((piece.size() + 2) / 3 * 4);
        for (std::size_t at = 0; at < piece.size(); at += 3) {
            const std::size_t left = piece.size() - at;
            const unsigned three = static_cast<unsigned>(piece[at]) << 16 |
                                   (left > 1 ? static_cast<unsigned>(piece[at + 1]) << 8 : 0U) |
                                   (left > 2 ? static_cast<unsigned>(piece[at + 2]) : 0U);
            *to++ = kDigits[three >> 18];
            *to++ = kDigits[three >> 12 & 63];
            *to++ = left > 1 ? kDigits[three >> 6 & 63] : '=';
            *to++ = left > 2 ? kDigits[three & 63] : '=';
        }
        file.Advance(to);
    }
    file.Append('"');
}

void AppendValue(FileWriter& file, const SourceColumn& column) {
    if (column.kind == ColumnKind::Bytes) {
        return column.field->IsNull() ? file.Append("null") : AppendBase64(file, *column.field);
    }
    const std::string_view text = column.field->Text();
    if (text.empty() && column.field->IsNull()) return file.Append("null");
    switch (column.kind) {
        case ColumnKind::Integer:
        case ColumnKind::Double:
        case ColumnKind::Decimal:
            if (IsJsonNumber(text)) return file.Append(text);
            break;
        case ColumnKind::Boolean:
            if (text == "True") return file.Append("true");
            if (text == "False") return file.Append("false");
            break;
        default:
            break;
    }
    AppendText(file, text);
}

class JsonLinesExporter final : public ExporterBase {
public:
    JsonLinesExporter() : ExporterBase(Format{"JSON lines", kTypes}) {}

protected:
    std::int64_t Write(ExportTask& task) override {
        FileWriter file(task.fileName, task.rows);
        const std::vector<std::string> names = DistinctNames(task.columns, NameCase::Counts);
        const std::int64_t rows = ForEachRow(task, [&](std::int64_t /*row*/) {
            for (std::size_t index = 0; index < names.size(); ++index) {
                file.Append(index == 0 ? '{' : ',');
                AppendText(file, names[index]);
                file.Append(':');
                AppendValue(file, task.columns[index]);
            }
            file.Append("}\n");
        });
        file.Commit();
        return rows;
    }
};

}  // namespace

IZorbDataExporterPtr NewJsonLinesExporter() {
    return std::make_shared<JsonLinesExporter>();
}

}  // namespace halvtiv::exporters
