#include "platform/text_buffer.hpp"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "platform/system_pages.hpp"

namespace halvtiv::platform {

namespace {

constexpr std::size_t kPage = std::size_t{2} << 20;
constexpr std::size_t kFromSystem = kPage / 8;  // pieces from this size on
constexpr std::size_t kSystemGrain = std::size_t{1} << 16;

}  // namespace

void TextBuffer::Release::operator()(char* memory) const noexcept {
    if (size == 0) {
        std::free(memory);
    } else {
        GiveSystemPages(memory, size);
    }
}

TextBuffer::Memory TextBuffer::Allocate(std::size_t size) {
    if (size >= kFromSystem) {
        assert(size % kSystemGrain == 0);
        return Memory(static_cast<char*>(TakeSystemPages(size)), Release{size});
    }
    char* memory = static_cast<char*>(std::malloc(size));
    if (memory == nullptr) throw std::bad_alloc();
    return Memory(memory, Release{});
}

TextBuffer::TextBuffer(TextBuffer&& other) noexcept : firstPiece_(other.firstPiece_) {
    *this = std::move(other);
}

TextBuffer& TextBuffer::operator=(TextBuffer&& other) noexcept {
    if (this == &other) return *this;
    pieces_ = std::move(other.pieces_);
    memory_ = std::move(other.memory_);
    current_ = other.current_;
    capacity_ = other.capacity_;
    used_ = other.used_;
    run_ = other.run_;
    before_ = other.before_;
    firstPiece_ = other.firstPiece_;
    other.Forget();
    return *this;
}

void TextBuffer::Forget() noexcept {
    pieces_.clear();
    memory_.reset();
    current_ = nullptr;
    capacity_ = used_ = run_ = before_ = 0;
}

// The run in progress moves to the new piece, so that it stays in one.
void TextBuffer::Grow(std::size_t count) {
    const std::size_t run = used_ - run_;
    std::size_t size = std::max({firstPiece_, 2 * (run + count), std::min(Size(), kPage)});
    if (size >= kFromSystem) size = (size + kSystemGrain - 1) / kSystemGrain * kSystemGrain;
    Memory memory = Allocate(size);
    if (run > 0) std::memcpy(memory.get(), current_ + run_, run);
    if (run_ > 0) {
        Piece& full = pieces_.emplace_back();  // first, for it may fail: then everything is as it was
        full.memory = std::move(memory_);
        full.position = before_;
        full.size = run_;
        before_ += run_;
    }
    memory_ = std::move(memory);
    current_ = memory_.get();
    capacity_ = size;
    used_ = run;
    run_ = 0;
}

void TextBuffer::Append(const TextBuffer& other) {
    other.ForEachPiece([this](std::string_view piece) {
        BeginRun();
        Append(piece);
    });
}

std::string_view TextBuffer::View(std::size_t position, std::size_t count) const noexcept {
    if (position >= before_) return {current_ + (position - before_), count};
    const auto after =
        std::upper_bound(pieces_.begin(), pieces_.end(), position,
                         [](std::size_t at, const Piece& piece) { return at < piece.position; });
    const Piece& piece = *(after - 1);
    assert(position + count <= piece.position + piece.size);
    return {piece.memory.get() + (position - piece.position), count};
}

void TextBuffer::CopyTo(std::string& target) const {
    ForEachPiece([&target](std::string_view piece) { target.append(piece); });
}

void TextBuffer::MoveTo(std::string& target) {
    for (Piece& piece : pieces_) {
        target.append(piece.Text());
        piece.memory.reset();
    }
    if (used_ > 0) target.append(current_, used_);
    Forget();
}

std::string TextBuffer::ToString() const {
    std::string text;
    text.reserve(Size());
    CopyTo(text);
    return text;
}

}  // namespace halvtiv::platform
