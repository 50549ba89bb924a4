// kiv program: the quantize family's operations.
#include "image_io.h"
#include "ops.h"

namespace kivcli {

void add_quantize_ops(OpTable& t) {
    // quantize returns nothing, and the program has checked its arguments against the table:
    // an image with pixels comes out palettized unless the call was refused.
    t.add("quantize", "1 16", [](kiv& im, const OpCall& c) {
        im.quantize(c.i(0), c.i(1), nullptr);
        return im.m_pixels && im.m_bits <= 8 ? 1 : 0;
    }, {{"pal", {}}});
    // The palette comes from a file: a GIMP palette, or the colours of an image.
    t.add("quantize_wpal", "0 palette.gpl", [](kiv& im, const OpCall& c) {
        std::vector<tagSYSCOL> cols = load_palette(c.text[1]);
        im.quantize_wpal(c.i(0), cols.data(), static_cast<int>(cols.size()));
        return im.m_pixels && im.m_bits <= 8 ? 1 : 0;
    }, {{"cols", {{"PALETTE", ArgKind::Path, "a GIMP palette (.gpl) or an image whose colours (at most 256) make the palette"}}}});
    t.add("quantize_wdp", "4 0", [](kiv& im, const OpCall& c) { return im.quantize_wdp(c.i(0), c.i(1)); });
}

}  // namespace kivcli
