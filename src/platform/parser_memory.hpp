#pragma once

#include <expat.h>

#include <cstddef>

namespace halvtiv::platform {

/// The memory of one Expat parser: a block of its own, then the heap. A short text is read without asking the
/// heap once, and its parser is simply forgotten.
///
/// Expat's functions for memory are told no owner, so the thread knows which one is at work: the last made.
/// Readings may nest, but each ends before the one around it goes on.
class ParserMemory {
public:
    ParserMemory() noexcept;
    ~ParserMemory();
    ParserMemory(const ParserMemory&) = delete;
    ParserMemory& operator=(const ParserMemory&) = delete;

    /// The functions to give to `XML_ParserCreate_MM` while this object lives.
    static const XML_Memory_Handling_Suite& Suite() noexcept;
    /// Whether the parser has anything from the heap, so that it must be freed.
    bool UsesHeap() const noexcept { return usesHeap_; }

private:
    static void* Take(std::size_t size) noexcept;
    static void* Resize(void* memory, std::size_t size) noexcept;
    static void Give(void* memory) noexcept;

    void* TakeFromBlock(std::size_t size) noexcept;
    bool IsFromBlock(const void* memory) const noexcept;

    static constexpr std::size_t kBlock = 16 * 1024;
    alignas(std::max_align_t) unsigned char block_[kBlock];
    std::size_t used_ = 0;
    bool usesHeap_ = false;
    ParserMemory* outer_;
};

/// An Expat parser in memory of its own, gone with the object. Reads UTF-8 whatever a declaration says.
class ScopedParser {
public:
    ScopedParser();
    ~ScopedParser();
    ScopedParser(const ScopedParser&) = delete;
    ScopedParser& operator=(const ScopedParser&) = delete;

    XML_Parser Get() const noexcept { return parser_; }

private:
    ParserMemory memory_;  // before the parser, which takes from it
    XML_Parser parser_;
};

}  // namespace halvtiv::platform
