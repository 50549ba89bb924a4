// Movable global memory, the blocks in which packed DIBs pass between a host and the
// library: the system's own on Windows, the library's emulation elsewhere (kiv_win32.h).
#ifndef KIV_PLATFORM_GLOBAL_MEMORY_H
#define KIV_PLATFORM_GLOBAL_MEMORY_H

#include <cstddef>

#ifdef _WIN32
#  include <windows.h>
#else
#  include "kiv_win32.h"
#endif

namespace kivplat {

// A movable block of n bytes, zero-filled when asked; null on failure.
inline void* global_alloc(std::size_t n, bool zeroed) {
    return GlobalAlloc(zeroed ? GMEM_MOVEABLE | GMEM_ZEROINIT : GMEM_MOVEABLE, n);
}
// The block grown or shrunk to n bytes, its leading bytes kept and any growth zero; null, the
// block left as it was, on failure.
inline void* global_realloc(void* block, std::size_t n) {
    return GlobalReAlloc(block, n, GMEM_MOVEABLE | GMEM_ZEROINIT);
}
inline void global_free(void* block) { GlobalFree(block); }
// The block's size in bytes (at least what was asked for); 0 for an unusable handle.
inline std::size_t global_size(void* block) { return GlobalSize(block); }

// A block's bytes for the life of the object, unlocked on every path out; null for a null
// or unusable handle.
class LockedBlock {
public:
    explicit LockedBlock(void* block) : block_(block), p_(block ? static_cast<unsigned char*>(GlobalLock(block)) : nullptr) {}
    ~LockedBlock() {
        if (p_) GlobalUnlock(block_);
    }
    LockedBlock(const LockedBlock&) = delete;
    LockedBlock& operator=(const LockedBlock&) = delete;
    unsigned char* data() const { return p_; }

private:
    void* block_;
    unsigned char* p_;
};

}  // namespace kivplat

#endif
