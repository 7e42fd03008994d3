#include <algorithm>
#include <string>
#include <vector>

#include "display_width.hpp"
#include "formats.hpp"
#include "result_reader.hpp"

namespace halvtiv::cli {
namespace {

/// The width of each column of each entry: what must be known before the first line is written.
class WidthReader : public ResultVisitor {
public:
    std::vector<std::vector<std::size_t>> widths;

    void BeginEntry(std::string_view, std::string_view) override { widths.emplace_back(); }
    void Header(std::span<const ResultCell> columns) override {
        widths.back().assign(columns.size(), 0);
        Measure(columns, &ResultCell::name);
    }
    void Row(std::span<const ResultCell> cells) override { Measure(cells, &ResultCell::value); }
    void Cells(std::span<const ResultCell>) override {}
    void EndEntry() override {}

private:
    void Measure(std::span<const ResultCell> cells, std::string ResultCell::*part) {
        std::vector<std::size_t>& columns = widths.back();
        const std::size_t count = std::min(cells.size(), columns.size());
        for (std::size_t i = 0; i < count; ++i) {
            columns[i] = std::max(columns[i], Show(cells[i].*part, storage_).width);
        }
    }

    std::string storage_;
};

class TableWriter : public ResultVisitor {
public:
    TableWriter(Output& output, const std::vector<std::vector<std::size_t>>& widths)
        : output_(output), widths_(widths) {}

    void BeginEntry(std::string_view guid, std::string_view type) override {
        ++entry_;
        type_ = type;
        rowCount_ = 0;
        hasCells_ = false;
        isNumber_.clear();
        const bool isTable = type == "data";
        if (entry_ > 1 && (isTable || wasTable_)) output_.Write('\n');
        wasTable_ = isTable;
        if (isTable && widths_.size() > 1) {
            output_.Write("Entry " + std::to_string(entry_));
            if (!guid.empty()) {
                output_.Write(": ");
                output_.Write(Show(guid, storage_).text);
            }
            output_.Write('\n');
        }
    }

    void Header(std::span<const ResultCell> columns) override {
        for (const ResultCell& column : columns) isNumber_.push_back(IsNumberType(column.value));
        WriteLine(columns, &ResultCell::name);
        const std::vector<std::size_t>& widths = widths_[entry_ - 1];
        for (std::size_t i = 0; i < widths.size(); ++i) {
            if (i > 0) output_.Write("-+-");
            output_.Repeat('-', widths[i]);
        }
        output_.Write('\n');
    }

    void Row(std::span<const ResultCell> cells) override {
        WriteLine(cells, &ResultCell::value);
        ++rowCount_;
    }

    void Cells(std::span<const ResultCell> cells) override {
        hasCells_ = true;
        if (type_ == "error") {
            WriteError(cells);
            return;
        }
        if (type_ != "file") output_.Write(type_ + ": ");
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (i > 0) output_.Write(", ");
            output_.Write(Show(cells[i].name, storage_).text);
            output_.Write(type_ == "file" ? ": " : " ");
            output_.Write(Show(cells[i].value, storage_).text);
        }
        output_.Write('\n');
    }

    void EndEntry() override {
        if (type_ == "data") {
            output_.Write('(' + std::to_string(rowCount_) + (rowCount_ == 1 ? " row)\n" : " rows)\n"));
        } else if (!hasCells_) {
            output_.Write(type_ + ": (none)\n");
        }
    }

private:
    void WriteLine(std::span<const ResultCell> cells, std::string ResultCell::*part) {
        const std::vector<std::size_t>& widths = widths_[entry_ - 1];
        const std::size_t count = std::min(cells.size(), widths.size());
        for (std::size_t i = 0; i < count; ++i) {
            if (i > 0) output_.Write(" | ");
            const ShownText shown = Show(cells[i].*part, storage_);
            const std::size_t blanks = widths[i] - shown.width;
            if (isNumber_[i]) output_.Repeat(' ', blanks);
            output_.Write(shown.text);
            if (!isNumber_[i] && i + 1 < count) output_.Repeat(' ', blanks);
        }
        output_.Write('\n');
    }

    void WriteError(std::span<const ResultCell> cells) {
        const auto valueOf = [&](std::string_view name) {
            const auto cell = std::find_if(cells.begin(), cells.end(), [&](const ResultCell& candidate) {
                return candidate.name == name;
            });
            return cell == cells.end() ? std::string() : std::string(Show(cell->value, storage_).text);
        };
        output_.Write("error " + valueOf("number") + ": " + valueOf("description"));
        const std::string source = valueOf("source");
        output_.Write(source.empty() ? "\n" : " [" + source + "]\n");
    }

    Output& output_;
    const std::vector<std::vector<std::size_t>>& widths_;
    std::vector<bool> isNumber_;
    std::string type_;
    std::string storage_;
    std::size_t entry_ = 0;
    std::size_t rowCount_ = 0;
    bool wasTable_ = false;
    bool hasCells_ = false;
};

}  // namespace

void WriteTable(std::string_view xml, Output& output) {
    WidthReader reader;
    ReadResult(xml, reader);
    TableWriter writer(output, reader.widths);
    ReadResult(xml, writer);
}

}  // namespace halvtiv::cli
