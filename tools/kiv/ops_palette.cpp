// kiv program: the palette family's operations.
#include "ops.h"

namespace kivcli {

void add_palette_ops(OpTable& t) {
    (void)t;
}

}  // namespace kivcli
