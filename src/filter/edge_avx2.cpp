// edge's kernels for AVX2: edge_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/edge_simd.h"

#if KIV_HAVE_AVX2
namespace kivfilter {

int edge_row_avx2(const unsigned char* const* rows, int x0, int x1, int f, unsigned char* out) {
    return edge_row<kivcore::Avx2>(rows, x0, x1, f, out);
}

void edge_roots_avx2(const int* n, int count, int* root) { edge_roots<kivcore::Avx2>(n, count, root); }

}  // namespace kivfilter
#endif
