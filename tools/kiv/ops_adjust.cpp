// kiv program: the adjust family's operations.
#include "ops.h"

namespace kivcli {

void add_adjust_ops(OpTable& t) {
    (void)t;
}

}  // namespace kivcli
