// Helpers shared by the test programs: deterministic images and pixel comparisons.
#ifndef KIV_TEST_IMAGES_H
#define KIV_TEST_IMAGES_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "kiv.h"

namespace kivtest {

// Small deterministic generator (splitmix64): the same bytes on every platform.
struct Rng {
    std::uint64_t s;
    explicit Rng(std::uint64_t seed) : s(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (s += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    int below(int n) { return static_cast<int>(next() % static_cast<std::uint64_t>(n)); }
    BYTE byte() { return static_cast<BYTE>(next() >> 56); }
};

// A width x height image of the given depth filled with random bytes. Palettized images get
// a random map and pixels consistent with it (colour copied from the entry in byte 3).
inline void fill_random(kiv& img, std::uint64_t seed) {
    Rng rng(seed);
    for (int i = 0; i < img.m_colors && img.m_map; ++i)
        img.m_map[i] = tagRGBA{rng.byte(), rng.byte(), rng.byte(), 0};
    for (int i = 0; i < img.m_packets; ++i) {
        tagRGBA& p = img.m_pixels[i];
        if (img.m_bits < 24 && img.m_map && img.m_colors > 0) {
            BYTE idx = static_cast<BYTE>(rng.below(img.m_colors));
            p = img.m_map[idx];
            p.a = idx;
        } else {
            p = tagRGBA{rng.byte(), rng.byte(), rng.byte(), rng.byte()};
        }
    }
}

inline kiv random_image(int w, int h, int bits, std::uint64_t seed) {
    kiv img(w, h, bits);
    fill_random(img, seed);
    return img;
}

inline bool same_rgba(const tagRGBA& a, const tagRGBA& b) {
    return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a;
}

inline std::string rgba_str(const tagRGBA& p) {
    std::ostringstream o;
    o << "(" << int(p.r) << "," << int(p.g) << "," << int(p.b) << "," << int(p.a) << ")";
    return o.str();
}

// Byte-for-byte comparison of two images' geometry and pixels; on failure names the first
// few differing coordinates.
inline ::testing::AssertionResult images_equal(kiv& a, kiv& b) {
    if (a.m_width != b.m_width || a.m_height != b.m_height)
        return ::testing::AssertionFailure()
               << "size " << a.m_width << "x" << a.m_height << " vs " << b.m_width << "x" << b.m_height;
    if (!a.m_pixels || !b.m_pixels)
        return (a.m_pixels == b.m_pixels) ? ::testing::AssertionSuccess()
                                          : ::testing::AssertionFailure() << "one image has no pixels";
    int shown = 0, diffs = 0;
    std::ostringstream o;
    for (int y = 0; y < a.m_height; ++y)
        for (int x = 0; x < a.m_width; ++x) {
            const tagRGBA& p = a.m_pixels[static_cast<std::size_t>(y) * a.m_width + x];
            const tagRGBA& q = b.m_pixels[static_cast<std::size_t>(y) * b.m_width + x];
            if (!same_rgba(p, q)) {
                ++diffs;
                if (shown++ < 5) o << " (" << x << "," << y << "): " << rgba_str(p) << " vs " << rgba_str(q);
            }
        }
    if (diffs) return ::testing::AssertionFailure() << diffs << " pixels differ:" << o.str();
    return ::testing::AssertionSuccess();
}

inline tagRGBA px(kiv& img, int x, int y) { return img.m_pixels[static_cast<std::size_t>(y) * img.m_width + x]; }

}  // namespace kivtest

#endif
