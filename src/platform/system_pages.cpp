#include "platform/system_pages.hpp"

#include <sys/mman.h>

#include <cstdint>
#include <new>

namespace halvtiv::platform {

namespace {

constexpr std::size_t kLargePage = std::size_t{2} << 20;

void* Map(std::size_t size, int more) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | more, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return memory;
}

}  // namespace

void* TakeSystemPages(std::size_t size) {
#if defined(MADV_HUGEPAGE) && defined(MADV_POPULATE_WRITE)
    if (size % kLargePage == 0) {
        // Large pages begin at their multiples: what is mapped around them goes back at once.
        auto* const mapped = static_cast<char*>(Map(size + kLargePage, 0));
        const std::size_t before =
            (kLargePage - reinterpret_cast<std::uintptr_t>(mapped) % kLargePage) % kLargePage;
        char* const memory = mapped + before;
        if (before > 0) munmap(mapped, before);
        munmap(memory + size, kLargePage - before);
        PreferLargePages(memory, size);
        madvise(memory, size, MADV_POPULATE_WRITE);  // one call instead of a fault a page
        return memory;
    }
#endif
#if defined(MAP_POPULATE)
    return Map(size, MAP_POPULATE);
#else
    return Map(size, 0);
#endif
}

void GiveSystemPages(void* memory, std::size_t size) noexcept {
    munmap(memory, size);
}

void PreferLargePages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t size) noexcept {
#if defined(MADV_HUGEPAGE)
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t first = (begin + kLargePage - 1) / kLargePage * kLargePage;
    const std::uintptr_t end = (begin + size) / kLargePage * kLargePage;
    if (first < end) madvise(static_cast<char*>(memory) + (first - begin), end - first, MADV_HUGEPAGE);
#endif
}

}  // namespace halvtiv::platform
