// The free kivQuantize* functions: quantize a packed DIB into a new packed DIB.
#include "kiv.h"

namespace {

bool valid_mode(int mode) { return mode >= 0 && mode <= 4; }

// Reads the DIB into a temporary image, applies op, writes a new DIB.  The caller's DIB is
// only read; nothing escapes to the C caller but a handle or null.
template <class Op>
void* quantize_dib(void* dib, Op op) {
    if (!dib) return nullptr;
    try {
        kiv img;
        if (!img.attachdib(dib)) return nullptr;
        op(img);
        return img.createdib();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

extern "C" {

KIV_API void* kivQuantize(void* dib, int mode, int colors) {
    if (!valid_mode(mode) || colors < 1 || colors > 256) return nullptr;
    return quantize_dib(dib, [&](kiv& img) { img.quantize(mode, colors, nullptr); });
}

KIV_API void* kivQuantizeWcp(void* dib, int mode, tagLOGPALETTE* pal) {
    if (!valid_mode(mode) || !pal || pal->palNumEntries < 1 || pal->palNumEntries > 256) return nullptr;
    return quantize_dib(dib, [&](kiv& img) { img.quantize(mode, 0, pal); });
}

KIV_API void* kivQuantizeWdp(void* dib, int mode, int which) {
    if (!valid_mode(mode)) return nullptr;
    // An unknown fixed palette leaves the image as read: the copy is still made.
    return quantize_dib(dib, [&](kiv& img) { img.quantize_wdp(mode, which); });
}

KIV_API void* kivQuantizeWin256(void* dib, int mode) { return kivQuantizeWdp(dib, mode, 1); }

KIV_API void* kivQuantizeWin16(void* dib, int mode) { return kivQuantizeWdp(dib, mode, 0); }

}  // extern "C"
