// Packed DIBs in movable global memory: the hardened reader, the writer, 32-bit pixel
// buffers, the DIB form of blt and kivCrop.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "core/checked.h"
#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "core/simd.h"
#include "interchange/dib_rows.h"
#include "interchange/dibformat.h"
#include "kiv.h"
#include "platform/global_memory.h"

using kivdib::kHeaderBytes;

namespace {

// Images from this many bytes convert with streaming stores where the AVX2 rows run: they
// exceed the caches, and the rows are not read again during the conversion.
constexpr std::uint64_t kStreamFrom = std::uint64_t(16) << 20;

// One 24-bit BGR row to RGBA with alpha 0; reads exactly 3 * w bytes.
void bgr_to_rgba_row(tagRGBA* dst, const BYTE* s, std::size_t w, bool stream) {
    auto* d = reinterpret_cast<unsigned char*>(dst);
    std::size_t x = kivcore::use_avx2() ? kivdib::bgr_to_rgba_avx2(d, s, w, stream) : kivdib::bgr_to_rgba_sse2(d, s, w);
    for (; x < w; ++x) dst[x] = tagRGBA{s[3 * x + 2], s[3 * x + 1], s[3 * x], 0};
}

// One RGBA row to 24-bit BGR; writes exactly 3 * w bytes (the padding is left alone).
void rgba_to_bgr_row(BYTE* d, const tagRGBA* p, std::size_t w, bool stream) {
    const auto* s = reinterpret_cast<const unsigned char*>(p);
    std::size_t x = kivcore::use_avx2() ? kivdib::rgba_to_bgr_avx2(d, s, w, stream) : kivdib::rgba_to_bgr_sse2(d, s, w);
    for (; x < w; ++x) {
        d[3 * x] = p[x].b;
        d[3 * x + 1] = p[x].g;
        d[3 * x + 2] = p[x].r;
    }
}

// Channel masks and shifts of 16- and 32-bit BI_RGB rows. The shift is the mask moved down
// to its lowest set bit and then used as a count (mod 32), which gives 31 for all six
// default masks: every channel reads as 0 and such DIBs come in black. This is the reader's
// defined behaviour; hosts with real 16/32-bit data convert it themselves.
struct ChannelMasks {
    std::uint32_t mask[3];
    unsigned shift[3];
};

ChannelMasks default_masks(unsigned depth) {
    ChannelMasks m = depth == 16 ? ChannelMasks{{0x7C00, 0x3E0, 0x1F}, {0, 0, 0}}
                                 : ChannelMasks{{0xFF0000, 0xFF00, 0xFF}, {0, 0, 0}};
    for (int c = 0; c < 3; ++c) {
        std::uint32_t v = m.mask[c];
        while (v && !(v & 1)) v >>= 1;
        m.shift[c] = v % 32;
    }
    return m;
}

// One DIB row (bottom-up source) into one image row. Every byte of the image row is
// written: the image buffer comes unzeroed.
struct RowReader {
    const BYTE* pixels;  // first DIB row
    std::uint64_t stride;
    int width, height;
    unsigned depth;
    bool stream;  // streaming stores for the 24-bit rows
    tagRGBA lut[256];  // map entries by index (zero past the map)
    ChannelMasks masks;

    // A 16- or 32-bit row: little-endian values of Bytes bytes, each channel through its mask.
    template <int Bytes>
    void masked(tagRGBA* dst, const BYTE* s, std::size_t w) const {
        auto channel = [&](std::uint32_t v, int c) { return static_cast<BYTE>((v & masks.mask[c]) >> masks.shift[c]); };
        for (std::size_t x = 0; x < w; ++x, s += Bytes) {
            std::uint32_t v = 0;
            for (int i = Bytes - 1; i >= 0; --i) v = v << 8 | s[i];
            dst[x] = tagRGBA{channel(v, 0), channel(v, 1), channel(v, 2), 0};
        }
    }

    void operator()(tagRGBA* dst, int y) const {
        const BYTE* s = pixels + static_cast<std::uint64_t>(height - 1 - y) * stride;
        const auto w = static_cast<std::size_t>(width);
        auto indexed = [&](std::size_t x, unsigned idx) {
            dst[x] = tagRGBA{lut[idx].r, lut[idx].g, lut[idx].b, static_cast<BYTE>(idx)};
        };
        switch (depth) {
            case 32:
                masked<4>(dst, s, w);
                break;
            case 24:
                bgr_to_rgba_row(dst, s, w, stream);
                break;
            case 16:
                masked<2>(dst, s, w);
                break;
            case 8:
                for (std::size_t x = 0; x < w; ++x) indexed(x, s[x]);
                break;
            case 4:
                for (std::size_t x = 0; x < w; ++x) indexed(x, (x & 1) ? s[x >> 1] & 15u : s[x >> 1] >> 4);
                break;
            case 2:
                for (std::size_t x = 0; x < w; ++x) indexed(x, (s[x >> 2] >> ((3 - (x & 3)) * 2)) & 3u);
                break;
            case 1:
                for (std::size_t x = 0; x < w; ++x) indexed(x, (s[x >> 3] >> (7 - (x & 7))) & 1u);
                break;
            default:
                std::memset(dst, 0, w * sizeof(tagRGBA));  // other depths: no pixel is converted
                break;
        }
    }
};

// Bytes of a DIB row that write_row fills; the rest of the row (its padding, or all of it
// at depths the writer leaves zero) is cleared by the caller.
std::size_t row_bytes_written(std::size_t w, int bits) {
    switch (bits) {
        case 32: return 4 * w;
        case 24: return 3 * w;
        case 8: return w;
        case 4: return (w + 1) / 2;
        case 1: return (w + 7) / 8;
        default: return 0;
    }
}

// One image row into one DIB row (bottom-up target). Only the depths the format writes.
void write_row(BYTE* d, const tagRGBA* p, std::size_t w, int bits, bool stream) {
    switch (bits) {
        case 32:
            for (std::size_t x = 0; x < w; ++x, d += 4) {
                d[0] = p[x].b;
                d[1] = p[x].g;
                d[2] = p[x].r;
                d[3] = p[x].a;
            }
            break;
        case 24:
            rgba_to_bgr_row(d, p, w, stream);
            break;
        case 8:
            for (std::size_t x = 0; x < w; ++x) d[x] = p[x].a;
            break;
        case 4:
            for (std::size_t x = 0; x < w; ++x) {
                if (x & 1)
                    d[x >> 1] = static_cast<BYTE>(d[x >> 1] | (p[x].a & 15));
                else
                    d[x >> 1] = static_cast<BYTE>(p[x].a * 16);  // the high nibble; truncated to 8 bits
            }
            break;
        case 1:
            for (std::size_t x = 0; x < w; ++x) {
                if ((x & 7) == 0) d[x >> 3] = 0;
                d[x >> 3] = static_cast<BYTE>(d[x >> 3] | ((p[x].a & 1) << (7 - (x & 7))));
            }
            break;
        default:
            break;  // 2, 16, ...: the pixel area stays zero
    }
}

}  // namespace

kiv::kiv(void* dib) {
    clearparam();
    attachdib(dib);
}

int kiv::attachdib(void* dib) { return _attachdib(dib, 0); }
int kiv::attachdib_width_mapfile(void* dib) { return _attachdib(dib, 1); }

int kiv::_attachdib(void* dib, int mapped) {
    if (!dib) return 0;
    const std::uint64_t size = kivplat::global_size(dib);
    const kivplat::LockedBlock lock(dib);  // unlocked on every path out
    const BYTE* base = lock.data();
    if (!base || size < kHeaderBytes) return 0;
    const BITMAPINFOHEADER h = kivdib::read_header(base);
    if (h.biCompression != BI_RGB) return 0;
    const unsigned depth = h.biBitCount;
    const int bits = depth <= 8 ? (depth == 2 ? 4 : static_cast<int>(depth)) : 24;

    // What create would refuse empties the image, as the failed create does.
    if (kivcore::checked_packets(h.biWidth, h.biHeight) < 0 || bits < 1) {
        destroy();
        return 0;
    }

    // The block must hold everything the header claims; a DIB that lies is refused before
    // the image is touched and nothing past the block is ever read.
    // Up to 256 table entries go into the map, which create makes 1 << bits long: a table
    // that would not fit there is refused rather than cut.
    const std::uint64_t entries = kivdib::dib_table_entries(h);
    if (h.biSize < kHeaderBytes || (bits < 9 && std::min<std::uint64_t>(entries, 256) > (std::uint64_t(1) << bits)))
        return 0;
    const std::uint64_t offbits = std::uint64_t(h.biSize) + 4 * entries;  // pixel rows start here
    const std::uint64_t stride = kivdib::dib_stride(h.biWidth, depth);
    if (offbits > size || stride > (size - offbits) / static_cast<std::uint64_t>(h.biHeight)) return 0;

    if (!(mapped ? create_width_mapfile(h.biWidth, h.biHeight, bits)
                 : kivcore::create_overwritten(this, h.biWidth, h.biHeight, bits)))
        return 0;

    auto reader = std::make_unique<RowReader>();
    reader->pixels = base + offbits;
    reader->stride = stride;
    reader->width = m_width;
    reader->height = m_height;
    reader->depth = depth;
    reader->stream = static_cast<std::uint64_t>(m_packets) * sizeof(tagRGBA) >= kStreamFrom;
    reader->masks = default_masks(depth);
    std::memset(reader->lut, 0, sizeof reader->lut);
    if (bits < 9 && m_map) {
        // The table starts at 40 whatever biSize says; its entries fit the map (checked above).
        m_colors = static_cast<int>(std::min<std::uint64_t>(entries, 256));
        const BYTE* t = base + kHeaderBytes;
        for (int i = 0; i < m_colors; ++i) m_map[i] = tagRGBA{t[4 * i + 2], t[4 * i + 1], t[4 * i], 0};
        for (int i = 0; i < m_colors; ++i) reader->lut[i] = m_map[i];
    }
    tagRGBA* px = m_pixels;
    const auto w = static_cast<std::size_t>(m_width);
    const RowReader& r = *reader;
    kivcore::parallel_for(0, m_height, kivcore::row_work(m_width, 0.5), [&](int y) { r(px + static_cast<std::size_t>(y) * w, y); });
    return 1;
}

int kiv::attachdib32(int width, int height, void* src) {
    if (!src) return 0;
    if (!create(width, height, 24)) return 0;
    const auto* s = static_cast<const BYTE*>(src);
    tagRGBA* px = m_pixels;
    const auto w = static_cast<std::size_t>(m_width);
    const int hgt = m_height;
    // Row y of the buffer becomes image row height - 1 - y; bytes keep their order.
    kivcore::parallel_for(0, hgt, kivcore::row_work(m_width, 0.5), [&](int y) {
        const BYTE* row = s + static_cast<std::size_t>(y) * w * 4;
        tagRGBA* d = px + static_cast<std::size_t>(hgt - 1 - y) * w;
        for (std::size_t x = 0; x < w; ++x) {
            d[x].r = row[4 * x];
            d[x].g = row[4 * x + 1];
            d[x].b = row[4 * x + 2];
        }
    });
    return 1;
}

void* kiv::createdib() {
    if (!m_pixels || m_width < 1 || m_height < 1) return nullptr;
    const int b = m_bits;
    const unsigned depth = b < 2 ? 1 : b <= 4 ? 4 : b <= 8 ? 8 : b <= 24 ? 24 : b <= 32 ? 32 : 4;
    // Below 24 bits the table is the whole map (biClrUsed = colors, even past what the depth
    // can index). Otherwise biClrUsed is 0, which for depths up to 8 announces a table of
    // 1 << depth entries: that table is written, all zero, so the rows sit where it says.
    const bool has_map = b < 24 && m_map && m_colors > 0;
    const DWORD clr_used = has_map ? static_cast<DWORD>(m_colors) : 0;
    const std::uint64_t entries = has_map ? clr_used : (depth <= 8 ? std::uint64_t(1) << depth : 0);
    const std::uint64_t stride = kivdib::dib_stride(m_width, depth);
    std::size_t rows_bytes = 0, bytes = 0;
    // Sixteen rows of slack beyond the image belong to the format's allocation.
    if (!kivcore::checked_mul(static_cast<long long>(stride), static_cast<long long>(m_height) + 16, &rows_bytes) ||
        !kivcore::checked_add(rows_bytes, static_cast<std::size_t>(kHeaderBytes + 4 * entries), &bytes))
        return nullptr;
    // Not zeroed by the allocator: every byte is written below, so a recycled block needs no
    // clearing pass before the rows overwrite it.
    void* hdib = kivplat::global_alloc(bytes, false);
    if (!hdib) return nullptr;
    {
        const kivplat::LockedBlock lock(hdib);
        BYTE* base = lock.data();
        if (!base) {
            kivplat::global_free(hdib);
            return nullptr;
        }
        BITMAPINFOHEADER hdr{};
        hdr.biSize = static_cast<DWORD>(kHeaderBytes);
        hdr.biWidth = m_width;
        hdr.biHeight = m_height;
        hdr.biPlanes = 1;
        hdr.biBitCount = static_cast<WORD>(depth);
        hdr.biCompression = BI_RGB;
        hdr.biClrUsed = clr_used;
        std::memcpy(base, &hdr, sizeof hdr);
        BYTE* t = base + kHeaderBytes;
        if (has_map)
            for (std::uint64_t i = 0; i < entries; ++i) {
                t[4 * i] = m_map[i].b;
                t[4 * i + 1] = m_map[i].g;
                t[4 * i + 2] = m_map[i].r;
                t[4 * i + 3] = 0;
            }
        else
            std::memset(t, 0, static_cast<std::size_t>(4 * entries));
        BYTE* rows = t + 4 * entries;
        const tagRGBA* px = m_pixels;
        const auto w = static_cast<std::size_t>(m_width);
        const int hgt = m_height;
        const auto row_len = static_cast<std::size_t>(stride);
        const std::size_t filled = row_bytes_written(w, b);
        const bool stream = rows_bytes >= kStreamFrom;
        kivcore::parallel_for(0, hgt, kivcore::row_work(m_width, 0.5), [&](int y) {
            BYTE* d = rows + static_cast<std::size_t>(hgt - 1 - y) * row_len;
            write_row(d, px + static_cast<std::size_t>(y) * w, w, b, stream);
            std::memset(d + filled, 0, row_len - filled);
        });
        std::memset(rows + static_cast<std::size_t>(hgt) * row_len, 0, rows_bytes - static_cast<std::size_t>(hgt) * row_len);
    }
    return hdib;
}

void kiv::blt(int x, int y, int w, int h, void* dib, int sx, int sy) {
    kiv src(dib);
    blt(x, y, w, h, &src, sx, sy);
}

extern "C" void* kivCrop(void* dib, tagRECT* rect) {
    kiv tmp;
    if (!tmp.attachdib(dib) || !tmp.crop(rect)) return nullptr;
    return tmp.createdib();
}
