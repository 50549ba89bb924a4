// kiv program: the fill family's operations.  All fill the current rectangle (or the whole
// image); shades take three colours, gradients three stops (first at 0, last at 1000).
#include "ops.h"

namespace kivcli {

namespace {

const char* kModes = "blend mode 0..18: 0 normal, 1 darken, 2 lighten, 3 hue, 4 saturation, 5 colour, 6 value, "
                     "7 multiply, 8 screen, 10 overlay, 11 hard light, 12 soft light, 13 difference, "
                     "14 exclusion, 15 dodge, 16 burn, 17 add, 18 subtract";
const char* kDirs = "direction the ramp runs toward: 0 top-left, 1 top, 2 top-right, 3 left, 4 right, "
                    "5 bottom-left, 6 bottom, 7 bottom-right";
const char* kOpacity = "opacity 0..255 (255 replaces the pixels)";

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

std::vector<ArgSpec> shade_args(bool with_mode) {
    std::vector<ArgSpec> a = {{"FROM", ArgKind::Color, "colour at the side opposite DIR"},
                              {"MID", ArgKind::Color, "colour halfway"},
                              {"TO", ArgKind::Color, "colour at the side DIR names"},
                              {"DIR", ArgKind::Int, kDirs},
                              {"OPACITY", ArgKind::Int, kOpacity}};
    if (with_mode) a.push_back({"MODE", ArgKind::Int, kModes});
    return a;
}

std::vector<ArgSpec> gradient_args(bool with_mode) {
    std::vector<ArgSpec> a = {{"FROM", ArgKind::Color, "colour at position 0 (the side opposite DIR)"},
                              {"MID", ArgKind::Color, "colour at position POS"},
                              {"TO", ArgKind::Color, "colour at position 1000 (the side DIR names)"},
                              {"POS", ArgKind::Int, "position of MID in thousandths of the length, 0..1000"},
                              {"DIR", ArgKind::Int, kDirs},
                              {"OPACITY", ArgKind::Int, kOpacity}};
    if (with_mode) a.push_back({"MODE", ArgKind::Int, kModes});
    return a;
}

}  // namespace

void add_fill_ops(OpTable& t) {
    t.add("solidfill",
          {{"COLOR", ArgKind::Color, "fill colour"}, {"OPACITY", ArgKind::Int, kOpacity}, {"MODE", ArgKind::Int, kModes}},
          "blend a colour over the current rectangle (or the whole image)", "#FF8000 160 7",
          [](kiv& im, const OpCall& c) { return im.solidfill(c.rect, c.c(0), c.i(1), c.i(2)); });
    t.add("fillsolidrect", {{"COLOR", ArgKind::Color, "fill colour"}, {"OPACITY", ArgKind::Int, kOpacity}},
          "paint a colour over the current rectangle (or the whole image)", "#2040C0 96",
          [](kiv& im, const OpCall& c) { return im.fillsolidrect(c.rect, c.c(0), c.i(1)); });
    t.add("shadefill", shade_args(true), "blend a linear shade of three colours over the current rectangle",
          "#FF0000 #FFFF00 #0000FF 4 160 0", [](kiv& im, const OpCall& c) {
              Shade s(c, 0);
              return im.shadefill(c.rect, s.colors, 3, c.i(3), c.i(4), c.i(5));
          });
    t.add("fillshaderect", shade_args(false), "paint a linear shade of three colours over the current rectangle",
          "#000080 #FFFFFF #008000 6 128", [](kiv& im, const OpCall& c) {
              Shade s(c, 0);
              return im.fillshaderect(c.rect, s.colors, 3, c.i(3), c.i(4));
          });
    t.add("gradientfill", gradient_args(true),
          "blend a three-stop gradient over the current rectangle (or the whole image)",
          "#FF0000 #00FF00 #0000FF 300 7 200 0", [](kiv& im, const OpCall& c) {
              Stops s(c, 0);
              return im.gradientfill(c.rect, s.stops, 3, c.i(4), c.i(5), c.i(6));
          });
    t.add("fillgradientrect", gradient_args(false),
          "paint a three-stop gradient over the current rectangle (or the whole image)",
          "#FFFFFF #FFC000 #800000 700 4 160", [](kiv& im, const OpCall& c) {
              Stops s(c, 0);
              return im.fillgradientrect(c.rect, s.stops, 3, c.i(4), c.i(5));
          });
    t.add("settoalpha", {}, "replace every pixel (alpha too) by its lightness, (min + max) / 2", "",
          [](kiv& im, const OpCall&) { return im.settoalpha(); });
    t.add("addborder",
          {{"LEFT", ArgKind::Int, "pixels (negative trims)"},
           {"RIGHT", ArgKind::Int, "pixels (negative trims)"},
           {"TOP", ArgKind::Int, "pixels (negative trims)"},
           {"BOTTOM", ArgKind::Int, "pixels (negative trims)"},
           {"COLOR", ArgKind::Color, "border colour"}},
          "grow the image by coloured borders", "20 20 30 30 #FFFFFF",
          [](kiv& im, const OpCall& c) { return im.addborder(c.i(0), c.i(1), c.i(2), c.i(3), c.c(4)); });
}

}  // namespace kivcli
