// Colour-space conversions of pixels in place (bytes 0..2; the fourth byte is kept), shared
// by convert_colorspace / convert_rgb and the adjustments that work in another space.  Codes
// and byte scalings are the KIV_CS_* constants of kiv.h.  Deterministic: plain IEEE double
// arithmetic in a fixed order, no libm.
#ifndef KIV_PALETTE_COLORSPACE_H
#define KIV_PALETTE_COLORSPACE_H

#include <cstddef>

#include "kiv.h"

namespace kivpal {

// True for the codes KIV_CS_RGB .. KIV_CS_LAB.
bool colorspace_known(int colorspace);

// n pixels from RGB into colorspace, or back; unknown codes leave the pixels alone.
void rgb_to_space(tagRGBA* p, std::size_t n, int colorspace);
void space_to_rgb(tagRGBA* p, std::size_t n, int colorspace);

// The cube root used by the L*a*b* conversion: Newton's iteration from a fixed start, for
// 0 <= t <= 2 (exposed for its test).
double cube_root(double t);

}  // namespace kivpal

#endif
