// emboss's row kernel for AVX2: emboss_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/emboss_simd.h"

#if KIV_HAVE_AVX2
namespace kivfilter {

int emboss_row_avx2(const unsigned char* const* rows, int x0, int x1, const kivcore::ReliefLight& light, int mono,
                    unsigned char* out) {
    return emboss_row<kivcore::Avx2>(rows, x0, x1, light, mono, out);
}

}  // namespace kivfilter
#endif
