// kiv program: the fill family's operations.
#include "ops.h"

namespace kivcli {

void add_fill_ops(OpTable& t) {
    (void)t;
}

}  // namespace kivcli
