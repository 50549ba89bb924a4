// edge's kernels for AVX2: edge_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/edge_simd.h"
