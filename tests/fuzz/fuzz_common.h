// Shared by the fuzz targets: sanitizer defaults, a reader for the control bytes, and
// checks that stop the run on a broken image.
#ifndef KIV_FUZZ_COMMON_H
#define KIV_FUZZ_COMMON_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kiv.h"
#include "support/image_check.h"

// Oversized requests must come back as refusals (null from calloc), as they do on a real
// heap, instead of ending the run; leaks are faults.  One definition per target program.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=" KIV_FUZZ_MAX_ALLOC_MB ":detect_leaks=1";
}

namespace kivfuzz {

[[noreturn]] inline void fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "kivfuzz: %s: %s\n", what, detail.c_str());
    std::abort();
}

inline void check_image(const kiv& img, const char* where) {
    const std::string v = kivtest::image_violation(img);
    if (!v.empty()) fail(where, v);
}

// Same geometry, depth, pixels and colour map.
inline bool images_same(const kiv& a, const kiv& b) {
    if (a.m_width != b.m_width || a.m_height != b.m_height || a.m_bits != b.m_bits || a.m_colors != b.m_colors)
        return false;
    if (a.m_packets && std::memcmp(a.m_pixels, b.m_pixels, sizeof(tagRGBA) * static_cast<std::size_t>(a.m_packets)))
        return false;
    return a.m_colors <= 0 || !std::memcmp(a.m_map, b.m_map, sizeof(tagRGBA) * static_cast<std::size_t>(a.m_colors));
}

// Reads parameters from a byte range, zeros once it runs out.
struct Params {
    const std::uint8_t* p;
    std::size_t n;
    std::uint8_t u8() {
        if (!n) return 0;
        --n;
        return *p++;
    }
    int u16() { return u8() | (u8() << 8); }
    int s16() { return static_cast<std::int16_t>(u16()); }
};

}  // namespace kivfuzz

#endif
