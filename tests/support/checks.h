// "Refused, and the image is unchanged" and sentinels around a target: the checks every
// family's tests share.
#ifndef KIV_TEST_CHECKS_H
#define KIV_TEST_CHECKS_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <sstream>
#include <vector>

#include "kiv.h"
#include "support/image_check.h"
#include "support/test_images.h"

namespace kivtest {

// Everything a refused call must leave as it was: geometry, depth, colour map and pixels.
struct Snapshot {
    int w, h, bits, colors;
    std::vector<tagRGBA> px, map;
    explicit Snapshot(const kiv& img) : w(img.m_width), h(img.m_height), bits(img.m_bits), colors(img.m_colors) {
        if (img.m_pixels) px.assign(img.m_pixels, img.m_pixels + img.m_packets);
        if (img.m_map && img.m_colors > 0) map.assign(img.m_map, img.m_map + img.m_colors);
    }
    bool operator==(const Snapshot& o) const {
        return w == o.w && h == o.h && bits == o.bits && colors == o.colors && px.size() == o.px.size() &&
               map.size() == o.map.size() &&
               (px.empty() || std::memcmp(px.data(), o.px.data(), px.size() * sizeof(tagRGBA)) == 0) &&
               (map.empty() || std::memcmp(map.data(), o.map.data(), map.size() * sizeof(tagRGBA)) == 0);
    }
};

// op(img) must return 0 and leave img byte for byte as it was, invariants kept.
template <class Op>
::testing::AssertionResult refused_unchanged(kiv& img, Op op) {
    const Snapshot before(img);
    const long long r = static_cast<long long>(op(img));
    if (r != 0) return ::testing::AssertionFailure() << "accepted (returned " << r << ")";
    if (!(Snapshot(img) == before)) return ::testing::AssertionFailure() << "refused, but the image changed";
    const std::string why = image_violation(img);
    if (!why.empty()) return ::testing::AssertionFailure() << "refused, but " << why;
    return ::testing::AssertionSuccess();
}

// Every pixel of after outside r (already clipped) equals before's: nothing written around
// the target.  Both images must have the same size.
inline ::testing::AssertionResult unchanged_outside(const kiv& before, const kiv& after, const tagRECT& r) {
    if (before.m_width != after.m_width || before.m_height != after.m_height)
        return ::testing::AssertionFailure() << "size changed";
    for (int y = 0; y < after.m_height; ++y)
        for (int x = 0; x < after.m_width; ++x) {
            if (x >= r.left && x < r.right && y >= r.top && y < r.bottom) continue;
            const std::size_t i = static_cast<std::size_t>(y) * after.m_width + x;
            if (!same_rgba(before.m_pixels[i], after.m_pixels[i]))
                return ::testing::AssertionFailure() << "pixel (" << x << "," << y << ") outside the target changed";
        }
    return ::testing::AssertionSuccess();
}

// A buffer of n elements with guard zones of sentinel bytes before and after: a call given
// at() may write only inside, and intact(k) says nothing but the first k bytes changed.
struct Guarded {
    static constexpr std::size_t kGuard = 64;
    static constexpr unsigned char kSentinel = 0xA5;
    std::vector<unsigned char> bytes;
    explicit Guarded(std::size_t n = 128) : bytes(n + 2 * kGuard, kSentinel) {}
    unsigned char* at() { return bytes.data() + kGuard; }
    template <class T>
    T* as() {
        return reinterpret_cast<T*>(at());
    }
    // Bytes of the interior, after kGuard.
    unsigned char& operator[](std::size_t i) { return bytes[kGuard + i]; }
    ::testing::AssertionResult intact(std::size_t allowed = 0) const {
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if ((i < kGuard || i >= kGuard + allowed) && bytes[i] != kSentinel)
                return ::testing::AssertionFailure()
                       << "byte " << static_cast<long long>(i) - static_cast<long long>(kGuard) << " written";
        return ::testing::AssertionSuccess();
    }
};

}  // namespace kivtest

#endif
