// The full DIB and BMP reader and the alpha writer: every header, depth and compression read
// against a plain per-pixel reference, run-length streams checked by hand, malformed data.
#include <gtest/gtest.h>

#include <cmath>

#include "support/scratch_dir.h"
#include "support/test_images.h"

namespace {
using Bytes = std::vector<unsigned char>;
void put(Bytes& b, std::size_t at, std::uint64_t v, std::size_t n = 4) {
    b.resize(std::max(b.size(), at + n));
    for (std::size_t i = 0; i < n; ++i) b[at + i] = BYTE(v >> 8 * i);
}
struct Form {  // header bytes, depth, compression, masks (red, green, blue, alpha), biClrUsed, top-down
    unsigned hsize, depth, comp;
    std::uint32_t m[4];
    unsigned used, top;
};
// What raw pixel value v of form f means (palettized: table entry v, black past the table).
tagRGBA meaning(const Form& f, std::uint64_t v, const Bytes& tab) {
    const unsigned eb = f.hsize == 12 ? 3 : 4;
    if (f.depth <= 8)
        return v < tab.size() / eb ? tagRGBA{tab[v * eb + 2], tab[v * eb + 1], tab[v * eb], BYTE(v)}
                                   : tagRGBA{0, 0, 0, BYTE(v)};
    auto fixed = [&](int k, bool colour) {  // s2.13, linear light to sRGB
        const double l = std::clamp(std::int16_t(v >> 16 * k) / 8192.0, 0.0, 1.0);
        const double s = l <= 0.0031308 ? 12.92 * l : 1.055 * std::pow(l, 1 / 2.4) - 0.055;
        return BYTE(std::lround(255 * (colour ? s : l)));
    };
    auto chan = [&](double m) { return BYTE(m ? std::lround(double(v & std::uint32_t(m)) * 255.0 / m) : 0); };
    if (f.depth == 64) return tagRGBA{fixed(2, true), fixed(1, true), fixed(0, true), fixed(3, false)};
    return tagRGBA{chan(f.m[0]), chan(f.m[1]), chan(f.m[2]), chan(f.m[3])};
}
// Rows of raw values (image order), stored bottom-up unless f.top, padded to 4 bytes.
Bytes pack(const Form& f, int w, int h, const std::vector<std::uint64_t>& raw) {
    const std::size_t stride = (std::size_t(w) * f.depth + 31) / 32 * 4;
    Bytes rows(stride * h);
    for (int r = 0; r < h; ++r)
        for (int x = 0; x < w; ++x) {
            const std::uint64_t v = raw[std::size_t(f.top ? r : h - 1 - r) * w + x], bit = std::size_t(x) * f.depth;
            if (f.depth < 8)
                rows[r * stride + bit / 8] |= BYTE(v << (8 - f.depth - bit % 8));
            else
                put(rows, r * stride + bit / 8, v, f.depth / 8);
        }
    return rows;
}
// A packed DIB of form f; as a BMP file with a file header and a gap of 6 bytes of 7 before the rows.
Bytes build(const Form& f, int w, int h, const Bytes& tab, const Bytes& rows, bool file) {
    Bytes b;
    put(b, 0, f.hsize);
    if (f.hsize == 12) put(b, 4, w, 2), put(b, 6, h, 2), put(b, 8, 1, 2), put(b, 10, f.depth, 2);
    if (f.hsize != 12) put(b, 4, w), put(b, 8, std::uint64_t(f.top ? -h : h)), put(b, 12, 1, 2), put(b, 14, f.depth, 2);
    if (f.hsize != 12) put(b, 16, f.comp), put(b, 32, f.used);
    b.resize(f.hsize);               // a short OS/2 header ends early
    if (f.comp == 3 || f.comp == 6)  // after a 40-byte header or inside a longer one: offset 40 either way
        for (int c = 0; c < (f.comp == 6 || f.hsize >= 56 ? 4 : 3); ++c) put(b, 40 + 4 * c, f.m[c]);
    b.insert(b.end(), tab.begin(), tab.end());
    if (file) b.insert(b.begin(), 14, 0), b[0] = 'B', b[1] = 'M', put(b, 10, b.size() + 6), b.resize(b.size() + 6, 7);
    b.insert(b.end(), rows.begin(), rows.end());
    return b;
}
// want's colour map: the table's first `colours` entries of form f (black past the table).
void give_map(kiv& want, const Form& f, const Bytes& tab, int colours) {
    want.alloccmap(colours);
    for (int i = 0; i < colours; ++i) want.m_map[i] = meaning(f, i, tab), want.m_map[i].a = 0;
}
int read(kiv& img, const Bytes& b, bool file, const char** why) {
    return file ? img.loadbmp_bytes(b.data(), b.size(), why) : img.attachdib_any_bytes(b.data(), b.size(), why);
}
// Reads b as a BMP file or a packed DIB: want's depth, colour map and pixels.
void expect_read(const Bytes& b, bool file, kiv& want) {
    kiv img;
    const char* why = nullptr;
    ASSERT_EQ(read(img, b, file, &why), 1) << why;
    EXPECT_TRUE(img.bits() == want.bits() && img.colors() == want.colors() && kivtest::images_equal(img, want))
        << img.bits() << " bits, " << img.colors() << " colours";
    for (int i = 0; i < std::min(img.colors(), want.colors()); ++i)
        EXPECT_TRUE(kivtest::same_rgba(img.map()[i], want.map()[i])) << i;
}
}  // namespace

TEST(DibReader, EveryFormMatchesThePlainReference) {
    const std::uint32_t k24 = 0xFF0000, k16 = 0x7C00, a8 = 0xFF000000u;
    // clang-format off
    const Form forms[] = {
        {12, 1, 0, {}, 0, 0}, {12, 4, 0, {}, 0, 0}, {12, 8, 0, {}, 0, 0}, {12, 24, 0, {k24, 0xFF00, 0xFF}, 0, 0},
        {40, 1, 0, {}, 5, 0}, {40, 2, 0, {}, 0, 1}, {40, 4, 0, {}, 3, 0}, {40, 8, 0, {}, 0, 1}, {64, 8, 0, {}, 7, 0},
        {108, 8, 0, {}, 0, 1}, {124, 4, 0, {}, 9, 0},
        {16, 24, 0, {k24, 0xFF00, 0xFF}, 0, 0}, {40, 24, 0, {k24, 0xFF00, 0xFF}, 2, 1}, {40, 64, 0, {}, 0, 0},
        {40, 16, 0, {k16, 0x3E0, 0x1F}, 0, 0}, {40, 32, 0, {k24, 0xFF00, 0xFF, a8}, 0, 1}, {40, 16, 3, {0xFFFF}, 0, 0},
        {40, 16, 3, {0xF800, 0x7E0, 0x1F}, 0, 0}, {40, 16, 6, {k16, 0x3E0, 0x1F, 0x8000}, 0, 1},
        {40, 16, 6, {0xF00, 0xF0, 0xF, 0xF000}, 0, 0}, {56, 32, 3, {0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000u}, 0, 0},
        {108, 32, 3, {0xFF, 0xFF00, k24, a8}, 0, 1}, {124, 32, 3, {0xFF00, k24, a8, 0xFF}, 4, 0},
        {52, 32, 3, {k24, 0xFF00, 0xFF}, 0, 0}, {40, 32, 3, {0xFFFF0000u, 0xF800, 0x7FF}, 0, 0}};
    // clang-format on
    kivtest::Rng rng(7);
    for (const Form& f : forms)
        for (int w : {1, 5, 8})
            for (int variant = 0; variant < 4; ++variant) {  // bit 0: a BMP file; bit 1: alpha all zero
                SCOPED_TRACE(::testing::Message()
                             << f.hsize << "/" << f.depth << "/" << f.comp << " " << w << " " << variant);
                const bool file = variant & 1;
                const unsigned eb = f.hsize == 12 ? 3 : 4, implied = f.depth <= 8 ? 1u << f.depth : 0;
                const unsigned entries = f.used && eb == 4 ? f.used : implied;
                // A file's table may stop short of what the header announces: the rows start at
                // bfOffBits, and the gap before them reads as further entries.
                Bytes tab((entries - (file ? entries / 3 : 0)) * eb), seen;
                for (auto& c : tab) c = rng.byte();
                seen = tab, seen.resize(std::min<std::size_t>(entries, (tab.size() + (file ? 6 : 0)) / eb) * eb, 7);
                std::vector<std::uint64_t> raw(std::size_t(w) * 3);
                kiv want(w, 3, 32);
                int top = -1;
                for (int i = 0; i < want.packets(); ++i) {
                    raw[i] = rng.next() & (f.depth == 64 ? 0xBFFFBFFFBFFFBFFFull : (std::uint64_t(1) << f.depth) - 1);
                    if (f.depth == 64 && !i)
                        raw[i] = 0x100010002000FFFFull;  // alpha and red 0.5, green 1, blue -1/8192
                    if (variant & 2) raw[i] &= f.depth == 64 ? 0xFFFFFFFFFFFFull : ~std::uint64_t(f.m[3]);
                    want.pixels()[i] = meaning(f, raw[i], seen);
                    top = std::max(top, int(want.pixels()[i].a));
                }
                want.m_bits = f.depth <= 8 ? (f.depth == 2 ? 4 : int(f.depth)) : top ? 32 : 24;
                if (f.depth <= 8)
                    give_map(want, f, seen,
                             std::max(int(std::min(seen.size() / eb, std::size_t(1) << f.depth)), top + 1));
                expect_read(build(f, w, 3, tab, pack(f, w, 3, raw), file), file, want);
            }
}

// RLE8, 4 x 3 from the bottom line: a run of 3, end of line, an absolute stretch of 3 (padded),
// a delta up one line, a run of 1; then end of bitmap and bytes that would overrun, or biSizeImage
// ending the data before such bytes. RLE4, 3 x 2: a run of 4 ending on the pad nibble, end of
// line, an absolute stretch of 3 nibbles (2 bytes, no pad), indices past the 3-entry table.
TEST(DibReader, RunLengthStreamsCheckedByHand) {
    const Bytes tab = {10, 20, 30, 0, 40, 50, 60, 0, 70, 80, 90, 0},
                body = {3, 1, 0, 0, 0, 3, 2, 0, 1, 0, 0, 2, 0, 1, 1, 2};
    const Form rle8{40, 8, 1, {}, 3, 0}, rle4{40, 4, 2, {}, 3, 0};
    auto want = [&](const Form& f, int w, std::vector<int> idx) {  // indices from the top line; -1: never set
        kiv k(w, int(idx.size()) / w, 32);
        const bool holes = std::count(idx.begin(), idx.end(), -1) > 0;
        for (int i = 0; i < k.packets(); ++i)
            if (idx[i] >= 0) k.m_pixels[i] = meaning(f, idx[i], tab), k.m_pixels[i].a = holes ? 255 : BYTE(idx[i]);
        if (!holes) k.m_bits = int(f.depth), give_map(k, f, tab, 1 + *std::max_element(idx.begin(), idx.end()));
        return k;
    };
    kiv holes = want(rle8, 4, {-1, -1, -1, 2, 2, 0, 1, -1, 1, 1, 1, -1}), full = want(rle4, 3, {3, 4, 5, 1, 2, 1});
    for (bool cut : {false, true}) {
        Bytes s = body;
        if (!cut) s.insert(s.end(), {0, 1});
        s.insert(s.end(), {2, 1});
        Bytes b = build(rle8, 4, 3, tab, s, false);
        put(b, 20, cut ? body.size() : 0);  // biSizeImage
        expect_read(b, false, holes);
    }
    expect_read(build(rle4, 3, 2, tab, {4, 0x12, 0, 0, 0, 3, 0x34, 0x50, 0, 1}, true), true, full);
}

// Malformed data is refused with a reason, the image and the data left as they were. Each
// case: a base (plain 8-bit, bit fields, run-length, file), then v put at `at` (counted from
// the end when negative) and the last `cut` bytes dropped.
TEST(DibReader, RefusesMalformedData) {
    const Form f8{40, 8, 0, {}, 0, 0}, bf{40, 32, 3, {0xFF0000, 0xFF00, 0xFF}, 0, 0}, rle{40, 8, 1, {}, 2, 0};
    const Bytes tab(1024, 9),
        base[] = {build(f8, 4, 2, tab, Bytes(8, 1), false), build(bf, 4, 2, {}, Bytes(32, 1), false),
                  build(rle, 4, 2, Bytes(8, 1), {4, 1, 0, 0, 4, 1, 0, 1}, false),
                  build(f8, 4, 2, tab, Bytes(8, 1), true)};
    struct Bad {
        int base, at;
        std::uint64_t v;
        int bytes, cut;
    };
    // clang-format off
    const Bad bad[] = {{0, 0, 0, 0, 1069}, {0, 0, 0, 0, 1042}, {0, 0, 200, 4, 0}, {0, 4, 0, 4, 0}, {0, 8, 0, 4, 0},
                       {0, 4, 0x800000010000, 8, 0}, {0, 14, 7, 2, 0}, {0, 16, 4, 4, 0}, {0, 16, 9, 4, 0}, {0, 16, 2, 4, 0},
                       {0, 16, 3, 4, 0}, {0, 32, 1 << 30, 4, 0}, {0, 0, 0, 0, 1}, {1, 0, 20, 4, 0}, {1, 40, 0xFF00FF, 4, 0},
                       {1, 40, 0xFFFF00, 4, 0}, {1, 0, 0, 0, 36}, {2, -8, 5, 1, 0}, {2, -4, 0x01010000, 4, 0}, {2, 0, 0, 0, 1},
                       {2, -2, 0x0500, 2, 0}, {2, -2, 0x0200, 2, 0}, {3, 1, 'A', 1, 0}, {3, 10, 20, 4, 0}, {3, 10, 1u << 31, 4, 0}};
    // clang-format on
    for (const Bad& c : bad) {
        SCOPED_TRACE(&c - bad);
        Bytes b = base[c.base];
        if (c.bytes) put(b, c.at < 0 ? b.size() + c.at : std::size_t(c.at), c.v, c.bytes);
        b.resize(b.size() - c.cut);
        kiv img = kivtest::random_image(3, 2, 24, 1), keep(img);
        const Bytes copy = b;
        const char* why = nullptr;
        EXPECT_EQ(read(img, b, c.base == 3, &why), 0);
        EXPECT_TRUE(why && kivtest::images_equal(img, keep) && img.bits() == 24 && b == copy);
    }
}

// The premultiplied form rounds to nearest; the alpha writer's BMP files read back; a refused
// write leaves no file.
TEST(DibWriter, PremultipliesAndWritesBmpFiles) {
    kiv one(1, 1, 32), back, empty;
    one.m_pixels[0] = tagRGBA{1, 255, 2, 127};  // x 127 / 255: 0.498, 127, 0.996
    HGLOBAL d = one.createdib_alpha(1);
    const BYTE* p = static_cast<BYTE*>(GlobalLock(d)) + 124;
    EXPECT_TRUE(p[0] == 1 && p[1] == 127 && p[2] == 0 && p[3] == 127);  // blue, green, red, alpha
    GlobalUnlock(d), GlobalFree(d);
    kivtest::ScratchDir dir("kivdib_");
    kiv img = kivtest::random_image(5, 4, 32, 2);
    const char* why = "unset";
    ASSERT_EQ(img.savebmp_alpha(dir("a.bmp").c_str(), 0, &why) + back.loadbmp(dir("a.bmp").c_str(), &why), 2);
    EXPECT_TRUE(why == nullptr && kivtest::images_equal(img, back));
    EXPECT_EQ(empty.savebmp_alpha(dir("b.bmp").c_str(), 0, &why) + img.savebmp_alpha(dir("x/b").c_str(), 0, &why), 0);
    EXPECT_EQ(dir.files(), std::vector<std::string>{"a.bmp"});
}
