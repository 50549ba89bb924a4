// kiv program: the quantize family's operations.
#include "ops.h"

namespace kivcli {

namespace {
const char* kModes = "0 nearest, 1 Floyd-Steinberg, 2 exact match, 3 Floyd-Steinberg (strong limit), 4 ordered dither";

// quantize returns nothing: a call it refuses leaves the image as it was, so a changed
// depth (or an already palettized result) tells the two apart.
int quantize_checked(kiv& im, int mode, int colors) {
    if (mode < 0 || mode > 4 || colors < 1 || colors > 256 || im.m_packets <= 0) return 0;
    im.quantize(mode, colors, nullptr);
    return im.m_bits <= 8 ? 1 : 0;
}
}  // namespace

void add_quantize_ops(OpTable& t) {
    t.add("quantize", {{"mode", ArgKind::Int, kModes}, {"colors", ArgKind::Int, "palette size 1..256"}},
          "reduce to a palette chosen from the image by median cut (palettized result)", "1 16",
          [](kiv& im, const OpCall& c) { return quantize_checked(im, c.i(0), c.i(1)); });
    t.add("quantize_wdp",
          {{"mode", ArgKind::Int, kModes},
           {"which", ArgKind::Int,
            "fixed palette: 0 VGA 16, 1 system 256, 2 web cube + ramps, 3 web cube, 4 hue wheel, 5 pastel, "
            "6 heat, 7 cold, 8 warm"}},
          "reduce to one of the nine fixed palettes", "4 0",
          [](kiv& im, const OpCall& c) { return im.quantize_wdp(c.i(0), c.i(1)); });
    t.add("quantize_hq",
          {{"colors", ArgKind::Int, "palette size 1..256"},
           {"dither", ArgKind::Int, "error diffusion strength 0..100 percent (0 none)"},
           {"alpha", ArgKind::Int, "1: byte 3 of a 24/32-bit image is alpha (entries carry alpha), 0: opaque"}},
          "reduce to a refined palette (k-means), nearest colour or edge-aware Floyd-Steinberg (palettized result)",
          "64 100 0", [](kiv& im, const OpCall& c) {
              if (c.i(2) != 0 && c.i(2) != 1) return 0;
              return im.quantize_hq(c.i(0), c.i(1), c.i(2) ? KIV_QUANT_ALPHA : 0);
          });
}

}  // namespace kivcli
