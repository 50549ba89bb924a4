// The 3x3 filters' row kernels for AVX2: kernel3x3_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/kernel3x3_simd.h"
