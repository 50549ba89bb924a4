// The full DIB and BMP reader and the alpha writer: every header, depth and compression
// built from random raw pixels and read back against a plain per-pixel reference.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "support/scratch_dir.h"
#include "support/test_images.h"

namespace {
using Bytes = std::vector<unsigned char>;
void put(Bytes& b, std::size_t at, std::uint64_t v, std::size_t n = 4) {
    if (b.size() < at + n) b.resize(at + n);
    for (std::size_t i = 0; i < n; ++i) b[at + i] = static_cast<unsigned char>(v >> 8 * i);
}

struct Form {  // header bytes, depth, compression, masks (red, green, blue, alpha), biClrUsed, top-down
    unsigned hsize, depth, comp;
    std::uint32_t m[4];
    unsigned used;
    bool top;
};

BYTE channel(std::uint64_t v, std::uint32_t mask) {
    if (!mask) return 0;
    int shift = 0;
    while (!((mask >> shift) & 1)) ++shift;
    return static_cast<BYTE>(std::lround(double((v & mask) >> shift) * 255.0 / double(mask >> shift)));
}
BYTE fixed16(std::uint64_t v, int k, bool is_alpha) {
    const double l = std::clamp(static_cast<std::int16_t>(v >> 16 * k) / 8192.0, 0.0, 1.0);
    return static_cast<BYTE>(std::lround(255 * (is_alpha || l <= 0.0031308 ? (is_alpha ? 1 : 12.92) * l : 1.055 * std::pow(l, 1 / 2.4) - 0.055)));
}
// What raw pixel value v of form f means (palettized: the table's colour, black past it).
tagRGBA meaning(const Form& f, std::uint64_t v, const Bytes& tab, unsigned eb) {
    if (f.depth <= 8) {
        const bool in = v < std::min<std::size_t>(tab.size() / eb, 1u << f.depth);
        return in ? tagRGBA{tab[v * eb + 2], tab[v * eb + 1], tab[v * eb], BYTE(v)} : tagRGBA{0, 0, 0, BYTE(v)};
    }
    if (f.depth == 24) return tagRGBA{BYTE(v >> 16), BYTE(v >> 8), BYTE(v), 0};
    if (f.depth == 64) return tagRGBA{fixed16(v, 2, false), fixed16(v, 1, false), fixed16(v, 0, false), fixed16(v, 3, true)};
    return tagRGBA{channel(v, f.m[0]), channel(v, f.m[1]), channel(v, f.m[2]), channel(v, f.m[3])};
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
// A packed DIB of form f (as a BMP file: with a file header and a gap before the rows).
Bytes build(const Form& f, int w, int h, const Bytes& tab, const Bytes& rows, bool file) {
    Bytes b;
    put(b, 0, f.hsize);
    if (f.hsize == 12) {
        put(b, 4, w, 2), put(b, 6, h, 2), put(b, 8, 1, 2), put(b, 10, f.depth, 2);
    } else {
        put(b, 4, w), put(b, 8, std::uint64_t(f.top ? -h : h)), put(b, 12, 1, 2), put(b, 14, f.depth, 2);
        put(b, 16, f.comp), put(b, 32, f.used);
    }
    b.resize(f.hsize);  // a short OS/2 header ends early
    if (f.comp == 3 || f.comp == 6)  // after a 40-byte header or inside a longer one: offset 40 either way
        for (int c = 0; c < (f.comp == 6 || f.hsize >= 56 ? 4 : 3); ++c) put(b, 40 + 4 * c, f.m[c]);
    b.insert(b.end(), tab.begin(), tab.end());
    if (file) b.insert(b.begin(), 14, 0), b[0] = 'B', b[1] = 'M', put(b, 10, b.size() + 6), b.resize(b.size() + 6, 0xEE);
    b.insert(b.end(), rows.begin(), rows.end());
    return b;
}
kiv read(const Bytes& b, bool file) {
    kiv img;
    const char* why = nullptr;
    const int ok = file ? img.loadbmp_bytes(b.data(), b.size(), &why) : img.attachdib_any_bytes(b.data(), b.size(), &why);
    EXPECT_EQ(ok, 1) << why;
    return img;
}
// img against the expected pixels: depth, pixels, and the map of a palettized image (the
// table's entries the depth indexes, raised to cover the highest index used).
void expect_image(kiv& img, kiv& want, int bits, const Form& f, const Bytes& tab, unsigned eb) {
    EXPECT_EQ(img.bits(), bits);
    EXPECT_TRUE(kivtest::images_equal(img, want));
    if (bits >= 24) return;
    int colours = int(std::min<std::size_t>(tab.size() / eb, 1u << f.depth));
    for (int i = 0; i < want.packets(); ++i) colours = std::max(colours, want.pixels()[i].a + 1);
    EXPECT_EQ(img.colors(), colours);
    for (int i = 0; i < img.colors(); ++i) {
        const tagRGBA m = meaning(f, i, tab, eb);
        EXPECT_TRUE(kivtest::same_rgba(img.map()[i], tagRGBA{m.r, m.g, m.b, 0})) << i;
    }
}
}  // namespace

TEST(DibReader, EveryFormMatchesThePlainReference) {
    const std::uint32_t k555[4] = {0x7C00, 0x3E0, 0x1F, 0}, k8888[4] = {0xFF0000, 0xFF00, 0xFF, 0xFF000000u};
    const Form forms[] = {
        {12, 1, 0, {}, 0, false}, {12, 4, 0, {}, 0, false}, {12, 8, 0, {}, 0, false}, {12, 24, 0, {}, 0, false},
        {40, 1, 0, {}, 5, false}, {40, 2, 0, {}, 0, true}, {40, 4, 0, {}, 3, false}, {40, 8, 0, {}, 0, true},
        {64, 8, 0, {}, 7, false}, {16, 24, 0, {}, 0, false}, {40, 24, 0, {}, 2, true}, {40, 64, 0, {}, 0, false},
        {40, 16, 0, {k555[0], k555[1], k555[2], 0}, 0, false}, {40, 32, 0, {k8888[0], k8888[1], k8888[2], k8888[3]}, 0, true},
        {40, 16, 3, {0xF800, 0x7E0, 0x1F, 0}, 0, false}, {40, 16, 6, {0x7C00, 0x3E0, 0x1F, 0x8000}, 0, true},
        {40, 16, 6, {0xF00, 0xF0, 0xF, 0xF000}, 0, false}, {56, 32, 3, {0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000u}, 0, false},
        {108, 32, 3, {0xFF, 0xFF00, 0xFF0000, 0xFF000000u}, 0, true}, {124, 32, 3, {0xFF00, 0xFF0000, 0xFF000000u, 0xFF}, 4, false},
        {52, 32, 3, {0xFF0000, 0xFF00, 0xFF, 0}, 0, false}, {40, 32, 3, {0xFFFF0000u, 0xF800, 0x7FF, 0}, 0, false}};
    kivtest::Rng rng(7);
    for (const Form& f : forms)
        for (int w : {1, 5, 8})
            for (int variant = 0; variant < 4; ++variant) {  // bit 0: a BMP file; bit 1: alpha all zero
                SCOPED_TRACE(::testing::Message() << f.hsize << "-byte header, depth " << f.depth << ", compression " << f.comp << ", width " << w << ", variant " << variant);
                const int h = 3;
                const unsigned eb = f.hsize == 12 ? 3 : 4, entries = f.used && eb == 4 ? f.used : f.depth <= 8 ? 1u << f.depth : 0;
                Bytes tab(entries * eb);
                for (auto& c : tab) c = rng.byte();
                std::vector<std::uint64_t> raw(std::size_t(w) * h);
                kiv want(w, h, 32);
                bool alpha = false;
                for (int i = 0; i < want.packets(); ++i) {
                    raw[i] = f.depth == 64 ? rng.next() & 0xBFFFBFFFBFFFBFFFull : rng.next() & ((std::uint64_t(1) << f.depth) - 1);
                    if (variant & 2) raw[i] &= f.depth == 64 ? 0xFFFFFFFFFFFFull : ~std::uint64_t(f.m[3]);
                    want.pixels()[i] = meaning(f, raw[i], tab, eb);
                    alpha = alpha || want.pixels()[i].a;
                }
                kiv got = read(build(f, w, h, tab, pack(f, w, h, raw), variant & 1), variant & 1);
                expect_image(got, want, f.depth <= 8 ? (f.depth == 2 ? 4 : int(f.depth)) : alpha ? 32 : 24, f, tab, eb);
            }
}

namespace {
// A random run-length stream for w x h pixels and what it means (grid: indices from the top
// row, -1 where nothing is set). Without holes every line is filled and ended.
Bytes rle_stream(unsigned depth, int w, int h, bool holes, kivtest::Rng& rng, std::vector<int>& grid) {
    Bytes s;
    int x = 0, line = 0;
    auto set = [&](int v) { grid[std::size_t(h - 1 - line) * w + x++] = v; };
    auto nibble = [&](int b, int k) { return depth == 8 ? b : k & 1 ? b & 15 : b >> 4; };
    while (line < h) {
        const int left = w - x, n = left ? 1 + rng.below(std::min(left, 255)) : 0, op = holes ? rng.below(6) : 3 + rng.below(3);
        if (!n || op == 0) {  // end of line
            s.insert(s.end(), {0, 0}), x = 0, ++line;
        } else if (op == 1 && line == h - 1) {  // end of bitmap before the end
            break;
        } else if (op == 2) {  // delta
            const int up = line < h - 1 ? rng.below(2) : 0;
            s.insert(s.end(), {0, 2, BYTE(n), BYTE(up)}), x += n, line += up;
        } else if (op == 3 && n >= 3) {  // absolute, padded to 16 bits
            const std::size_t bytes = depth == 8 ? n : (n + 1) / 2, at = s.size() + 2;
            s.insert(s.end(), {0, BYTE(n)});
            for (std::size_t k = 0; k < bytes + bytes % 2; ++k) s.push_back(rng.byte());
            for (int k = 0; k < n; ++k) set(nibble(s[at + (depth == 8 ? k : k / 2)], k));
        } else {  // encoded run
            const BYTE v = rng.byte();
            s.insert(s.end(), {BYTE(n), v});
            for (int k = 0; k < n; ++k) set(nibble(v, k));
        }
    }
    s.insert(s.end(), {0, 1});
    return s;
}
}  // namespace

TEST(DibReader, RunLengthDataMatchesThePlainReference) {
    kivtest::Rng rng(3);
    for (unsigned depth : {4u, 8u})
        for (int w : {1, 6, 7, 300})
            for (int seed = 0; seed < 16; ++seed) {
                const int h = 4;
                const Form f{40, depth, depth == 8 ? 1u : 2u, {}, depth == 8 ? 200u : 0u, false};
                Bytes tab(4 * (f.used ? f.used : 16));
                for (auto& c : tab) c = rng.byte();
                std::vector<int> grid(std::size_t(w) * h, -1);
                const Bytes rows = rle_stream(depth, w, h, seed & 1, rng, grid);
                const bool full = std::count(grid.begin(), grid.end(), -1) == 0;
                kiv want(w, h, 32);
                for (int i = 0; i < want.packets(); ++i)
                    if (grid[i] >= 0) want.pixels()[i] = meaning(f, grid[i], tab, 4), want.pixels()[i].a = full ? BYTE(grid[i]) : 255;
                kiv got = read(build(f, w, h, tab, rows, seed & 2), seed & 2);
                expect_image(got, want, full ? int(depth) : 32, f, tab, 4);
            }
}

// Every malformed variant is refused with a reason, the image and the input left as they were.
TEST(DibReader, RefusesMalformedData) {
    const Form f8{40, 8, 0, {}, 0, false}, bf{40, 32, 3, {0xFF0000, 0xFF00, 0xFF, 0}, 0, false}, rle{40, 8, 1, {}, 2, false};
    const Bytes tab(1024, 9), run = {4, 1, 0, 0, 4, 1, 0, 1};
    const Bytes plain = build(f8, 4, 2, tab, Bytes(8, 1), false), masks = build(bf, 4, 2, {}, Bytes(32, 1), false);
    const Bytes coded = build(rle, 4, 2, Bytes(8, 1), run, false), file = build(f8, 4, 2, tab, Bytes(8, 1), true);
    struct Bad {
        const Bytes* base;
        std::function<void(Bytes&)> change;
    };
    const Bad bad[] = {
        {&plain, [](Bytes& b) { b.resize(3); }}, {&plain, [](Bytes& b) { b.resize(30); }}, {&plain, [](Bytes& b) { put(b, 0, 200); }},
        {&plain, [](Bytes& b) { put(b, 4, 0); }}, {&plain, [](Bytes& b) { put(b, 8, 0); }}, {&plain, [](Bytes& b) { put(b, 4, 0x10000), put(b, 8, 0x8000); }},
        {&plain, [](Bytes& b) { put(b, 14, 7, 2); }}, {&plain, [](Bytes& b) { put(b, 16, 4); }}, {&plain, [](Bytes& b) { put(b, 16, 9); }},
        {&plain, [](Bytes& b) { put(b, 16, 2); }}, {&plain, [](Bytes& b) { put(b, 16, 3); }}, {&plain, [](Bytes& b) { put(b, 32, 0x40000000); }},
        {&plain, [](Bytes& b) { b.pop_back(); }}, {&plain, [](Bytes& b) { put(b, 0, 20), put(b, 16, 3); }},
        {&masks, [](Bytes& b) { put(b, 40, 0xFF00FF); }}, {&masks, [](Bytes& b) { put(b, 40, 0xFFFF00); }}, {&masks, [](Bytes& b) { b.resize(48); }},
        {&coded, [](Bytes& b) { b[b.size() - 8] = 5; }}, {&coded, [](Bytes& b) { b.insert(b.end() - 2, {0, 0, 1, 1}); }}, {&coded, [](Bytes& b) { b.resize(b.size() - 1); }},
        {&coded, [](Bytes& b) { b.resize(b.size() - 2), b.insert(b.end(), {0, 5, 1, 1}); }}, {&coded, [](Bytes& b) { b.insert(b.end() - 2, {0, 2, 3}); b.resize(b.size() - 2); }},
        {&file, [](Bytes& b) { b[1] = 'A'; }}, {&file, [](Bytes& b) { put(b, 10, 20); }}, {&file, [](Bytes& b) { put(b, 10, 0x7FFFFFFF); }}};
    for (const Bad& c : bad) {
        SCOPED_TRACE(&c - bad);
        Bytes b = *c.base;
        c.change(b);
        kiv img = kivtest::random_image(3, 2, 24, 1), keep(img);
        HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, b.size());
        std::memcpy(GlobalLock(h), b.data(), b.size());
        GlobalUnlock(h);
        const char* why = nullptr;
        EXPECT_EQ(c.base == &file ? img.loadbmp_bytes(b.data(), b.size(), &why) : img.attachdib_any(h, &why), 0);
        EXPECT_NE(why, nullptr);
        EXPECT_TRUE(kivtest::images_equal(img, keep) && img.bits() == 24);
        EXPECT_EQ(std::memcmp(GlobalLock(h), b.data(), b.size()), 0) << "the block changed";
        GlobalUnlock(h);
        GlobalFree(h);
    }
}

// The V5 writer: read back exactly (straight alpha), premultiplied by the rounded product,
// opaque below 32 bits; the same through a BMP file.
TEST(DibWriter, AlphaDibsReadBack) {
    for (int bits : {8, 24, 32}) {
        kiv img = kivtest::random_image(7, 3, bits, 5);
        for (int premultiplied : {0, 1}) {
            HGLOBAL dib = img.createdib_alpha(premultiplied);
            ASSERT_NE(dib, nullptr);
            kiv back;
            ASSERT_EQ(back.attachdib_any(dib, nullptr), 1);
            GlobalFree(dib);
            for (int i = 0; i < img.packets(); ++i) {
                const tagRGBA p = img.pixels()[i], q = back.pixels()[i];
                const int a = bits == 32 ? p.a : 255;
                auto mul = [&](int c) { return premultiplied ? int(std::lround(c * a / 255.0)) : c; };
                ASSERT_TRUE(q.r == mul(p.r) && q.g == mul(p.g) && q.b == mul(p.b) && q.a == a) << i << kivtest::rgba_str(q);
            }
        }
    }
    kivtest::ScratchDir dir("kivdib_");
    kiv img = kivtest::random_image(5, 4, 32, 2), back, empty;
    const char* why = "unset";
    ASSERT_EQ(img.savebmp_alpha(dir("a.bmp").c_str(), 0, &why), 1);
    EXPECT_EQ(why, nullptr);
    ASSERT_EQ(back.loadbmp(dir("a.bmp").c_str(), &why), 1);
    EXPECT_TRUE(kivtest::images_equal(img, back));
    EXPECT_EQ(empty.savebmp_alpha(dir("b.bmp").c_str(), 0, &why), 0);
    EXPECT_EQ(img.savebmp_alpha(dir("no/such/dir.bmp").c_str(), 0, &why), 0);
    EXPECT_EQ(dir.files(), std::vector<std::string>{"a.bmp"});
}
