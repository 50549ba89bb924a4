// The selective Gaussian's block kernel for SSE2: gauss_sel_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/gauss_sel_simd.h"
