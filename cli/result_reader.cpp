#include "result_reader.hpp"

#include <vector>

#include "command_error.hpp"
#include "platform/xml_reader.hpp"

namespace halvtiv::cli {
namespace {

std::string_view AttributeValue(std::span<const platform::XmlAttribute> attributes, std::string_view name) {
    for (const platform::XmlAttribute& attribute : attributes) {
        if (attribute.name == name) return attribute.value;
    }
    return {};
}

class ResultHandler : public platform::XmlHandler {
public:
    explicit ResultHandler(ResultVisitor& visitor) : visitor_(visitor) {}

    void StartElement(std::string_view name, std::span<const platform::XmlAttribute> attributes) override {
        ++depth_;
        if (depth_ == kEntryDepth && name == "data") {
            const std::string_view type = AttributeValue(attributes, "type");
            isData_ = type.empty() || type == "data";
            visitor_.BeginEntry(AttributeValue(attributes, "guid"), isData_ ? "data" : type);
        } else if (depth_ == kRowDepth) {
            isHeader_ = AttributeValue(attributes, "index") == "0";
            count_ = 0;
        } else if (depth_ == kCellDepth) {
            AddCell(attributes);
        }
    }

    void EndElement(std::string_view name) override {
        if (depth_ == kEntryDepth && name == "data") {
            visitor_.EndEntry();
        } else if (depth_ == kRowDepth) {
            const std::span<const ResultCell> cells(cells_.data(), count_);
            if (!isData_) {
                visitor_.Cells(cells);
            } else if (isHeader_) {
                visitor_.Header(cells);
            } else {
                visitor_.Row(cells);
            }
        }
        --depth_;
    }

    void Text(std::string_view) override {}
    void Comment(std::string_view) override {}
    void ProcessingInstruction(std::string_view, std::string_view) override {}

private:
    static constexpr int kEntryDepth = 2;
    static constexpr int kRowDepth = 3;
    static constexpr int kCellDepth = 4;

    // Cells are filled again row by row, so that their memory is taken once.
    void AddCell(std::span<const platform::XmlAttribute> attributes) {
        if (count_ == cells_.size()) cells_.emplace_back();
        cells_[count_].name = AttributeValue(attributes, "name");
        cells_[count_].value = AttributeValue(attributes, "value");
        ++count_;
    }

    ResultVisitor& visitor_;
    std::vector<ResultCell> cells_;
    std::size_t count_ = 0;
    int depth_ = 0;
    bool isData_ = false;
    bool isHeader_ = false;
};

}  // namespace

void ReadResult(std::string_view xml, ResultVisitor& visitor) {
    ResultHandler handler(visitor);
    if (!platform::ReadXmlText(xml, handler)) {
        throw CommandError(ExitStatus::Failed, "The result is not a readable document.");
    }
}

bool HoldsErrorEntry(std::string_view xml) {
    // The engine escapes "<" and ">" in values, so that these stand for markup wherever they are found.
    constexpr std::string_view kEntry = "<data ";
    for (std::size_t start = xml.find(kEntry); start != std::string_view::npos;
         start = xml.find(kEntry, start + 1)) {
        const std::string_view tag = xml.substr(start, xml.find('>', start) - start);
        if (tag.find(" type=\"error\"") != std::string_view::npos) return true;
    }
    return false;
}

std::size_t CountErrorCells(std::string_view xml) {
    // Quotes in values are escaped: this stands nowhere but at the end of a cell.
    constexpr std::string_view kMarked = "\" type=\"error\"/>";
    std::size_t count = 0;
    for (std::size_t at = xml.find(kMarked); at != std::string_view::npos; at = xml.find(kMarked, at + 1))
        ++count;
    return count;
}

}  // namespace halvtiv::cli
