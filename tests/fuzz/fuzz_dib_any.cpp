// Fuzz target: the full DIB and BMP reader. The input is read as a packed DIB, from bytes and
// from a global-memory block (the two must agree and the block stay as it was), and, when it
// starts with "BM", as a BMP file. A refusal gives a reason and leaves the image as it was; an
// image read keeps its indices inside its map and goes through the alpha writer and back.
#include "fuzz_common.h"

namespace {

using kivfuzz::fail;
using kivfuzz::images_same;

void check_read(kiv& img, int ok, const char* why, const char* where) {
    kivfuzz::check_image(img, where);
    if (!ok) {
        if (!why || !images_same(img, kiv(3, 2, 24)))
            fail(where, "a refusal without a reason, or one that changed the image");
        return;
    }
    for (int i = 0; i < img.m_packets; ++i)
        if (img.m_bits < 24 && img.m_pixels[i].a >= img.m_colors) fail(where, "an index past the colour map");
    if (img.m_packets > (1 << 20)) return;  // the round trip below only on images of moderate size
    void* dib = img.createdib_alpha(0);
    kiv back;
    if (!dib || !back.attachdib_any(dib, nullptr)) fail(where, "its own alpha DIB was refused");
    GlobalFree(dib);
    for (int i = 0; i < img.m_packets; ++i) {
        const tagRGBA p = img.m_pixels[i], q = back.m_pixels[i];
        if (p.r != q.r || p.g != q.g || p.b != q.b || q.a != (img.m_bits == 32 ? p.a : 255))
            fail(where, "the alpha DIB round trip changed pixel " + std::to_string(i));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kiv a(3, 2, 24), b(3, 2, 24), file(3, 2, 24);
    const char* why = nullptr;
    const int ok = a.attachdib_any_bytes(data, size, &why);
    check_read(a, ok, why, "attachdib_any_bytes");
    if (size) {
        void* dib = GlobalAlloc(GMEM_MOVEABLE, size);
        std::memcpy(GlobalLock(dib), data, size), GlobalUnlock(dib);
        if (b.attachdib_any(dib, &why) != ok || (ok && !images_same(a, b))) fail("attachdib_any", "differs from bytes");
        if (std::memcmp(GlobalLock(dib), data, size)) fail("attachdib_any", "the block changed");
        GlobalUnlock(dib), GlobalFree(dib);
    }
    if (size >= 14 && data[0] == 'B' && data[1] == 'M')
        check_read(file, file.loadbmp_bytes(data, size, &why), why, "loadbmp_bytes");
    return 0;
}
