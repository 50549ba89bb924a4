// The functions kiv_win32.h declares, for builds outside Windows: movable global memory over
// the pixel allocator, and the USER32 rectangle helpers.
//
// A handle is a registered block record, never the data pointer, so kiv_GlobalSize can answer
// with the true size and unknown handles are refused instead of dereferenced.
#ifndef _WIN32
#  include <algorithm>
#  include <cstdint>
#  include <cstdlib>
#  include <cstring>
#  include <mutex>
#  include <new>
#  include <unordered_set>

#  include "core/pixel_memory.h"
#  include "kiv.h"

namespace {

struct Block {
    void* data;
    std::size_t size;
    unsigned locks;
};

std::mutex& registry_mutex() {
    static std::mutex m;
    return m;
}
std::unordered_set<Block*>& registry() {
    static auto* r = new std::unordered_set<Block*>();  // outlives static destructors
    return *r;
}

// The block behind a handle, or null for an unknown one. Caller holds the mutex.
Block* lookup(void* h) {
    auto* b = static_cast<Block*>(h);
    return (b && registry().count(b)) ? b : nullptr;
}

// Blocks up to this size; larger requests fail like an exhausted heap would.
constexpr std::size_t kMaxBlock = std::size_t(1) << 40;

}  // namespace

extern "C" {

void* kiv_GlobalAlloc(unsigned int flags, std::size_t bytes) {
    if (bytes == 0 || bytes > kMaxBlock) return nullptr;
    // DIB-sized blocks share the pixel buffers' huge-page path. Without GMEM_ZEROINIT the
    // contents are unspecified, as on Windows, and a large block may be a recycled one.
    void* data = (flags & GMEM_ZEROINIT) ? kivcore::alloc_pixels(bytes) : kivcore::alloc_pixels_unzeroed(bytes);
    if (!data) return nullptr;
    auto* b = new (std::nothrow) Block{data, bytes, 0};
    if (!b) {
        kivcore::free_pixels(data);
        return nullptr;
    }
    std::lock_guard<std::mutex> lk(registry_mutex());
    try {
        registry().insert(b);
    } catch (...) {
        kivcore::free_pixels(data);
        delete b;
        return nullptr;
    }
    return b;
}

void* kiv_GlobalLock(void* mem) {
    std::lock_guard<std::mutex> lk(registry_mutex());
    Block* b = lookup(mem);
    if (!b) return nullptr;
    ++b->locks;
    return b->data;
}

int kiv_GlobalUnlock(void* mem) {
    std::lock_guard<std::mutex> lk(registry_mutex());
    Block* b = lookup(mem);
    if (!b || b->locks == 0) return FALSE;
    return --b->locks > 0 ? TRUE : FALSE;
}

void* kiv_GlobalFree(void* mem) {
    if (!mem) return nullptr;
    std::lock_guard<std::mutex> lk(registry_mutex());
    Block* b = lookup(mem);
    if (!b) return mem;
    registry().erase(b);
    kivcore::free_pixels(b->data);
    delete b;
    return nullptr;
}

std::size_t kiv_GlobalSize(void* mem) {
    std::lock_guard<std::mutex> lk(registry_mutex());
    Block* b = lookup(mem);
    return b ? b->size : 0;
}

void* kiv_GlobalReAlloc(void* mem, std::size_t bytes, unsigned int flags) {
    if (bytes == 0 || bytes > kMaxBlock) return nullptr;
    std::lock_guard<std::mutex> lk(registry_mutex());
    Block* b = lookup(mem);
    if (!b) return nullptr;
    // A new zeroed block (so any growth reads as zero, GMEM_ZEROINIT or not); the old one
    // stays valid when this fails.
    (void)flags;
    void* data = kivcore::alloc_pixels(bytes);
    if (!data) return nullptr;
    std::memcpy(data, b->data, std::min(bytes, b->size));
    kivcore::free_pixels(b->data);
    b->data = data;
    b->size = bytes;
    return b;
}

int kiv_IsRectEmpty(const tagRECT* rc) {
    return (!rc || rc->right <= rc->left || rc->bottom <= rc->top) ? TRUE : FALSE;
}

int kiv_SetRect(tagRECT* rc, int left, int top, int right, int bottom) {
    if (!rc) return FALSE;
    rc->left = left;
    rc->top = top;
    rc->right = right;
    rc->bottom = bottom;
    return TRUE;
}

int kiv_IntersectRect(tagRECT* dst, const tagRECT* a, const tagRECT* b) {
    if (!dst || !a || !b) return FALSE;
    tagRECT r{std::max(a->left, b->left), std::max(a->top, b->top), std::min(a->right, b->right),
           std::min(a->bottom, b->bottom)};
    if (kiv_IsRectEmpty(&r)) {
        *dst = tagRECT{0, 0, 0, 0};
        return FALSE;
    }
    *dst = r;
    return TRUE;
}

int kiv_CopyRect(tagRECT* dst, const tagRECT* src) {
    if (!dst || !src) return FALSE;
    *dst = *src;
    return TRUE;
}

int kiv_InflateRect(tagRECT* rc, int dx, int dy) {
    if (!rc) return FALSE;
    // Two's-complement wrap as on Windows, without signed overflow.
    auto add = [](std::int32_t a, int b) { return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b)); };
    auto sub = [](std::int32_t a, int b) { return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b)); };
    rc->left = sub(rc->left, dx);
    rc->top = sub(rc->top, dy);
    rc->right = add(rc->right, dx);
    rc->bottom = add(rc->bottom, dy);
    return TRUE;
}

}  // extern "C"
#endif
