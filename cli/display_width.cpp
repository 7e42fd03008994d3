#include "display_width.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <array>

namespace halvtiv::cli {
namespace {

constexpr utf8proc_int32_t kReplacement = 0xFFFD;
constexpr utf8proc_int32_t kEmojiSelector = 0xFE0F;

bool IsPlain(char character) {
    return character >= 0x20 && character < 0x7F;
}

/// What is shown in the place of a code point.
utf8proc_int32_t Visible(utf8proc_int32_t code) {
    constexpr utf8proc_int32_t kControlPictures = 0x2400;
    constexpr utf8proc_int32_t kDeletePicture = 0x2421;
    constexpr utf8proc_int32_t kNewLinePicture = 0x2424;
    if (code < 0x20) return kControlPictures + code;
    if (code == 0x7F) return kDeletePicture;
    if (code == 0x85 || code == 0x2028 || code == 0x2029) return kNewLinePicture;
    if (code > 0x7F && code < 0xA0) return kReplacement;
    // Changes of direction would reach over the cell's end.
    if ((code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069)) return kReplacement;
    return code;
}

/// Columns that terminals give a code point. A spacing mark takes one, as it does in the C library's own
/// table.
std::size_t WidthOf(utf8proc_int32_t code) {
    if (utf8proc_category(code) == UTF8PROC_CATEGORY_MC) return 1;
    return static_cast<std::size_t>(utf8proc_charwidth(code));
}

/// Adds up the width of one character as the user sees it, of one or more code points.
class Cluster {
public:
    void Start(utf8proc_int32_t code) {
        bound_ = utf8proc_get_property(code)->boundclass;
        width_ = WidthOf(code);
        codes_ = 1;
        isEmoji_ = false;
    }

    void Add(utf8proc_int32_t code) {
        ++codes_;
        if (code == kEmojiSelector) isEmoji_ = true;
        if (bound_ == UTF8PROC_BOUNDCLASS_EXTENDED_PICTOGRAPHIC) {
            // Skin tones and what is joined change the picture, not its size.
            const auto added = utf8proc_get_property(code)->boundclass;
            if (added == UTF8PROC_BOUNDCLASS_EXTENDED_PICTOGRAPHIC || WidthOf(code) == 2) {
                isEmoji_ = true;
            }
        } else if (bound_ != UTF8PROC_BOUNDCLASS_L && bound_ != UTF8PROC_BOUNDCLASS_LV &&
                   bound_ != UTF8PROC_BOUNDCLASS_LVT) {
            width_ += WidthOf(code);
        }
    }

    std::size_t Width() const {
        if (isEmoji_) return 2;
        if (bound_ == UTF8PROC_BOUNDCLASS_REGIONAL_INDICATOR && codes_ >= 2) return 2;  // a flag
        return width_;
    }

private:
    int bound_ = 0;
    std::size_t width_ = 0;
    int codes_ = 0;
    bool isEmoji_ = false;
};

}  // namespace

ShownText Show(std::string_view text, std::string& storage) {
    if (std::all_of(text.begin(), text.end(), IsPlain)) return {text, text.size()};

    storage.clear();
    std::size_t width = 0;
    Cluster cluster;
    utf8proc_int32_t before = 0;
    utf8proc_int32_t state = 0;
    bool isFirst = true;
    while (!text.empty()) {
        utf8proc_int32_t code = 0;
        const utf8proc_ssize_t size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                                       static_cast<utf8proc_ssize_t>(text.size()), &code);
        text.remove_prefix(size > 0 ? static_cast<std::size_t>(size) : 1);
        code = size > 0 ? Visible(code) : kReplacement;

        if (isFirst || utf8proc_grapheme_break_stateful(before, code, &state)) {
            if (!isFirst) width += cluster.Width();
            cluster.Start(code);
        } else {
            cluster.Add(code);
        }
        isFirst = false;
        before = code;

        std::array<utf8proc_uint8_t, 4> bytes{};
        const utf8proc_ssize_t count = utf8proc_encode_char(code, bytes.data());
        storage.append(reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(count));
    }
    if (!isFirst) width += cluster.Width();
    return {storage, width};
}

void AppendPadded(std::string& line, std::string_view text, std::size_t width) {
    std::string storage;
    const ShownText shown = Show(text, storage);
    line += shown.text;
    if (shown.width < width) line.append(width - shown.width, ' ');
}

}  // namespace halvtiv::cli
