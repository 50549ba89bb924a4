// kiv program: the geometry family's operations.
#include "ops.h"

namespace kivcli {

void add_geometry_ops(OpTable& t) {
    t.add("crop", {}, "keep only the current rectangle (set it with `rect`)", "-",
          [](kiv& im, const OpCall& c) { return im.crop(c.rect); });
    (void)t;
}

}  // namespace kivcli
