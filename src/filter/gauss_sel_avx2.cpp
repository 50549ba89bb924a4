// The selective Gaussian's block kernel for AVX2: gauss_sel_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/gauss_sel_simd.h"
