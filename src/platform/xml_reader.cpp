#include "platform/xml_reader.hpp"

#include <expat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <vector>

#include "platform/guid.hpp"
#include "platform/parser_memory.hpp"
#include "platform/plain_xml.hpp"
#include "platform/xml_encoding.hpp"

namespace halvtiv::platform {

namespace {

constexpr int kDeepest = 256;
constexpr std::size_t kPiece = std::size_t{1} << 16;  // what Expat copies at a time
constexpr std::size_t kLongestPiece = std::size_t{1} << 30;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

bool IsWhiteSpace(std::string_view text) noexcept {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// One for the whole process spares each reading a call of the system; 0 lets Expat find one of its own.
unsigned long HashSalt() noexcept {
    static const unsigned long salt = [] {
        unsigned long value = 0;
        if (const auto random = NewGuid()) std::memcpy(&value, random->data(), sizeof value);
        return value;
    }();
    return salt;
}

// One reading of one text: Expat's calls become the handler's.
class Reader {
public:
    explicit Reader(XmlHandler& handler) : handler_(handler) {
        XML_SetHashSalt(parser_, HashSalt());
        XML_SetUserData(parser_, this);
        XML_SetXmlDeclHandler(parser_, [](void* self, const char* version, const char*, int) {
            Guarded(self, [&](Reader& reader) { reader.OnDeclaration(version); });
        });
        XML_SetStartDoctypeDeclHandler(parser_, [](void* self, const char*, const char*, const char*, int) {
            Guarded(self, [](Reader& reader) { reader.Stop(); });
        });
        XML_SetElementHandler(
            parser_,
            [](void* self, const char* name, const char** attributes) {
                Guarded(self, [&](Reader& reader) { reader.OnStart(name, attributes); });
            },
            [](void* self, const char* name) { Guarded(self, [&](Reader& reader) { reader.OnEnd(name); }); });
        XML_SetCharacterDataHandler(parser_, [](void* self, const char* text, int length) {
            Guarded(self,
                    [&](Reader& reader) { reader.text_.append(text, static_cast<std::size_t>(length)); });
        });
        XML_SetCommentHandler(parser_, [](void* self, const char* text) {
            Guarded(self, [&](Reader& reader) { reader.OnComment(text); });
        });
        XML_SetProcessingInstructionHandler(parser_, [](void* self, const char* target, const char* data) {
            Guarded(self, [&](Reader& reader) { reader.OnInstruction(target, data); });
        });
    }

    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /// Reads a whole document, once.
    bool Read(std::string_view text) {
        // Expat would skip a byte order mark of its own accord, and with it a second one.
        if (text.starts_with(kUtf8Mark)) return false;
        XML_Status status = XML_STATUS_OK;
        std::size_t most = kPiece;
        do {
            const std::string_view piece = text.substr(0, most);
            const XML_Index before = XML_GetCurrentByteIndex(parser_);
            text.remove_prefix(piece.size());
            status = XML_Parse(parser_, piece.data(), static_cast<int>(piece.size()), text.empty());
            // A piece that ends inside a long value is gone through again with the next one: let that be
            // longer.
            most = XML_GetCurrentByteIndex(parser_) > before ? kPiece : std::min(2 * most, kLongestPiece);
        } while (status == XML_STATUS_OK && !text.empty());
        if (failure_) std::rethrow_exception(failure_);
        if (status != XML_STATUS_OK && XML_GetErrorCode(parser_) == XML_ERROR_NO_MEMORY) {
            throw std::bad_alloc();
        }
        return status == XML_STATUS_OK && !stopped_;
    }

private:
    // No exception may travel through Expat; and Expat may still call once more after it was stopped.
    template <typename Action>
    static void Guarded(void* self, Action action) noexcept {
        Reader& reader = *static_cast<Reader*>(self);
        if (reader.stopped_) return;
        try {
            action(reader);
        } catch (...) {
            reader.failure_ = std::current_exception();
            reader.Stop();
        }
    }

    void Stop() noexcept {
        stopped_ = true;
        XML_StopParser(parser_, XML_FALSE);
    }

    // Expat takes any version; those of XML 1 are "1." and digits.
    void OnDeclaration(std::string_view version) noexcept {
        if (version.size() < 3 || !version.starts_with("1.") ||
            version.find_first_not_of("0123456789", 2) != std::string_view::npos) {
            Stop();
        }
    }

    void OnStart(const char* name, const char** attributes) {
        FlushText();
        if (++depth_ > kDeepest) return Stop();
        std::size_t count = 0;
        for (; attributes[0] != nullptr && count < few_.size(); attributes += 2) {
            few_[count++] = {attributes[0], attributes[1]};
        }
        if (attributes[0] == nullptr) return handler_.StartElement(name, std::span(few_).first(count));
        many_.assign(few_.begin(), few_.end());
        for (; attributes[0] != nullptr; attributes += 2) many_.push_back({attributes[0], attributes[1]});
        handler_.StartElement(name, many_);
    }

    void OnEnd(const char* name) {
        FlushText();
        --depth_;
        handler_.EndElement(name);
    }

    void OnComment(const char* text) {
        FlushText();
        if (depth_ > 0) handler_.Comment(text);
    }

    void OnInstruction(const char* target, const char* data) {
        FlushText();
        if (depth_ > 0) handler_.ProcessingInstruction(target, data);
    }

    void FlushText() {
        if (text_.empty()) return;
        if (!IsWhiteSpace(text_)) handler_.Text(text_);
        text_.clear();
    }

    XmlHandler& handler_;
    ScopedParser scoped_;
    XML_Parser parser_ = scoped_.Get();
    std::string text_;                  // character data since the last tag, comment or instruction
    std::array<XmlAttribute, 16> few_;  // the attributes of an element, if they are no more
    std::vector<XmlAttribute> many_;
    std::exception_ptr failure_;
    int depth_ = 0;
    bool stopped_ = false;
};

// Writes what it is told as the plainest markup with the same meaning, for the tree to be made from at one
// go: the names and values then lie in one block instead of one allocation each, and the memory that Expat
// needs is free again before the tree needs its own.
class PlainMarkup final : public XmlHandler {
public:
    explicit PlainMarkup(std::size_t expectedSize) { Grow(expectedSize + expectedSize / 8 + 64); }

    void StartElement(std::string_view name, std::span<const XmlAttribute> attributes) override {
        CloseTag();
        Put("<", name);
        for (const XmlAttribute& attribute : attributes) {
            Put(" ", attribute.name);
            Put("=\"");
            PutEscaped(attribute.value, '"', "&quot;");
            Put("\"");
        }
        tagOpen_ = true;
    }

    void EndElement(std::string_view name) override {
        if (tagOpen_) {
            Put("/>");
            tagOpen_ = false;
        } else {
            Put("</", name, ">");
        }
    }

    void Text(std::string_view text) override {
        CloseTag();
        PutEscaped(text, '<', "&lt;");
    }

    void Comment(std::string_view text) override {
        CloseTag();
        Put("<!--", text, "-->");
    }

    void ProcessingInstruction(std::string_view target, std::string_view data) override {
        CloseTag();
        Put("<?", target, " ");
        Put(data, "?>");
    }

    /// Hands the markup over to the document, which keeps it.
    bool BuildTree(pugi::xml_document& document) {
        constexpr unsigned kOptions = pugi::parse_escapes | pugi::parse_comments | pugi::parse_pi;
        const auto result =
            document.load_buffer_inplace_own(memory_.release(), size_, kOptions, pugi::encoding_utf8);
        if (!result) document.reset();
        if (result.status == pugi::status_out_of_memory) throw std::bad_alloc();
        return result;
    }

private:
    struct Release {
        void operator()(char* memory) const { pugi::get_memory_deallocation_function()(memory); }
    };

    void Grow(std::size_t capacity) {
        std::unique_ptr<char, Release> larger(
            static_cast<char*>(pugi::get_memory_allocation_function()(capacity)));
        if (!larger) throw std::bad_alloc();
        if (size_ > 0) std::memcpy(larger.get(), memory_.get(), size_);
        memory_ = std::move(larger);
        capacity_ = capacity;
    }

    template <typename... Parts>
    void Put(const Parts&... parts) {
        const std::size_t count = (std::string_view(parts).size() + ...);
        if (capacity_ - size_ < count) Grow(std::max(capacity_ * 2, size_ + count));
        ((size_ += std::string_view(parts).copy(memory_.get() + size_, std::string_view::npos)), ...);
    }

    void PutEscaped(std::string_view text, char special, std::string_view reference) {
        const auto isSpecial = [special](char character) { return character == special || character == '&'; };
        for (;;) {
            const auto stop = std::find_if(text.begin(), text.end(), isSpecial);
            const auto length = static_cast<std::size_t>(stop - text.begin());
            Put(text.substr(0, length));
            if (length == text.size()) return;
            Put(text[length] == '&' ? std::string_view("&amp;") : reference);
            text.remove_prefix(length + 1);
        }
    }

    void CloseTag() {
        if (tagOpen_) Put(">");
        tagOpen_ = false;
    }

    std::unique_ptr<char, Release> memory_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
    bool tagOpen_ = false;  // the last start tag still lacks its ">"
};

bool LoadUtf8(std::string_view text, pugi::xml_document& document) {
    PlainMarkup plain(text.size());
    const bool read = Reader(plain).Read(text);  // the parser's memory is free after this
    return read && plain.BuildTree(document);
}

}  // namespace

bool ReadXmlText(std::string_view text, XmlHandler& handler) {
    std::string converted;
    const auto utf8 = XmlTextAsUtf8(text, converted);
    return utf8 && (ReadPlainXml(*utf8, handler) || Reader(handler).Read(*utf8));
}

bool LoadXmlText(std::string_view text, pugi::xml_document& document) {
    document.reset();
    std::string converted;
    const auto utf8 = XmlTextAsUtf8(text, converted);
    return utf8 && LoadUtf8(*utf8, document);
}

bool LoadXmlFileBytes(std::string_view bytes, pugi::xml_document& document) {
    document.reset();
    std::string utf8;
    return DecodeXmlFileBytes(bytes, utf8) && LoadUtf8(utf8, document);
}

}  // namespace halvtiv::platform
