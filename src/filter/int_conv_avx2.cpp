// The integer convolution's kernels for AVX2: int_conv_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/int_conv_simd.h"

#if KIV_HAVE_AVX2
namespace kivfilter {

void pair_conv_avx2(const PairConv& p) { pair_conv<kivcore::Avx2>(p); }
void pair_conv16_avx2(const PairConv& p) { pair_conv16<kivcore::Avx2>(p); }

}  // namespace kivfilter
#endif
