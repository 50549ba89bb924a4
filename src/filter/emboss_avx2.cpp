// emboss's row kernel for AVX2: emboss_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/emboss_simd.h"
