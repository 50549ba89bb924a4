// The integer convolution's kernels for SSE2: int_conv_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/int_conv_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

void pair_conv_sse2(const PairConv& p) { pair_conv<kivcore::Sse2>(p); }
void pair_conv16_sse2(const PairConv& p) { pair_conv16<kivcore::Sse2>(p); }

}  // namespace kivfilter
#endif
