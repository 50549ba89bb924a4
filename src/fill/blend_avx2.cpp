// The blend kernels for AVX2: blend_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "fill/blend_simd.h"

#if KIV_HAVE_AVX2
namespace kivfill {

int blend_mix_avx2(int mode, unsigned char* p, const unsigned char* c, int c_step, int n, int op) {
    return blend_mix_of_mode<kivcore::Avx2>(mode, p, c, c_step, n, op);
}

}  // namespace kivfill
#endif
