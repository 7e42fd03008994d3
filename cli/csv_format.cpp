#include "formats.hpp"
#include "result_reader.hpp"

namespace halvtiv::cli {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

class CsvWriter : public ResultVisitor {
public:
    explicit CsvWriter(Output& output) : output_(output) {}

    void BeginEntry(std::string_view, std::string_view) override {
        if (!isFirst_) output_.Write(kLineEnd);
        isFirst_ = false;
    }
    void Header(std::span<const ResultCell> columns) override { WriteLine(columns, &ResultCell::name); }
    void Row(std::span<const ResultCell> cells) override { WriteLine(cells, &ResultCell::value); }
    void Cells(std::span<const ResultCell> cells) override {
        WriteLine(cells, &ResultCell::name);
        WriteLine(cells, &ResultCell::value);
    }
    void EndEntry() override {}

private:
    void WriteLine(std::span<const ResultCell> cells, std::string ResultCell::*part) {
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (i > 0) output_.Write(',');
            // An empty line would look like the end of the entry.
            WriteField(cells[i].*part, cells.size() == 1);
        }
        output_.Write(kLineEnd);
    }

    void WriteField(std::string_view value, bool quoteEmpty) {
        const bool isPlain = value.find_first_of(",\"\r\n") == std::string_view::npos;
        if (isPlain && !(quoteEmpty && value.empty())) {
            output_.Write(value);
            return;
        }
        output_.Write('"');
        while (!value.empty()) {
            const std::size_t quote = value.find('"');
            if (quote == std::string_view::npos) {
                output_.Write(value);
                break;
            }
            output_.Write(value.substr(0, quote + 1));
            output_.Write('"');
            value.remove_prefix(quote + 1);
        }
        output_.Write('"');
    }

    Output& output_;
    bool isFirst_ = true;
};

}  // namespace

void WriteCsv(std::string_view xml, Output& output) {
    CsvWriter writer(output);
    ReadResult(xml, writer);
}

}  // namespace halvtiv::cli
