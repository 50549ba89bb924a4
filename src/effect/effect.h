// Helpers shared by the effects: the per-pixel random stream and the relief shading of
// texturize and bumpmap.
#ifndef KIV_EFFECT_EFFECT_H
#define KIV_EFFECT_EFFECT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/parallel.h"
#include "core/relief_light.h"
#include "core/toolkit.h"
#include "kiv.h"

namespace kiveffect {

using kivcore::Area;
using kivcore::clamp255;
using kivcore::clip_rect;
using kivcore::raise_depth_24;
using kivcore::row_ptr;

// clip_rect for members that hold `this` (texture.cpp's spelling).
inline bool normalise(kiv* img, tagRECT* rect, Area* out) { return clip_rect(*img, rect, out); }

// Random numbers as a pure function of (seed, x, y, k): no generator state, so the bytes do
// not depend on the order in which threads visit pixels. splitmix64's finaliser mixes.
inline std::uint64_t mix64(std::uint64_t z) {
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}
inline std::uint64_t pixel_random(std::uint32_t seed, int x, int y, std::uint32_t k) {
    const std::uint64_t pos = (std::uint64_t(std::uint32_t(y)) << 32) | std::uint32_t(x);
    const std::uint64_t key = (std::uint64_t(seed) << 32) | k;
    return mix64(mix64(pos + 0x9E3779B97F4A7C15ull) ^ (key * 0xD1B54A32D192ED03ull));
}
// 32 random bits to 0..n-1 by a multiply (no modulo bias worth speaking of, no division).
inline int below(std::uint32_t bits, std::uint32_t n) {
    return static_cast<int>((std::uint64_t(bits) * n) >> 32);
}

// The relief light of angles in degrees (finite) and a depth of 1 .. 1530; false, *out
// untouched, otherwise.
bool make_light(double azimuth, double elevation, int depth, kivcore::ReliefLight* out);

// Shades of a w x h block from a plane of heights with a one-pixel frame: heights has
// (w + 2) x (h + 2) values, row-major, and shade (x, y) comes from the 3x3 block centred
// on heights (x + 1, y + 1). Rows run through the parallel loop.
void shade_block(const kivcore::ReliefLight& light, const std::vector<int>& heights, int w, int h,
                 std::vector<BYTE>* shade);

// A relief's heights for a w x h block: block pixel (i, j) reads source (col(i), row(j))
// for i in -1..w, j in -1..h; intensity, inverted (255 - v) when asked.
template <class Col, class Row>
std::vector<int> height_plane(kiv* src, int w, int h, bool invert, Col col, Row row) {
    const std::size_t pw = static_cast<std::size_t>(w) + 2;
    std::vector<int> plane(pw * (static_cast<std::size_t>(h) + 2));
    std::vector<int> cols(pw);
    for (int i = -1; i <= w; ++i) cols[static_cast<std::size_t>(i + 1)] = col(i);
    kivcore::parallel_for(-1, h + 1, kivcore::row_work(static_cast<long long>(pw), 1), [&](int j) {
        const tagRGBA* s = row_ptr(*src, row(j));
        int* o = plane.data() + static_cast<std::size_t>(j + 1) * pw;
        for (std::size_t i = 0; i < pw; ++i) {
            const int v = kivcore::luminance(s[cols[i]].r, s[cols[i]].g, s[cols[i]].b);
            o[i] = invert ? 255 - v : v;
        }
    });
    return plane;
}

}  // namespace kiveffect

#endif
