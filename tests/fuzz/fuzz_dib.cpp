// Fuzz target: the input is a packed DIB in a global-memory block, read by every entry
// point that takes one.  The last bytes of the block (part of the DIB as far as the reader
// knows) also pick the rectangles, modes and palettes.
#include <vector>

#include "fuzz_common.h"

namespace {

using kivfuzz::check_image;
using kivfuzz::fail;
using kivfuzz::images_same;

// A DIB the library produced must read back to the same pixels at the depths it writes.
void check_round_trip(kiv& img, const char* where) {
    check_image(img, where);
    void* out = img.createdib();
    if (!img.m_pixels) {
        if (out) fail(where, "a DIB of an empty image");
        return;
    }
    if (!out) fail(where, "createdib refused a valid image");
    kiv back;
    if (!back.attachdib(out)) fail(where, "its own DIB was refused");
    GlobalFree(out);
    check_image(back, where);
    const int b = img.m_bits;
    if (b != 1 && b != 4 && b != 8 && b != 24) return;  // other depths are written as zeros
    if (back.m_width != img.m_width || back.m_height != img.m_height || back.m_bits != b)
        fail(where, "round trip changed the geometry");
    for (int i = 0; i < img.m_packets; ++i) {
        const tagRGBA& p = img.m_pixels[i];
        const tagRGBA& q = back.m_pixels[i];
        // Below 24 bits the index is written and the colour comes back from the table.
        const bool same = b < 24 ? p.a == q.a : (p.r == q.r && p.g == q.g && p.b == q.b);
        if (!same) fail(where, "round trip changed pixel " + std::to_string(i));
    }
}

// Results of the free functions are new DIBs the library made: read, check, release.
void check_result(void* dib, const char* where) {
    if (!dib) return;
    kiv img;
    if (!img.attachdib(dib)) fail(where, "result DIB unreadable");
    GlobalFree(dib);
    check_image(img, where);
    if (img.m_bits > 8 || img.m_colors < 1 || img.m_colors > 256) fail(where, "result not palettized");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    HGLOBAL dib = GlobalAlloc(GMEM_MOVEABLE, size);
    if (!dib) return 0;
    std::memcpy(GlobalLock(dib), data, size);
    GlobalUnlock(dib);
    const std::size_t tail = size < 16 ? size : 16;
    kivfuzz::Params prm{data + size - tail, tail};
    const int flags = prm.u8();
    const int mode = prm.u8() % 6;  // 5: out of range on purpose
    const int colors = prm.u16() % 300;
    const int which = prm.u8() % 10;
    tagRECT rect{prm.s16(), prm.s16(), prm.s16(), prm.s16()};

    kiv img;
    if (img.attachdib(dib)) {
        check_round_trip(img, "attachdib");
        kiv part(img);
        if (part.crop(&rect)) check_round_trip(part, "crop");
    } else {
        check_image(img, "refused attachdib");
    }
    if (flags & 1) {  // the mapped store costs a file per call: only now and then
        kiv mapped;
        if (mapped.attachdib_width_mapfile(dib)) {
            if (img.m_pixels && !images_same(img, mapped)) fail("attachdib_width_mapfile", "differs from attachdib");
            check_round_trip(mapped, "attachdib_width_mapfile");
        }
    }
    kiv ctor(dib);
    check_image(ctor, "kiv(void*)");

    // attachdib32 reads width x height x 4 bytes of the input.
    const int w = 1 + (flags >> 4), h = static_cast<int>(size / 4 / static_cast<std::size_t>(w));
    kiv raw;
    if (raw.attachdib32(w, h, const_cast<std::uint8_t*>(data))) check_round_trip(raw, "attachdib32");
    else check_image(raw, "refused attachdib32");

    void* crop = kivCrop(dib, &rect);
    if (crop) {
        kiv c;
        if (!c.attachdib(crop)) fail("kivCrop", "result unreadable");
        GlobalFree(crop);
        check_image(c, "kivCrop");
    }
    check_result(kivQuantize(dib, mode, colors), "kivQuantize");
    // An unknown fixed palette gives the DIB as read, not a palettized one.
    if (which <= 8) check_result(kivQuantizeWdp(dib, mode, which), "kivQuantizeWdp");
    else GlobalFree(kivQuantizeWdp(dib, mode, which));
    if (flags & 2) {
        check_result(kivQuantizeWin256(dib, mode), "kivQuantizeWin256");
        check_result(kivQuantizeWin16(dib, mode), "kivQuantizeWin16");
    }
    if (flags & 4) {
        // A palette taken from the input's first bytes.
        const int n = 1 + (colors & 255);
        std::vector<unsigned char> mem(sizeof(tagLOGPALETTE) + sizeof(PALETTEENTRY) * static_cast<std::size_t>(n));
        auto* pal = reinterpret_cast<tagLOGPALETTE*>(mem.data());
        pal->palVersion = 0x300;
        pal->palNumEntries = static_cast<WORD>(n);
        for (int i = 0; i < n; ++i) {
            const std::size_t k = (3 * static_cast<std::size_t>(i)) % size;
            pal->palPalEntry[i] = PALETTEENTRY{data[k], data[(k + 1) % size], data[(k + 2) % size], 0};
        }
        check_result(kivQuantizeWcp(dib, mode, pal), "kivQuantizeWcp");
    }
    if (flags & 8) {
        kiv target(7, 5, 24);
        target.blt(rect.left % 9, rect.top % 7, rect.right, rect.bottom, dib, rect.left, rect.top);
        check_image(target, "blt from a DIB");
    }

    // The block is only read.
    if (GlobalSize(dib) != size || std::memcmp(GlobalLock(dib), data, size) != 0) fail("DIB", "input block changed");
    GlobalUnlock(dib);
    GlobalFree(dib);
    return 0;
}
