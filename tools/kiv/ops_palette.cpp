// kiv program: the palette family's operations.  countcolors and validate_rgb are not here:
// the first only answers a question (and the program's stdout stays clean), the second only
// refreshes pixels from a colour map the program gives no way to edit.
#include "ops.h"

namespace kivcli {

namespace {
const char* kSpaces = "colour space: 0 RGB, 1 HSV, 2 HLS, 3 YCbCr, 4 YIQ, 5 CMY, 6 L*a*b*";
}

void add_palette_ops(OpTable& t) {
    t.add("grayscale", {}, "make the whole image 8-bit grey with a 256-level grey palette", "",
          [](kiv& im, const OpCall&) {
              im.grayscale();
              return 1;
          });
    t.add("increasecolor", {{"N", ArgKind::Int, "colours the image must hold: <= 4 gives 4 bits, 5..8 gives 8, >= 9 gives 24"}},
          "raise a palettized image's depth so that it can hold N colours (never lowers it)", "-",
          [](kiv& im, const OpCall& c) {
              im.increasecolor(c.i(0));
              return 1;
          });
    t.add("convert_colorspace", {{"SPACE", ArgKind::Int, kSpaces}},
          "store the current rectangle (or the whole image) in another colour space (channels in red, green, blue)",
          "1", [](kiv& im, const OpCall& c) { return im.convert_colorspace(c.rect, c.i(0)); });
    t.add("convert_rgb", {{"SPACE", ArgKind::Int, kSpaces}},
          "read the current rectangle (or the whole image) as a colour space and convert it back to RGB", "3",
          [](kiv& im, const OpCall& c) { return im.convert_rgb(c.rect, c.i(0)); });
}

}  // namespace kivcli
