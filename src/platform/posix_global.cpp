// Movable global memory and USER32 rectangle helpers for builds outside Windows.
//
// A handle is a registered block record, never the data pointer, so GlobalSize can answer
// with the true size and unknown handles are refused instead of dereferenced.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_set>

#include "core/pixel_memory.h"
#include "kiv.h"

namespace {

struct Block {
    void* data;
    SIZE_T size;
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
Block* lookup(HGLOBAL h) {
    auto* b = static_cast<Block*>(h);
    return (b && registry().count(b)) ? b : nullptr;
}

// Blocks up to this size; larger requests fail like an exhausted heap would.
constexpr SIZE_T kMaxBlock = SIZE_T(1) << 40;

}  // namespace

extern "C" {

HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) {
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

LPVOID GlobalLock(HGLOBAL mem) {
    std::lock_guard<std::mutex> lk(registry_mutex());
    Block* b = lookup(mem);
    if (!b) return nullptr;
    ++b->locks;
    return b->data;
}

BOOL GlobalUnlock(HGLOBAL mem) {
    std::lock_guard<std::mutex> lk(registry_mutex());
    Block* b = lookup(mem);
    if (!b || b->locks == 0) return FALSE;
    return --b->locks > 0 ? TRUE : FALSE;
}

HGLOBAL GlobalFree(HGLOBAL mem) {
    if (!mem) return nullptr;
    std::lock_guard<std::mutex> lk(registry_mutex());
    Block* b = lookup(mem);
    if (!b) return mem;
    registry().erase(b);
    kivcore::free_pixels(b->data);
    delete b;
    return nullptr;
}

SIZE_T GlobalSize(HGLOBAL mem) {
    std::lock_guard<std::mutex> lk(registry_mutex());
    Block* b = lookup(mem);
    return b ? b->size : 0;
}

HGLOBAL GlobalReAlloc(HGLOBAL mem, SIZE_T bytes, UINT flags) {
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

BOOL IsRectEmpty(const RECT* rc) {
    return (!rc || rc->right <= rc->left || rc->bottom <= rc->top) ? TRUE : FALSE;
}

BOOL SetRect(LPRECT rc, int left, int top, int right, int bottom) {
    if (!rc) return FALSE;
    rc->left = left;
    rc->top = top;
    rc->right = right;
    rc->bottom = bottom;
    return TRUE;
}

BOOL IntersectRect(LPRECT dst, const RECT* a, const RECT* b) {
    if (!dst || !a || !b) return FALSE;
    RECT r{std::max(a->left, b->left), std::max(a->top, b->top), std::min(a->right, b->right),
           std::min(a->bottom, b->bottom)};
    if (IsRectEmpty(&r)) {
        *dst = RECT{0, 0, 0, 0};
        return FALSE;
    }
    *dst = r;
    return TRUE;
}

BOOL CopyRect(LPRECT dst, const RECT* src) {
    if (!dst || !src) return FALSE;
    *dst = *src;
    return TRUE;
}

BOOL InflateRect(LPRECT rc, int dx, int dy) {
    if (!rc) return FALSE;
    // Two's-complement wrap as on Windows, without signed overflow.
    auto add = [](LONG a, int b) { return static_cast<LONG>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b)); };
    auto sub = [](LONG a, int b) { return static_cast<LONG>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b)); };
    rc->left = sub(rc->left, dx);
    rc->top = sub(rc->top, dy);
    rc->right = add(rc->right, dx);
    rc->bottom = add(rc->bottom, dy);
    return TRUE;
}

}  // extern "C"
