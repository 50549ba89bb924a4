// The blend kernels for SSE2: blend_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "fill/blend_simd.h"

#if KIV_HAVE_SSE2
namespace kivfill {

int blend_mix_sse2(int mode, unsigned char* p, const unsigned char* c, int c_step, int n, int op) {
    return blend_mix_of_mode<kivcore::Sse2>(mode, p, c, c_step, n, op);
}

}  // namespace kivfill
#endif
