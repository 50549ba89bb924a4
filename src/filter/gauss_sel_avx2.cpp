// The selective Gaussian's block kernel for AVX2: the SSE2 kernel with four pixels to a
// register. Each lane adds exactly the scalar sequence of terms.
#include "core/simd.h"
#include "filter/gauss_sel.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivfilter {

void sel_block_avx2(const SelTile& t, int count, double* sum, double* wsum, int stride) {
    const long long plane = static_cast<long long>(t.rows) * t.width;
    const __m256d thr = _mm256_set1_pd(t.threshold), sign = _mm256_set1_pd(-0.0);
    for (int i = 0; i < count; i += 4) {
        const double* at = t.tile + (t.n - 1) + i;
        __m256d centre[3], s[3], ws[3];
        for (int c = 0; c < 3; ++c) {
            centre[c] = _mm256_loadu_pd(at + c * plane + static_cast<long long>(t.centre_row) * t.width);
            s[c] = ws[c] = _mm256_setzero_pd();
        }
        for (int dx = -(t.n - 1); dx <= t.n - 1; ++dx) {
            const double* kx = t.K + static_cast<long long>(dx < 0 ? -dx : dx) * t.n;
            for (int r = 0; r < t.rows; ++r) {
                const int dy = r - t.centre_row;
                const __m256d wt = _mm256_broadcast_sd(kx + (dy < 0 ? -dy : dy));
                const double* p = at + dx + static_cast<long long>(r) * t.width;
                for (int c = 0; c < 3; ++c) {
                    const __m256d v = _mm256_loadu_pd(p + c * plane);
                    const __m256d in =
                        _mm256_cmp_pd(_mm256_andnot_pd(sign, _mm256_sub_pd(centre[c], v)), thr, _CMP_LE_OQ);
                    const __m256d m = _mm256_and_pd(in, wt);
                    s[c] = _mm256_add_pd(s[c], _mm256_mul_pd(v, m));
                    ws[c] = _mm256_add_pd(ws[c], m);
                }
            }
        }
        for (int c = 0; c < 3; ++c) {
            _mm256_storeu_pd(sum + static_cast<long long>(c) * stride + i, s[c]);
            _mm256_storeu_pd(wsum + static_cast<long long>(c) * stride + i, ws[c]);
        }
    }
}

}  // namespace kivfilter

#endif
