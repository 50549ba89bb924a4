// Every public member and free function with arguments a careless or hostile host might
// pass: null pointers, rectangles outside the image, zero, negative and extreme sizes,
// NaN and infinite reals, modes and indexes out of range.  Each call must give its
// documented result, leave a valid image and, when it refuses, leave the image untouched.
// The family tests leave refusals to this table.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "support/checks.h"
#include "support/image_check.h"
#include "support/test_images.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// A row's outcome is one letter per subject (the empty object, a 1x1 24-bit and a 1x1 8-bit
// image):  R  0 and the image byte for byte as before (a refusal; void members give 0)
//          1  1, image kept       k  any result, image kept     E  0, the object left empty
//          D  1, image valid      v  0, image valid             a  any result, image valid
constexpr const char* kOutcomes = "R1kEDva";

struct Case {
    std::string name;
    std::function<long long(kiv&)> call;
    std::string codes;
};
using Table = std::vector<Case>;

// Rectangles the clipping must reject, and one covering far more than the image.
tagRECT far_rect() { return tagRECT{1000000, 1000000, 2000000, 2000000}; }
tagRECT neg_rect() { return tagRECT{-10, -10, -5, -5}; }
tagRECT huge_rect() { return tagRECT{INT_MIN, INT_MIN, INT_MAX, INT_MAX}; }
template <class T>
std::string sp(T v) { return " " + std::to_string(v); }

// The subjects: an empty object and 1x1 images at 24 bits and palettized at 8 bits.
kiv subject(int which) {
    kiv img;
    if (which == 1) {
        img.create(1, 1, 24);
        img.m_pixels[0] = tagRGBA{10, 200, 30, 40};
    } else if (which == 2) {
        img.create(1, 1, 8);
        for (int i = 0; i < 256; ++i) img.m_map[i] = tagRGBA{BYTE(i), BYTE(255 - i), BYTE(i * 3), 0};
        img.m_pixels[0] = img.m_map[5];
        img.m_pixels[0].a = 5;
    }
    return img;
}

void run(const Table& t, bool host_map = false) {
    static const char* kSubject[] = {"empty", "1x1 24-bit", "1x1 8-bit"};
    for (const Case& c : t) {
        ASSERT_EQ(c.codes.size(), 3u) << c.name;
        for (int s = 0; s < 3; ++s) {
            SCOPED_TRACE(c.name + " on the " + kSubject[s] + " image");
            const char e = c.codes[static_cast<std::size_t>(s)];
            ASSERT_NE(std::strchr(kOutcomes, e), nullptr) << "unknown outcome letter";
            kiv img = subject(s);
            const kivtest::Snapshot before(img);
            const long long got = c.call(img);
            if (std::strchr("RvE", e)) {
                EXPECT_EQ(got, 0);
            } else if (std::strchr("1D", e)) {
                EXPECT_EQ(got, 1);
            }
            EXPECT_EQ(kivtest::image_violation(img, !host_map), "");
            if (std::strchr("R1k", e)) {
                EXPECT_TRUE(kivtest::Snapshot(img) == before) << "a refused call changed the image";
            }
            if (e == 'E' || s == 0) {
                EXPECT_EQ(img.m_pixels, nullptr) << "an empty image gained pixels, or a failed rebuild kept them";
            }
        }
    }
}

// A member taking a rectangle, with parameters it accepts: rectangles outside the image are
// refused, a rectangle enclosing everything is clipped to the whole image.  pal_ignores_rect:
// the palettized path works on the colour map whatever the rectangle.
void rect_rows(Table& t, const std::string& name, std::function<long long(kiv&, tagRECT*)> f, bool pal_ignores_rect) {
    const char* outside = pal_ignores_rect ? "RRa" : "RRR";
    for (auto [what, r] : {std::pair{" far rect", far_rect()}, std::pair{" negative rect", neg_rect()}})
        t.push_back({name + what, [f, r](kiv& im) mutable { return f(im, &r); }, outside});
    t.push_back({name + " INT_MIN..INT_MAX rect", [f](kiv& im) { tagRECT r = huge_rect(); return f(im, &r); }, "RDD"});
}

// One row: name, outcome letters, the call (on im, captured by value: run after the table is built).
#define ROW(N_, C_, ...) t.push_back({N_, [=](kiv& im) mutable -> long long { (void)im; return static_cast<long long>(__VA_ARGS__); }, C_})
#define VROW(N_, C_, ...) ROW(N_, C_, ((__VA_ARGS__), 0))
#define RECTS(N_, PAL_, ...) rect_rows(t, N_, [](kiv& im, tagRECT* r) -> long long { return __VA_ARGS__; }, PAL_)

}  // namespace

// clang-format off
TEST(BadInput, Lifecycle) {
    Table t;
    struct Size { int w, h, bits; };
    for (Size s : {Size{0, 1, 24}, Size{1, 0, 24}, Size{-1, 1, 24}, Size{1, INT_MIN, 8}, Size{INT_MAX, INT_MAX, 24},
                   Size{65536, 32768, 24}, Size{1, 1, 0}, Size{1, 1, 33}, Size{1, 1, -8}, Size{INT_MIN, INT_MIN, INT_MIN}}) {
        const std::string d = sp(s.w) + "x" + std::to_string(s.h) + "x" + std::to_string(s.bits);
        ROW("create" + d, "EEE", im.create(s.w, s.h, s.bits));
        ROW("create_width_mapfile" + d, "EEE", im.create_width_mapfile(s.w, s.h, s.bits));
        ROW("constructor" + d, "RRR", kiv(s.w, s.h, s.bits).pixels() != nullptr);
    }
    ROW("copyto null", "RRR", im.copyto(nullptr));
    ROW("copyfrom null", "RRR", im.copyfrom(nullptr));
    ROW("movefrom null", "RRR", im.movefrom(nullptr));
    ROW("copyto self", "k11", im.copyto(&im));
    ROW("movefrom self", "111", im.movefrom(&im));
    ROW("copyfrom self", "k11", im.copyfrom(&im));
    ROW("copyfrom an empty image", "EEE", [&] { kiv e; return im.copyfrom(&e); }());
    ROW("copyto an empty image keeps the source", "111", [&] { kiv d; return im.copyto(&d) == (im.pixels() != nullptr); }());
    VROW("destroy twice", "EEE", (im.destroy(), im.destroy()));
    run(t);
}

TEST(BadInput, AccessorsAndRectangles) {
    Table t;
    ROW("validaterect null, null", "111", im.validaterect(nullptr, nullptr));
    ROW("validaterect far", "RRR", [&] { tagRECT r = far_rect(), o; return im.validaterect(&r, &o); }());
    ROW("validaterect negative", "RRR", [&] { tagRECT r = neg_rect(); return im.validaterect(&r, nullptr); }());
    ROW("validaterect huge clips to the image", "R11", [&] { tagRECT r = huge_rect(), o; return im.validaterect(&r, &o) && o.left == 0 && o.top == 0 && o.right == im.width() && o.bottom == im.height(); }());
    // pos does no bounds check by contract: only the arithmetic must be safe.
    VROW("pos extreme", "RRR", (void)im.pos(INT_MAX, INT_MIN), (void)im.pos(INT_MIN, INT_MAX));
    VROW("accessors", "RRR", (void)(im.width() + im.height() + im.bits() + im.colors() + im.packets() + (im.map() == im.pixels())));
    run(t);
}

TEST(BadInput, PixelAccess) {
    Table t;
    struct Pos { int x, y, n; };
    // Each position/count either misses the 1x1 image or covers its one pixel.
    for (Pos p : {Pos{0, 0, INT_MAX}, Pos{-1, -1, 3}, Pos{INT_MIN, 0, INT_MAX}, Pos{INT_MAX, INT_MAX, INT_MAX}, Pos{0, 0, -5},
                  Pos{0, 0, 0}, Pos{-2, 0, INT_MIN}, Pos{1, 0, 1}, Pos{0, INT_MIN, INT_MAX}}) {
        const std::string at = " at " + std::to_string(p.x) + "," + std::to_string(p.y) + " n " + std::to_string(p.n);
        // Block buffers are packed at the clipped width w' = min(n, width - x): the one pixel
        // of a 1x1 image lands at element (-y) w' + (-x) when the block covers it.
        const long long wc = std::min<long long>(p.n, 1 - static_cast<long long>(p.x));
        const bool covers = p.x <= 0 && p.y <= 0 && static_cast<long long>(p.x) + p.n > 0 && static_cast<long long>(p.y) + p.n > 0;
        const std::size_t block = covers ? static_cast<std::size_t>(-static_cast<long long>(p.y) * wc - p.x + 1) : 0;
        // Reads leave the image alone and write at most `allowed` bytes of the buffer; writes
        // only read it, and the image may change only in its one pixel.
        auto io = [&t, at](const std::string& name, std::size_t allowed, std::function<void(kiv&, unsigned char*)> f) {
            const bool write = name.compare(0, 3, "set") == 0;
            t.push_back({name + at, [f, allowed](kiv& im) -> long long { kivtest::Guarded g; f(im, g.at()); return g.intact(allowed) ? 1 : 0; }, write ? "1DD" : "111"});
        };
        auto q = [](unsigned char* b) { return reinterpret_cast<tagRGBA*>(b); };
        io("getcol", 4, [p, q](kiv& im, unsigned char* b) { im.getcol(q(b), p.x, p.y, p.n); });
        io("getrow", 4, [p, q](kiv& im, unsigned char* b) { im.getrow(q(b), p.x, p.y, p.n); });
        io("getcol_rgb", 3, [p](kiv& im, unsigned char* b) { im.getcol_rgb(b, p.x, p.y, p.n); });
        io("getrow_rgb", 3, [p](kiv& im, unsigned char* b) { im.getrow_rgb(b, p.x, p.y, p.n); });
        io("getpacket", 4 * block, [p, q](kiv& im, unsigned char* b) { im.getpacket(q(b), p.x, p.y, p.n, p.n); });
        for (int plane : {-1, 0, 3, 4, INT_MAX}) io("getplane" + sp(plane), block, [p, plane](kiv& im, unsigned char* b) { im.getplane(b, p.x, p.y, p.n, p.n, plane); });
        io("setcol", 0, [p, q](kiv& im, unsigned char* b) { im.setcol(q(b), p.x, p.y, p.n); });
        io("setrow", 0, [p, q](kiv& im, unsigned char* b) { im.setrow(q(b), p.x, p.y, p.n); });
        io("setcol_rgb", 0, [p](kiv& im, unsigned char* b) { im.setcol_rgb(b, p.x, p.y, p.n); });
        io("setrow_rgb", 0, [p](kiv& im, unsigned char* b) { im.setrow_rgb(b, p.x, p.y, p.n); });
        io("setpacket", 0, [p, q](kiv& im, unsigned char* b) { im.setpacket(q(b), p.x, p.y, p.n, p.n); });
        for (int plane : {-1, 2, 4, INT_MIN}) io("setplane" + sp(plane), 0, [p, plane](kiv& im, unsigned char* b) { im.setplane(b, p.x, p.y, p.n, p.n, plane); });
    }
    // Null buffers: nothing to copy from or to.
    VROW("null buffers", "RRR", im.getcol(nullptr, 0, 0, 1), im.setcol(nullptr, 0, 0, 1), im.getrow(nullptr, 0, 0, 1), im.setrow(nullptr, 0, 0, 1),
         im.getcol_rgb(nullptr, 0, 0, 1), im.setcol_rgb(nullptr, 0, 0, 1), im.getrow_rgb(nullptr, 0, 0, 1), im.setrow_rgb(nullptr, 0, 0, 1),
         im.getpacket(nullptr, 0, 0, 1, 1), im.setpacket(nullptr, 0, 0, 1, 1), im.getplane(nullptr, 0, 0, 1, 1, 0), im.setplane(nullptr, 0, 0, 1, 1, 0));
    for (int s : {-1, 4, INT_MIN, INT_MAX}) VROW("copyplane" + sp(s), "RRR", im.copyplane(s, 0), im.copyplane(0, s));
    run(t);
}

TEST(BadInput, ThreadsProgressAndBlt) {
    Table t;
    ROW("setthreads INT_MIN counts as 0", "RRR", [] { const int old = kiv::getthreads(); kiv::setthreads(INT_MIN); const int got = kiv::getthreads(); kiv::setthreads(old); return got; }());
    VROW("progress without a callback", "RRR", im.progress_init(INT_MIN), im.progress_continue(), im.progress_term(), im.progress_reset());
    VROW("blt null source", "RRR", im.blt(0, 0, 1, 1, static_cast<kiv*>(nullptr), 0, 0));
    VROW("blt null DIB", "RRR", im.blt(0, 0, 1, 1, static_cast<void*>(nullptr), 0, 0));
    VROW("blt null literal", "RRR", im.blt(0, 0, 1, 1, nullptr, 0, 0));
    VROW("blt empty source", "RRR", [&] { kiv e; im.blt(0, 0, 1, 1, &e, 0, 0); }());
    struct B { int x, y, w, h, sx, sy; };
    for (B b : {B{0, 0, INT_MAX, INT_MAX, 0, 0}, B{INT_MIN, INT_MIN, INT_MAX, INT_MAX, INT_MAX, INT_MAX}, B{INT_MAX, 0, INT_MAX, 1, 0, 0},
                B{0, 0, -1, -1, 0, 0}, B{0, 0, INT_MIN, INT_MIN, INT_MIN, INT_MIN}, B{-1, -1, 2, 2, -1, -1}, B{0, 0, 1, 1, INT_MIN, INT_MAX}}) {
        const std::string n = sp(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w) + "x" + std::to_string(b.h) + " from " + std::to_string(b.sx) + "," + std::to_string(b.sy);
        VROW("blt self" + n, "Rvv", im.blt(b.x, b.y, b.w, b.h, &im, b.sx, b.sy));
        VROW("blt from 3x2" + n, "Rvv", [&] { kiv src = kivtest::random_image(3, 2, 24, 7); im.blt(b.x, b.y, b.w, b.h, &src, b.sx, b.sy); }());
        VROW("blt from a DIB" + n, "Rvv", [&] { kiv src = kivtest::random_image(3, 2, 24, 7); void* dib = src.createdib(); im.blt(b.x, b.y, b.w, b.h, dib, b.sx, b.sy); GlobalFree(dib); }());
    }
    run(t);
}

TEST(BadInput, ColourMapAndPalette) {
    Table t;
    ROW("createlogpalette", "111", [&] { tagLOGPALETTE* lp = im.createlogpalette(); const bool ok = (lp != nullptr) == (im.map() != nullptr && im.colors() > 0); kiv::free_gradtable(lp); return ok; }());
    VROW("free_gradtable null", "RRR", kiv::free_gradtable(nullptr));
    for (int n : {INT_MIN, -1, 0, 3, 9, INT_MAX}) VROW("increasecolor" + sp(n), "Rvv", im.increasecolor(n));
    VROW("validate_rgb", "RRR", im.validate_rgb());
    VROW("grayscale", "Rvv", im.grayscale());
    ROW("countcolors", "R11", im.countcolors());
    for (int cs : {-1, 7, INT_MAX, INT_MIN}) {
        ROW("convert_colorspace" + sp(cs), "RRR", im.convert_colorspace(nullptr, cs));
        ROW("convert_rgb" + sp(cs), "RRR", im.convert_rgb(nullptr, cs));
    }
    RECTS("convert_colorspace", false, im.convert_colorspace(r, KIV_CS_LAB));
    RECTS("convert_rgb", false, im.convert_rgb(r, KIV_CS_YIQ));
    run(t);

    // The host may leave a palettized image without a map; every palette path copes.
    Table m;
    for (int n : {INT_MIN, -3, 0}) {
        auto mapless = [&m, n](const std::string& name, const char* codes, std::function<long long(kiv&)> f) {
            m.push_back({"alloccmap" + sp(n) + ", then " + name, [n, f](kiv& im) -> long long { im.alloccmap(n); return im.colors() != n || im.map() ? -1 : f(im); }, codes});
        };
        mapless("validate_rgb", "vvv", [](kiv& im) { im.validate_rgb(); return 0LL; });
        mapless("createlogpalette", "vvv", [](kiv& im) { return im.createlogpalette() == nullptr ? 0LL : 1LL; });
        mapless("createdib", "DDD", [](kiv& im) { void* d = im.createdib(); kiv back; const long long ok = d ? back.attachdib(d) : (im.pixels() ? 0 : 1); GlobalFree(d); return ok; });
        mapless("countcolors", "vDD", [](kiv& im) { return static_cast<long long>(im.countcolors()); });
        mapless("point adjustments", "aaa", [](kiv& im) {
            tagKIV_COLORBALANCE cb{{10, 0, 0}, {0, 5, 0}, {0, 0, -5}, 1};
            return im.bright_contrast(nullptr, 5, 5) + im.gamma(nullptr, 2.0) + im.adjust_rgb(nullptr, 5, 5, 5) + im.modulate(nullptr, 5, 5, 5) +
                   im.hue_saturation(nullptr, 0, 5, 5, 5) + im.desaturate(nullptr) + im.posterize(nullptr, 3) + im.colorbalance(nullptr, &cb) +
                   im.autocontrast(nullptr) + im.equalize(nullptr) + im.autocolorenhance(nullptr) + (im.negative(nullptr), im.invertrect(nullptr), 0);
        });
        mapless("quantize and zoom", "aaa", [](kiv& im) { im.quantize(1, 4, nullptr); return im.zoom_pixel(2, 3) + im.zoom(3, 2, 10, 0) + im.crop(nullptr); });
    }
    run(m, /*host_map=*/true);
}

TEST(BadInput, DibInterchange) {
    Table t;
    ROW("attachdib null", "RRR", im.attachdib(nullptr));
    ROW("attachdib_width_mapfile null", "RRR", im.attachdib_width_mapfile(nullptr));
    ROW("constructor from null DIB", "RRR", kiv(static_cast<void*>(nullptr)).pixels() != nullptr);
#ifndef _WIN32
    // Only the portable global memory promises to refuse a handle it never gave out.
    ROW("attachdib unknown handle", "RRR", [&] { int local = 0; return im.attachdib(&local) + im.attachdib_any(&local, nullptr); }());
#endif
    // A header-only block whose header claims far more rows than it holds.
    ROW("attachdib truncated", "RRR", [&] {
        kiv src = kivtest::random_image(4, 4, 24, 3);
        HGLOBAL d = static_cast<HGLOBAL>(src.createdib()), small = GlobalAlloc(GMEM_MOVEABLE, 60);
        std::memcpy(GlobalLock(small), GlobalLock(d), 60);
        GlobalUnlock(small), GlobalUnlock(d), GlobalFree(d);
        const int r = im.attachdib(small);
        GlobalFree(small);
        return r;
    }());
    // The full reader where the table's walk does not reach: null data of any size, no file.
    ROW("full reader null data, no file", "RRR", im.attachdib_any_bytes(nullptr, SIZE_MAX, nullptr) + im.loadbmp_bytes(nullptr, 0, nullptr) + im.loadbmp("", nullptr) + im.loadbmp("none.bmp", nullptr));
    ROW("attachdib32 null", "RRR", im.attachdib32(1, 1, nullptr));
    for (int w : {0, -1, INT_MIN, INT_MAX}) ROW("attachdib32 width" + sp(w), "EEE", [&] { tagRGBA buf[4] = {}; return im.attachdib32(w, w == INT_MAX ? INT_MAX : 1, buf); }());
    ROW("createdib round trip", "R11", [&] {
        void* d = im.createdib();
        if (!d) return im.pixels() ? -1 : 0;
        kiv back;
        const int ok = back.attachdib(d);
        GlobalFree(d);
        if (!ok || back.width() != im.width() || back.height() != im.height()) return -1;
        const tagRGBA p = im.pixels()[0], q = back.pixels()[0];
        // 24 bits carry no alpha; palettized pixels carry their index.
        return p.r == q.r && p.g == q.g && p.b == q.b && (im.bits() == 24 || p.a == q.a) ? 1 : -1;
    }());
    run(t);
}

TEST(BadInput, Quantization) {
    Table t;
    for (int mode : {-1, 5, INT_MAX, INT_MIN}) {
        VROW("quantize mode" + sp(mode), "RRR", im.quantize(mode, 16, nullptr));
        ROW("quantize_wdp mode" + sp(mode), "RRR", im.quantize_wdp(mode, 0));
    }
    for (int colors : {0, -1, 257, INT_MAX, INT_MIN}) VROW("quantize colors" + sp(colors), "RRR", im.quantize(1, colors, nullptr));
    for (int which : {-1, 9, INT_MAX, INT_MIN}) ROW("quantize_wdp which" + sp(which), "RRR", im.quantize_wdp(0, which));
    for (int n : {0, -1, 257, INT_MIN}) VROW("quantize_wpal n" + sp(n), "RRR", [&] { tagSYSCOL cols[2] = {{1, 2, 3}, {4, 5, 6}}; im.quantize_wpal(0, cols, n); }());
    VROW("quantize_wpal null", "RRR", im.quantize_wpal(0, nullptr, 4));
    for (int entries : {0, 257, 65535})
        VROW("quantize palette of" + sp(entries), "RRR", [&] {
            std::vector<unsigned char> mem(sizeof(tagLOGPALETTE) + 4 * 65536, 7);
            auto* pal = reinterpret_cast<tagLOGPALETTE*>(mem.data());
            pal->palVersion = 0x300;
            pal->palNumEntries = static_cast<WORD>(entries);
            im.quantize(0, 1, pal);
        }());
    run(t);
}

TEST(BadInput, FillsAndGradients) {
    Table t;
    COLORREF cols[16] = {0xFFFFFFFF, 0, 0x00FF00, 0xFFFFFFFF};
    tagGRADCOLORS stops[3] = {{0xFFFFFFFF, -5}, {0x123456, 2000}, {0, INT_MIN}};
    struct Box { int x, y, w, h; };
    // Refusals before anything happens: the image stays as it is.
    for (Box b : {Box{0, 0, 0, 1}, Box{0, 0, 1, -1}, Box{0, 0, INT_MIN, INT_MIN}}) {
        const std::string n = sp(b.w) + "x" + std::to_string(b.h);
        ROW("solidfill" + n, "RRR", im.solidfill(b.x, b.y, b.w, b.h, 0xFFFFFFFF, 255, 0));
        ROW("shadefill" + n, "RRR", im.shadefill(b.x, b.y, b.w, b.h, cols, 4, 0, 255, 0));
        ROW("gradientfill" + n, "RRR", im.gradientfill(b.x, b.y, b.w, b.h, stops, 2, 0, 255, 0));
    }
    for (int op : {0, INT_MIN, -1}) {
        ROW("solidfill op" + sp(op), op == 0 ? "RRR" : "RRa", im.solidfill(0, 0, 1, 1, 0xFFFFFFFF, op, 0));
        ROW("fillsolidrect op" + sp(op), op == 0 ? "RRR" : "RRa", im.fillsolidrect(nullptr, 0xFFFFFFFF, op));
    }
    ROW("shadefill null colours", "RRR", im.shadefill(nullptr, nullptr, 4, 0, 255, 0));
    for (int n : {0, 17, -1, INT_MAX}) ROW("shadefill n" + sp(n), "RRR", im.shadefill(nullptr, cols, n, 0, 255, 0));
    ROW("gradientfill null stops", "RRR", im.gradientfill(nullptr, nullptr, 2, 0, 255, 0));
    for (int n : {0, -1, INT_MIN}) ROW("gradientfill n" + sp(n), "RRR", im.gradientfill(nullptr, stops, n, 0, 255, 0));
    // Refusals after the depth is raised: 24-bit images keep everything.
    for (int dir : {-1, 8, INT_MAX}) {
        ROW("shadefill dir" + sp(dir), "RRv", im.fillshaderect(nullptr, cols, 4, dir, 255));
        ROW("gradientfill dir" + sp(dir), "RRv", im.fillgradientrect(nullptr, stops, 3, dir, 255));
    }
    // INT_MIN + INT_MAX ends at -1: still left of and above the image.
    for (Box b : {Box{1000000, 0, 5, 5}, Box{-10, -10, 5, 5}, Box{INT_MAX, INT_MAX, INT_MAX, INT_MAX}, Box{INT_MIN, INT_MIN, 5, 5}, Box{INT_MIN, INT_MIN, INT_MAX, INT_MAX}}) {
        const std::string n = " box at " + std::to_string(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w);
        ROW("solidfill" + n, "RRv", im.fillsolidrect(b.x, b.y, b.w, b.h, 0xFFFFFFFF, 255));
        ROW("shadefill" + n, "RRv", im.fillshaderect(b.x, b.y, b.w, b.h, cols, 16, 7, 255));
        ROW("gradientfill" + n, "RRv", im.fillgradientrect(b.x, b.y, b.w, b.h, stops, 3, 7, 255));
    }
    // Boxes reaching past every edge, odd stops, modes out of range: drawn, clipped.
    for (Box b : {Box{-5, -5, INT_MAX, INT_MAX}, Box{0, 0, INT_MAX, INT_MAX}, Box{-1, -1, INT_MAX, 3}}) {
        const std::string n = " box " + std::to_string(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w);
        ROW("solidfill mode 99" + n, "RDD", im.solidfill(b.x, b.y, b.w, b.h, 0xFFFFFFFF, INT_MAX, 99));
        ROW("shadefill mode -1" + n, "RDD", im.shadefill(b.x, b.y, b.w, b.h, cols, 16, 4, 300, -1));
        ROW("gradientfill unsorted stops" + n, "RDD", im.gradientfill(b.x, b.y, b.w, b.h, stops, 3, 3, 255, INT_MIN));
    }
    // The depth is raised before the box is clipped.
    RECTS("fillsolidrect", true, im.fillsolidrect(r, 0x808080, 128));
    for (int n : {0, -1, INT_MIN}) ROW("make_gradtable n" + sp(n), "RRR", kiv::make_gradtable(stops, n, 10) != nullptr);
    ROW("make_gradtable size 0", "111", [&] { tagLOGPALETTE* g = kiv::make_gradtable(stops, 3, 0); const bool ok = g && g->palNumEntries == 0; kiv::free_gradtable(g); return ok; }());
    for (int size : {-1, 65536, INT_MAX, INT_MIN}) ROW("make_gradtable size" + sp(size), "RRR", kiv::make_gradtable(stops, 3, size) != nullptr);
    ROW("make_gradtable null", "RRR", kiv::make_gradtable(nullptr, 3, 10) != nullptr);
    ROW("make_gradtable odd stops", "111", [&] { tagLOGPALETTE* g = kiv::make_gradtable(stops, 3, 65535); const bool ok = g && g->palNumEntries == 65535; kiv::free_gradtable(g); return ok; }());
    ROW("settoalpha", "RDD", im.settoalpha());
    // A negative width trims; nothing may be left of the image.
    ROW("addborder trim", "RDD", im.addborder(1, -1, 2, -1, 0xFFFFFFFF));
    ROW("addborder trim all", "RRR", im.addborder(1, -2, 0, 0, 0xFFFFFFFF));
    ROW("addborder INT_MIN", "RRR", im.addborder(1, INT_MIN, 1, 1, 0xFFFFFFFF));
    ROW("addborder INT_MAX", "RRR", im.addborder(INT_MAX, INT_MAX, 0, 0, 0));
    ROW("addborder too many pixels", "RRR", im.addborder(0, 65535, 0, 65535, 0));
    ROW("addborder none", "RDD", im.addborder(0, 0, 0, 0, 0xFFFFFFFF));
    run(t);
}

TEST(BadInput, ResamplingOrientationLayout) {
    Table t;
    RECTS("crop", false, im.crop(r));
    struct Size { int w, h; };
    for (Size s : {Size{0, 1}, Size{1, 0}, Size{-1, -1}, Size{INT_MIN, 5}}) {
        const std::string n = sp(s.w) + "x" + std::to_string(s.h);
        ROW("zoom" + n, "RRR", im.zoom(s.w, s.h, 10, 0));
        ROW("zoom_pixel" + n, "RRR", im.zoom_pixel(s.w, s.h));
        ROW("zoom_near" + n, "RRR", im.zoom_near(s.w, s.h));
        ROW("zoom_linear" + n, "RRR", im.zoom_linear(s.w, s.h));
        ROW("zoom_inframe" + n, "RRR", im.zoom_inframe(s.w, s.h));
    }
    // Too large to hold: refused, not attempted.
    for (Size s : {Size{INT_MAX, INT_MAX}, Size{65536, 32768}}) {
        const std::string n = sp(s.w) + "x" + std::to_string(s.h);
        ROW("zoom" + n, "RRR", im.zoom(s.w, s.h, 0, 0));
        ROW("zoom mapped" + n, "RRR", im.zoom(s.w, s.h, 0, 1));
        ROW("zoom_pixel" + n, "RRR", im.zoom_pixel(s.w, s.h));
        ROW("zoom_near" + n, "RRR", im.zoom_near(s.w, s.h));
        ROW("zoom_linear" + n, "RRR", im.zoom_linear(s.w, s.h));
        ROW("zoom_inframe (fits)" + n, "R11", im.zoom_inframe(s.w, s.h));
    }
    ROW("zoom_linear INT_MAX x 3", "RRR", im.zoom_linear(INT_MAX, 3));
    for (int m : {-1, 14, 15, INT_MAX}) ROW("zoom method" + sp(m), "RRR", im.zoom(2, 2, m, 0));
    ROW("zoom same size", "RRR", im.zoom(1, 1, 0, 0));
    // The weighted members: unknown flags, and alpha weighting of a palettized image (whose
    // fourth byte is an index), are refused.
    for (int f : {-1, 4, INT_MIN, INT_MAX}) {
        ROW("zoom_rgba flags" + sp(f), "RRR", im.zoom_rgba(2, 2, 11, f));
        ROW("rotate_any_rgba flags" + sp(f), "RRR", im.rotate_any_rgba(30, 1, f));
    }
    ROW("zoom_rgba 0x0", "RRR", im.zoom_rgba(0, 0, 11, 3));
    ROW("zoom_rgba too large", "RRR", im.zoom_rgba(65536, 32768, 0, 3));
    ROW("zoom_rgba method 14", "RRR", im.zoom_rgba(2, 2, 14, 1));
    ROW("zoom_rgba palettized alpha", "RDR", im.zoom_rgba(3, 2, 11, 1));
    ROW("rotate_any_rgba NaN", "RRR", im.rotate_any_rgba(kNaN, 1, 1));
    ROW("rotate_any_rgba palettized alpha", "RDR", im.rotate_any_rgba(30, 1, 3));
    ROW("rotate_any_rgba method 2", "RRR", im.rotate_any_rgba(10.0, 2, 1));
    for (int d : {INT_MIN, -1, 0, 7}) VROW("rotate" + sp(d), "Rvv", im.rotate(d));
    struct Box { int x, y, w, h; };
    for (Box b : {Box{1000000, 0, 5, 5}, Box{-10, -10, 5, 5}, Box{INT_MAX, INT_MAX, INT_MAX, INT_MAX}, Box{INT_MIN, INT_MIN, 5, 5},
                  Box{INT_MIN, INT_MIN, INT_MAX, INT_MAX}, Box{INT_MAX, 0, 1, 1}}) {
        const std::string n = sp(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w);
        ROW("rotate180" + n, "RRR", im.rotate180(b.x, b.y, b.w, b.h));
        ROW("mirror" + n, "RRR", im.mirror(b.x, b.y, b.w, b.h));
        ROW("flip" + n, "RRR", im.flip(b.x, b.y, b.w, b.h));
    }
    for (Box b : {Box{-5, -5, INT_MAX, INT_MAX}, Box{0, 0, -5, -5}, Box{-1, -1, INT_MAX, INT_MAX}}) {
        const std::string n = sp(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w);
        ROW("rotate180" + n, "RDD", im.rotate180(b.x, b.y, b.w, b.h));
        ROW("mirror" + n, "RDD", im.mirror(b.x, b.y, b.w, b.h));
        ROW("flip" + n, "RDD", im.flip(b.x, b.y, b.w, b.h));
    }
    for (int d : {INT_MIN, INT_MAX, -1})
        for (int wrap : {0, 1}) ROW("scroll" + sp(d) + " wrap" + sp(wrap), "RDD", im.scroll(d, d, wrap));
    for (int n : {0, -1, INT_MIN}) ROW("tile" + sp(n), "RRR", im.tile(nullptr, n, 1));
    ROW("tile INT_MAX", "RRR", im.tile(nullptr, INT_MAX, 2));
    ROW("tile too many pixels", "RRR", im.tile(nullptr, 65536, 32768));
    RECTS("tile", false, im.tile(r, 1, 2));
    for (int n : {1, 0, -1, INT_MIN, INT_MAX}) ROW("tile_divide" + sp(n), "RRR", im.tile_divide(nullptr, n));
    for (double a : {kNaN, kInf, -kInf}) ROW("rotate_any" + sp(a), "RRR", im.rotate_any(a, 0xFFFFFFFF, 1));
    for (int m : {-1, 2, INT_MAX}) ROW("rotate_any method" + sp(m), "RRR", im.rotate_any(30, 0, m));
    for (double a : {1e300, -1e18, 45.0, 4.9e-324}) ROW("rotate_any" + sp(a), "RDD", im.rotate_any(a, 0xFFFFFFFF, 0));
    run(t);
}

TEST(BadInput, Compositing) {
    Table t;
    ROW("addlayer null", "RRR", im.addlayer(nullptr, 0, 0, 255, 0, 1));
    ROW("merge null", "RRR", im.merge(nullptr, nullptr, 0, 0, 255));
    ROW("fadepaste null", "RRR", im.fadepaste(nullptr, 0, 0, 0, 255, 0));
    ROW("texturefill null", "RRR", im.texturefill(nullptr, nullptr, 255, 0));
    ROW("addlayer empty", "RRR", [&] { kiv e; return im.addlayer(&e, 0, 0, 255, 0, 1); }());
    ROW("merge empty", "RRR", [&] { kiv e; return im.merge(&e, nullptr, 0, 0, 255); }());
    ROW("fadepaste empty", "RRR", [&] { kiv e; return im.fadepaste(&e, 0, 0, 0, 255, 0); }());
    ROW("texturefill empty", "RRR", [&] { kiv e; return im.texturefill(nullptr, &e, 255, 0); }());
    for (int p : {INT_MIN, INT_MAX, 1000000}) {
        ROW("addlayer at" + sp(p), "RRR", im.addlayer(&im, p, p, 255, 0, 0));
        ROW("merge at" + sp(p), "RRR", im.merge(&im, nullptr, p, p, 255));
        ROW("fadepaste at" + sp(p), "RRR", im.fadepaste(&im, p, p, 0, 255, 0));
    }
    for (int op : {0, -5, INT_MIN}) {
        ROW("addlayer opacity" + sp(op), "RRR", im.addlayer(&im, 0, 0, op, 0, 0));
        ROW("merge opacity" + sp(op), "RRR", im.merge(&im, nullptr, 0, 0, op));
        ROW("texturefill opacity" + sp(op), "RRR", im.texturefill(nullptr, &im, op, 0));
    }
    for (int dir : {-1, 8, INT_MAX}) {
        ROW("fadepaste dir" + sp(dir), "RRR", im.fadepaste(&im, 0, 0, 0, 255, dir));
        ROW("fadeinrect dir" + sp(dir), "RRR", im.fadeinrect(nullptr, 0, 0, 255, dir));
    }
    ROW("fadepaste opacities 0, 0", "RRR", im.fadepaste(&im, 0, 0, 0, 0, 4));
    ROW("merge far source rect", "RRR", [&] { tagRECT r = far_rect(); return im.merge(&im, &r, 0, 0, 255); }());
    ROW("merge negative source rect", "RRR", [&] { tagRECT r = neg_rect(); return im.merge(&im, &r, 0, 0, 255); }());
    RECTS("fadeinrect", false, im.fadeinrect(r, 0xFFFFFFFF, INT_MIN, INT_MAX, 7));
    RECTS("texturefill", false, im.texturefill(r, &im, INT_MAX, INT_MAX));
    ROW("addlayer extreme mode", "RDD", im.addlayer(&im, 0, 0, INT_MAX, INT_MIN, 1));
    run(t);
}

TEST(BadInput, PointAndHistogramAdjustments) {
    Table t;
    // Point adjustments on a palettized image map its colour map whatever the rectangle.
    RECTS("bright_contrast", true, im.bright_contrast(r, INT_MAX, INT_MIN));
    RECTS("gamma_rgb", false, im.gamma_rgb(r, 1.5, 1.0, 0.5, 2.0));
    RECTS("adjust_rgb", false, im.adjust_rgb(r, INT_MAX, INT_MIN, 0));
    RECTS("modulate", true, im.modulate(r, INT_MAX, INT_MIN, INT_MAX));
    RECTS("hue_saturation", true, im.hue_saturation(r, 6, INT_MIN, INT_MAX, INT_MIN));
    RECTS("desaturate", true, im.desaturate(r));
    RECTS("posterize", true, im.posterize(r, INT_MIN));
    RECTS("colorify", false, im.colorify(r, 0xFFFFFFFF));
    RECTS("colorbalance", true, [&] { tagKIV_COLORBALANCE cb{{INT_MIN, INT_MAX, 0}, {INT_MAX, 0, INT_MIN}, {0, INT_MIN, INT_MAX}, 1}; return im.colorbalance(r, &cb); }());
    RECTS("colorcut", false, [&] { tagKIV_COLORCUT cc{KIV_CS_HSV, {INT_MAX, 300, 1}}; return im.colorcut(r, &cc); }());
    RECTS("autocontrast", true, im.autocontrast(r));
    RECTS("equalize", true, im.equalize(r));
    RECTS("autocolorenhance", true, im.autocolorenhance(r));
    for (double g : {0.0, -1.0, kNaN, kInf, -kInf, 1e-320, 1e308}) {
        ROW("gamma" + sp(g), "Raa", im.gamma(nullptr, g));
        ROW("gamma_rgb" + sp(g), "Raa", im.gamma_rgb(nullptr, g, 1.0, g, 1.0));
    }
    for (int range : {-1, 7, INT_MAX, INT_MIN}) ROW("hue_saturation range" + sp(range), "RRR", im.hue_saturation(nullptr, range, 10, 10, 10));
    ROW("colorbalance null", "RRR", im.colorbalance(nullptr, nullptr));
    ROW("colorcut null", "RRR", im.colorcut(nullptr, nullptr));
    for (int cs : {-1, 7, INT_MAX}) ROW("colorcut space" + sp(cs), "RRR", [&] { tagKIV_COLORCUT cc{cs, {8, 8, 8}}; return im.colorcut(nullptr, &cc); }());
    ROW("colorcut negative steps", "Raa", [&] { tagKIV_COLORCUT cc{KIV_CS_LAB, {-1, INT_MIN, -255}}; return im.colorcut(nullptr, &cc); }());
    VROW("negative far", "RRv", [&] { tagRECT r = far_rect(); im.negative(&r); }());
    struct Box { int x, y, w, h; };
    for (Box b : {Box{0, 0, 0, 5}, Box{0, 0, 5, -1}, Box{INT_MIN, INT_MIN, INT_MIN, INT_MIN}, Box{1000000, 0, 5, 5}, Box{INT_MAX, INT_MAX, INT_MAX, INT_MAX}})
        VROW("invertrect" + sp(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w) + "x" + std::to_string(b.h), b.w < 1 || b.h < 1 ? "RRR" : "RRv", im.invertrect(b.x, b.y, b.w, b.h));
    VROW("invertrect everything", "Rvv", im.invertrect(INT_MIN, INT_MIN, INT_MAX, INT_MAX));
    // Palettized: the whole map and image are complemented whatever the rectangle.
    VROW("invertrect far rect", "RRv", [&] { tagRECT r = far_rect(); im.invertrect(&r); }());
    // A single luminance level: documented to destroy the image.
    ROW("normalize flat image", "REa", im.normalize(nullptr));
    ROW("normalize far", "RRR", [&] { tagRECT r = far_rect(); return im.normalize(&r); }());
    run(t);
}

TEST(BadInput, BlursKernelsSharpening) {
    Table t;
    RECTS("sharpen", false, im.sharpen(r));
    RECTS("blur", false, im.blur(r, INT_MAX, INT_MAX));
    RECTS("blur_simple", false, im.blur_simple(r, 1000));
    RECTS("blur_gauss_iir", false, im.blur_gauss_iir(r, 1e9, 1e-300));
    RECTS("blur_gauss_rle_plane", false, im.blur_gauss_rle_plane(r, 10000, 0xFFFFFFFFu));
    RECTS("blur_gauss_sel", false, im.blur_gauss_sel(r, 127, INT_MAX));
    RECTS("filter_3x3", false, im.filter_3x3(r, 15));
    RECTS("filter_custom3x3", false, [&] { int k[9] = {INT_MAX, INT_MIN, INT_MAX, INT_MIN, INT_MAX, INT_MIN, INT_MAX, INT_MIN, INT_MAX}; return im.filter_custom3x3(r, k, INT_MIN); }());
    RECTS("filter_sharpen", false, im.filter_sharpen(r, INT_MIN));
    RECTS("filter_soften", false, im.filter_soften(r, INT_MAX));
    RECTS("edge", false, im.edge(r, kNaN));
    RECTS("emboss", false, im.emboss(r, nullptr));
    RECTS("raise_edge", false, im.raise_edge(r, 0));
    RECTS("sharpen2", false, im.sharpen2(r, 1000));
    RECTS("unsharp_mask", false, im.unsharp_mask(r, 1000, 1000, 0));
    RECTS("unsharp_mask2", false, im.unsharp_mask2(r, 1e-9, 0, 255));
    RECTS("enhance", false, im.enhance(r, 1000, 100));
    RECTS("mblur_linear", false, im.mblur_linear(r, -1e300, 1000));
    RECTS("mblur_radial", false, im.mblur_radial(r, 500, -500, 360));
    RECTS("mblur_round", false, im.mblur_round(r, -500, 500, 1000));
    RECTS("mblur_zoom", false, im.mblur_zoom(r, 500, 500, 100));
    RECTS("sblur_wind", false, im.sblur_wind(r, 3, 1000));
    RECTS("sblur_blast", false, im.sblur_blast(r, 0, 1));
    // Centres far outside the image and radii past the documented limit are refused.
    ROW("mblur_radial extreme centre", "RRR", im.mblur_radial(nullptr, INT_MAX, INT_MIN, 360));
    ROW("mblur_round extreme centre", "RRR", im.mblur_round(nullptr, INT_MIN, INT_MAX, 1000));
    ROW("mblur_zoom extreme centre", "RRR", im.mblur_zoom(nullptr, 0, INT_MAX, 100));
    for (int r : {-1, 1000001, INT_MAX, INT_MIN}) ROW("blur_simple" + sp(r), "RRR", im.blur_simple(nullptr, r));
    for (int d : {0, -5, INT_MIN}) ROW("blur both spans below 1" + sp(d), "RRR", im.blur(nullptr, 0, d));
    for (double s : {0.0, -1.0, kNaN, kInf, -kInf}) {
        ROW("blur_gauss_iir sx" + sp(s), "RRR", im.blur_gauss_iir(nullptr, s, 1.0));
        ROW("blur_gauss_iir sy" + sp(s), "RRR", im.blur_gauss_iir(nullptr, 1.0, s));
        ROW("blur_gauss_rle" + sp(s), "RRR", im.blur_gauss_rle(nullptr, s));
        ROW("blur_gauss_rle_plane" + sp(s), "RRR", im.blur_gauss_rle_plane(nullptr, s, 15));
        ROW("unsharp_mask radius" + sp(s), "RRR", im.unsharp_mask(nullptr, s, 100, 0));
        ROW("unsharp_mask2 radius" + sp(s), "RRR", im.unsharp_mask2(nullptr, s, 100, 0));
    }
    for (int f : {-1, 4, INT_MIN}) {
        ROW("blur_gauss_rgba flags" + sp(f), "RRR", im.blur_gauss_rgba(nullptr, 1, 1, f));
        ROW("unsharp_mask_rgba flags" + sp(f), "RRR", im.unsharp_mask_rgba(nullptr, 1, 100, 0, f));
    }
    ROW("blur_gauss_rgba sigma NaN", "RRR", im.blur_gauss_rgba(nullptr, kNaN, 1, 3));
    ROW("unsharp_mask_rgba amount", "RRR", im.unsharp_mask_rgba(nullptr, 2, 1001, 0, 1));
    ROW("blur_gauss_rgba palettized alpha", "RDR", im.blur_gauss_rgba(nullptr, 1, 1, 1));
    ROW("unsharp_mask_rgba palettized alpha", "RDR", im.unsharp_mask_rgba(nullptr, 1.0, 100, 0, KIV_FILTER_ALPHA));
    RECTS("blur_gauss_rgba", false, im.blur_gauss_rgba(r, 1e9, 1e-300, 2));
    RECTS("unsharp_mask_rgba", false, im.unsharp_mask_rgba(r, 1000, 1000, 0, 2));
    ROW("blur_gauss_rle 10000.5", "RRR", im.blur_gauss_rle_plane(nullptr, 10000.5, 7));
    ROW("blur_gauss_rle 1e9", "RRR", im.blur_gauss_rle(nullptr, 1e9));
    ROW("blur_gauss_rle 1e-200 (no taps, total 0)", "RRR", im.blur_gauss_rle(nullptr, 1e-200));
    ROW("unsharp_mask radius 1e9", "RRR", im.unsharp_mask(nullptr, 1e9, 100, 0));
    ROW("unsharp_mask2 radius 1e9", "RRR", im.unsharp_mask2(nullptr, 1e9, 100, 0));
    ROW("mblur_zoom centre -INT_MAX", "RRR", im.mblur_zoom(nullptr, 0, -INT_MAX, 50));
    ROW("mblur_radial centre INT_MAX, 0", "RRR", im.mblur_radial(nullptr, INT_MAX, 0, 10.0));
    for (double r : {127.5, 1e9, kNaN, kInf}) ROW("blur_gauss_sel radius" + sp(r), "RRR", im.blur_gauss_sel(nullptr, r, 10));
    for (double r : {0.0, -1.0, -kInf}) ROW("blur_gauss_sel radius" + sp(r), "RDD", im.blur_gauss_sel(nullptr, r, 10));
    for (unsigned m : {2u, 16u, 0xFFFFFFFFu}) ROW("filter_3x3 mode" + sp(m), "RRv", im.filter_3x3(nullptr, m));
    ROW("filter_custom3x3 null", "RRR", im.filter_custom3x3(nullptr, nullptr, 1));
    for (double s : {kNaN, -kInf, kInf, 1e-300}) ROW("edge" + sp(s), "RDD", im.edge(nullptr, s));
    for (tagKIV_EMBOSS e : {tagKIV_EMBOSS{kNaN, 45, 20, 1}, tagKIV_EMBOSS{30, kInf, 20, 0}, tagKIV_EMBOSS{30, 45, 0, 1}, tagKIV_EMBOSS{30, 45, 0x10000, 1}})
        ROW("emboss refused", "RRR", im.emboss(nullptr, &e));
    ROW("emboss extreme accepted", "RDD", [&] { tagKIV_EMBOSS e{-1e300, 1e300, INT_MIN + 1, INT_MAX}; return im.emboss(nullptr, &e); }());
    for (int n : {-1, 1, INT_MAX, INT_MIN}) ROW("raise_edge" + sp(n), "RRR", im.raise_edge(nullptr, n));
    for (int s : {-1, 1001, INT_MIN}) ROW("sharpen2" + sp(s), "RRR", im.sharpen2(nullptr, s));
    for (int a : {-1, 1001, INT_MAX}) {
        ROW("unsharp_mask amount" + sp(a), "RRR", im.unsharp_mask(nullptr, 2, a, 0));
        ROW("unsharp_mask2 amount" + sp(a), "RRR", im.unsharp_mask2(nullptr, 2, a, 0));
    }
    for (int th : {-1, 256, INT_MIN}) ROW("unsharp_mask threshold" + sp(th), "RRR", im.unsharp_mask(nullptr, 2, 100, th));
    ROW("unsharp_mask radius 1000.5", "RRR", im.unsharp_mask2(nullptr, 1000.5, 100, 0));
    for (int r : {0, -1, 1001, INT_MAX}) ROW("enhance radius" + sp(r), "RRR", im.enhance(nullptr, r, 50));
    for (int a : {-1, 101, INT_MIN}) ROW("enhance amount" + sp(a), "RRR", im.enhance(nullptr, 3, a));
    for (double a : {kNaN, kInf, -kInf}) ROW("mblur_linear angle" + sp(a), "RRR", im.mblur_linear(nullptr, a, 5));
    for (int d : {-1, 1001, INT_MIN, INT_MAX}) ROW("mblur_linear distance" + sp(d), "RRR", im.mblur_linear(nullptr, 0, d));
    for (double a : {-0.5, 360.5, kNaN, kInf, -kInf}) ROW("mblur_radial angle" + sp(a), "RRR", im.mblur_radial(nullptr, 0, 0, a));
    for (int a : {-1, 1001, INT_MIN}) {
        ROW("mblur_round amount" + sp(a), "RRR", im.mblur_round(nullptr, 0, 0, a));
        ROW("mblur_zoom amount" + sp(a), "RRR", im.mblur_zoom(nullptr, 0, 0, a));
    }
    ROW("mblur_zoom amount 101", "RRR", im.mblur_zoom(nullptr, 0, 0, 101));
    for (int d : {-1, 4, INT_MAX})
        for (int s : {5, 0}) ROW("sblur dir" + sp(d) + " strength" + sp(s), "RRR", im.sblur_wind(nullptr, d, s) + im.sblur_blast(nullptr, d, s));
    for (int s : {0, -1, 1001, INT_MIN}) ROW("sblur strength" + sp(s), "RRR", im.sblur_wind(nullptr, 0, s) + im.sblur_blast(nullptr, 2, s));
    run(t);
}

TEST(BadInput, Effects) {
    Table t;
    RECTS("oilpaint", false, im.oilpaint(r, 100, 256));
    RECTS("pixelize", false, im.pixelize(r, INT_MAX));
    RECTS("pyramid", false, im.pyramid(r, INT_MAX, 255));
    RECTS("spread", false, im.spread(r, 10000, 0xFFFFFFFFu));
    RECTS("video", false, im.video(r, 100, 100));
    RECTS("noise", false, [&] { tagKIV_NOISE n{255, 1, 0, 0xFFFFFFFFu}; return im.noise(r, &n); }());
    RECTS("texturize", false, [&] { tagKIV_TEXTURE x{1e300, 89.9, 1530}; return im.texturize(r, &im, &x); }());
    RECTS("bumpmap", false, [&] { tagKIV_BUMPMAP b{-1e300, 90, 1530, INT_MIN}; return im.bumpmap(r, &im, &b); }());
    RECTS("bumpmap_merge", false, im.bumpmap_merge(r, &im, nullptr, INT_MAX, INT_MAX));
    for (int r : {0, -1, 101, INT_MIN}) ROW("oilpaint radius" + sp(r), "RRR", im.oilpaint(nullptr, r, 16));
    for (int l : {1, 257, INT_MAX}) ROW("oilpaint levels" + sp(l), "RRR", im.oilpaint(nullptr, 2, l));
    for (int s : {0, -1, INT_MIN}) ROW("pixelize" + sp(s), "RRR", im.pixelize(nullptr, s));
    for (int s : {1, INT_MIN}) ROW("pyramid size" + sp(s), "RRR", im.pyramid(nullptr, s, 10));
    for (int d : {-1, 256, INT_MAX}) ROW("pyramid depth" + sp(d), "RRR", im.pyramid(nullptr, 4, d));
    for (int d : {-1, 10001, INT_MIN}) ROW("spread" + sp(d), "RRR", im.spread(nullptr, d, 1));
    for (int p : {-1, 101, INT_MAX}) {
        ROW("video darken" + sp(p), "RRR", im.video(nullptr, p, 0));
        ROW("video stripes" + sp(p), "RRR", im.video(nullptr, 0, p));
    }
    ROW("noise null", "RRR", im.noise(nullptr, nullptr));
    for (tagKIV_NOISE n : {tagKIV_NOISE{256, 0, 0, 1}, tagKIV_NOISE{-1, 0, 0, 1}, tagKIV_NOISE{10, 2, 0, 1}, tagKIV_NOISE{10, -1, 1, 1}})
        ROW("noise refused", "RRR", im.noise(nullptr, &n));
    ROW("texturize null texture", "RRR", im.texturize(nullptr, nullptr, nullptr));
    ROW("texturize empty texture", "RRR", [&] { kiv e; return im.texturize(nullptr, &e, nullptr); }());
    ROW("bumpmap null map", "RRR", im.bumpmap(nullptr, nullptr, nullptr));
    ROW("bumpmap empty map", "RRR", [&] { kiv e; return im.bumpmap(nullptr, &e, nullptr); }());
    ROW("bumpmap_merge null map", "RRR", im.bumpmap_merge(nullptr, nullptr, nullptr, 0, 255));
    for (int op : {0, -1, INT_MIN}) ROW("bumpmap_merge opacity" + sp(op), "RRR", im.bumpmap_merge(nullptr, &im, nullptr, 0, op));
    struct Light { double az, el; int depth; };
    for (Light l : {Light{kNaN, 45, 4}, Light{0, kInf, 4}, Light{0, 45, 0}, Light{0, 45, 1531}, Light{0, 45, INT_MIN}, Light{-kInf, 45, 4}}) {
        ROW("texturize light", "RRR", [&] { tagKIV_TEXTURE x{l.az, l.el, l.depth}; return im.texturize(nullptr, &im, &x); }());
        ROW("bumpmap light", "RRR", [&] { tagKIV_BUMPMAP b{l.az, l.el, l.depth, 0}; return im.bumpmap(nullptr, &im, &b); }());
    }
    // Light in the image plane: a flat surface is black.
    ROW("texturize flat shade", "RRR", [&] { tagKIV_TEXTURE x{0, 0, 4}; return im.texturize(nullptr, &im, &x); }());
    ROW("texturize_by_file null", "RRR", im.texturize_by_file(nullptr, nullptr, nullptr));
    ROW("texturize_by_file empty name", "RRR", im.texturize_by_file(nullptr, "", nullptr));
    ROW("texturize_by_file missing", "RRR", im.texturize_by_file(nullptr, "no/such/dir/texture.bmp", nullptr));
    ROW("texture_save null", "RRR", im.texture_save(nullptr, nullptr));
    ROW("texture_save empty name", "RRR", im.texture_save(nullptr, ""));
    ROW("texture_save far rect", "RRR", [&] { tagRECT r = far_rect(); return im.texture_save(&r, "never_written.bmp"); }());
    ROW("texture_save unwritable", "RRR", im.texture_save(nullptr, "no/such/dir/texture.bmp"));
#ifdef _WIN32
    ROW("texturize_by_resource null name", "RRR", im.texturize_by_resource(nullptr, nullptr, nullptr, nullptr));
    ROW("texturize_by_resource missing", "RRR", im.texturize_by_resource(nullptr, nullptr, "NO_SUCH_TEXTURE", nullptr));
#endif
    run(t);
}
// clang-format on

// The free functions read a DIB and return a new one or null; the input DIB stays as it was.
TEST(BadInput, FreeFunctions) {
    kiv src = kivtest::random_image(3, 2, 24, 11);
    for (int i = 0; i < src.packets(); ++i) src.pixels()[i].a = 0;  // a 24-bit DIB carries no alpha
    void* dib = src.createdib();
    ASSERT_NE(dib, nullptr);
    const auto* bytes = static_cast<unsigned char*>(GlobalLock(dib));
    const std::vector<unsigned char> before(bytes, bytes + GlobalSize(dib));
    GlobalUnlock(dib);
    auto null_result = [](void* r) {
        GlobalFree(r);
        return r == nullptr;
    };
    // (windows.h defines far and near as macros)
    tagRECT outside = far_rect(), neg = neg_rect(), huge = huge_rect();
    EXPECT_TRUE(null_result(kivCrop(nullptr, nullptr)));
    EXPECT_TRUE(null_result(kivCrop(dib, &outside)));
    EXPECT_TRUE(null_result(kivCrop(dib, &neg)));
    EXPECT_FALSE(null_result(kivCrop(dib, &huge)));
    for (int mode : {-1, 5, INT_MAX, INT_MIN}) {
        EXPECT_TRUE(null_result(kivQuantize(dib, mode, 16))) << mode;
        EXPECT_TRUE(null_result(kivQuantizeWdp(dib, mode, 0))) << mode;
        EXPECT_TRUE(null_result(kivQuantizeWin256(dib, mode))) << mode;
        EXPECT_TRUE(null_result(kivQuantizeWin16(dib, mode))) << mode;
    }
    for (int colors : {0, -1, 257, INT_MIN}) EXPECT_TRUE(null_result(kivQuantize(dib, 0, colors))) << colors;
    for (void* r : {kivQuantize(nullptr, 0, 16), kivQuantizeWcp(nullptr, 0, nullptr), kivQuantizeWcp(dib, 0, nullptr),
                    kivQuantizeWdp(nullptr, 0, 0), kivQuantizeWin256(nullptr, 0), kivQuantizeWin16(nullptr, 0)})
        EXPECT_TRUE(null_result(r));
    std::vector<unsigned char> mem(sizeof(tagLOGPALETTE) + 4 * 300, 9);
    auto* pal = reinterpret_cast<tagLOGPALETTE*>(mem.data());
    pal->palVersion = 0x300;
    for (int n : {0, 257}) {
        pal->palNumEntries = static_cast<WORD>(n);
        EXPECT_TRUE(null_result(kivQuantizeWcp(dib, 0, pal))) << n;
    }
    // An unknown fixed palette gives the DIB as read, unquantized.
    for (int which : {-1, 9, INT_MAX}) {
        void* r = kivQuantizeWdp(dib, 0, which);
        ASSERT_NE(r, nullptr) << which;
        kiv back;
        EXPECT_EQ(back.attachdib(r), 1);
        EXPECT_TRUE(kivtest::images_equal(back, src));
        GlobalFree(r);
    }
    EXPECT_EQ(std::memcmp(GlobalLock(dib), before.data(), before.size()), 0) << "the input DIB was changed";
    GlobalUnlock(dib);
    GlobalFree(dib);
}
