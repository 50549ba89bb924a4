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
    t.add("quantize_hq", "64 100 0", [](kiv& im, const OpCall& c) { return im.quantize_hq(c.i(0), c.i(1), c.i(2)); });
    // The program holds one image: its mirror stands in for a second frame, so the palette
    // serves both and the image keeps the one it shares.
    t.add("quantize_shared", "64 100 0", [](kiv& im, const OpCall& c) {
        kiv other(im);
        other.mirror(0, 0, 0, 0);
        kiv* images[] = {&im, &other};
        return kiv::quantize_shared(images, 2, c.i(0), c.i(1), c.i(2));
    });
}

}  // namespace kivcli
