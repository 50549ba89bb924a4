// run_3x3, the neighbourhood gatherer shared by the 3x3 filters (included by filter.h).
#ifndef KIV_FILTER_FILTER_3X3_IMPL_H
#define KIV_FILTER_FILTER_3X3_IMPL_H

#include <memory>
#include <new>
#include <vector>

#include "core/parallel.h"
#include "core/pixel_memory.h"

#if KIV_HAVE_SSE2
#  include <emmintrin.h>
#endif

namespace kivfilter {

// Channels 0..2 of n pixels into three planes at dst + 1, dst + 1 + pw, dst + 1 + 2 pw, each
// padded by a copy of its end pixels.
inline void planes_from_pixels(unsigned char* dst, std::size_t pw, const tagRGBA* src, std::size_t n) {
    const unsigned char* s = reinterpret_cast<const unsigned char*>(src);
    unsigned char* d[3] = {dst + 1, dst + pw + 1, dst + 2 * pw + 1};
    std::size_t i = 0;
#if KIV_HAVE_SSE2
    if (!force_scalar()) {
        const __m128i lo = _mm_set1_epi32(0xFF);
        for (; i + 16 <= n; i += 16) {
            __m128i v[4];
            for (int q = 0; q < 4; ++q) v[q] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * i + 16 * q));
            for (int c = 0; c < 3; ++c) {
                __m128i b[4];
                for (int q = 0; q < 4; ++q) b[q] = _mm_and_si128(_mm_srli_epi32(v[q], 8 * c), lo);
                const __m128i p = _mm_packus_epi16(_mm_packs_epi32(b[0], b[1]), _mm_packs_epi32(b[2], b[3]));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d[c] + i), p);
            }
        }
    }
#endif
    for (; i < n; ++i)
        for (int c = 0; c < 3; ++c) d[c][i] = s[4 * i + c];
    for (int c = 0; c < 3; ++c) {
        d[c][-1] = d[c][0];
        d[c][n] = d[c][n - 1];
    }
}

template <class Kernel>
void run_3x3(kiv* img, const Area& a, Kernel kernel) {
    const int w = a.w(), h = a.h();
    const std::size_t sw = static_cast<std::size_t>(w);
    // Results go to a buffer (every byte is written), so every read sees the original image.
    // Pixel memory (huge pages for large areas): a fresh buffer's page faults otherwise cost
    // as much as the filtering.
    struct Release {
        void operator()(tagRGBA* p) const { kivcore::free_pixels(p); }
    };
    std::unique_ptr<tagRGBA, Release> out(
        static_cast<tagRGBA*>(kivcore::alloc_pixels(sw * static_cast<std::size_t>(h) * sizeof(tagRGBA))));
    if (!out) throw std::bad_alloc();
    kivcore::parallel_chunks(0, h, [&](int jb, int je) {
        // Planar copies of three rows, padded by one pixel each side; source row j lives in
        // slot j % 3, so each row is converted once per chunk.
        const std::size_t pw = sw + 2;
        std::vector<unsigned char> planes(9 * pw), res(3 * sw);
        int held[3] = {-1, -1, -1};
        for (int j = jb; j < je; ++j) {
            Rows3 rows;
            for (int r = 0; r < 3; ++r) {
                const int sj = clamp_index(j - 1 + r, h);
                unsigned char* dst = planes.data() + static_cast<std::size_t>(3 * (sj % 3)) * pw;
                if (held[sj % 3] != sj) {
                    planes_from_pixels(dst, pw, row_ptr(img, a.top + sj) + a.left, sw);
                    held[sj % 3] = sj;
                }
                for (int c = 0; c < 3; ++c) rows.row[r][c] = dst + c * pw;
            }
            unsigned char* o[3] = {res.data(), res.data() + sw, res.data() + 2 * sw};
            kernel(rows, w, o);
            const tagRGBA* s = row_ptr(img, a.top + j) + a.left;
            tagRGBA* d = out.get() + static_cast<std::size_t>(j) * sw;
            const unsigned char *o0 = o[0], *o1 = o[1], *o2 = o[2];
            for (std::size_t i = 0; i < sw; ++i) d[i] = tagRGBA{o0[i], o1[i], o2[i], s[i].a};
        }
    });
    img->setpacket(out.get(), a.left, a.top, w, h);
}

}  // namespace kivfilter

#endif
