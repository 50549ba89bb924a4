// kiv program: the adjust family's operations (point and histogram adjustments).  Each works
// on the current rectangle (or the whole image); a palettized image has its colour map
// adjusted instead.
#include "ops.h"

namespace kivcli {

void add_adjust_ops(OpTable& t) {
    // Point adjustments.
    t.add("bright_contrast", "30 50", [](kiv& im, const OpCall& c) { return im.bright_contrast(c.rect, c.i(0), c.i(1)); });
    t.add("gamma_rgb", "1.4 1.0 0.7 1.0",
          [](kiv& im, const OpCall& c) { return im.gamma_rgb(c.rect, c.d(0), c.d(1), c.d(2), c.d(3)); });
    t.add("gamma", "1.8", [](kiv& im, const OpCall& c) { return im.gamma(c.rect, c.d(0)); });
    t.add("adjust_rgb", "30 0 -40", [](kiv& im, const OpCall& c) { return im.adjust_rgb(c.rect, c.i(0), c.i(1), c.i(2)); });
    t.add("modulate", "40 64 10", [](kiv& im, const OpCall& c) { return im.modulate(c.rect, c.i(0), c.i(1), c.i(2)); });
    t.add("hue_saturation", "0 90 30 0",
          [](kiv& im, const OpCall& c) { return im.hue_saturation(c.rect, c.i(0), c.i(1), c.i(2), c.i(3)); });
    t.add("negative", "", [](kiv& im, const OpCall& c) {
        im.negative(c.rect);
        return 1;
    });
    t.add("invertrect", "", [](kiv& im, const OpCall& c) {
        im.invertrect(c.rect);
        return 1;
    });
    t.add("desaturate", "", [](kiv& im, const OpCall& c) { return im.desaturate(c.rect); });
    t.add("posterize", "4", [](kiv& im, const OpCall& c) { return im.posterize(c.rect, c.i(0)); });
    t.add("colorify", "#E0A060", [](kiv& im, const OpCall& c) { return im.colorify(c.rect, c.c(0)); });
    t.add("colorbalance", "40 60 20 0 0 0 -40 -60 -20 1", [](kiv& im, const OpCall& c) {
        tagKIV_COLORBALANCE cb{{c.i(0), c.i(1), c.i(2)}, {c.i(3), c.i(4), c.i(5)}, {c.i(6), c.i(7), c.i(8)}, c.i(9)};
        return im.colorbalance(c.rect, &cb);
    });
    t.add("colorcut", "1 32 64 0", [](kiv& im, const OpCall& c) {
        tagKIV_COLORCUT cc{c.i(0), {c.i(1), c.i(2), c.i(3)}};
        return im.colorcut(c.rect, &cc);
    });

    // Histogram-driven adjustments.
    t.add("autocontrast", "", [](kiv& im, const OpCall& c) { return im.autocontrast(c.rect); });
    t.add("equalize", "", [](kiv& im, const OpCall& c) { return im.equalize(c.rect); });
    t.add("normalize", "", [](kiv& im, const OpCall& c) { return im.normalize(c.rect); });
    t.add("autocolorenhance", "", [](kiv& im, const OpCall& c) { return im.autocolorenhance(c.rect); });
}

}  // namespace kivcli
