#include "ado/spooled_bytes.hpp"

#include <algorithm>
#include <cstring>

namespace halvtiv::ado {

void SpooledBytes::Append(std::span<const std::uint8_t> bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (!file_ && memory_.size() + text.size() > kMemoryBound) file_.emplace();
    if (file_) {
        file_->Append(text);
    } else {
        memory_ += text;
    }
}

std::int64_t SpooledBytes::Size() {
    return static_cast<std::int64_t>(memory_.size() + (file_ ? file_->Size() : 0));
}

void SpooledBytes::Read(std::int64_t offset, std::span<std::uint8_t> piece) {
    auto from = static_cast<std::uint64_t>(offset);
    if (from < memory_.size()) {
        const auto count = std::min<std::size_t>(piece.size(), memory_.size() - from);
        std::memcpy(piece.data(), memory_.data() + from, count);
        piece = piece.subspan(count);
        from += count;
    }
    if (!piece.empty()) {
        file_.value().Read(from - memory_.size(), reinterpret_cast<char*>(piece.data()), piece.size());
    }
}

}  // namespace halvtiv::ado
