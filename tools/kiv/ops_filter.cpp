// kiv program: the filter family's operations.
#include "ops.h"

namespace kivcli {

void add_filter_ops(OpTable& t) {
    (void)t;
}

}  // namespace kivcli
