#include "platform/parser_memory.hpp"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

namespace halvtiv::platform {

namespace {

constexpr std::size_t kGrain = alignof(std::max_align_t);

// Somebody's local object, null between readings.
#if defined(__GNUC__)
[[gnu::tls_model("initial-exec")]]
#endif
thread_local ParserMemory* atWork = nullptr;

/// Before each piece of the block stands its size.
std::size_t& SizeOf(void* memory) noexcept {
    return *reinterpret_cast<std::size_t*>(static_cast<unsigned char*>(memory) - kGrain);
}

}  // namespace

ParserMemory::ParserMemory() noexcept : outer_(atWork) {  // NOLINT(cppcoreguidelines-pro-type-member-init)
    atWork = this;
}

ParserMemory::~ParserMemory() {
    atWork = outer_;
}

const XML_Memory_Handling_Suite& ParserMemory::Suite() noexcept {
    static constexpr XML_Memory_Handling_Suite suite{Take, Resize, Give};
    return suite;
}

void* ParserMemory::Take(std::size_t size) noexcept {
    if (void* memory = atWork->TakeFromBlock(size)) return memory;
    atWork->usesHeap_ = true;
    return std::malloc(size);
}

void* ParserMemory::Resize(void* memory, std::size_t size) noexcept {
    if (memory == nullptr) return Take(size);
    if (!atWork->IsFromBlock(memory)) return std::realloc(memory, size);
    const std::size_t before = SizeOf(memory);
    if (size <= before) return memory;
    void* larger = Take(size);
    if (larger != nullptr) std::memcpy(larger, memory, before);
    return larger;
}

void ParserMemory::Give(void* memory) noexcept {
    if (!atWork->IsFromBlock(memory)) std::free(memory);
}

void* ParserMemory::TakeFromBlock(std::size_t size) noexcept {
    if (size > kBlock) return nullptr;
    const std::size_t rounded = (size + kGrain - 1) / kGrain * kGrain;
    if (rounded + kGrain > kBlock - used_) return nullptr;
    void* memory = block_ + used_ + kGrain;
    SizeOf(memory) = rounded;
    used_ += rounded + kGrain;
    return memory;
}

bool ParserMemory::IsFromBlock(const void* memory) const noexcept {
    const std::less<const void*> before;
    return !before(memory, block_) && before(memory, block_ + kBlock);
}

ScopedParser::ScopedParser() : parser_(XML_ParserCreate_MM("UTF-8", &ParserMemory::Suite(), nullptr)) {
    if (parser_ == nullptr) throw std::bad_alloc();
}

ScopedParser::~ScopedParser() {
    if (memory_.UsesHeap()) XML_ParserFree(parser_);
}

}  // namespace halvtiv::platform
