#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace halvtiv::platform {

/// A text that is written in small steps at its end, however long it becomes.
///
/// It stands in pieces: each as large as all before it, up to pages of 2 MiB that come straight from the
/// system. `MoveTo` gives every piece back as soon as it is copied, so a long text is never held twice.
/// What is written after a `BeginRun` stays together in one piece until the next one: a row can be looked at
/// as one view.
class TextBuffer {
public:
    /// firstPiece: bytes to begin with; a larger one spares small steps where the size is foreseeable.
    explicit TextBuffer(std::size_t firstPiece = 64) noexcept : firstPiece_(firstPiece) {}
    TextBuffer(TextBuffer&& other) noexcept;
    TextBuffer& operator=(TextBuffer&& other) noexcept;

    std::size_t Size() const noexcept { return before_ + used_; }
    bool Empty() const noexcept { return Size() == 0; }

    /// Starts a run at the end and returns its position.
    std::size_t BeginRun() noexcept {
        run_ = used_;
        return Size();
    }

    /// Room for `count` bytes at the end: write there, then `Advance` by what was written.
    char* Reserve(std::size_t count) {
        if (capacity_ - used_ < count) Grow(count);
        return current_ + used_;
    }
    void Advance(std::size_t count) noexcept { used_ += count; }

    void Append(std::string_view text) {
        if (text.empty()) return;
        std::memcpy(Reserve(text.size()), text.data(), text.size());
        Advance(text.size());
    }
    void Append(char character) {
        *Reserve(1) = character;
        Advance(1);
    }
    /// Appends a copy of another text.
    void Append(const TextBuffer& other);

    /// Cuts the text back to a size it had since the last `BeginRun`.
    void CutTo(std::size_t size) noexcept { used_ = size - before_; }

    /// Empties the text and keeps the memory of its last piece.
    void Clear() noexcept {
        pieces_.clear();
        used_ = run_ = before_ = 0;
    }

    /// The bytes of one run, or of a part of one.
    std::string_view View(std::size_t position, std::size_t count) const noexcept;

    /// Calls `visit` with each piece's text in order.
    template <typename Visit>
    void ForEachPiece(Visit&& visit) const {
        for (const Piece& piece : pieces_) visit(piece.Text());
        if (used_ > 0) visit(std::string_view(current_, used_));
    }

    /// Appends a copy of the text to a string.
    void CopyTo(std::string& target) const;
    /// Appends the text to a string that has the capacity already, giving the pieces back on the way.
    void MoveTo(std::string& target);
    /// The text as a string.
    std::string ToString() const;

private:
    struct Release {
        std::size_t size;  // what to give back to the system; 0 for memory of the heap
        Release() noexcept : size(0) {}
        explicit Release(std::size_t pages) noexcept : size(pages) {}
        void operator()(char* memory) const noexcept;
    };
    using Memory = std::unique_ptr<char[], Release>;
    struct Piece {
        Memory memory;
        std::size_t position = 0;  // of its first byte in the whole text
        std::size_t size = 0;
        std::string_view Text() const noexcept { return {memory.get(), size}; }
    };
    static Memory Allocate(std::size_t size);
    void Grow(std::size_t count);
    void Forget() noexcept;

    std::vector<Piece> pieces_;  // the full ones, all before the current
    Memory memory_;              // of the current piece
    char* current_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t used_ = 0;
    std::size_t run_ = 0;     // start of the run in the current piece
    std::size_t before_ = 0;  // bytes in the full pieces
    std::size_t firstPiece_;
};

}  // namespace halvtiv::platform
