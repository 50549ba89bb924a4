// emboss's row kernel for SSE2: emboss_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/emboss_simd.h"
