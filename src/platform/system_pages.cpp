#include "platform/system_pages.hpp"

#include <sys/mman.h>

#include <new>

namespace halvtiv::platform {

void* TakeSystemPages(std::size_t size) {
    int flags = MAP_PRIVATE | MAP_ANONYMOUS;
#if defined(MAP_POPULATE)
    flags |= MAP_POPULATE;  // one call instead of a fault a page
#endif
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return memory;
}

void GiveSystemPages(void* memory, std::size_t size) noexcept {
    munmap(memory, size);
}

}  // namespace halvtiv::platform
