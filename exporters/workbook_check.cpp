#include "workbook_check.hpp"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <set>
#include <string_view>
#include <utility>

#include "errors.hpp"

namespace halvtiv::exporters {

namespace {

constexpr std::string_view kSheet = "xl/worksheets/sheet1.xml";
constexpr std::array<std::string_view, 9> kParts{
    "[Content_Types].xml", "_rels/.rels",   "docProps/app.xml",           "docProps/core.xml",  kSheet,
    "xl/workbook.xml",     "xl/styles.xml", "xl/_rels/workbook.xml.rels", "xl/theme/theme1.xml"};

/// What is wrong with a workbook.
struct Broken {
    std::string what;
};

void Require(bool condition, std::string what) {
    if (!condition) throw Broken{std::move(what)};
}

std::uint64_t LittleEndian(std::string_view bytes, std::size_t at, std::size_t count) {
    Require(at + count <= bytes.size(), "its directory is cut");
    std::uint64_t value = 0;
    for (std::size_t byte = count; byte-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + byte]);
    }
    return value;
}

class ArchiveFile {
public:
    explicit ArchiveFile(const std::string& path) : file_(std::fopen(path.c_str(), "rbe"), &std::fclose) {
        Require(file_ != nullptr && std::fseek(file_.get(), 0, SEEK_END) == 0, "it cannot be read");
        size_ = static_cast<std::uint64_t>(std::ftell(file_.get()));
    }
    std::uint64_t Size() const { return size_; }
    std::string Read(std::uint64_t offset, std::uint64_t count) {
        Require(offset <= size_ && count <= size_ - offset, "it is cut");
        std::string bytes(count, '\0');
        const bool isRead = std::fseek(file_.get(), static_cast<long>(offset), SEEK_SET) == 0 &&
                            std::fread(bytes.data(), 1, count, file_.get()) == count;
        Require(isRead, "it cannot be read");
        return bytes;
    }

private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
    std::uint64_t size_ = 0;
};

/// One part as the directory describes it.
struct Part {
    std::string name;
    std::uint64_t method = 0, checksum = 0, packed = 0, unpacked = 0, offset = 0;
};

struct Directory {
    std::uint64_t count = 0, size = 0, offset = 0;
};

/// The directory's place, from the records at the end of the file, which has no comment behind them.
Directory FindDirectory(ArchiveFile& file) {
    constexpr std::uint64_t kEnd = 22, kLocator = 20, kEnd64 = 56;
    Require(file.Size() >= kEnd, "its end is missing");
    const std::string end = file.Read(file.Size() - kEnd, kEnd);
    Require(end.starts_with("PK\5\6"), "its end is missing");
    Directory found{LittleEndian(end, 10, 2), LittleEndian(end, 12, 4), LittleEndian(end, 16, 4)};
    if (found.size != 0xFFFFFFFFU && found.offset != 0xFFFFFFFFU && found.count != 0xFFFFU) return found;
    Require(file.Size() >= kEnd + kLocator, "its end is missing");
    const std::string locator = file.Read(file.Size() - kEnd - kLocator, kLocator);
    Require(locator.starts_with("PK\6\7"), "its end is missing");
    const std::string end64 = file.Read(LittleEndian(locator, 8, 8), kEnd64);
    Require(end64.starts_with("PK\6\6"), "its end is missing");
    return {LittleEndian(end64, 32, 8), LittleEndian(end64, 40, 8), LittleEndian(end64, 48, 8)};
}

/// Takes the entry at the front of the directory.
Part TakePart(std::string_view& directory) {
    constexpr std::size_t kHeader = 46;
    constexpr std::uint64_t kElsewhere = 0xFFFFFFFFU;  // the number is in the first extra field
    Require(directory.starts_with("PK\1\2"), "its directory is cut");
    Part part;
    part.method = LittleEndian(directory, 10, 2);
    part.checksum = LittleEndian(directory, 16, 4);
    part.packed = LittleEndian(directory, 20, 4);
    part.unpacked = LittleEndian(directory, 24, 4);
    part.offset = LittleEndian(directory, 42, 4);
    const std::size_t nameSize = LittleEndian(directory, 28, 2);
    const std::size_t extraSize = LittleEndian(directory, 30, 2);
    const std::size_t commentSize = LittleEndian(directory, 32, 2);
    Require(kHeader + nameSize + extraSize + commentSize <= directory.size(), "its directory is cut");
    part.name = directory.substr(kHeader, nameSize);
    std::size_t extra = kHeader + nameSize + 4;
    for (std::uint64_t* const number : {&part.unpacked, &part.packed, &part.offset}) {
        if (*number != kElsewhere) continue;
        *number = LittleEndian(directory, extra, 8);
        extra += 8;
    }
    directory.remove_prefix(kHeader + nameSize + extraSize + commentSize);
    return part;
}

/// Unpacks a part piece by piece, and compares it with what the directory says.
template <typename Take>
void Unpack(ArchiveFile& file, const Part& part, Take&& take) {
    constexpr std::uint64_t kLocalHeader = 30;
    constexpr std::size_t kPiece = std::size_t{128} * 1024;
    const std::string header = file.Read(part.offset, kLocalHeader);
    const std::uint64_t nameSize = LittleEndian(header, 26, 2);
    Require(header.starts_with("PK\3\4") && part.method == Z_DEFLATED &&
                file.Read(part.offset + kLocalHeader, nameSize) == part.name,
            part.name + " is not where the directory says");
    std::uint64_t offset = part.offset + kLocalHeader + nameSize + LittleEndian(header, 28, 2);
    std::uint64_t left = part.packed;

    z_stream stream{};
    if (::inflateInit2(&stream, -MAX_WBITS) != Z_OK) throw std::bad_alloc();
    const std::unique_ptr<z_stream, int (*)(z_stream*)> ends(&stream, &::inflateEnd);
    std::string packed, unpacked(kPiece, '\0');
    std::uint64_t size = 0;
    std::uint32_t checksum = 0;
    for (int status = Z_OK; status != Z_STREAM_END;) {
        if (stream.avail_in == 0 && left > 0) {
            packed = file.Read(offset, std::min<std::uint64_t>(left, kPiece));
            offset += packed.size();
            left -= packed.size();
            stream.next_in = reinterpret_cast<Bytef*>(packed.data());
            stream.avail_in = static_cast<uInt>(packed.size());
        }
        stream.next_out = reinterpret_cast<Bytef*>(unpacked.data());
        stream.avail_out = static_cast<uInt>(kPiece);
        status = ::inflate(&stream, Z_NO_FLUSH);
        if (status == Z_MEM_ERROR) throw std::bad_alloc();
        Require(status == Z_OK || status == Z_STREAM_END, part.name + " cannot be unpacked");
        const std::string_view piece(unpacked.data(), kPiece - stream.avail_out);
        size += piece.size();
        checksum = static_cast<std::uint32_t>(
            ::crc32(checksum, reinterpret_cast<const Bytef*>(piece.data()), static_cast<uInt>(piece.size())));
        take(piece);
    }
    Require(left == 0 && stream.avail_in == 0 && size == part.unpacked && checksum == part.checksum,
            part.name + " is not what the directory says");
}

/// Parsed parts by name, the sheet without its rows.
using Documents = std::map<std::string, pugi::xml_document, std::less<>>;

void ReadXml(const std::string& xml, const std::string& part, pugi::xml_document& document) {
    const bool isWhole = xml.starts_with("<?xml ") &&
                         document.load_buffer(xml.data(), xml.size()).status == pugi::status_ok &&
                         document.document_element();
    Require(isWhole, part + " is cut");
}

/// Compares each list's count attribute with its elements.
void RequireWholeLists(const pugi::xml_node& node, const std::string& part) {
    for (const pugi::xml_node& child : node.children()) {
        const bool isVector = std::string_view(child.name()) == "vt:vector";
        if (const pugi::xml_attribute count = child.attribute(isVector ? "size" : "count")) {
            const auto elements = std::distance(child.begin(), child.end());
            Require(count.as_llong() == elements, part + " lacks elements");
        }
        RequireWholeLists(child, part);
    }
}

void RequireWholeContainer(const Documents& documents) {
    std::set<std::string, std::less<>> typed, related;
    const pugi::xml_node types = documents.at("[Content_Types].xml").document_element();
    for (const pugi::xml_node& type : types.children("Override")) {
        if (type.attribute("ContentType")) typed.insert(type.attribute("PartName").value());
    }
    for (const char* const extension : {"rels", "xml"}) {
        Require(types.find_child_by_attribute("Default", "Extension", extension), "a type is missing");
    }
    for (const auto& [part, folder] :
         {std::pair("_rels/.rels", ""), std::pair("xl/_rels/workbook.xml.rels", "xl/")}) {
        for (const pugi::xml_node& relation : documents.at(part).document_element().children()) {
            if (relation.attribute("Id") && relation.attribute("Type")) {
                related.insert(std::string(folder) + relation.attribute("Target").value());
            }
        }
    }
    for (const auto& [part, document] : documents) {
        RequireWholeLists(document, part);
        if (part.ends_with(".rels") || part == "[Content_Types].xml") continue;
        Require(typed.contains("/" + part) && related.contains(part), part + " has no type or relationship");
    }
    const pugi::xml_node about = documents.at("docProps/app.xml").document_element();
    Require(about.select_nodes("//TitlesOfParts/*/*").size() == 1 &&
                about.select_nodes("//HeadingPairs/*/*").size() == 2,
            "docProps/app.xml lacks elements");
}

/// Reads a sheet piece by piece; keeps only the XML around the rows whose checksum is known.
class SheetReader {
public:
    explicit SheetReader(const SheetContent& expected) : expected_(expected) {}

    void Take(std::string_view piece) {
        CountCells(piece);
        if (!isInRows_) {
            around_ += piece;
            const std::size_t rows = around_.find(kRows);
            if (rows == std::string::npos) return;
            isInRows_ = true;
            const std::string behind = around_.substr(rows + kRows.size());
            around_.resize(rows + kRows.size());
            return TakeRows(behind);
        }
        TakeRows(piece);
    }
    /// Leaves what stands around the rows in `document`.
    void Finish(pugi::xml_document& document) {
        Require(size_ == expected_.size && checksum_ == expected_.checksum && cells_ == expected_.cells &&
                    formattedCells_ == expected_.formattedCells,
                "the sheet's rows are not those that were written");
        ReadXml(around_, "the sheet", document);
        Require(document.select_nodes("/worksheet/cols/col").size() == expected_.columns,
                "the sheet lacks columns");
        Require(document.select_node("/worksheet/sheetViews/sheetView[pane and selection]"),
                "the sheet's header is not frozen");
    }
    std::size_t LargestFormat() const { return largestFormat_; }

private:
    static constexpr std::string_view kRows = "<sheetData>";

    void TakeRows(std::string_view piece) {
        const std::size_t count = std::min<std::uint64_t>(expected_.size - size_, piece.size());
        checksum_ = static_cast<std::uint32_t>(
            ::crc32(checksum_, reinterpret_cast<const Bytef*>(piece.data()), static_cast<uInt>(count)));
        size_ += count;
        around_ += piece.substr(count);
    }
    void CountCells(std::string_view piece) {
        constexpr std::string_view kCell = "<c ", kFormat = " s=\"";
        seam_ += piece;
        std::size_t at = 0;
        for (std::size_t end = 0; (at = seam_.find('<', at)) != std::string::npos; at = end) {
            end = seam_.find('>', at);
            if (end == std::string::npos) break;
            const std::string_view tag = std::string_view(seam_).substr(at, end - at);
            if (!tag.starts_with(kCell)) continue;
            ++cells_;
            const std::size_t format = tag.find(kFormat);
            if (format == std::string_view::npos) continue;
            ++formattedCells_;
            std::size_t number = 0;
            std::from_chars(tag.data() + format + kFormat.size(), tag.data() + tag.size(), number);
            largestFormat_ = std::max(largestFormat_, number);
        }
        seam_.erase(0, std::min(at, seam_.size()));
    }

    SheetContent expected_;
    std::string around_;
    std::string seam_;  // a tag that the piece before has begun
    bool isInRows_ = false;
    std::uint64_t size_ = 0;
    std::uint32_t checksum_ = 0;
    std::uint64_t cells_ = 0;
    std::uint64_t formattedCells_ = 0;
    std::size_t largestFormat_ = 0;
};

void Check(const std::string& path, const SheetContent& expected) {
    ArchiveFile file(path);
    const Directory place = FindDirectory(file);
    const std::string directory = file.Read(place.offset, place.size);
    Documents documents;
    SheetReader sheet(expected);
    std::string_view rest = directory;
    for (std::uint64_t index = 0; index < place.count; ++index) {
        const Part part = TakePart(rest);
        const auto [document, isNew] = documents.try_emplace(part.name);
        Require(isNew, part.name + " is there twice");
        if (part.name == kSheet) {
            Unpack(file, part, [&sheet](std::string_view piece) { sheet.Take(piece); });
            sheet.Finish(document->second);
        } else {
            std::string xml;
            Unpack(file, part, [&xml](std::string_view piece) { xml += piece; });
            ReadXml(xml, part.name, document->second);
        }
    }
    Require(rest.empty(), "its directory is cut");
    for (const std::string_view part : kParts) {
        Require(documents.contains(part), std::string(part) + " is missing");
    }
    RequireWholeContainer(documents);
    Require(
        documents.at("xl/styles.xml").select_nodes("/styleSheet/cellXfs/xf").size() > sheet.LargestFormat(),
        "xl/styles.xml lacks formats");
}

}  // namespace

void RequireWholeWorkbook(const std::string& path, const SheetContent& sheet, const std::string& name) {
    try {
        Check(path, sheet);
    } catch (const Broken& broken) {
        Raise(ErrorNumber::DeviceIo, "The workbook is not complete: " + broken.what + ". (" + name + ")");
    }
}

}  // namespace halvtiv::exporters
