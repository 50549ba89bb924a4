// Packed DIBs: round trips at every depth, the reader's required quirks, the writer's
// layout, malformed blocks, the DIB form of blt and kivCrop.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "kiv.h"
#include "support/paths.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;
using kivtest::same_rgba;

namespace {

// A DIB assembled by hand: header fields, a table of (r, g, b) entries and a pixel value per
// (x, y), packed high bits first into bottom-up rows.  exact_size lets a test cut the block.
struct DibSpec {
    int width = 3, height = 2, depth = 8;
    DWORD compression = BI_RGB, clr_used = 0, bi_size = 40;
    std::vector<tagRGBA> table;
    std::vector<unsigned> values;  // width * height, top row first; 24/32: 0xRRGGBB
};

std::size_t stride_of(int width, int depth) { return ((std::size_t(width) * depth + 31) / 32) * 4; }

std::vector<BYTE> dib_bytes(const DibSpec& s) {
    std::vector<BYTE> b(s.bi_size + 4 * s.table.size() + stride_of(s.width, s.depth) * s.height, 0);
    BITMAPINFOHEADER h{};
    h.biSize = s.bi_size;
    h.biWidth = s.width;
    h.biHeight = s.height;
    h.biPlanes = 1;
    h.biBitCount = WORD(s.depth);
    h.biCompression = s.compression;
    h.biClrUsed = s.clr_used;
    std::memcpy(b.data(), &h, sizeof h);
    for (std::size_t i = 0; i < s.table.size(); ++i) {
        b[40 + 4 * i] = s.table[i].b;
        b[41 + 4 * i] = s.table[i].g;
        b[42 + 4 * i] = s.table[i].r;
    }
    BYTE* rows = b.data() + s.bi_size + 4 * s.table.size();
    for (int y = 0; y < s.height && !s.values.empty(); ++y)
        for (int x = 0; x < s.width; ++x) {
            BYTE* row = rows + stride_of(s.width, s.depth) * (s.height - 1 - y);
            unsigned v = s.values[std::size_t(y) * s.width + x];
            if (s.depth >= 24) {
                row[x * (s.depth / 8)] = BYTE(v), row[x * (s.depth / 8) + 1] = BYTE(v >> 8), row[x * (s.depth / 8) + 2] = BYTE(v >> 16);
            } else if (s.depth == 16) {
                row[2 * x] = BYTE(v), row[2 * x + 1] = BYTE(v >> 8);
            } else {
                std::size_t bit = std::size_t(x) * s.depth;
                row[bit / 8] = BYTE(row[bit / 8] | (v << (8 - s.depth - bit % 8)));
            }
        }
    return b;
}

HGLOBAL to_global(const std::vector<BYTE>& bytes, std::size_t size) {
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, size);
    if (!h) return nullptr;
    std::memcpy(GlobalLock(h), bytes.data(), std::min(size, bytes.size()));
    GlobalUnlock(h);
    return h;
}
HGLOBAL to_global(const std::vector<BYTE>& bytes) { return to_global(bytes, bytes.size()); }

std::vector<BYTE> global_bytes(HGLOBAL h) {
    std::vector<BYTE> v(GlobalSize(h));
    std::memcpy(v.data(), GlobalLock(h), v.size());
    GlobalUnlock(h);
    return v;
}

BITMAPINFOHEADER header_of(const std::vector<BYTE>& b) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, b.data(), sizeof h);
    return h;
}

// Value of pixel (x, y) of a bottom-up packed row set, read the plain way.
unsigned dib_value(const BYTE* rows, int width, int height, int depth, int x, int y) {
    const BYTE* row = rows + stride_of(width, depth) * (height - 1 - y);
    if (depth >= 24) {
        const BYTE* p = row + x * (depth / 8);
        return unsigned(p[0]) | unsigned(p[1]) << 8 | unsigned(p[2]) << 16 | (depth == 32 ? unsigned(p[3]) << 24 : 0);
    }
    std::size_t bit = std::size_t(x) * depth;
    return (row[bit / 8] >> (8 - depth - bit % 8)) & ((1u << depth) - 1);
}

}  // namespace

// createdib at each written depth matches the plain packing, then attachdib gives the image
// back: colours with alpha 0 at 24 bits, indices and maps below; 32-bit DIBs read black.
TEST(Dib, RoundTripsAtEveryWrittenDepth) {
    kivtest::Rng rng(5);
    for (int bits : {1, 4, 8, 24, 32})
        for (int w = 1; w <= 19; w += 3)
            for (int h = 1; h <= 3; ++h) {
                kiv img = random_image(w, h, bits, std::uint64_t(bits * 1000 + w * 10 + h));
                HGLOBAL dib = img.createdib();
                ASSERT_NE(nullptr, dib);
                std::vector<BYTE> b = global_bytes(dib);
                const BITMAPINFOHEADER hd = header_of(b);  // the header's other fields: golden hashes
                const unsigned entries = bits < 24 ? unsigned(img.colors()) : 0u;
                EXPECT_TRUE(hd.biWidth == w && hd.biHeight == h && hd.biBitCount == bits && hd.biClrUsed == entries);
                // Sixteen rows of slack are part of the block.
                EXPECT_GE(b.size(), 40 + 4 * entries + stride_of(w, bits) * (h + 16));
                for (unsigned i = 0; i < entries; ++i) {
                    EXPECT_EQ(img.map()[i].b, b[40 + 4 * i]);
                    EXPECT_EQ(img.map()[i].r, b[42 + 4 * i]);
                }
                const BYTE* rows = b.data() + 40 + 4 * entries;
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) {
                        const tagRGBA p = px(img, x, y);
                        const unsigned want = bits < 24 ? p.a : unsigned(p.r) << 16 | unsigned(p.g) << 8 | p.b |
                                                                     (bits == 32 ? unsigned(p.a) << 24 : 0u);
                        ASSERT_EQ(want, dib_value(rows, w, h, bits, x, y)) << bits << " " << x << "," << y;
                    }
                kiv back(dib);
                GlobalFree(dib);
                if (bits == 32) {  // 32-bit BI_RGB rows read black by definition
                    ASSERT_NE(nullptr, back.pixels());
                    EXPECT_EQ(24, back.bits());
                    continue;
                }
                if (bits == 24)
                    for (int i = 0; i < img.packets(); ++i) img.pixels()[i].a = 0;
                EXPECT_EQ(bits, back.bits());
                EXPECT_EQ(img.colors(), back.colors());
                for (int i = 0; i < img.colors(); ++i) ASSERT_TRUE(same_rgba(img.map()[i], back.map()[i]));
                ASSERT_TRUE(images_equal(img, back)) << bits << " " << w << "x" << h;
            }
}

// 24-bit rows at every width through the grouped row converters (AVX2 and SSE2, widths
// past several vector steps): each pixel against the plain byte order, padding bytes of the
// written rows left zero, and stray padding in a read DIB (the last row's included) never
// reaching a pixel. The image read into has the same size and noise in its buffer.
TEST(Dib, TwentyFourBitRowsAtEveryWidth) {
    kivtest::Rng rng(11);
    kivtest::on_every_path([&](int path) {
        for (int w = 1; w <= 80; ++w)
            for (int h : {1, 3}) {
                kiv img = random_image(w, h, 24, std::uint64_t(w * 7 + h));
                HGLOBAL dib = img.createdib();
                ASSERT_NE(nullptr, dib);
                std::vector<BYTE> b = global_bytes(dib);
                GlobalFree(dib);
                const std::size_t stride = stride_of(w, 24);
                for (int y = 0; y < h; ++y) {
                    const BYTE* row = b.data() + 40 + stride * std::size_t(h - 1 - y);
                    for (int x = 0; x < w; ++x) {
                        const tagRGBA p = px(img, x, y);
                        ASSERT_TRUE(row[3 * x] == p.b && row[3 * x + 1] == p.g && row[3 * x + 2] == p.r)
                            << w << "x" << h << " at " << x << "," << y;
                    }
                    for (std::size_t j = 3 * std::size_t(w); j < stride; ++j) ASSERT_EQ(0, row[j]) << w << " padding";
                }
                // Read back a copy whose padding holds noise; the block ends right after the rows.
                std::vector<BYTE> in(b.begin(), b.begin() + 40 + std::ptrdiff_t(stride) * h);
                for (int y = 0; y < h; ++y)
                    for (std::size_t j = 3 * std::size_t(w); j < stride; ++j) in[40 + stride * y + j] = BYTE(rng.next());
                HGLOBAL g = to_global(in);
                kiv back = random_image(w, h, 24, std::uint64_t(w + 1000));
                ASSERT_EQ(1, back.attachdib(g));
                GlobalFree(g);
                for (int i = 0; i < img.packets(); ++i) img.pixels()[i].a = 0;
                ASSERT_TRUE(images_equal(img, back)) << w << "x" << h << " path " << path;
            }
    });
}

// Images larger than the caches take the streaming rows, and their blocks may be recycled
// ones holding old bytes: every byte of the DIB against the plain layout (padding and slack
// zero), twice over a block freed dirty, then read back into an image of the same size.
TEST(Dib, LargeBlocksAreWrittenInFull) {
    const int w = 2403, h = 2390;  // rows of 7209 bytes and 3 of padding; 17 MB of rows
    const std::size_t stride = stride_of(w, 24);
    kivtest::on_every_path([&](int path) {
        kiv::setthreads(path == 0 ? 3 : 1);
        kiv back = random_image(w, h, 24, 90);
        for (int round = 0; round < 2; ++round) {
            kiv img = random_image(w, h, 24, std::uint64_t(91 + round + 2 * path));
            HGLOBAL dib = img.createdib();
            ASSERT_NE(nullptr, dib);
            const std::vector<BYTE> b = global_bytes(dib);
            ASSERT_EQ(40 + stride * (h + 16), b.size());
            const BITMAPINFOHEADER hd = header_of(b);
            EXPECT_TRUE(hd.biSize == 40 && hd.biWidth == w && hd.biHeight == h && hd.biBitCount == 24 && hd.biClrUsed == 0);
            for (std::size_t i = 16; i < 40; ++i) ASSERT_EQ(0, b[i]) << i;  // sizes, resolutions, counts
            for (int y = 0; y < h; ++y) {
                const BYTE* row = b.data() + 40 + stride * std::size_t(h - 1 - y);
                for (int x = 0; x < w; ++x) {
                    const tagRGBA p = px(img, x, y);
                    ASSERT_TRUE(row[3 * x] == p.b && row[3 * x + 1] == p.g && row[3 * x + 2] == p.r)
                        << x << "," << y << " path " << path;
                }
                for (std::size_t j = 3 * std::size_t(w); j < stride; ++j) ASSERT_EQ(0, row[j]) << "padding of " << y;
            }
            for (std::size_t i = 40 + stride * h; i < b.size(); ++i) ASSERT_EQ(0, b[i]) << "slack at " << i;
            ASSERT_EQ(1, back.attachdib(dib));
            for (int i = 0; i < img.packets(); ++i) img.pixels()[i].a = 0;
            ASSERT_TRUE(images_equal(img, back)) << "path " << path;
            std::memset(GlobalLock(dib), 0xA5, b.size());
            GlobalUnlock(dib);
            GlobalFree(dib);
        }
    });
}

TEST(Dib, ReaderQuirks) {
    // 2 bits become a 4-bit image; colours from the table, index in the fourth byte.
    DibSpec two;
    two.depth = 2;
    two.width = 5;
    two.table = {{10, 20, 30, 0}, {40, 50, 60, 0}, {70, 80, 90, 0}};
    two.clr_used = 3;
    two.values = {0, 1, 2, 1, 0, 2, 2, 1, 0, 0};
    HGLOBAL h = to_global(dib_bytes(two));
    kiv img(h);
    GlobalFree(h);
    ASSERT_NE(nullptr, img.pixels());
    EXPECT_EQ(4, img.bits());
    EXPECT_EQ(3, img.colors());
    for (int i = 0; i < 10; ++i) {
        const tagRGBA& t = two.table[two.values[i]];
        EXPECT_TRUE(same_rgba(tagRGBA{t.r, t.g, t.b, BYTE(two.values[i])}, img.pixels()[i])) << i;
    }

    // 16 and 32 bits: right size, 24 bits, every pixel 0, also over an image of the same size
    // whose buffer the reader reuses.
    for (int depth : {16, 32}) {
        DibSpec s;
        s.depth = depth;
        s.width = 4;
        s.values.assign(8, 0xFFFFFFFFu);
        HGLOBAL d = to_global(dib_bytes(s));
        kiv k = random_image(4, 2, 24, 77);
        ASSERT_EQ(1, k.attachdib(d));
        GlobalFree(d);
        ASSERT_NE(nullptr, k.pixels()) << depth;
        EXPECT_EQ(24, k.bits());
        EXPECT_EQ(4, k.width());
        EXPECT_EQ(2, k.height());
        for (int i = 0; i < k.packets(); ++i) EXPECT_TRUE(same_rgba(tagRGBA{0, 0, 0, 0}, k.pixels()[i]));
    }

    // Table entries default to 1 << depth; depths the reader does not convert stay zero.
    DibSpec four;
    four.depth = 4;
    four.table.assign(16, tagRGBA{1, 2, 3, 0});
    four.values = {15, 0, 7, 1, 2, 3};
    HGLOBAL f = to_global(dib_bytes(four));
    kiv k4(f);
    GlobalFree(f);
    EXPECT_EQ(16, k4.colors());
    EXPECT_EQ(7, px(k4, 2, 0).a);
    EXPECT_EQ(1, px(k4, 2, 0).r);

    // Depths the reader does not convert: accepted, every pixel left zero.
    for (int depth : {3, 12, 64}) {
        DibSpec s;
        s.depth = depth;
        s.table.assign(depth <= 8 ? 1u << depth : 0u, tagRGBA{50, 60, 70, 0});
        std::vector<BYTE> bytes = dib_bytes(s);
        std::fill(bytes.begin() + std::ptrdiff_t(40 + 4 * s.table.size()), bytes.end(), BYTE(0xA5));
        HGLOBAL g = to_global(bytes);
        kiv k = random_image(s.width, s.height, 24, 78);
        ASSERT_EQ(1, k.attachdib(g));
        GlobalFree(g);
        ASSERT_NE(nullptr, k.pixels()) << depth;
        EXPECT_EQ(depth <= 8 ? depth : 24, k.bits());
        for (int i = 0; i < k.packets(); ++i) EXPECT_TRUE(same_rgba(tagRGBA{0, 0, 0, 0}, k.pixels()[i])) << depth;
    }

    // A table longer than the depth can index but no longer than the image's map: 2 bits
    // have a 16-entry map, and 8 bits keep 256 entries of any table; the rows follow the
    // whole table.
    struct Long {
        int depth;
        DWORD clr_used;
        int colors;
    } longs[] = {{2, 16, 16}, {8, 300, 256}};
    for (const Long& l : longs) {
        DibSpec s;
        s.depth = l.depth;
        s.clr_used = l.clr_used;
        for (DWORD i = 0; i < l.clr_used; ++i) s.table.push_back(tagRGBA{BYTE(i), BYTE(i * 7), BYTE(~i), 0});
        s.values = {1, 0, 1, 1, 1, 0};
        HGLOBAL g = to_global(dib_bytes(s));
        kiv k(g);
        GlobalFree(g);
        ASSERT_NE(nullptr, k.pixels()) << l.depth;
        EXPECT_EQ(l.depth == 2 ? 4 : l.depth, k.bits());
        ASSERT_EQ(l.colors, k.colors()) << l.depth;
        for (int i = 0; i < l.colors; ++i) ASSERT_TRUE(same_rgba(s.table[std::size_t(i)], k.map()[i])) << l.depth << " entry " << i;
        for (int i = 0; i < 6; ++i) {
            const tagRGBA& t = s.table[s.values[std::size_t(i)]];
            EXPECT_TRUE(same_rgba(tagRGBA{t.r, t.g, t.b, BYTE(s.values[std::size_t(i)])}, k.pixels()[i])) << l.depth << " pixel " << i;
        }
    }
}

TEST(Dib, WriterQuirks) {
    // Depths without a row writer: the DIB depth of their range, the whole map as the table
    // and a zero pixel area.
    struct Unwritten {
        int bits, depth;
    } unwritten[] = {{2, 4}, {16, 24}};
    HGLOBAL d = nullptr;
    std::vector<BYTE> b;
    for (const Unwritten& u : unwritten) {
        kiv img = random_image(6, 3, u.bits, 8);
        d = img.createdib();
        ASSERT_NE(nullptr, d);
        b = global_bytes(d);
        GlobalFree(d);
        EXPECT_EQ(u.depth, header_of(b).biBitCount) << u.bits;
        ASSERT_EQ(unsigned(img.colors()), header_of(b).biClrUsed) << u.bits;
        const std::size_t rows = 40 + 4 * std::size_t(img.colors());
        EXPECT_EQ(img.map()[img.colors() - 1].r, b[rows - 2]) << u.bits;
        for (std::size_t i = rows; i < b.size(); ++i) ASSERT_EQ(0, b[i]) << u.bits << " at " << i;
    }

    kiv empty;
    EXPECT_EQ(nullptr, empty.createdib());

    // A map longer than the depth can index goes out whole (and that table is more than a
    // 1-bit image's map can take back).
    kiv one = random_image(9, 2, 1, 9);
    one.alloccmap(256);
    for (int i = 0; i < 256; ++i) one.map()[i] = tagRGBA{BYTE(i), BYTE(3 * i), BYTE(255 - i), 0};
    one.validate_rgb();
    d = one.createdib();
    b = global_bytes(d);
    EXPECT_EQ(256u, header_of(b).biClrUsed);
    EXPECT_EQ(255 - 200, b[40 + 4 * 200]);  // blue of entry 200
    EXPECT_EQ(one.map()[255].r, b[40 + 4 * 255 + 2]);
    EXPECT_EQ(px(one, 8, 0).a & 1, b[40 + 1024 + 4 + 1] >> 7 & 1);  // bottom row first
    kiv back;
    EXPECT_EQ(0, back.attachdib(d));
    GlobalFree(d);

    // No map: biClrUsed 0, which announces 1 << depth entries, so a zero table of that many
    // is written and the rows follow it.
    kiv bare = random_image(5, 2, 8, 10);
    bare.alloccmap(0);
    d = bare.createdib();
    b = global_bytes(d);
    EXPECT_EQ(0u, header_of(b).biClrUsed);
    for (std::size_t i = 40; i < 40 + 1024; ++i) ASSERT_EQ(0, b[i]) << i;
    for (int x = 0; x < 5; ++x) EXPECT_EQ(px(bare, x, 0).a, b[40 + 1024 + stride_of(5, 8) + x]) << x;
    kiv bare_back(d);
    GlobalFree(d);
    EXPECT_EQ(256, bare_back.colors());
    for (int i = 0; i < bare.packets(); ++i) ASSERT_EQ(bare.pixels()[i].a, bare_back.pixels()[i].a) << i;
}

TEST(Dib, AttachDib32KeepsByteOrderAndTurnsRows) {
    const int w = 3, h = 2;
    std::vector<BYTE> buf(w * h * 4);
    for (std::size_t i = 0; i < buf.size(); ++i) buf[i] = BYTE(i * 7 + 1);
    kiv img;
    ASSERT_EQ(1, img.attachdib32(w, h, buf.data()));
    EXPECT_EQ(24, img.bits());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const BYTE* s = &buf[(std::size_t(h - 1 - y) * w + x) * 4];
            EXPECT_TRUE(same_rgba(tagRGBA{s[0], s[1], s[2], 0}, px(img, x, y)));
        }
}

TEST(Dib, MappedReaderGivesTheSamePixels) {
    kiv img = random_image(33, 17, 8, 12);
    HGLOBAL d = img.createdib();
    kiv mapped;
    ASSERT_EQ(1, mapped.attachdib_width_mapfile(d));
    GlobalFree(d);
    EXPECT_TRUE(images_equal(img, mapped));
    EXPECT_EQ(256, mapped.colors());
}

// Every refusal: the header and the block are checked before anything is read, nothing past
// the block is touched (the sanitizer build sees any stray read), and the lock count is back
// where it was.
TEST(Dib, MalformedBlocksAreRefused) {
    DibSpec base;
    base.width = 5;
    base.height = 3;
    base.table.assign(256, tagRGBA{9, 9, 9, 0});
    base.values.assign(15, 3);
    const std::vector<BYTE> good = dib_bytes(base);

    enum Result { kUntouched, kEmptied };
    struct Case {
        const char* name;
        void (*patch)(BITMAPINFOHEADER&);
        long cut;  // bytes taken off the block's end
        Result result;
    } cases[] = {
        {"truncated by a byte", [](BITMAPINFOHEADER&) {}, 1, kUntouched},
        {"last row short", [](BITMAPINFOHEADER&) {}, 5, kUntouched},
        {"header only", [](BITMAPINFOHEADER&) {}, long(good.size() - 40), kUntouched},
        {"shorter than a header", [](BITMAPINFOHEADER&) {}, long(good.size() - 39), kUntouched},
        {"biSize lies high", [](BITMAPINFOHEADER& h) { h.biSize = 0xFFFFFFF0u; }, 0, kUntouched},
        {"biSize below 40", [](BITMAPINFOHEADER& h) { h.biSize = 12; }, 0, kUntouched},
        {"biSize zero", [](BITMAPINFOHEADER& h) { h.biSize = 0; }, 0, kUntouched},
        {"biClrUsed huge", [](BITMAPINFOHEADER& h) { h.biClrUsed = 0xFFFFFFFFu; }, 0, kUntouched},
        {"biClrUsed pushes the rows past the end", [](BITMAPINFOHEADER& h) { h.biClrUsed = 257; }, 0, kUntouched},
        {"1-bit table longer than the map", [](BITMAPINFOHEADER& h) { h.biBitCount = 1, h.biClrUsed = 3; }, 0, kUntouched},
        {"2-bit table longer than the map", [](BITMAPINFOHEADER& h) { h.biBitCount = 2, h.biClrUsed = 17; }, 0, kUntouched},
        {"4-bit table longer than the map", [](BITMAPINFOHEADER& h) { h.biBitCount = 4, h.biClrUsed = 256; }, 0, kUntouched},
        {"24-bit table beyond the block", [](BITMAPINFOHEADER& h) { h.biBitCount = 24, h.biClrUsed = 1u << 24; }, 0, kUntouched},
        {"rows beyond the block", [](BITMAPINFOHEADER& h) { h.biHeight = 4; }, 0, kUntouched},
        {"wide rows beyond the block", [](BITMAPINFOHEADER& h) { h.biBitCount = 32, h.biClrUsed = 256; }, 0, kUntouched},
        {"stride overflow", [](BITMAPINFOHEADER& h) { h.biWidth = INT_MAX, h.biHeight = 1, h.biBitCount = 65535; }, 0, kUntouched},
        {"width x height overflow", [](BITMAPINFOHEADER& h) { h.biWidth = 65536, h.biHeight = 65536; }, 0, kEmptied},
        {"huge both", [](BITMAPINFOHEADER& h) { h.biWidth = INT_MAX, h.biHeight = INT_MAX; }, 0, kEmptied},
        {"zero width", [](BITMAPINFOHEADER& h) { h.biWidth = 0; }, 0, kEmptied},
        {"negative width", [](BITMAPINFOHEADER& h) { h.biWidth = -5; }, 0, kEmptied},
        {"top-down", [](BITMAPINFOHEADER& h) { h.biHeight = -3; }, 0, kEmptied},
        {"zero height", [](BITMAPINFOHEADER& h) { h.biHeight = 0; }, 0, kEmptied},
        {"INT_MIN height", [](BITMAPINFOHEADER& h) { h.biHeight = INT_MIN; }, 0, kEmptied},
        {"depth 0", [](BITMAPINFOHEADER& h) { h.biBitCount = 0; }, 0, kEmptied},
        {"run-length", [](BITMAPINFOHEADER& h) { h.biCompression = BI_RLE8; }, 0, kUntouched},
        {"bit fields", [](BITMAPINFOHEADER& h) { h.biCompression = BI_BITFIELDS; }, 0, kUntouched},
        {"unknown compression", [](BITMAPINFOHEADER& h) { h.biCompression = 0x7FFFFFFF; }, 0, kUntouched},
    };
    for (const Case& c : cases) {
        std::vector<BYTE> bytes = good;
        BITMAPINFOHEADER h = header_of(bytes);
        c.patch(h);
        std::memcpy(bytes.data(), &h, sizeof h);
        HGLOBAL dib = to_global(bytes, bytes.size() - std::size_t(c.cut));
        ASSERT_NE(nullptr, dib) << c.name;
        for (int mapped = 0; mapped < 2; ++mapped) {
            kiv img = random_image(4, 4, 24, 1);
            kiv before(img);
            GlobalLock(dib);  // one lock of our own: the reader must leave exactly this one
            EXPECT_EQ(0, mapped ? img.attachdib_width_mapfile(dib) : img.attachdib(dib)) << c.name;
            EXPECT_FALSE(GlobalUnlock(dib)) << c.name << ": the reader left a lock";
            if (c.result == kUntouched)
                EXPECT_TRUE(images_equal(before, img)) << c.name;
            else
                EXPECT_EQ(nullptr, img.pixels()) << c.name;
        }
        GlobalFree(dib);
    }
    kiv img;
    // The exact size is enough: no slack required.
    HGLOBAL exact = to_global(good);
    GlobalLock(exact);
    EXPECT_EQ(1, img.attachdib(exact));
    EXPECT_FALSE(GlobalUnlock(exact));
    GlobalFree(exact);
    // biSize above 40 moves the rows, not the table.
    DibSpec big = base;
    big.bi_size = 64;
    HGLOBAL moved = to_global(dib_bytes(big));
    ASSERT_EQ(1, img.attachdib(moved));
    GlobalFree(moved);
    EXPECT_EQ(3, px(img, 4, 2).a);
    EXPECT_EQ(9, px(img, 4, 2).r);
}

TEST(Dib, BltFromDibAndKivCrop) {
    kiv src = random_image(11, 7, 8, 21);
    HGLOBAL dib = src.createdib();
    kiv dst = random_image(6, 5, 24, 22), expect(dst);
    dst.blt(-1, 2, 9, 9, dib, 3, 1);
    expect.blt(-1, 2, 9, 9, &src, 3, 1);
    EXPECT_TRUE(images_equal(expect, dst));

    struct Case {
        tagRECT rect;
        bool ok;
    } cases[] = {{{2, 1, 9, 6}, true}, {{-5, -5, 3, 100}, true}, {{0, 0, 0, 0}, true},
                 {{11, 0, 20, 7}, false}, {{0, 7, 11, 9}, false}};
    for (const Case& c : cases) {
        tagRECT r = c.rect;
        HGLOBAL out = kivCrop(dib, &r);
        ASSERT_EQ(c.ok, out != nullptr) << r.left << "," << r.top;
        if (!out) continue;
        kiv got(out), want(src);
        GlobalFree(out);
        ASSERT_EQ(1, want.crop(&r));
        EXPECT_EQ(8, got.bits());
        EXPECT_EQ(want.colors(), got.colors());
        EXPECT_TRUE(images_equal(want, got));
    }
    HGLOBAL whole = kivCrop(dib, nullptr);
    kiv all(whole);
    GlobalFree(whole);
    EXPECT_TRUE(images_equal(src, all));
    kiv again(dib);  // the caller's DIB is left as it was
    EXPECT_TRUE(images_equal(src, again));
    GlobalFree(dib);
}
