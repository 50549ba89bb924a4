// The C++ route of the cases in cases.h, for the C test program.
#include <cstring>

#include "kiv.h"
#include "kivc.h"

#define STRIP(...) __VA_ARGS__
#define gradientfill_xywh gradientfill  // the C name of the (x, y, w, h) overload
#define SECOND reinterpret_cast<kiv*>(second)
#define CASE(m, a) if (!std::strcmp(name, #m) && !k--) return static_cast<int>(im.m(STRIP a));
#define VCASE(m, a) if (!std::strcmp(name, #m) && !k--) return im.m(STRIP a), 1;
#define CASE0(m) if (!std::strcmp(name, #m) && !k--) return static_cast<int>(im.m());

// Runs the k-th case called name on img.
extern "C" int ref_run(const char* name, int k, kiv_image* img, kiv_image* second) {
    kiv& im = *reinterpret_cast<kiv*>(img);
    (void)second;
#include "cases.h"
    return -1;
}
