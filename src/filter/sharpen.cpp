// sharpen: the plain 3x3 sharpening (centre 18, neighbours -1, divided by 10), which is
// mode 3 of the 3x3 kernel family; resampling calls it after shrinking both sides.
#include "kiv.h"

int kiv::sharpen(tagRECT* rect) { return filter_3x3(rect, 3); }
