// kiv program: the quantize family's operations.
#include "ops.h"

namespace kivcli {

void add_quantize_ops(OpTable& t) {
    (void)t;
}

}  // namespace kivcli
