// Zeroed pixel buffers; see pixel_memory.h.
#include "core/pixel_memory.h"

#include <cstdint>
#include <cstdlib>

#include "platform/memory.h"

// Sanitizer builds keep every block on the heap, where LeakSanitizer can see it.
#if defined(__has_feature)
#  if __has_feature(address_sanitizer)
#    define KIV_HEAP_ONLY 1
#  endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#  define KIV_HEAP_ONLY 1
#endif

#if KIV_PLATFORM_HUGE_PAGES && !defined(KIV_HEAP_ONLY)
#  define KIV_DIRECT_MAPPINGS 1
#  include <mutex>
#  include <utility>
#  include <unordered_map>
#endif

namespace kivcore {

#if defined(KIV_DIRECT_MAPPINGS)
namespace {

constexpr std::size_t kHuge = std::size_t(2) << 20;
// Below this the heap serves well enough (and packs small images tightly). From 4 MiB (a
// 1024 x 1024 image) the heap hands back fresh pages too, faulted in 4 KiB at a time, which
// cost more than the work of a fast operation at that size.
constexpr std::size_t kDirectFrom = std::size_t(4) << 20;

// The system mappings handed out, by their pixel address: unmapping needs the length, and
// free_pixels must tell them from heap blocks. Few and large, so a locked map is cheap.
struct Mappings {
    std::mutex lock;
    std::unordered_map<void*, std::size_t> sizes;
};
Mappings& mappings() {
    static Mappings* m = new Mappings();  // never destroyed: images may outlive static teardown
    return *m;
}

void* map_aligned(std::size_t n) {
    if (n > SIZE_MAX - kHuge) return nullptr;
    const std::size_t len = (n + kHuge - 1) / kHuge * kHuge;
    void* p = kivplat::map_pages(len, kHuge);
    if (!p) return nullptr;
    kivplat::advise_huge_pages(p, len);
    try {
        std::lock_guard<std::mutex> g(mappings().lock);
        mappings().sizes.emplace(p, len);
    } catch (...) {
        kivplat::unmap_pages(p, len);
        return nullptr;
    }
    return p;
}

// Freed mappings kept for the next block of their size: a host that converts frame after
// frame gets the same few blocks back without the kernel clearing them again (or, for a
// zeroed block, with its pages dropped instead of the mapping unmade and made). At most two, each
// up to kKeepMax; the kernel may reclaim their pages under memory pressure (MADV_FREE), so
// keeping them costs no memory that the system needs.
constexpr std::size_t kKeepMax = std::size_t(256) << 20;
struct Kept {
    void* p;
    std::size_t len;
};
Kept g_kept[2];  // guarded by mappings().lock; g_kept[0] the most recent

// Takes a kept mapping of exactly len bytes, or returns null. Caller holds the lock.
void* take_kept_locked(std::size_t len) {
    for (Kept& k : g_kept)
        if (k.p && k.len == len) {
            void* p = k.p;
            k = Kept{nullptr, 0};
            return p;
        }
    return nullptr;
}

// Takes a kept mapping of len bytes back into use, or returns null. Caller holds the lock.
void* reuse_kept_locked(std::size_t len, bool zeroed) {
    void* p = take_kept_locked(len);
    if (!p) return nullptr;
    // A zeroed block gets its pages dropped: they come back as zero pages on first touch, as
    // a fresh mapping's would, without the mapping being made and unmade again.
    bool ok = !zeroed || kivplat::discard_pages(p, len);
    if (ok) {
        try {
            ok = mappings().sizes.emplace(p, len).second;
        } catch (...) {
            ok = false;
        }
    }
    if (!ok) {
        kivplat::unmap_pages(p, len);
        return nullptr;
    }
    return p;
}

void* alloc_direct(std::size_t n, bool zeroed) {
    if (n <= SIZE_MAX - kHuge) {
        const std::size_t len = (n + kHuge - 1) / kHuge * kHuge;
        std::lock_guard<std::mutex> g(mappings().lock);
        if (void* p = reuse_kept_locked(len, zeroed)) return p;
    }
    return map_aligned(n);  // anonymous pages come zeroed
}

}  // namespace

void* alloc_pixels(std::size_t n) {
    if (n >= kDirectFrom) return alloc_direct(n, true);
    return std::calloc(n ? n : 1, 1);
}

void* alloc_pixels_unzeroed(std::size_t n) {
    if (n < kDirectFrom) return std::malloc(n ? n : 1);
    return alloc_direct(n, false);
}

void free_pixels(void* p) {
    if (!p) return;
    void* drop = nullptr;
    std::size_t drop_len = 0;
    bool mapped = false;
    {
        std::lock_guard<std::mutex> g(mappings().lock);
        auto it = mappings().sizes.find(p);
        if (it != mappings().sizes.end()) {
            mapped = true;
            drop = p;
            drop_len = it->second;
            mappings().sizes.erase(it);
            // Kept only where the kernel may take the pages back without asking.
            if (drop_len <= kKeepMax && kivplat::advise_free(p, drop_len)) {
                std::swap(drop, g_kept[1].p);
                std::swap(drop_len, g_kept[1].len);
                std::swap(g_kept[0], g_kept[1]);
            }
        }
    }
    if (!mapped)
        std::free(p);
    else if (drop)
        kivplat::unmap_pages(drop, drop_len);
}
#else
void* alloc_pixels(std::size_t n) { return std::calloc(n ? n : 1, 1); }
void* alloc_pixels_unzeroed(std::size_t n) { return std::malloc(n ? n : 1); }
void free_pixels(void* p) { std::free(p); }
#endif

}  // namespace kivcore
