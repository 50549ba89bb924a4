// kiv program: the adjust family's operations (point and histogram adjustments).  Each works
// on the current rectangle (or the whole image); a palettized image has its colour map
// adjusted instead.
#include "ops.h"

namespace kivcli {

void add_adjust_ops(OpTable& t) {
    // Point adjustments.
    t.add("bright_contrast",
          {{"BRIGHTNESS", ArgKind::Int, "-127..127, 0 unchanged"}, {"CONTRAST", ArgKind::Int, "-127..127, 0 unchanged"}},
          "change brightness and contrast", "30 50",
          [](kiv& im, const OpCall& c) { return im.bright_contrast(c.rect, c.i(0), c.i(1)); });
    t.add("gamma_rgb",
          {{"RED", ArgKind::Real, "gamma of red, > 0, 1 unchanged (above 1 brightens)"},
           {"GREEN", ArgKind::Real, "gamma of green, > 0, 1 unchanged"},
           {"BLUE", ArgKind::Real, "gamma of blue, > 0, 1 unchanged"},
           {"MASTER", ArgKind::Real, "gamma applied after the three, > 0, 1 unchanged"}},
          "gamma correction per channel", "1.4 1.0 0.7 1.0",
          [](kiv& im, const OpCall& c) { return im.gamma_rgb(c.rect, c.d(0), c.d(1), c.d(2), c.d(3)); });
    t.add("gamma", {{"G", ArgKind::Real, "gamma, > 0, 1 unchanged (above 1 brightens)"}}, "gamma correction",
          "1.8", [](kiv& im, const OpCall& c) { return im.gamma(c.rect, c.d(0)); });
    t.add("adjust_rgb",
          {{"RED", ArgKind::Int, "percent change, -100 (none left) .. +100 (doubled)"},
           {"GREEN", ArgKind::Int, "percent change, -100..100"},
           {"BLUE", ArgKind::Int, "percent change, -100..100"}},
          "change each channel by a percentage", "30 0 -40",
          [](kiv& im, const OpCall& c) { return im.adjust_rgb(c.rect, c.i(0), c.i(1), c.i(2)); });
    t.add("modulate",
          {{"HUE", ArgKind::Int, "hue shift in 1/255 turns"},
           {"SATURATION", ArgKind::Int, "saturation change in 1/128 of itself (128 doubles)"},
           {"LIGHTNESS", ArgKind::Int, "lightness shift in levels of 0..255"}},
          "shift hue, scale saturation and shift lightness (HLS model)", "40 64 10",
          [](kiv& im, const OpCall& c) { return im.modulate(c.rect, c.i(0), c.i(1), c.i(2)); });
    t.add("hue_saturation",
          {{"RANGE", ArgKind::Int, "0 all colours, 1..6 one sixth of the hue circle from red"},
           {"HUE", ArgKind::Int, "hue shift in degrees, -180..180"},
           {"SATURATION", ArgKind::Int, "percent, -100..100"},
           {"LIGHTNESS", ArgKind::Int, "percent, -100..100"}},
          "change hue, saturation and lightness of all colours or of one hue range", "0 90 30 0",
          [](kiv& im, const OpCall& c) { return im.hue_saturation(c.rect, c.i(0), c.i(1), c.i(2), c.i(3)); });
    t.add("negative", {}, "complement red, green and blue (of the colour map, when palettized)", "",
          [](kiv& im, const OpCall& c) {
              im.negative(c.rect);
              return 1;
          });
    t.add("invertrect", {}, "complement red, green and blue (palettized: map and pixels)", "",
          [](kiv& im, const OpCall& c) {
              im.invertrect(c.rect);
              return 1;
          });
    t.add("desaturate", {}, "make grey at each pixel's lightness", "",
          [](kiv& im, const OpCall& c) { return im.desaturate(c.rect); });
    t.add("posterize", {{"LEVELS", ArgKind::Int, "levels per channel, >= 2 (smaller counts as 2)"}},
          "reduce each channel to evenly spaced levels", "4",
          [](kiv& im, const OpCall& c) { return im.posterize(c.rect, c.i(0)); });
    t.add("colorify", {{"COLOR", ArgKind::Color, "tint colour (white leaves grey)"}},
          "tint: the pixels' luminance scaled into a colour (24-bit result)", "#E0A060",
          [](kiv& im, const OpCall& c) { return im.colorify(c.rect, c.c(0)); });
    t.add("colorbalance",
          {{"RED_SHADOWS", ArgKind::Int, "red shift in the shadows, -100..100"},
           {"RED_MIDTONES", ArgKind::Int, "-100..100"},
           {"RED_HIGHLIGHTS", ArgKind::Int, "-100..100"},
           {"GREEN_SHADOWS", ArgKind::Int, "-100..100"},
           {"GREEN_MIDTONES", ArgKind::Int, "-100..100"},
           {"GREEN_HIGHLIGHTS", ArgKind::Int, "-100..100"},
           {"BLUE_SHADOWS", ArgKind::Int, "-100..100"},
           {"BLUE_MIDTONES", ArgKind::Int, "-100..100"},
           {"BLUE_HIGHLIGHTS", ArgKind::Int, "-100..100"},
           {"PRESERVE", ArgKind::Int, "1 keep each pixel's lightness, 0 not"}},
          "shift the colour balance of shadows, midtones and highlights", "40 60 20 0 0 0 -40 -60 -20 1",
          [](kiv& im, const OpCall& c) {
              tagKIV_COLORBALANCE cb{{c.i(0), c.i(1), c.i(2)}, {c.i(3), c.i(4), c.i(5)}, {c.i(6), c.i(7), c.i(8)}, c.i(9)};
              return im.colorbalance(c.rect, &cb);
          });
    t.add("colorcut",
          {{"SPACE", ArgKind::Int, "colour space: 0 RGB, 1 HSV, 2 HLS, 3 YCbCr, 4 YIQ, 5 CMY, 6 L*a*b*"},
           {"STEP1", ArgKind::Int, "quantization step of the first channel, 0 leaves it alone"},
           {"STEP2", ArgKind::Int, "step of the second channel, 0 leaves it alone"},
           {"STEP3", ArgKind::Int, "step of the third channel, 0 leaves it alone"}},
          "quantize the channels of a colour space in fixed steps (24-bit result)", "1 32 64 0",
          [](kiv& im, const OpCall& c) {
              tagKIV_COLORCUT cc{c.i(0), {c.i(1), c.i(2), c.i(3)}};
              return im.colorcut(c.rect, &cc);
          });

    // Histogram-driven adjustments.
    t.add("autocontrast", {}, "stretch each channel to the full range by its own minimum and maximum", "",
          [](kiv& im, const OpCall& c) { return im.autocontrast(c.rect); });
    t.add("equalize", {}, "equalize the whole image's luminance histogram", "",
          [](kiv& im, const OpCall& c) { return im.equalize(c.rect); });
    t.add("normalize", {}, "stretch luminance between the 1% and 99% points of the whole image", "",
          [](kiv& im, const OpCall& c) { return im.normalize(c.rect); });
    t.add("autocolorenhance", {}, "stretch the value of each colour's chromatic part to the full range", "",
          [](kiv& im, const OpCall& c) { return im.autocolorenhance(c.rect); });
}

}  // namespace kivcli
