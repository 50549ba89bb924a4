// The integer convolution's kernels for AVX2: int_conv_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/int_conv_simd.h"
