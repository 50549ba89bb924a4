// 32-bit DIBs with alpha: a V5 header with BI_BITFIELDS masks, rows bottom-up, alpha
// straight or premultiplied (as AlphaBlend and UpdateLayeredWindow take it).
#include <cstring>

#include "core/parallel.h"
#include "interchange/dib_codec.h"

namespace kivdib {
namespace {

constexpr std::uint32_t kBitfields = 3;
constexpr std::uint32_t kSrgb = 0x73524742;  // LCS_sRGB, 'sRGB'
constexpr std::uint32_t kGmImages = 4;       // LCS_GM_IMAGES: perceptual intent

// c x a / 255 rounded to nearest: c x a is an integer, so the exact quotient is never a
// half and adding 127 before the division rounds it.
inline BYTE premultiply(BYTE c, BYTE a) { return static_cast<BYTE>((c * a + 127) / 255); }

}  // namespace

std::uint64_t dibv5_bytes(const kiv& img) {
    if (!img.m_pixels || img.m_width < 1 || img.m_height < 1) return 0;
    return kV5HeaderBytes + 4 * static_cast<std::uint64_t>(img.m_packets);
}

void write_dibv5(const kiv& img, bool premultiplied, unsigned char* out) {
    const std::uint64_t rows = 4 * static_cast<std::uint64_t>(img.m_packets);
    std::memset(out, 0, kV5HeaderBytes);
    put32(out, static_cast<std::uint32_t>(kV5HeaderBytes));
    put32(out + 4, static_cast<std::uint32_t>(img.m_width));
    put32(out + 8, static_cast<std::uint32_t>(img.m_height));  // positive: bottom-up
    out[12] = 1;                                               // planes
    out[14] = 32;                                              // bits a pixel
    put32(out + 16, kBitfields);
    put32(out + 20, rows <= 0xFFFFFFFFu ? static_cast<std::uint32_t>(rows) : 0);  // 0: "work it out"
    put32(out + 40, 0x00FF0000);                                                  // red, green, blue, alpha masks
    put32(out + 44, 0x0000FF00);
    put32(out + 48, 0x000000FF);
    put32(out + 52, 0xFF000000u);
    put32(out + 56, kSrgb);
    put32(out + 108, kGmImages);

    unsigned char* base = out + kV5HeaderBytes;
    const tagRGBA* px = img.m_pixels;
    const auto w = static_cast<std::size_t>(img.m_width);
    const int h = img.m_height;
    const bool has_alpha = img.m_bits == 32;  // other depths are opaque (below 24 the byte is an index)
    kivcore::parallel_for(0, h, kivcore::row_work(img.m_width, 1), [&](int y) {
        const tagRGBA* s = px + static_cast<std::size_t>(y) * w;
        unsigned char* d = base + static_cast<std::size_t>(h - 1 - y) * w * 4;
        for (std::size_t x = 0; x < w; ++x, d += 4) {
            const BYTE a = has_alpha ? s[x].a : 255;
            const bool mul = premultiplied && a != 255;
            d[0] = mul ? premultiply(s[x].b, a) : s[x].b;
            d[1] = mul ? premultiply(s[x].g, a) : s[x].g;
            d[2] = mul ? premultiply(s[x].r, a) : s[x].r;
            d[3] = a;
        }
    });
}

}  // namespace kivdib
