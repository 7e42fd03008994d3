#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "formats.hpp"
#include "result_reader.hpp"

namespace halvtiv::cli {
namespace {

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

// Takes digits off the front and tells whether there was one.
bool TakeDigits(std::string_view& text) {
    const std::size_t before = text.size();
    while (!text.empty() && IsDigit(text.front())) text.remove_prefix(1);
    return text.size() < before;
}

/// Whether the text is a number as JSON writes it; its digits then go out as they are, however many.
bool IsJsonNumber(std::string_view text) {
    if (text.starts_with('-')) text.remove_prefix(1);
    if (text.starts_with('0')) {
        text.remove_prefix(1);
    } else if (!TakeDigits(text)) {
        return false;
    }
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        if (!TakeDigits(text)) return false;
    }
    if (text.starts_with('e') || text.starts_with('E')) {
        text.remove_prefix(1);
        if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
        if (!TakeDigits(text)) return false;
    }
    return text.empty();
}

/// The text in quotes, ready to be written.
std::string Quoted(std::string_view text) {
    constexpr std::string_view kHex = "0123456789abcdef";
    std::string quoted = "\"";
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            quoted += '\\';
            quoted += character;
        } else if (character == '\n') {
            quoted += "\\n";
        } else if (character == '\r') {
            quoted += "\\r";
        } else if (character == '\t') {
            quoted += "\\t";
        } else if (code < 0x20) {
            quoted += "\\u00";
            quoted += kHex[code >> 4];
            quoted += kHex[code & 0xF];
        } else {
            quoted += character;
        }
    }
    quoted += '"';
    return quoted;
}

/// Gives each of an object's members a name of its own: the second "a" is "a#2".
class UniqueNames {
public:
    std::string Take(const std::string& name) {
        std::string unique = name;
        for (int number = 2; !taken_.insert(unique).second; ++number) {
            unique = name + "#" + std::to_string(number);
        }
        return unique;
    }

private:
    std::set<std::string> taken_;
};

class JsonWriter : public ResultVisitor {
public:
    explicit JsonWriter(Output& output) : output_(output) { output_.Write('['); }

    void Finish() { output_.Write(isFirstEntry_ ? "]\n" : "\n]\n"); }

    void BeginEntry(std::string_view guid, std::string_view type) override {
        output_.Write(isFirstEntry_ ? "\n" : ",\n");
        isFirstEntry_ = false;
        output_.Write("{\"guid\":" + Quoted(guid) + ",\"type\":" + Quoted(type));
        isData_ = type == "data";
        columns_.clear();
        rowCount_ = 0;
        hasHeader_ = false;
    }

    void Header(std::span<const ResultCell> columns) override {
        output_.Write(",\"columns\":[");
        UniqueNames names;
        for (const ResultCell& column : columns) {
            const std::string name = Quoted(names.Take(column.name));
            if (!columns_.empty()) output_.Write(',');
            output_.Write("{\"name\":" + name + ",\"type\":" + Quoted(column.value) + '}');
            columns_.push_back({name + ":", IsNumberType(column.value)});
        }
        output_.Write("],\"rows\":[");
        hasHeader_ = true;
    }

    void Row(std::span<const ResultCell> cells) override {
        output_.Write(rowCount_ > 0 ? ",\n{" : "\n{");
        ++rowCount_;
        const std::size_t count = std::min(cells.size(), columns_.size());
        for (std::size_t i = 0; i < count; ++i) {
            if (i > 0) output_.Write(',');
            output_.Write(columns_[i].member);
            WriteValue(cells[i].value, columns_[i].isNumber);
        }
        output_.Write('}');
    }

    void Cells(std::span<const ResultCell> cells) override {
        for (const ResultCell& cell : cells) {
            output_.Write(',' + Quoted(cell.name) + ':');
            WriteValue(cell.value, cell.name == "number" || cell.name == "return");
        }
    }

    void EndEntry() override {
        if (isData_ && !hasHeader_) output_.Write(",\"columns\":[],\"rows\":[");
        if (rowCount_ > 0) output_.Write('\n');
        output_.Write(isData_ ? "]}" : "}");
    }

private:
    struct Column {
        std::string member;  // the quoted name with its colon
        bool isNumber;
    };

    void WriteValue(std::string_view value, bool isNumber) {
        if (isNumber && value.empty()) {
            output_.Write("null");
        } else if (isNumber && IsJsonNumber(value)) {
            output_.Write(value);
        } else {
            output_.Write(Quoted(value));
        }
    }

    Output& output_;
    std::vector<Column> columns_;
    std::size_t rowCount_ = 0;
    bool isFirstEntry_ = true;
    bool isData_ = false;
    bool hasHeader_ = false;
};

}  // namespace

void WriteJson(std::string_view xml, Output& output) {
    JsonWriter writer(output);
    ReadResult(xml, writer);
    writer.Finish();
}

}  // namespace halvtiv::cli
