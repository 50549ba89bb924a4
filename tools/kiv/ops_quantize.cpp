// kiv program: the quantize family's operations.
#include "ops.h"

namespace kivcli {

void add_quantize_ops(OpTable& t) {
    // quantize returns nothing, and the program has checked its arguments against the table:
    // an image with pixels comes out palettized unless the call was refused.
    t.add("quantize", "1 16", [](kiv& im, const OpCall& c) {
        im.quantize(c.i(0), c.i(1), nullptr);
        return im.m_pixels && im.m_bits <= 8 ? 1 : 0;
    }, {{"pal", {}}});
    t.add("quantize_wdp", "4 0", [](kiv& im, const OpCall& c) { return im.quantize_wdp(c.i(0), c.i(1)); });
}

}  // namespace kivcli
