#include "platform/plain_xml.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/text.hpp"

namespace halvtiv::platform {

namespace {

enum CharacterKind : std::uint8_t {
    kSpace = 1,
    kNameStart = 2,
    kName = 4,
    kValue = 8,  // stands for itself in an attribute's value, quotes aside
    kText = 16   // stands for itself between tags
};

constexpr auto kKinds = [] {
    std::array<std::uint8_t, 256> kinds{};
    kinds.fill(kValue | kText);
    for (std::size_t byte = 'a'; byte <= 'z'; ++byte) kinds[byte] |= kNameStart | kName;
    for (std::size_t byte = 'A'; byte <= 'Z'; ++byte) kinds[byte] |= kNameStart | kName;
    for (std::size_t byte = '0'; byte <= '9'; ++byte) kinds[byte] |= kName;
    kinds['_'] |= kNameStart | kName;
    kinds['-'] |= kName;
    kinds['.'] |= kName;
    kinds[' '] |= kSpace;
    kinds['\t'] = kinds['\n'] = kSpace | kText;  // a value has blanks in their place
    kinds['\r'] = kSpace;                        // a text has a line feed in its place
    kinds['&'] = kinds['<'] = 0;
    kinds[']'] = kValue;  // in a text it may begin "]]>"
    return kinds;
}();

bool Is(char byte, CharacterKind kind) noexcept {
    return (kKinds[static_cast<unsigned char>(byte)] & kind) != 0;
}

/// A document, looked through whole before anything of it is told.
class PlainDocument {
public:
    explicit PlainDocument(std::string_view text) noexcept : rest_(text) {}

    bool Scan() noexcept {
        if (!IsXmlText(rest_)) return false;
        TakeRun(kSpace);
        if (!ScanStartTag()) return false;
        while (depth_ > 0) {
            if (!ScanText()) return false;
            if (!(rest_.starts_with("</") ? ScanEndTag() : ScanStartTag())) return false;
        }
        TakeRun(kSpace);
        return rest_.empty();
    }

    void Tell(XmlHandler& handler) const {
        std::span<const XmlAttribute> attributes(attributes_);
        for (const Event& event : std::span(events_).first(eventCount_)) {
            if (event.what == What::Text) {
                handler.Text(event.text);
            } else if (event.what == What::End) {
                handler.EndElement(event.text);
            } else {
                handler.StartElement(event.text, attributes.first(event.attributeCount));
                attributes = attributes.subspan(event.attributeCount);
            }
        }
    }

private:
    enum class What : std::uint8_t { Start, End, Text };
    struct Event {
        What what = What::Start;
        std::size_t attributeCount = 0;
        std::string_view text;  // an element's is its name
    };

    bool Skip(char expected) noexcept {
        if (!rest_.starts_with(expected)) return false;
        rest_.remove_prefix(1);
        return true;
    }

    std::string_view Take(std::size_t length) noexcept {
        const std::string_view taken = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return taken;
    }

    std::string_view TakeRun(CharacterKind kind, char stop = '\0') noexcept {
        std::size_t length = 0;
        while (length < rest_.size() && Is(rest_[length], kind) && rest_[length] != stop) ++length;
        return Take(length);
    }

    /// Empty where no name begins.
    std::string_view TakeName() noexcept {
        return rest_.empty() || !Is(rest_.front(), kNameStart) ? std::string_view() : TakeRun(kName);
    }

    bool Add(What what, std::string_view text) noexcept {
        if (eventCount_ == events_.size()) return false;
        events_[eventCount_++] = {what, 0, text};
        return true;
    }

    /// What stands before the next tag: nothing, white space or a text.
    bool ScanText() noexcept {
        const std::string_view all = rest_;
        TakeRun(kSpace);
        if (rest_.starts_with('<')) return true;
        rest_ = all;
        const std::string_view text = TakeRun(kText);
        return rest_.starts_with('<') && Add(What::Text, text);
    }

    bool ScanStartTag() noexcept {
        if (!Skip('<')) return false;
        const std::string_view name = TakeName();
        if (name.empty() || depth_ == open_.size() || !Add(What::Start, name)) return false;
        Event& start = events_[eventCount_ - 1];
        for (;;) {
            const bool isApart = !TakeRun(kSpace).empty();
            if (Skip('>')) {
                open_[depth_++] = name;
                return true;
            }
            if (Skip('/')) return Skip('>') && Add(What::End, name);
            if (!isApart || !ScanAttribute(start)) return false;
        }
    }

    bool ScanAttribute(Event& element) noexcept {
        const std::string_view name = TakeName();
        if (name.empty() || attributeCount_ == attributes_.size()) return false;
        for (const XmlAttribute& other :
             std::span(attributes_.data(), attributeCount_).last(element.attributeCount)) {
            if (other.name == name) return false;
        }
        TakeRun(kSpace);
        if (!Skip('=')) return false;
        TakeRun(kSpace);
        const char quote = rest_.starts_with('\'') ? '\'' : '"';
        if (!Skip(quote)) return false;
        attributes_[attributeCount_++] = {name, TakeRun(kValue, quote)};
        ++element.attributeCount;
        return Skip(quote);
    }

    bool ScanEndTag() noexcept {
        rest_.remove_prefix(2);
        const std::string_view name = TakeName();
        TakeRun(kSpace);
        return name == open_[--depth_] && Skip('>') && Add(What::End, name);
    }

    std::string_view rest_;
    std::array<Event, 64> events_;
    std::size_t eventCount_ = 0;
    std::array<XmlAttribute, 64> attributes_;  // those of all elements, one after the other
    std::size_t attributeCount_ = 0;
    std::array<std::string_view, 8> open_;  // names of the elements not yet ended
    std::size_t depth_ = 0;
};

constexpr std::size_t kLongest = 16384;  // a longer one is not worth looking through twice

}  // namespace

bool ReadPlainXml(std::string_view utf8, XmlHandler& handler) {
    if (utf8.size() > kLongest) return false;
    PlainDocument document(utf8);
    if (!document.Scan()) return false;
    document.Tell(handler);
    return true;
}

}  // namespace halvtiv::platform
