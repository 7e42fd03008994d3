#include "platform/xml_encoding.hpp"

#include <iconv.h>

#include <algorithm>
#include <cerrno>

#include "platform/text.hpp"
#include "platform/xml_reader.hpp"

namespace halvtiv::platform {

namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

// A conversion to UTF-8, closed with the object.
class Converter {
public:
    explicit Converter(const char* encoding) : handle_(iconv_open("UTF-8", encoding)) {}
    ~Converter() {
        if (IsOpen()) iconv_close(handle_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    /// False when the encoding is unknown or the bytes do not fit it.
    bool Convert(std::string_view bytes, std::string& utf8) {
        utf8.clear();
        if (!IsOpen()) return false;
        auto* from = const_cast<char*>(bytes.data());  // iconv only reads there
        std::size_t left = bytes.size();
        char piece[16 * 1024];
        for (bool flushing = false;;) {
            char* to = piece;
            std::size_t room = sizeof piece;
            // At the end a stateful encoding gives what it still holds back.
            const std::size_t done = flushing ? iconv(handle_, nullptr, nullptr, &to, &room)
                                              : iconv(handle_, &from, &left, &to, &room);
            const int error = errno;
            utf8.append(piece, sizeof piece - room);
            if (done == static_cast<std::size_t>(-1)) {
                if (error != E2BIG) return false;
            } else if (flushing) {
                return true;
            } else {
                flushing = true;
            }
        }
    }

private:
    bool IsOpen() const noexcept { return handle_ != reinterpret_cast<iconv_t>(-1); }

    iconv_t handle_;
};

struct Encoding {
    const char* name = nullptr;  // null where the first bytes do not show it
    std::size_t markSize = 0;
};

// UTF-16 by its byte order mark, or because what begins a document ("<", a blank) has a zero byte beside it.
Encoding ShownUtf16(std::string_view bytes) noexcept {
    if (bytes.size() < 2) return {};
    if (bytes.starts_with("\xFF\xFE")) return {"UTF-16LE", 2};
    if (bytes.starts_with("\xFE\xFF")) return {"UTF-16BE", 2};
    if (bytes[0] != '\0' && bytes[1] == '\0') return {"UTF-16LE", 0};
    if (bytes[0] == '\0' && bytes[1] != '\0') return {"UTF-16BE", 0};
    return {};
}

Encoding ShownUtf32(std::string_view bytes) noexcept {
    using namespace std::string_view_literals;
    if (bytes.starts_with("\xFF\xFE\0\0"sv)) return {"UTF-32LE", 4};
    if (bytes.starts_with("\0\0\xFE\xFF"sv)) return {"UTF-32BE", 4};
    return {};
}

// The encoding that an XML declaration names, empty when none does. The declaration itself is ASCII.
std::string DeclaredEncoding(std::string_view bytes) {
    if (!bytes.starts_with("<?xml")) return {};
    const std::string_view declaration = bytes.substr(0, bytes.find("?>"));
    constexpr std::string_view kKey = "encoding";
    const std::size_t at = declaration.find(kKey);
    if (at == std::string_view::npos) return {};
    std::string_view rest = declaration.substr(at + kKey.size());
    const auto skipWhiteSpace = [&] {
        rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size()));
    };
    skipWhiteSpace();
    if (!rest.starts_with('=')) return {};
    rest.remove_prefix(1);
    skipWhiteSpace();
    if (rest.empty() || (rest.front() != '"' && rest.front() != '\'')) return {};
    const std::size_t end = rest.find(rest.front(), 1);
    if (end == std::string_view::npos) return {};
    return std::string(rest.substr(1, end - 1));
}

bool IsEncodingName(std::string_view name) noexcept {
    // Anything else would reach iconv's own switches, which stand after a "/".
    return !name.empty() && name.find_first_not_of(
                                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                "0123456789._-") == std::string_view::npos;
}

}  // namespace

std::optional<std::string_view> XmlTextAsUtf8(std::string_view text, std::string& converted) {
    if (text.starts_with(kUtf8Mark)) return text.substr(kUtf8Mark.size());
    const Encoding shown = ShownUtf16(text);
    if (shown.name == nullptr) return text;
    if (!Converter(shown.name).Convert(text.substr(shown.markSize), converted)) return std::nullopt;
    return converted;
}

bool DecodeXmlFileBytes(std::string_view bytes, std::string& utf8) {
    const auto takeUtf8 = [&](std::string_view text) {
        utf8.assign(text);
        return IsXmlText(text);
    };
    if (bytes.starts_with(kUtf8Mark)) return takeUtf8(bytes.substr(kUtf8Mark.size()));
    Encoding shown = ShownUtf32(bytes);
    if (shown.name == nullptr) shown = ShownUtf16(bytes);
    if (shown.name != nullptr) return Converter(shown.name).Convert(bytes.substr(shown.markSize), utf8);

    const std::string declared = DeclaredEncoding(bytes);
    if (declared.empty() || EqualIgnoringCase(declared, "UTF-8")) return takeUtf8(bytes);
    if (!IsEncodingName(declared)) return false;
    return Converter(declared.c_str()).Convert(bytes, utf8);
}

}  // namespace halvtiv::platform
