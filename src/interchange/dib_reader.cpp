// The full DIB and BMP reader: headers of every version (OS/2 1.x and 2.x, the Windows info
// header and its V2 to V5 extensions), colour tables, uncompressed rows of every depth and
// bit fields. Run-length data goes on to dib_rle.cpp.
#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "core/kmath.h"
#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "interchange/bmpfile.h"
#include "interchange/dib_codec.h"

namespace kivdib {
namespace {

constexpr std::uint32_t kRgb = 0, kRle8 = 1, kRle4 = 2, kBitfields = 3, kJpeg = 4, kPng = 5, kAlphaBitfields = 6;

// What a header says, in one form for every version.
struct Header {
    std::uint32_t size = 0;              // bytes of the header itself
    std::int64_t width = 0, height = 0;  // a negative height: rows stored top-down
    unsigned depth = 0;
    std::uint32_t compression = kRgb;
    std::uint32_t size_image = 0;
    std::uint64_t entries = 0;     // colour-table entries announced
    unsigned entry_bytes = 4;      // RGBQUAD; RGBTRIPLE after the 12-byte header
    std::uint32_t mask_bytes = 0;  // masks stored after a 40-byte header
    std::uint32_t masks[4] = {};   // red, green, blue, alpha
    bool masks_given = false;
};

const char* parse_header(const unsigned char* p, std::uint64_t avail, Header* h) {
    if (avail < 4) return "no room for a bitmap header";
    const std::uint32_t n = h->size = le32(p);
    if (n == 12) {
        if (avail < 12) return "bitmap header cut short";
        // OS/2 1.x: 16-bit unsigned sizes, rows always bottom-up, no compression.
        h->width = le16(p + 4);
        h->height = le16(p + 6);
        h->depth = le16(p + 10);
        h->entry_bytes = 3;
        h->entries = h->depth <= 8 ? std::uint64_t(1) << h->depth : 0;
        return nullptr;
    }
    const bool windows = n == 40 || n == 52 || n == 56 || n == 108 || n == 124;
    if (!windows && (n < 16 || n > 64)) return "unknown bitmap header size";
    if (n > avail) return "bitmap header cut short";
    // OS/2 2.x headers may end after any field; the fields they leave out read as zero.
    auto f16 = [&](std::uint32_t at) { return at + 2 <= n ? le16(p + at) : 0u; };
    auto f32 = [&](std::uint32_t at) { return at + 4 <= n ? le32(p + at) : 0u; };
    h->width = static_cast<std::int32_t>(f32(4));
    h->height = static_cast<std::int32_t>(f32(8));
    h->depth = f16(14);
    h->compression = f32(16);
    h->size_image = f32(20);
    const std::uint32_t used = f32(32);
    h->entries = used ? used : h->depth <= 8 ? std::uint64_t(1) << h->depth : 0;
    // In OS/2 2.x headers compression 3 is Huffman 1D and 4 is RLE24, not bit fields or JPEG.
    if (!windows && h->compression > kRle4) return "OS/2 Huffman and RLE24 compressions are not read";
    if (h->compression == kBitfields || h->compression == kAlphaBitfields) {
        unsigned count = h->compression == kBitfields ? 3 : 4;
        if (n == 40) {
            h->mask_bytes = 4 * count;
            if (avail - n < h->mask_bytes) return "bit-field masks cut short";
        } else {
            count = n >= 56 ? 4 : 3;  // V2 (52 bytes) holds three masks, V3 and later four
        }
        for (unsigned c = 0; c < count; ++c) h->masks[c] = le32(p + 40 + 4 * c);
        h->masks_given = true;
    }
    return nullptr;
}

const char* check_masks(const std::uint32_t* m, unsigned depth) {
    std::uint32_t seen = 0;
    for (int c = 0; c < 4; ++c) {
        const std::uint32_t v = m[c], low = v & (0u - v);
        if (depth == 16 && v > 0xFFFF) return "a bit-field mask wider than the pixel";
        if (v & seen) return "overlapping bit-field masks";
        if ((v + low) & v) return "a bit-field mask that is not contiguous";
        seen |= v;
    }
    return nullptr;
}

const char* check_format(const Header& h) {
    if (h.width < 1) return "width below 1";
    if (h.height == 0) return "height 0";
    const std::int64_t rows = h.height < 0 ? -h.height : h.height;
    if (h.width * rows > 0x7FFFFFFF) return "more than 2^31 - 1 pixels";
    const unsigned d = h.depth;
    switch (h.compression) {
        case kRgb:
            if (d != 1 && d != 2 && d != 4 && d != 8 && d != 16 && d != 24 && d != 32 && d != 64)
                return "unsupported bit count";
            return nullptr;
        case kRle8:
            return d == 8 ? nullptr : "BI_RLE8 needs 8 bits per pixel";
        case kRle4:
            return d == 4 ? nullptr : "BI_RLE4 needs 4 bits per pixel";
        case kBitfields:
        case kAlphaBitfields:
            if (d != 16 && d != 32) return "bit fields need 16 or 32 bits per pixel";
            return check_masks(h.masks, d);
        case kJpeg:
        case kPng:
            return "embedded JPEG and PNG data are not decoded";
        default:
            return "unknown compression";
    }
}

// One channel of a bit-field pixel, scaled from its mask's width to 0..255 with rounding.
class Channel {
public:
    explicit Channel(std::uint32_t mask) : mask_(mask) {
        if (!mask) return;
        while (!((mask >> shift_) & 1)) ++shift_;
        while (width_ < 32 && ((mask >> shift_) >> width_) & 1) ++width_;
        top_ = (std::uint64_t(1) << width_) - 1;
        if (width_ <= kLutWidth)
            for (std::uint64_t v = 0; v <= top_; ++v) lut_.push_back(scale(v));
    }
    bool present() const { return mask_ != 0; }
    BYTE operator()(std::uint32_t px) const {
        if (!mask_) return 0;
        const std::uint32_t v = (px & mask_) >> shift_;
        return width_ <= kLutWidth ? lut_[v] : scale(v);
    }

private:
    static constexpr unsigned kLutWidth = 12;  // 4096 entries; wider masks divide per pixel
    // round(v x 255 / top): top is odd, so the quotient never lies halfway.
    BYTE scale(std::uint64_t v) const { return static_cast<BYTE>((v * 255 + top_ / 2) / top_); }
    std::uint32_t mask_;
    unsigned shift_ = 0, width_ = 0;
    std::uint64_t top_ = 0;
    std::vector<BYTE> lut_;
};

// 64-bit pixels: blue, green, red, alpha as signed 16-bit fixed point with 13 fraction bits
// (8192 = 1.0), linear light, alpha straight. Colours go to sRGB, alpha scales linearly;
// values below 0 or above 1 are clamped.
struct Fixed16 {
    BYTE colour[8193], alpha[8193];
    Fixed16() {
        for (int v = 0; v <= 8192; ++v) {
            const double l = v / 8192.0;
            const double s = l <= 0.0031308 ? 12.92 * l : 1.055 * kivcore::kmath::pow(l, 1 / 2.4) - 0.055;
            colour[v] = static_cast<BYTE>(std::min(255.0, s * 255 + 0.5));
            alpha[v] = static_cast<BYTE>((v * 255 + 4096) / 8192);
        }
    }
    static int index(const unsigned char* p) {
        const auto v = static_cast<std::int16_t>(le16(p));
        return v < 0 ? 0 : v > 8192 ? 8192 : v;
    }
};

// Uncompressed rows, stride bytes apart from base; image row y reads its stored row.
struct Rows {
    const unsigned char* base;
    std::uint64_t stride;
    int height;
    bool top_down;
    const unsigned char* row(int y) const {
        return base + static_cast<std::uint64_t>(top_down ? y : height - 1 - y) * stride;
    }
};

// Palettized rows (1, 2, 4, 8 bits): the image keeps indices and table, the map raised to
// cover every index the pixels use (the entries past the table black).
void read_indexed(const Rows& rows, unsigned depth, const tagRGBA* lut, int table_colours, kiv* out) {
    std::atomic<int> top{0};
    tagRGBA* px = out->m_pixels;
    const auto w = static_cast<std::size_t>(out->m_width);
    const unsigned per_byte = 8 / depth, mask = (1u << depth) - 1;
    kivcore::parallel_for(0, out->m_height, kivcore::row_work(out->m_width, 2), [&](int y) {
        const unsigned char* s = rows.row(y);
        tagRGBA* d = px + static_cast<std::size_t>(y) * w;
        unsigned most = 0;
        for (std::size_t x = 0; x < w; ++x) {
            // Leftmost pixel in the high-order bits.
            const unsigned idx = (s[x / per_byte] >> (8 - depth * (1 + x % per_byte))) & mask;
            d[x] = tagRGBA{lut[idx].r, lut[idx].g, lut[idx].b, static_cast<BYTE>(idx)};
            most = std::max(most, idx);
        }
        int seen = top.load(std::memory_order_relaxed);
        while (static_cast<int>(most) > seen && !top.compare_exchange_weak(seen, static_cast<int>(most))) {
        }
    });
    out->m_colors = std::max(table_colours, top.load() + 1);
    std::copy(lut, lut + out->m_colors, out->m_map);
}

// 16-, 24-, 32- and 64-bit rows into 32-bit pixels; the image is kept at 32 bits when some
// pixel's alpha is not 0 and otherwise lowered to 24 (an alpha channel nobody filled, as
// in most 32-bit BI_RGB files), alpha bytes then 0.
void read_direct(const Rows& rows, unsigned depth, const std::uint32_t* masks, kiv* out) {
    const Channel red(masks[0]), green(masks[1]), blue(masks[2]), alpha(masks[3]);
    std::unique_ptr<Fixed16> fixed(depth == 64 ? new Fixed16 : nullptr);
    std::atomic<bool> any_alpha{false};
    tagRGBA* px = out->m_pixels;
    const auto w = static_cast<std::size_t>(out->m_width);
    // 24-bit rows are a copy; bit fields and 64-bit values take a few look-ups a pixel.
    const double steps = depth == 24 ? 1.0 : 2.0;
    kivcore::parallel_for(0, out->m_height, kivcore::row_work(out->m_width, steps), [&](int y) {
        const unsigned char* s = rows.row(y);
        tagRGBA* d = px + static_cast<std::size_t>(y) * w;
        BYTE alpha_or = 0;
        for (std::size_t x = 0; x < w; ++x) {
            if (depth == 24) {
                d[x] = tagRGBA{s[3 * x + 2], s[3 * x + 1], s[3 * x], 0};
            } else if (depth == 64) {
                const unsigned char* p = s + 8 * x;
                d[x] = tagRGBA{fixed->colour[Fixed16::index(p + 4)], fixed->colour[Fixed16::index(p + 2)],
                               fixed->colour[Fixed16::index(p)], fixed->alpha[Fixed16::index(p + 6)]};
            } else {
                const std::uint32_t v = depth == 16 ? le16(s + 2 * x) : le32(s + 4 * x);
                d[x] = tagRGBA{red(v), green(v), blue(v), alpha(v)};
            }
            alpha_or = static_cast<BYTE>(alpha_or | d[x].a);
        }
        if (alpha_or) any_alpha.store(true, std::memory_order_relaxed);
    });
    out->m_bits = any_alpha.load() ? 32 : 24;
}

// Reads the image whose header starts at info (avail bytes from there on), its colour
// table at table_at (entries of it) and its pixel data at rows_at.
const char* read_image(const unsigned char* info, std::uint64_t avail, const Header& h, std::uint64_t table_at,
                       std::uint64_t entries, std::uint64_t rows_at, kiv* out) {
    if (const char* why = check_format(h)) return why;
    const unsigned depth = h.depth;
    const int width = static_cast<int>(h.width);
    const int height = static_cast<int>(h.height < 0 ? -h.height : h.height);
    const bool top_down = h.height < 0;

    tagRGBA lut[256] = {};
    const int table_colours = depth <= 8 ? static_cast<int>(std::min<std::uint64_t>(entries, 1u << depth)) : 0;
    for (int i = 0; i < table_colours; ++i) {
        const unsigned char* e = info + table_at + static_cast<std::uint64_t>(i) * h.entry_bytes;
        lut[i] = tagRGBA{e[2], e[1], e[0], 0};
    }
    const unsigned char* data = info + rows_at;
    const std::uint64_t have = avail - rows_at;
    if (h.compression == kRle8 || h.compression == kRle4) {
        // biSizeImage, when given, ends the run data early; it never extends it.
        const std::uint64_t n = h.size_image ? std::min<std::uint64_t>(h.size_image, have) : have;
        const RleSource src{data, static_cast<std::size_t>(n), width, height, top_down, depth, lut, table_colours};
        return read_rle(src, out);
    }
    const std::uint64_t stride = dib_stride(width, depth);
    if (stride > have / static_cast<std::uint64_t>(height)) return "pixel rows cut short";
    const Rows rows{data, stride, height, top_down};
    const int bits = depth <= 8 ? (depth == 2 ? 4 : static_cast<int>(depth)) : 32;
    if (!kivcore::create_overwritten(out, width, height, bits)) return "out of memory";
    if (depth <= 8) {
        read_indexed(rows, depth, lut, table_colours, out);
        return nullptr;
    }
    // BI_RGB: 5-5-5 at 16 bits, 8-8-8 at 32 with the fourth byte taken as alpha.
    static const std::uint32_t k555[4] = {0x7C00, 0x3E0, 0x1F, 0}, k888[4] = {0xFF0000, 0xFF00, 0xFF, 0xFF000000u};
    read_direct(rows, depth, h.masks_given ? h.masks : depth == 16 ? k555 : k888, out);
    return nullptr;
}

}  // namespace

const char* read_packed_dib(const unsigned char* data, std::size_t size, kiv* out) {
    if (!data) return "no data";
    Header h;
    if (const char* why = parse_header(data, size, &h)) return why;
    // The table follows the header and its masks; the rows follow the table.
    const std::uint64_t table_at = std::uint64_t(h.size) + h.mask_bytes;
    const std::uint64_t rows_at = table_at + h.entries * h.entry_bytes;
    if (rows_at > size) return "colour table runs past the end of the data";
    return read_image(data, size, h, table_at, h.entries, rows_at, out);
}

const char* read_bmp_file(const unsigned char* data, std::size_t size, kiv* out) {
    if (!data) return "no data";
    if (size < kFileHeader || data[0] != 'B' || data[1] != 'M') return "not a BMP file";
    const unsigned char* info = data + kFileHeader;
    const std::uint64_t avail = size - kFileHeader;
    Header h;
    if (const char* why = parse_header(info, avail, &h)) return why;
    // The rows start at bfOffBits; the table is whatever of it fits before them.
    const std::uint64_t table_at = std::uint64_t(h.size) + h.mask_bytes;
    const std::uint64_t off = le32(data + 10);
    if (off < kFileHeader + table_at) return "bfOffBits points into the header";
    const std::uint64_t rows_at = off - kFileHeader;
    if (rows_at > avail) return "bfOffBits points past the end of the file";
    const std::uint64_t entries = std::min(h.entries, (rows_at - table_at) / h.entry_bytes);
    return read_image(info, avail, h, table_at, entries, rows_at, out);
}

}  // namespace kivdib
