// The weighted resampler's sums for AVX2: resample_wide_simd.h over kivcore::Avx2, eight
// floats to a register (the conversions in and out stay SSE2).
#include "core/simd_avx2.h"
#include "geometry/resample_wide_simd.h"
