// kiv program: the palette family's operations.  countcolors and validate_rgb are not here:
// the first only answers a question (and the program's stdout stays clean), the second only
// refreshes pixels from a colour map the program gives no way to edit.
#include "ops.h"

namespace kivcli {

void add_palette_ops(OpTable& t) {
    t.add("grayscale", "", [](kiv& im, const OpCall&) {
        im.grayscale();
        return 1;
    });
    t.add("increasecolor", "-", [](kiv& im, const OpCall& c) {
        im.increasecolor(c.i(0));
        return 1;
    });
    t.add("convert_colorspace", "1", [](kiv& im, const OpCall& c) { return im.convert_colorspace(c.rect, c.i(0)); });
    t.add("convert_rgb", "3", [](kiv& im, const OpCall& c) { return im.convert_rgb(c.rect, c.i(0)); });
}

}  // namespace kivcli
