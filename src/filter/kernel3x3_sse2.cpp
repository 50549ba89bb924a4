// The 3x3 filters' row kernels for SSE2: kernel3x3_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/kernel3x3_simd.h"
