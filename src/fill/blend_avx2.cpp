// The blend kernels for AVX2: blend_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "fill/blend_simd.h"
