// The blend kernels for SSE2: blend_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "fill/blend_simd.h"
