// The integer convolution's kernels for SSE2: int_conv_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/int_conv_simd.h"
