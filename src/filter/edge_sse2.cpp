// edge's kernels for SSE2: edge_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/edge_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

int edge_row_sse2(const unsigned char* const* rows, int x0, int x1, int f, unsigned char* out) {
    return edge_row<kivcore::Sse2>(rows, x0, x1, f, out);
}

void edge_roots_sse2(const int* n, int count, int* root) { edge_roots<kivcore::Sse2>(n, count, root); }

}  // namespace kivfilter
#endif
