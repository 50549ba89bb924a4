// edge's kernels for SSE2: edge_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/edge_simd.h"
