// kiv program: the effect family's operations.
#include "ops.h"

namespace kivcli {

void add_effect_ops(OpTable& t) {
    (void)t;
}

}  // namespace kivcli
