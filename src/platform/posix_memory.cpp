// Anonymous memory on POSIX: private anonymous mappings and madvise.
#include "platform/memory.h"

#include <sys/mman.h>

#include <cstdint>

namespace kivplat {

void* map_pages(std::size_t len, std::size_t align) {
    if (len > SIZE_MAX - align) return nullptr;
    // Over-map by one alignment step, then give back the unaligned head and the tail.
    void* raw = ::mmap(nullptr, len + align, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    const auto base = reinterpret_cast<std::uintptr_t>(raw);
    const std::uintptr_t aligned = (base + align - 1) / align * align;
    if (aligned > base) ::munmap(raw, aligned - base);
    const std::uintptr_t end = base + len + align;
    if (end > aligned + len) ::munmap(reinterpret_cast<void*>(aligned + len), end - (aligned + len));
    return reinterpret_cast<void*>(aligned);
}

void unmap_pages(void* p, std::size_t len) { ::munmap(p, len); }

void advise_huge_pages(void* p, std::size_t len) {
#if defined(MADV_HUGEPAGE)
    ::madvise(p, len, MADV_HUGEPAGE);
#else
    (void)p, (void)len;
#endif
}

bool advise_free(void* p, std::size_t len) {
#if defined(MADV_FREE)
    return ::madvise(p, len, MADV_FREE) == 0;
#else
    (void)p, (void)len;
    return false;
#endif
}

bool discard_pages(void* p, std::size_t len) {
#if defined(MADV_DONTNEED)
    // On a private anonymous mapping the next touch of a discarded page finds a zero page.
    return ::madvise(p, len, MADV_DONTNEED) == 0;
#else
    (void)p, (void)len;
    return false;
#endif
}

}  // namespace kivplat
