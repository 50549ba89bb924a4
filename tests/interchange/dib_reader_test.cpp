// The full DIB and BMP reader and the alpha writer: every header, depth and compression
// built from random raw pixels and read back against a plain per-pixel reference.
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
    const bool in = f.depth <= 8 && v < std::min<std::size_t>(tab.size() / eb, 1u << f.depth);
    if (f.depth <= 8) return in ? tagRGBA{tab[v * eb + 2], tab[v * eb + 1], tab[v * eb], BYTE(v)} : tagRGBA{0, 0, 0, BYTE(v)};
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
            if (f.depth < 8) rows[r * stride + bit / 8] |= BYTE(v << (8 - f.depth - bit % 8));
            else put(rows, r * stride + bit / 8, v, f.depth / 8);
        }
    return rows;
}
// A packed DIB of form f; as a BMP file with a file header and a gap before the rows.
Bytes build(const Form& f, int w, int h, const Bytes& tab, const Bytes& rows, bool file) {
    Bytes b;
    put(b, 0, f.hsize);
    if (f.hsize == 12) put(b, 4, w, 2), put(b, 6, h, 2), put(b, 8, 1, 2), put(b, 10, f.depth, 2);
    if (f.hsize != 12) put(b, 4, w), put(b, 8, std::uint64_t(f.top ? -h : h)), put(b, 12, 1, 2), put(b, 14, f.depth, 2);
    if (f.hsize != 12) put(b, 16, f.comp), put(b, 32, f.used);
    b.resize(f.hsize);                // a short OS/2 header ends early
    if (f.comp == 3 || f.comp == 6)  // after a 40-byte header or inside a longer one: offset 40 either way
        for (int c = 0; c < (f.comp == 6 || f.hsize >= 56 ? 4 : 3); ++c) put(b, 40 + 4 * c, f.m[c]);
    b.insert(b.end(), tab.begin(), tab.end());
    if (file) b.insert(b.begin(), 14, 0), b[0] = 'B', b[1] = 'M', put(b, 10, b.size() + 6), b.resize(b.size() + 6, 7);
    b.insert(b.end(), rows.begin(), rows.end());
    return b;
}
// Reads form f as a packed DIB or a BMP file and compares with want: depth, pixels, and below
// 24 bits the map (the table's entries the depth indexes, raised to cover every index used).
kiv check(const Form& f, kiv& want, int bits, const Bytes& tab, const Bytes& rows, bool file) {
    const Bytes b = build(f, want.width(), want.height(), tab, rows, file);
    kiv img;
    const char* why = nullptr;
    EXPECT_EQ(file ? img.loadbmp_bytes(b.data(), b.size(), &why) : img.attachdib_any_bytes(b.data(), b.size(), &why), 1)
        << why;
    EXPECT_EQ(img.bits(), bits);
    EXPECT_TRUE(kivtest::images_equal(img, want));
    int colours = bits < 24 ? int(std::min<std::size_t>(tab.size() / (f.hsize == 12 ? 3 : 4), 1u << f.depth)) : 0;
    for (int i = 0; bits < 24 && i < want.packets(); ++i) colours = std::max(colours, want.pixels()[i].a + 1);
    EXPECT_EQ(img.colors(), colours);
    for (int i = 0; i < std::min(colours, img.colors()); ++i) {
        const tagRGBA m = meaning(f, i, tab);
        EXPECT_TRUE(kivtest::same_rgba(img.map()[i], tagRGBA{m.r, m.g, m.b, 0})) << i;
    }
    return img;
}
}  // namespace

TEST(DibReader, EveryFormMatchesThePlainReference) {
    const std::uint32_t k24 = 0xFF0000, k16 = 0x7C00, a8 = 0xFF000000u;
    const Form forms[] = {
        {12, 1, 0, {}, 0, 0}, {12, 4, 0, {}, 0, 0}, {12, 8, 0, {}, 0, 0}, {12, 24, 0, {k24, 0xFF00, 0xFF}, 0, 0},
        {40, 1, 0, {}, 5, 0}, {40, 2, 0, {}, 0, 1}, {40, 4, 0, {}, 3, 0}, {40, 8, 0, {}, 0, 1}, {64, 8, 0, {}, 7, 0},
        {16, 24, 0, {k24, 0xFF00, 0xFF}, 0, 0}, {40, 24, 0, {k24, 0xFF00, 0xFF}, 2, 1}, {40, 64, 0, {}, 0, 0},
        {40, 16, 0, {k16, 0x3E0, 0x1F}, 0, 0}, {40, 32, 0, {k24, 0xFF00, 0xFF, a8}, 0, 1},
        {40, 16, 3, {0xF800, 0x7E0, 0x1F}, 0, 0}, {40, 16, 6, {k16, 0x3E0, 0x1F, 0x8000}, 0, 1},
        {40, 16, 6, {0xF00, 0xF0, 0xF, 0xF000}, 0, 0}, {56, 32, 3, {0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000u}, 0, 0},
        {108, 32, 3, {0xFF, 0xFF00, k24, a8}, 0, 1}, {124, 32, 3, {0xFF00, k24, a8, 0xFF}, 4, 0},
        {52, 32, 3, {k24, 0xFF00, 0xFF}, 0, 0}, {40, 32, 3, {0xFFFF0000u, 0xF800, 0x7FF}, 0, 0}};
    kivtest::Rng rng(7);
    for (const Form& f : forms)
        for (int w : {1, 5, 8})
            for (int variant = 0; variant < 4; ++variant) {  // bit 0: a BMP file; bit 1: alpha all zero
                SCOPED_TRACE(::testing::Message() << f.hsize << "/" << f.depth << "/" << f.comp << " " << w << " " << variant);
                const unsigned eb = f.hsize == 12 ? 3 : 4;
                const unsigned entries = f.used && eb == 4 ? f.used : f.depth <= 8 ? 1u << f.depth : 0;
                Bytes tab(entries * eb);
                for (auto& c : tab) c = rng.byte();
                std::vector<std::uint64_t> raw(std::size_t(w) * 3);
                kiv want(w, 3, 32);
                bool alpha = false;
                for (int i = 0; i < want.packets(); ++i) {
                    raw[i] = rng.next() & (f.depth == 64 ? 0xBFFFBFFFBFFFBFFFull : (std::uint64_t(1) << f.depth) - 1);
                    if (variant & 2) raw[i] &= f.depth == 64 ? 0xFFFFFFFFFFFFull : ~std::uint64_t(f.m[3]);
                    want.pixels()[i] = meaning(f, raw[i], tab);
                    alpha = alpha || want.pixels()[i].a;
                }
                const int bits = f.depth <= 8 ? (f.depth == 2 ? 4 : int(f.depth)) : alpha ? 32 : 24;
                kiv got = check(f, want, bits, tab, pack(f, w, 3, raw), variant & 1), back;
                // The alpha writer on what was read: straight alpha exactly, or premultiplied by the
                // rounded product; opaque below 32 bits.
                HGLOBAL dib = got.createdib_alpha(variant & 1);
                ASSERT_EQ(back.attachdib_any(dib, nullptr), 1);
                GlobalFree(dib);
                for (int i = 0; i < got.packets(); ++i) {
                    const tagRGBA p = got.pixels()[i], q = back.pixels()[i];
                    const int a = bits == 32 ? p.a : 255;
                    auto mul = [&](int c) { return variant & 1 ? int(std::lround(c * a / 255.0)) : c; };
                    ASSERT_TRUE(q.r == mul(p.r) && q.g == mul(p.g) && q.b == mul(p.b) && q.a == a) << i;
                }
            }
}

// Random run-length streams (deltas, absolute stretches, early ends of lines and bitmap)
// against what each step means; without holes every line is filled, giving a palettized image.
TEST(DibReader, RunLengthDataMatchesThePlainReference) {
    kivtest::Rng rng(3);
    for (unsigned depth : {4u, 8u})
        for (int w : {1, 6, 7, 300})
            for (int seed = 0; seed < 16; ++seed) {
                const int h = 4;
                const Form f{40, depth, depth == 8 ? 1u : 2u, {}, depth == 8 ? 200u : 0u, false};
                Bytes tab(4 * (f.used ? f.used : 16)), s;
                for (auto& c : tab) c = rng.byte();
                std::vector<int> grid(std::size_t(w) * h, -1);  // indices from the top row; -1 never set
                int x = 0, line = 0;
                auto set = [&](int v, int k) {  // index k of a run or stretch from byte v
                    grid[std::size_t(h - 1 - line) * w + x++] = depth == 8 ? v : k & 1 ? v & 15 : v >> 4;
                };
                while (line < h) {
                    const int left = w - x, n = left ? 1 + rng.below(std::min(left, 255)) : 0;
                    const int op = seed & 1 ? rng.below(6) : 3 + rng.below(3);
                    if (!n || op == 0) {
                        s.insert(s.end(), {0, 0}), x = 0, ++line;  // end of line
                    } else if (op == 1 && line == h - 1) {
                        break;  // end of bitmap before the end
                    } else if (op == 2) {
                        const int up = line < h - 1 ? rng.below(2) : 0;
                        s.insert(s.end(), {0, 2, BYTE(n), BYTE(up)}), x += n, line += up;
                    } else if (op == 3 && n >= 3) {  // absolute, padded to 16 bits
                        const std::size_t bytes = depth == 8 ? n : (n + 1) / 2, at = s.size() + 2;
                        s.insert(s.end(), {0, BYTE(n)});
                        for (std::size_t k = 0; k < bytes + bytes % 2; ++k) s.push_back(rng.byte());
                        for (int k = 0; k < n; ++k) set(s[at + (depth == 8 ? k : k / 2)], k);
                    } else {
                        s.insert(s.end(), {BYTE(n), rng.byte()});
                        for (int k = 0; k < n; ++k) set(s.back(), k);
                    }
                }
                s.insert(s.end(), {0, 1});
                const bool full = std::count(grid.begin(), grid.end(), -1) == 0;
                kiv want(w, h, 32);
                for (int i = 0; i < want.packets(); ++i)
                    if (grid[i] >= 0) want.pixels()[i] = meaning(f, grid[i], tab), want.pixels()[i].a = full ? grid[i] : 255;
                check(f, want, full ? int(depth) : 32, tab, s, seed & 2);
            }
}

// Malformed data is refused with a reason, the image and the global-memory block left as they
// were. Each case: a base (plain 8-bit, bit fields, run-length, file), then v put at `at`
// (counted from the end when negative) and the last `cut` bytes dropped.
TEST(DibReader, RefusesMalformedData) {
    const Form f8{40, 8, 0, {}, 0, 0}, bf{40, 32, 3, {0xFF0000, 0xFF00, 0xFF}, 0, 0}, rle{40, 8, 1, {}, 2, 0};
    const Bytes tab(1024, 9), base[] = {build(f8, 4, 2, tab, Bytes(8, 1), false), build(bf, 4, 2, {}, Bytes(32, 1), false),
                                        build(rle, 4, 2, Bytes(8, 1), {4, 1, 0, 0, 4, 1, 0, 1}, false),
                                        build(f8, 4, 2, tab, Bytes(8, 1), true)};
    struct Bad {
        int base, at;
        std::uint64_t v;
        int bytes, cut;
    };
    const Bad bad[] = {{0, 0, 0, 0, 1069}, {0, 0, 0, 0, 1042}, {0, 0, 200, 4, 0}, {0, 4, 0, 4, 0}, {0, 8, 0, 4, 0},
                       {0, 4, 0x800000010000, 8, 0}, {0, 14, 7, 2, 0}, {0, 16, 4, 4, 0}, {0, 16, 9, 4, 0}, {0, 16, 2, 4, 0},
                       {0, 16, 3, 4, 0}, {0, 32, 1 << 30, 4, 0}, {0, 0, 0, 0, 1}, {1, 0, 20, 4, 0}, {1, 40, 0xFF00FF, 4, 0},
                       {1, 40, 0xFFFF00, 4, 0}, {1, 0, 0, 0, 36}, {2, -8, 5, 1, 0}, {2, -4, 0x01010000, 4, 0}, {2, 0, 0, 0, 1},
                       {2, -2, 0x0500, 2, 0}, {2, -2, 0x0200, 2, 0}, {3, 1, 'A', 1, 0}, {3, 10, 20, 4, 0}, {3, 10, 1u << 31, 4, 0}};
    for (const Bad& c : bad) {
        SCOPED_TRACE(&c - bad);
        Bytes b = base[c.base];
        if (c.bytes) put(b, c.at < 0 ? b.size() + c.at : std::size_t(c.at), c.v, c.bytes);
        b.resize(b.size() - c.cut);
        kiv img = kivtest::random_image(3, 2, 24, 1), keep(img);
        HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, b.size());
        std::memcpy(GlobalLock(h), b.data(), b.size());
        const char* why = nullptr;
        EXPECT_EQ(c.base == 3 ? img.loadbmp_bytes(b.data(), b.size(), &why) : img.attachdib_any(h, &why), 0);
        EXPECT_TRUE(why && kivtest::images_equal(img, keep) && img.bits() == 24);
        EXPECT_EQ(std::memcmp(GlobalLock(h), b.data(), b.size()), 0) << "the block changed";
        GlobalUnlock(h), GlobalUnlock(h), GlobalFree(h);
    }
}

// The alpha writer's BMP files read back; refused writes leave no file.
TEST(DibWriter, BmpFilesReadBack) {
    kivtest::ScratchDir dir("kivdib_");
    kiv img = kivtest::random_image(5, 4, 32, 2), back, empty;
    const char* why = "unset";
    ASSERT_EQ(img.savebmp_alpha(dir("a.bmp").c_str(), 1, &why), 1);
    ASSERT_EQ(img.savebmp_alpha(dir("a.bmp").c_str(), 0, &why) + back.loadbmp(dir("a.bmp").c_str(), &why), 2);
    EXPECT_TRUE(why == nullptr && kivtest::images_equal(img, back));
    EXPECT_EQ(empty.savebmp_alpha(dir("b.bmp").c_str(), 0, &why) + img.savebmp_alpha(dir("x/b").c_str(), 0, &why), 0);
    EXPECT_EQ(dir.files(), std::vector<std::string>{"a.bmp"});
}
