// The integer convolution's pair kernel: the portable loop and the choice of a vector kernel
// (int_conv_simd.h).
#include "filter/int_conv.h"

#include "core/simd.h"
#include "filter/int_conv_simd.h"

namespace kivfilter {

void pair_conv_scalar(const PairConv& p, std::ptrdiff_t x0, std::ptrdiff_t x1) {
    auto one = [&](const std::int32_t* w, int m0, int m1, const unsigned char* c, unsigned char* d) {
        for (std::ptrdiff_t x = x0; x < x1; ++x) {
            const std::uint32_t shift = 8u * static_cast<std::uint32_t>(x & 3);
            const unsigned take = (p.take >> shift) & 0xFFu, keep = (p.keep >> shift) & 0xFFu;
            std::int32_t s = 0;
            for (int m = m0; m < m1; ++m) {
                const std::uint32_t wm = static_cast<std::uint32_t>(w[m]);
                const std::int32_t wa = static_cast<std::int32_t>(p.narrow ? wm & 0xFFu : wm & 0xFFFFu);
                const std::int32_t wb = static_cast<std::int32_t>(p.narrow ? (wm >> 8) & 0xFFu : wm >> 16);
                s += wa * p.a[m][x] + wb * p.b[m][x];
            }
            d[x] = static_cast<unsigned char>(((s / p.total) & take) | (keep ? c[x] & keep : 0u));
        }
    };
    one(p.w0, 0, p.e0, p.c0, p.d0);
    if (p.w1) one(p.w1, p.s1, p.e1, p.c1, p.d1);
}

int pair_width() { return kivcore::use_avx2() ? 32 : kivcore::use_sse2() ? 16 : 0; }

void pair_conv_vector(const PairConv& p, int width) {
    (width == 32 ? KIV_AVX2_KERNEL(pair_conv_avx2) : KIV_SSE2_KERNEL(pair_conv_sse2))(p);
}

void pair_conv16_vector(const PairConv& p, int width) {
    (width == 32 ? KIV_AVX2_KERNEL(pair_conv16_avx2) : KIV_SSE2_KERNEL(pair_conv16_sse2))(p);
}

}  // namespace kivfilter
