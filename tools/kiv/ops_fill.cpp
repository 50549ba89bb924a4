// kiv program: the fill family's operations.  All fill the current rectangle (or the whole
// image); shades take three colours, gradients three stops (first at 0, last at 1000).
#include "ops.h"

namespace kivcli {

namespace {

// The three colours of a shade, from arguments first..first+2.
struct Shade {
    COLORREF colors[3];
    Shade(const OpCall& c, std::size_t first) : colors{c.c(first), c.c(first + 1), c.c(first + 2)} {}
};

// Three gradient stops: FROM at 0, MID at POS, TO at 1000.
struct Stops {
    tagGRADCOLORS stops[3];
    Stops(const OpCall& c, std::size_t first)
        : stops{{c.c(first), 0}, {c.c(first + 1), c.i(first + 3)}, {c.c(first + 2), 1000}} {}
};

// The command line gives a shade's colour list and a gradient's stops as three colours.
const std::vector<Supplied> kShade = {{"colors",
                                       {{"FROM", ArgKind::Color, "colour at the side opposite DIR"},
                                        {"MID", ArgKind::Color, "colour halfway"},
                                        {"TO", ArgKind::Color, "colour at the side DIR names"}}}};
const std::vector<Supplied> kStops = {{"stops",
                                       {{"FROM", ArgKind::Color, "colour at position 0 (the side opposite DIR)"},
                                        {"MID", ArgKind::Color, "colour at position POS"},
                                        {"TO", ArgKind::Color, "colour at position 1000 (the side DIR names)"},
                                        {"POS", ArgKind::Int, "position of MID in thousandths of the length", nullptr, 0, 1000}}}};

}  // namespace

void add_fill_ops(OpTable& t) {
    t.add("solidfill", "orange 160 7", [](kiv& im, const OpCall& c) { return im.solidfill(c.rect, c.c(0), c.i(1), c.i(2)); });
    t.add("fillsolidrect", "#2040C0 96", [](kiv& im, const OpCall& c) { return im.fillsolidrect(c.rect, c.c(0), c.i(1)); });
    t.add("shadefill", "#FF0000 #FFFF00 #0000FF 4 160 0", [](kiv& im, const OpCall& c) {
        Shade s(c, 0);
        return im.shadefill(c.rect, s.colors, 3, c.i(3), c.i(4), c.i(5));
    }, kShade);
    t.add("fillshaderect", "#000080 #FFFFFF #008000 6 128", [](kiv& im, const OpCall& c) {
        Shade s(c, 0);
        return im.fillshaderect(c.rect, s.colors, 3, c.i(3), c.i(4));
    }, kShade);
    t.add("gradientfill", "#FF0000 #00FF00 #0000FF 300 7 200 0", [](kiv& im, const OpCall& c) {
        Stops s(c, 0);
        return im.gradientfill(c.rect, s.stops, 3, c.i(4), c.i(5), c.i(6));
    }, kStops);
    t.add("fillgradientrect", "#FFFFFF #FFC000 #800000 700 4 160", [](kiv& im, const OpCall& c) {
        Stops s(c, 0);
        return im.fillgradientrect(c.rect, s.stops, 3, c.i(4), c.i(5));
    }, kStops);
    t.add("settoalpha", "", [](kiv& im, const OpCall&) { return im.settoalpha(); });
    t.add("addborder", "20 20 30 30 #FFFFFF",
          [](kiv& im, const OpCall& c) { return im.addborder(c.i(0), c.i(1), c.i(2), c.i(3), c.c(4)); });
}

}  // namespace kivcli
