// emboss's row kernel for SSE2: emboss_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/emboss_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

int emboss_row_sse2(const unsigned char* const* rows, int x0, int x1, const kivcore::ReliefLight& light, int mono,
                    unsigned char* out) {
    return emboss_row<kivcore::Sse2>(rows, x0, x1, light, mono, out);
}

}  // namespace kivfilter
#endif
