// Every public member and free function with arguments a careless or hostile host might
// pass: null pointers, rectangles outside the image, zero, negative and extreme sizes,
// NaN and infinite reals, modes and indexes out of range.  Each call must give its
// documented result, leave a valid image and, when it refuses, leave the image untouched.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "support/image_check.h"
#include "support/test_images.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr long long kAny = LLONG_MIN;  // result not checked (only the image is)

// What must hold for an image after the call.
enum class Post {
    Keep,   // byte for byte as before (a refusal)
    Valid,  // only the invariants (a documented change)
    Empty,  // the object is empty (a failed rebuild)
};

struct Expect {
    long long result;
    Post post;
};

// One call and its documented outcome on the three subject images.
struct Case {
    std::string name;
    std::function<long long(kiv&)> call;
    Expect empty, rgb, pal;
};

// Rectangles the clipping must reject, and one covering far more than the image.
tagRECT far_rect() { return tagRECT{1000000, 1000000, 2000000, 2000000}; }
tagRECT neg_rect() { return tagRECT{-10, -10, -5, -5}; }
tagRECT huge_rect() { return tagRECT{INT_MIN, INT_MIN, INT_MAX, INT_MAX}; }

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

struct Snapshot {
    int w, h, bits, colors;
    std::vector<tagRGBA> px, map;
    explicit Snapshot(const kiv& img)
        : w(img.m_width), h(img.m_height), bits(img.m_bits), colors(img.m_colors) {
        if (img.m_pixels) px.assign(img.m_pixels, img.m_pixels + img.m_packets);
        if (img.m_map && img.m_colors > 0) map.assign(img.m_map, img.m_map + img.m_colors);
    }
    bool operator==(const Snapshot& o) const {
        return w == o.w && h == o.h && bits == o.bits && colors == o.colors && px.size() == o.px.size() &&
               map.size() == o.map.size() &&
               (px.empty() || std::memcmp(px.data(), o.px.data(), px.size() * sizeof(tagRGBA)) == 0) &&
               (map.empty() || std::memcmp(map.data(), o.map.data(), map.size() * sizeof(tagRGBA)) == 0);
    }
};

void run_cases(const std::vector<Case>& cases, bool host_map = false) {
    static const char* kSubject[] = {"empty", "1x1 24-bit", "1x1 8-bit"};
    for (const Case& c : cases) {
        for (int s = 0; s < 3; ++s) {
            SCOPED_TRACE(c.name + " on the " + kSubject[s] + " image");
            const Expect& e = s == 0 ? c.empty : s == 1 ? c.rgb : c.pal;
            kiv img = subject(s);
            const Snapshot before(img);
            const long long got = c.call(img);
            if (e.result != kAny) {
                EXPECT_EQ(got, e.result);
            }
            EXPECT_EQ(kivtest::image_violation(img, !host_map), "");
            if (e.post == Post::Keep) {
                EXPECT_TRUE(Snapshot(img) == before) << "a refused call changed the image";
            }
            if (e.post == Post::Empty || s == 0) {
                EXPECT_EQ(img.m_pixels, nullptr) << "an empty image gained pixels, or a failed rebuild kept them";
            }
        }
    }
}

// Shorthands for the common outcomes.
constexpr Expect kRefused{0, Post::Keep};
constexpr Expect kDone{1, Post::Valid};
constexpr Expect kVoidKeep{0, Post::Keep};
constexpr Expect kVoidValid{0, Post::Valid};
constexpr Expect kAnyValid{kAny, Post::Valid};

// A member taking a rectangle, with parameters it accepts: rectangles outside the image are
// refused, a rectangle enclosing everything is clipped to the whole image.  pal_ignores_rect:
// the palettized path works on the colour map whatever the rectangle.
void add_rect_cases(std::vector<Case>& v, const std::string& name, std::function<long long(kiv&, tagRECT*)> f,
                    bool pal_ignores_rect = false) {
    const Expect outside_pal = pal_ignores_rect ? kAnyValid : kRefused;
    v.push_back({name + " far rect", [f](kiv& i) { tagRECT r = far_rect(); return f(i, &r); }, kRefused, kRefused,
                 outside_pal});
    v.push_back({name + " negative rect", [f](kiv& i) { tagRECT r = neg_rect(); return f(i, &r); }, kRefused,
                 kRefused, outside_pal});
    v.push_back({name + " INT_MIN..INT_MAX rect", [f](kiv& i) { tagRECT r = huge_rect(); return f(i, &r); },
                 kRefused, kDone, kDone});
}

// Cases run after their table is built: everything is captured by value.
#define CALL(...) [=](kiv& im) mutable -> long long { (void)im; return static_cast<long long>(__VA_ARGS__); }
#define VCALL(...) [=](kiv& im) mutable -> long long { (void)im; __VA_ARGS__; return 0; }

TEST(BadInput, Lifecycle) {
    std::vector<Case> v;
    const Expect emptied{0, Post::Empty};
    struct Size {
        int w, h, bits;
    };
    for (Size s : {Size{0, 1, 24}, Size{1, 0, 24}, Size{-1, 1, 24}, Size{1, INT_MIN, 8}, Size{INT_MAX, INT_MAX, 24},
                   Size{65536, 32768, 24}, Size{1, 1, 0}, Size{1, 1, 33}, Size{1, 1, -8}, Size{INT_MIN, INT_MIN, INT_MIN}}) {
        const std::string dims = std::to_string(s.w) + "x" + std::to_string(s.h) + "x" + std::to_string(s.bits);
        v.push_back({"create " + dims, CALL(im.create(s.w, s.h, s.bits)), emptied, emptied, emptied});
        v.push_back({"create_width_mapfile " + dims, CALL(im.create_width_mapfile(s.w, s.h, s.bits)), emptied,
                     emptied, emptied});
        v.push_back({"constructor " + dims, CALL((kiv(s.w, s.h, s.bits).pixels() != nullptr)), kRefused, kRefused,
                     kRefused});
    }
    v.push_back({"copyto null", CALL(im.copyto(nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"copyfrom null", CALL(im.copyfrom(nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"movefrom null", CALL(im.movefrom(nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"copyto self", CALL(im.copyto(&im)), {kAny, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
    v.push_back({"movefrom self", CALL(im.movefrom(&im)), {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
    v.push_back({"copyfrom an empty image", CALL([&] { kiv e; return im.copyfrom(&e); }()), emptied, emptied, emptied});
    v.push_back({"copyto an empty image keeps the source", CALL([&] { kiv d; return im.copyto(&d) == (im.pixels() != nullptr); }()),
                 {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
    v.push_back({"destroy twice", VCALL((im.destroy(), im.destroy())), {0, Post::Empty}, {0, Post::Empty}, {0, Post::Empty}});
    run_cases(v);
}

TEST(BadInput, AccessorsAndRectangles) {
    std::vector<Case> v;
    v.push_back({"validaterect null, null", CALL(im.validaterect(nullptr, nullptr)), {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
    v.push_back({"validaterect far", CALL([&] { tagRECT r = far_rect(), o; return im.validaterect(&r, &o); }()), kRefused, kRefused, kRefused});
    v.push_back({"validaterect negative", CALL([&] { tagRECT r = neg_rect(); return im.validaterect(&r, nullptr); }()), kRefused, kRefused, kRefused});
    v.push_back({"validaterect huge clips to the image",
                 CALL([&] {
                     tagRECT r = huge_rect(), o;
                     const int ok = im.validaterect(&r, &o);
                     return ok && o.left == 0 && o.top == 0 && o.right == im.width() && o.bottom == im.height();
                 }()),
                 kRefused, {1, Post::Keep}, {1, Post::Keep}});
    // pos does no bounds check by contract: only the arithmetic must be safe.
    v.push_back({"pos extreme", CALL(((void)im.pos(INT_MAX, INT_MIN), (void)im.pos(INT_MIN, INT_MAX), 0)), kVoidKeep, kVoidKeep, kVoidKeep});
    v.push_back({"accessors", CALL(im.width() + im.height() + im.bits() + im.colors() + im.packets() -
                                   (im.map() ? 0 : 0) - (im.pixels() ? 0 : 0) - im.width() - im.height() - im.bits() -
                                   im.colors() - im.packets()),
                 kVoidKeep, kVoidKeep, kVoidKeep});
    run_cases(v);
}

// A buffer with guard zones: the call may write only the first `allowed` bytes.
struct Guarded {
    std::vector<unsigned char> bytes = std::vector<unsigned char>(256, 0xA5);
    unsigned char* at() { return bytes.data() + 64; }
    bool intact(std::size_t allowed) const {
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if ((i < 64 || i >= 64 + allowed) && bytes[i] != 0xA5) return false;
        return true;
    }
};

TEST(BadInput, PixelAccess) {
    std::vector<Case> v;
    struct Pos {
        int x, y, n;
    };
    // Each position/count either misses the 1x1 image or covers its one pixel.
    for (Pos p : {Pos{0, 0, INT_MAX}, Pos{-1, -1, 3}, Pos{INT_MIN, 0, INT_MAX}, Pos{INT_MAX, INT_MAX, INT_MAX}, Pos{0, 0, -5},
                  Pos{0, 0, 0}, Pos{-2, 0, INT_MIN}, Pos{1, 0, 1}, Pos{0, INT_MIN, INT_MAX}}) {
        const std::string at = " at " + std::to_string(p.x) + "," + std::to_string(p.y) + " n " + std::to_string(p.n);
        // Reads leave the image alone and write at most one element of the buffer.
        // Block buffers are packed at the clipped width w' = min(n, width - x): the one pixel
        // of a 1x1 image lands at element (-y) w' + (-x) when the block covers it.
        const long long wc = std::min<long long>(p.n, 1 - static_cast<long long>(p.x));
        const bool covers = p.x <= 0 && p.y <= 0 && static_cast<long long>(p.x) + p.n > 0 && static_cast<long long>(p.y) + p.n > 0;
        const std::size_t block = covers ? static_cast<std::size_t>(-static_cast<long long>(p.y) * wc - p.x + 1) : 0;
        auto read = [p](std::function<void(kiv&, unsigned char*)> f, std::size_t elem) {
            return [p, f, elem](kiv& im) -> long long {
                Guarded g;
                f(im, g.at());
                return g.intact(elem) ? 1 : 0;
            };
        };
        v.push_back({"getcol" + at, read([p](kiv& im, unsigned char* b) { im.getcol(reinterpret_cast<tagRGBA*>(b), p.x, p.y, p.n); }, 4),
                     {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
        v.push_back({"getrow" + at, read([p](kiv& im, unsigned char* b) { im.getrow(reinterpret_cast<tagRGBA*>(b), p.x, p.y, p.n); }, 4),
                     {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
        v.push_back({"getcol_rgb" + at, read([p](kiv& im, unsigned char* b) { im.getcol_rgb(b, p.x, p.y, p.n); }, 3),
                     {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
        v.push_back({"getrow_rgb" + at, read([p](kiv& im, unsigned char* b) { im.getrow_rgb(b, p.x, p.y, p.n); }, 3),
                     {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
        v.push_back({"getpacket" + at, read([p](kiv& im, unsigned char* b) { im.getpacket(reinterpret_cast<tagRGBA*>(b), p.x, p.y, p.n, p.n); }, 4 * block),
                     {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
        for (int plane : {-1, 0, 3, 4, INT_MAX})
            v.push_back({"getplane " + std::to_string(plane) + at,
                         read([p, plane](kiv& im, unsigned char* b) { im.getplane(b, p.x, p.y, p.n, p.n, plane); }, block),
                         {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
        // Writes read at most one element; the image may change only in that one pixel.
        auto write = [](std::function<void(kiv&, unsigned char*)> f) {
            return [f](kiv& im) -> long long {
                Guarded g;
                f(im, g.at());
                return g.intact(0) ? 1 : 0;
            };
        };
        v.push_back({"setcol" + at, write([p](kiv& im, unsigned char* b) { im.setcol(reinterpret_cast<tagRGBA*>(b), p.x, p.y, p.n); }),
                     {1, Post::Keep}, {1, Post::Valid}, {1, Post::Valid}});
        v.push_back({"setrow" + at, write([p](kiv& im, unsigned char* b) { im.setrow(reinterpret_cast<tagRGBA*>(b), p.x, p.y, p.n); }),
                     {1, Post::Keep}, {1, Post::Valid}, {1, Post::Valid}});
        v.push_back({"setcol_rgb" + at, write([p](kiv& im, unsigned char* b) { im.setcol_rgb(b, p.x, p.y, p.n); }),
                     {1, Post::Keep}, {1, Post::Valid}, {1, Post::Valid}});
        v.push_back({"setrow_rgb" + at, write([p](kiv& im, unsigned char* b) { im.setrow_rgb(b, p.x, p.y, p.n); }),
                     {1, Post::Keep}, {1, Post::Valid}, {1, Post::Valid}});
        v.push_back({"setpacket" + at, write([p](kiv& im, unsigned char* b) { im.setpacket(reinterpret_cast<tagRGBA*>(b), p.x, p.y, p.n, p.n); }),
                     {1, Post::Keep}, {1, Post::Valid}, {1, Post::Valid}});
        for (int plane : {-1, 2, 4, INT_MIN})
            v.push_back({"setplane " + std::to_string(plane) + at,
                         write([p, plane](kiv& im, unsigned char* b) { im.setplane(b, p.x, p.y, p.n, p.n, plane); }),
                         {1, Post::Keep}, {1, Post::Valid}, {1, Post::Valid}});
    }
    // Null buffers: nothing to copy from or to.
    v.push_back({"null buffers", VCALL((im.getcol(nullptr, 0, 0, 1), im.setcol(nullptr, 0, 0, 1), im.getrow(nullptr, 0, 0, 1),
                                        im.setrow(nullptr, 0, 0, 1), im.getcol_rgb(nullptr, 0, 0, 1), im.setcol_rgb(nullptr, 0, 0, 1),
                                        im.getrow_rgb(nullptr, 0, 0, 1), im.setrow_rgb(nullptr, 0, 0, 1),
                                        im.getpacket(nullptr, 0, 0, 1, 1), im.setpacket(nullptr, 0, 0, 1, 1),
                                        im.getplane(nullptr, 0, 0, 1, 1, 0), im.setplane(nullptr, 0, 0, 1, 1, 0))),
                 kVoidKeep, kVoidKeep, kVoidKeep});
    for (int s : {-1, 4, INT_MIN, INT_MAX})
        v.push_back({"copyplane " + std::to_string(s), VCALL((im.copyplane(s, 0), im.copyplane(0, s))), kVoidKeep, kVoidKeep, kVoidKeep});
    run_cases(v);
}

TEST(BadInput, ThreadsProgressAndBlt) {
    std::vector<Case> v;
    v.push_back({"setthreads INT_MIN counts as 0", CALL([] {
                     const int old = kiv::getthreads();
                     kiv::setthreads(INT_MIN);
                     const int got = kiv::getthreads();
                     kiv::setthreads(old);
                     return got;
                 }()),
                 kVoidKeep, kVoidKeep, kVoidKeep});
    v.push_back({"progress without a callback", VCALL((im.progress_init(INT_MIN), im.progress_continue(), im.progress_term(), im.progress_reset())),
                 kVoidKeep, kVoidKeep, kVoidKeep});
    v.push_back({"blt null source", VCALL(im.blt(0, 0, 1, 1, static_cast<kiv*>(nullptr), 0, 0)), kVoidKeep, kVoidKeep, kVoidKeep});
    v.push_back({"blt null DIB", VCALL(im.blt(0, 0, 1, 1, static_cast<void*>(nullptr), 0, 0)), kVoidKeep, kVoidKeep, kVoidKeep});
    v.push_back({"blt null literal", VCALL(im.blt(0, 0, 1, 1, nullptr, 0, 0)), kVoidKeep, kVoidKeep, kVoidKeep});
    v.push_back({"blt empty source", VCALL([&] { kiv e; im.blt(0, 0, 1, 1, &e, 0, 0); }()), kVoidKeep, kVoidKeep, kVoidKeep});
    struct B {
        int x, y, w, h, sx, sy;
    };
    for (B b : {B{0, 0, INT_MAX, INT_MAX, 0, 0}, B{INT_MIN, INT_MIN, INT_MAX, INT_MAX, INT_MAX, INT_MAX}, B{INT_MAX, 0, INT_MAX, 1, 0, 0},
                B{0, 0, -1, -1, 0, 0}, B{0, 0, INT_MIN, INT_MIN, INT_MIN, INT_MIN}, B{-1, -1, 2, 2, -1, -1}, B{0, 0, 1, 1, INT_MIN, INT_MAX}}) {
        const std::string n = std::to_string(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w) + "x" +
                              std::to_string(b.h) + " from " + std::to_string(b.sx) + "," + std::to_string(b.sy);
        v.push_back({"blt self " + n, VCALL(im.blt(b.x, b.y, b.w, b.h, &im, b.sx, b.sy)), kVoidKeep, kVoidValid, kVoidValid});
        v.push_back({"blt from 3x2 " + n, VCALL([&] {
                         kiv src = kivtest::random_image(3, 2, 24, 7);
                         im.blt(b.x, b.y, b.w, b.h, &src, b.sx, b.sy);
                     }()),
                     kVoidKeep, kVoidValid, kVoidValid});
        v.push_back({"blt from a DIB " + n, VCALL([&] {
                         kiv src = kivtest::random_image(3, 2, 24, 7);
                         void* dib = src.createdib();
                         im.blt(b.x, b.y, b.w, b.h, dib, b.sx, b.sy);
                         GlobalFree(dib);
                     }()),
                     kVoidKeep, kVoidValid, kVoidValid});
    }
    run_cases(v);
}

TEST(BadInput, ColourMapAndPalette) {
    std::vector<Case> v;
    v.push_back({"createlogpalette", CALL([&] {
                     tagLOGPALETTE* lp = im.createlogpalette();
                     const bool ok = (lp != nullptr) == (im.map() != nullptr && im.colors() > 0);
                     kiv::free_gradtable(lp);
                     return ok;
                 }()),
                 {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
    v.push_back({"free_gradtable null", VCALL(kiv::free_gradtable(nullptr)), kVoidKeep, kVoidKeep, kVoidKeep});
    for (int n : {INT_MIN, -1, 0, 3, 9, INT_MAX})
        v.push_back({"increasecolor " + std::to_string(n), VCALL(im.increasecolor(n)), kVoidKeep, kVoidValid, kVoidValid});
    v.push_back({"validate_rgb", VCALL(im.validate_rgb()), kVoidKeep, kVoidKeep, kVoidKeep});
    v.push_back({"grayscale", VCALL(im.grayscale()), kVoidKeep, kVoidValid, kVoidValid});
    v.push_back({"countcolors", CALL(im.countcolors()), {0, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
    for (int cs : {-1, 7, INT_MAX, INT_MIN}) {
        v.push_back({"convert_colorspace " + std::to_string(cs), CALL(im.convert_colorspace(nullptr, cs)), kRefused, kRefused, kRefused});
        v.push_back({"convert_rgb " + std::to_string(cs), CALL(im.convert_rgb(nullptr, cs)), kRefused, kRefused, kRefused});
    }
    add_rect_cases(v, "convert_colorspace", [](kiv& im, tagRECT* r) { return im.convert_colorspace(r, KIV_CS_LAB); });
    add_rect_cases(v, "convert_rgb", [](kiv& im, tagRECT* r) { return im.convert_rgb(r, KIV_CS_YIQ); });
    run_cases(v);

    // The host may leave a palettized image without a map; every palette path copes.
    std::vector<Case> m;
    for (int n : {INT_MIN, -3, 0}) {
        const std::string k = "alloccmap " + std::to_string(n) + ", then ";
        auto mapless = [n](std::function<long long(kiv&)> f) {
            return [n, f](kiv& im) -> long long {
                im.alloccmap(n);
                if (im.colors() != n || im.map()) return -1;
                return f(im);
            };
        };
        m.push_back({k + "validate_rgb", mapless([](kiv& im) { im.validate_rgb(); return 0LL; }), kVoidValid, kVoidValid, kVoidValid});
        m.push_back({k + "createlogpalette", mapless([](kiv& im) { return im.createlogpalette() == nullptr ? 0LL : 1LL; }),
                     kVoidValid, kVoidValid, kVoidValid});
        m.push_back({k + "createdib", mapless([](kiv& im) {
                         void* d = im.createdib();
                         kiv back;
                         const long long ok = d ? back.attachdib(d) : (im.pixels() ? 0 : 1);
                         GlobalFree(d);
                         return ok;
                     }),
                     {1, Post::Valid}, {1, Post::Valid}, {1, Post::Valid}});
        m.push_back({k + "countcolors", mapless([](kiv& im) { return static_cast<long long>(im.countcolors()); }),
                     {0, Post::Valid}, {1, Post::Valid}, {1, Post::Valid}});
        m.push_back({k + "point adjustments", mapless([](kiv& im) {
                         tagKIV_COLORBALANCE cb{{10, 0, 0}, {0, 5, 0}, {0, 0, -5}, 1};
                         return im.bright_contrast(nullptr, 5, 5) + im.gamma(nullptr, 2.0) + im.adjust_rgb(nullptr, 5, 5, 5) +
                                im.modulate(nullptr, 5, 5, 5) + im.hue_saturation(nullptr, 0, 5, 5, 5) +
                                im.desaturate(nullptr) + im.posterize(nullptr, 3) + im.colorbalance(nullptr, &cb) +
                                im.autocontrast(nullptr) + im.equalize(nullptr) + im.autocolorenhance(nullptr) +
                                (im.negative(nullptr), im.invertrect(nullptr), 0);
                     }),
                     kAnyValid, kAnyValid, kAnyValid});
        m.push_back({k + "quantize and zoom", mapless([](kiv& im) {
                         im.quantize(1, 4, nullptr);
                         return im.zoom_pixel(2, 3) + im.zoom(3, 2, 10, 0) + im.crop(nullptr);
                     }),
                     kAnyValid, kAnyValid, kAnyValid});
    }
    run_cases(m, /*host_map=*/true);
}

TEST(BadInput, DibInterchange) {
    std::vector<Case> v;
    v.push_back({"attachdib null", CALL(im.attachdib(nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"attachdib_width_mapfile null", CALL(im.attachdib_width_mapfile(nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"constructor from null DIB", CALL(kiv(static_cast<void*>(nullptr)).pixels() != nullptr), kRefused, kRefused, kRefused});
#ifndef _WIN32
    // Only the portable global memory promises to refuse a handle it never gave out.
    v.push_back({"attachdib unknown handle", CALL([&] {
                     int local = 0;
                     return im.attachdib(&local) + im.attachdib_any(&local, nullptr);
                 }()),
                 kRefused, kRefused, kRefused});
#endif
    // A header-only block and one whose header claims far more rows than it holds.
    v.push_back({"attachdib truncated", CALL([&] {
                     kiv src = kivtest::random_image(4, 4, 24, 3);
                     HGLOBAL d = static_cast<HGLOBAL>(src.createdib());
                     HGLOBAL small = GlobalAlloc(GMEM_MOVEABLE, 60);
                     std::memcpy(GlobalLock(small), GlobalLock(d), 60);
                     GlobalUnlock(small);
                     GlobalUnlock(d);
                     GlobalFree(d);
                     const int r = im.attachdib(small);
                     GlobalFree(small);
                     return r;
                 }()),
                 kRefused, kRefused, kRefused});
    // The full reader where the table's walk does not reach: null data of any size, no file.
    v.push_back({"full reader null data, no file", CALL(im.attachdib_any_bytes(nullptr, SIZE_MAX, nullptr) +
                                                         im.loadbmp_bytes(nullptr, 0, nullptr) + im.loadbmp("", nullptr) +
                                                         im.loadbmp("none.bmp", nullptr)),
                 kRefused, kRefused, kRefused});
    v.push_back({"attachdib32 null", CALL(im.attachdib32(1, 1, nullptr)), kRefused, kRefused, kRefused});
    for (int w : {0, -1, INT_MIN, INT_MAX}) {
        v.push_back({"attachdib32 width " + std::to_string(w), CALL([&] {
                         tagRGBA buf[4] = {};
                         return im.attachdib32(w, w == INT_MAX ? INT_MAX : 1, buf);
                     }()),
                     {0, Post::Empty}, {0, Post::Empty}, {0, Post::Empty}});
    }
    v.push_back({"createdib round trip", CALL([&] {
                     void* d = im.createdib();
                     if (!d) return im.pixels() ? -1 : 0;
                     kiv back;
                     const int ok = back.attachdib(d);
                     GlobalFree(d);
                     if (!ok || back.width() != im.width() || back.height() != im.height()) return -1;
                     const tagRGBA p = im.pixels()[0], q = back.pixels()[0];
                     // 24 bits carry no alpha; palettized pixels carry their index.
                     return p.r == q.r && p.g == q.g && p.b == q.b && (im.bits() == 24 || p.a == q.a) ? 1 : -1;
                 }()),
                 {0, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
    run_cases(v);
}

TEST(BadInput, Quantization) {
    std::vector<Case> v;
    for (int mode : {-1, 5, INT_MAX, INT_MIN}) {
        v.push_back({"quantize mode " + std::to_string(mode), VCALL(im.quantize(mode, 16, nullptr)), kVoidKeep, kVoidKeep, kVoidKeep});
        v.push_back({"quantize_wdp mode " + std::to_string(mode), CALL(im.quantize_wdp(mode, 0)), kRefused, kRefused, kRefused});
    }
    for (int colors : {0, -1, 257, INT_MAX, INT_MIN})
        v.push_back({"quantize colors " + std::to_string(colors), VCALL(im.quantize(1, colors, nullptr)), kVoidKeep, kVoidKeep, kVoidKeep});
    for (int which : {-1, 9, INT_MAX, INT_MIN})
        v.push_back({"quantize_wdp which " + std::to_string(which), CALL(im.quantize_wdp(0, which)), kRefused, kRefused, kRefused});
    for (int n : {0, -1, 257, INT_MIN}) {
        v.push_back({"quantize_wpal n " + std::to_string(n), VCALL([&] {
                         tagSYSCOL cols[2] = {{1, 2, 3}, {4, 5, 6}};
                         im.quantize_wpal(0, cols, n);
                     }()),
                     kVoidKeep, kVoidKeep, kVoidKeep});
    }
    v.push_back({"quantize_wpal null", VCALL(im.quantize_wpal(0, nullptr, 4)), kVoidKeep, kVoidKeep, kVoidKeep});
    for (int entries : {0, 257, 65535}) {
        v.push_back({"quantize palette of " + std::to_string(entries), VCALL([&] {
                         std::vector<unsigned char> mem(sizeof(tagLOGPALETTE) + 4 * 65536, 7);
                         auto* pal = reinterpret_cast<tagLOGPALETTE*>(mem.data());
                         pal->palVersion = 0x300;
                         pal->palNumEntries = static_cast<WORD>(entries);
                         im.quantize(0, 1, pal);
                     }()),
                     kVoidKeep, kVoidKeep, kVoidKeep});
    }
    run_cases(v);
}

TEST(BadInput, FillsAndGradients) {
    std::vector<Case> v;
    COLORREF cols[16] = {0xFFFFFFFF, 0, 0x00FF00, 0xFFFFFFFF};
    tagGRADCOLORS stops[3] = {{0xFFFFFFFF, -5}, {0x123456, 2000}, {0, INT_MIN}};
    // Refusals before anything happens: the image stays as it is.
    struct Box {
        int x, y, w, h;
    };
    for (Box b : {Box{0, 0, 0, 1}, Box{0, 0, 1, -1}, Box{0, 0, INT_MIN, INT_MIN}}) {
        const std::string n = " " + std::to_string(b.w) + "x" + std::to_string(b.h);
        v.push_back({"solidfill" + n, CALL(im.solidfill(b.x, b.y, b.w, b.h, 0xFFFFFFFF, 255, 0)), kRefused, kRefused, kRefused});
        v.push_back({"shadefill" + n, CALL(im.shadefill(b.x, b.y, b.w, b.h, cols, 4, 0, 255, 0)), kRefused, kRefused, kRefused});
        v.push_back({"gradientfill" + n, CALL(im.gradientfill(b.x, b.y, b.w, b.h, stops, 2, 0, 255, 0)), kRefused, kRefused, kRefused});
    }
    for (int op : {0, INT_MIN, -1}) {
        v.push_back({"solidfill op " + std::to_string(op), CALL(im.solidfill(0, 0, 1, 1, 0xFFFFFFFF, op, 0)), kRefused, kRefused,
                     op == 0 ? kRefused : kAnyValid});
        v.push_back({"fillsolidrect op " + std::to_string(op), CALL(im.fillsolidrect(nullptr, 0xFFFFFFFF, op)), kRefused, kRefused,
                     op == 0 ? kRefused : kAnyValid});
    }
    v.push_back({"shadefill null colours", CALL(im.shadefill(nullptr, nullptr, 4, 0, 255, 0)), kRefused, kRefused, kRefused});
    for (int n : {0, 17, -1, INT_MAX})
        v.push_back({"shadefill n " + std::to_string(n), CALL(im.shadefill(nullptr, cols, n, 0, 255, 0)), kRefused, kRefused, kRefused});
    v.push_back({"gradientfill null stops", CALL(im.gradientfill(nullptr, nullptr, 2, 0, 255, 0)), kRefused, kRefused, kRefused});
    for (int n : {0, -1, INT_MIN})
        v.push_back({"gradientfill n " + std::to_string(n), CALL(im.gradientfill(nullptr, stops, n, 0, 255, 0)), kRefused, kRefused, kRefused});
    // Refusals after the depth is raised: 24-bit images keep everything.
    const Expect raised{0, Post::Valid};
    for (int dir : {-1, 8, INT_MAX}) {
        v.push_back({"shadefill dir " + std::to_string(dir), CALL(im.fillshaderect(nullptr, cols, 4, dir, 255)), kRefused, kRefused, raised});
        v.push_back({"gradientfill dir " + std::to_string(dir), CALL(im.fillgradientrect(nullptr, stops, 3, dir, 255)), kRefused, kRefused, raised});
    }
    // INT_MIN + INT_MAX ends at -1: still left of and above the image.
    for (Box b : {Box{1000000, 0, 5, 5}, Box{-10, -10, 5, 5}, Box{INT_MAX, INT_MAX, INT_MAX, INT_MAX}, Box{INT_MIN, INT_MIN, 5, 5},
                  Box{INT_MIN, INT_MIN, INT_MAX, INT_MAX}}) {
        const std::string n = " box at " + std::to_string(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w);
        v.push_back({"solidfill" + n, CALL(im.fillsolidrect(b.x, b.y, b.w, b.h, 0xFFFFFFFF, 255)), kRefused, kRefused, raised});
        v.push_back({"shadefill" + n, CALL(im.fillshaderect(b.x, b.y, b.w, b.h, cols, 16, 7, 255)), kRefused, kRefused, raised});
        v.push_back({"gradientfill" + n, CALL(im.fillgradientrect(b.x, b.y, b.w, b.h, stops, 3, 7, 255)), kRefused, kRefused, raised});
    }
    // Boxes reaching past every edge, odd stops, modes out of range: drawn, clipped.
    for (Box b : {Box{-5, -5, INT_MAX, INT_MAX}, Box{0, 0, INT_MAX, INT_MAX}, Box{-1, -1, INT_MAX, 3}}) {
        const std::string n = " box " + std::to_string(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w);
        v.push_back({"solidfill mode 99" + n, CALL(im.solidfill(b.x, b.y, b.w, b.h, 0xFFFFFFFF, INT_MAX, 99)), kRefused, kDone, kDone});
        v.push_back({"shadefill mode -1" + n, CALL(im.shadefill(b.x, b.y, b.w, b.h, cols, 16, 4, 300, -1)), kRefused, kDone, kDone});
        v.push_back({"gradientfill unsorted stops" + n, CALL(im.gradientfill(b.x, b.y, b.w, b.h, stops, 3, 3, 255, INT_MIN)), kRefused, kDone, kDone});
    }
    // The depth is raised before the box is clipped.
    add_rect_cases(v, "fillsolidrect", [](kiv& im, tagRECT* r) { return im.fillsolidrect(r, 0x808080, 128); }, true);
    for (int n : {0, -1, INT_MIN}) {
        v.push_back({"make_gradtable n " + std::to_string(n), CALL(kiv::make_gradtable(stops, n, 10) != nullptr), kVoidKeep, kVoidKeep, kVoidKeep});
    }
    v.push_back({"make_gradtable size 0", CALL([&] {
                     tagLOGPALETTE* t = kiv::make_gradtable(stops, 3, 0);
                     const bool ok = t && t->palNumEntries == 0;
                     kiv::free_gradtable(t);
                     return ok;
                 }()),
                 {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
    for (int size : {-1, 65536, INT_MAX, INT_MIN})
        v.push_back({"make_gradtable size " + std::to_string(size), CALL(kiv::make_gradtable(stops, 3, size) != nullptr), kVoidKeep, kVoidKeep, kVoidKeep});
    v.push_back({"make_gradtable null", CALL(kiv::make_gradtable(nullptr, 3, 10) != nullptr), kVoidKeep, kVoidKeep, kVoidKeep});
    v.push_back({"make_gradtable odd stops", CALL([&] {
                     tagLOGPALETTE* t = kiv::make_gradtable(stops, 3, 65535);
                     const bool ok = t && t->palNumEntries == 65535;
                     kiv::free_gradtable(t);
                     return ok;
                 }()),
                 {1, Post::Keep}, {1, Post::Keep}, {1, Post::Keep}});
    v.push_back({"settoalpha", CALL(im.settoalpha()), kRefused, kDone, kDone});
    // A negative width trims; nothing may be left of the image.
    v.push_back({"addborder trim", CALL(im.addborder(1, -1, 2, -1, 0xFFFFFFFF)), kRefused, kDone, kDone});
    v.push_back({"addborder trim all", CALL(im.addborder(1, -2, 0, 0, 0xFFFFFFFF)), kRefused, kRefused, kRefused});
    v.push_back({"addborder INT_MIN", CALL(im.addborder(1, INT_MIN, 1, 1, 0xFFFFFFFF)), kRefused, kRefused, kRefused});
    v.push_back({"addborder INT_MAX", CALL(im.addborder(INT_MAX, INT_MAX, 0, 0, 0)), kRefused, kRefused, kRefused});
    v.push_back({"addborder too many pixels", CALL(im.addborder(0, 65535, 0, 65535, 0)), kRefused, kRefused, kRefused});
    v.push_back({"addborder none", CALL(im.addborder(0, 0, 0, 0, 0xFFFFFFFF)), kRefused, kDone, kDone});
    run_cases(v);
}

TEST(BadInput, ResamplingOrientationLayout) {
    std::vector<Case> v;
    add_rect_cases(v, "crop", [](kiv& im, tagRECT* r) { return im.crop(r); });
    struct Size {
        int w, h;
    };
    for (Size s : {Size{0, 1}, Size{1, 0}, Size{-1, -1}, Size{INT_MIN, 5}}) {
        const std::string n = " " + std::to_string(s.w) + "x" + std::to_string(s.h);
        v.push_back({"zoom" + n, CALL(im.zoom(s.w, s.h, 10, 0)), kRefused, kRefused, kRefused});
        v.push_back({"zoom_pixel" + n, CALL(im.zoom_pixel(s.w, s.h)), kRefused, kRefused, kRefused});
        v.push_back({"zoom_near" + n, CALL(im.zoom_near(s.w, s.h)), kRefused, kRefused, kRefused});
        v.push_back({"zoom_linear" + n, CALL(im.zoom_linear(s.w, s.h)), kRefused, kRefused, kRefused});
        v.push_back({"zoom_inframe" + n, CALL(im.zoom_inframe(s.w, s.h)), kRefused, kRefused, kRefused});
    }
    // Too large to hold: refused, not attempted.
    for (Size s : {Size{INT_MAX, INT_MAX}, Size{65536, 32768}}) {
        const std::string n = " " + std::to_string(s.w) + "x" + std::to_string(s.h);
        v.push_back({"zoom" + n, CALL(im.zoom(s.w, s.h, 0, 0)), kRefused, kRefused, kRefused});
        v.push_back({"zoom mapped" + n, CALL(im.zoom(s.w, s.h, 0, 1)), kRefused, kRefused, kRefused});
        v.push_back({"zoom_pixel" + n, CALL(im.zoom_pixel(s.w, s.h)), kRefused, kRefused, kRefused});
        v.push_back({"zoom_near" + n, CALL(im.zoom_near(s.w, s.h)), kRefused, kRefused, kRefused});
        v.push_back({"zoom_linear" + n, CALL(im.zoom_linear(s.w, s.h)), kRefused, kRefused, kRefused});
        v.push_back({"zoom_inframe" + n + " (fits)", CALL(im.zoom_inframe(s.w, s.h)), kRefused, {1, Post::Keep}, {1, Post::Keep}});
    }
    for (int m : {-1, 14, 15, INT_MAX})
        v.push_back({"zoom method " + std::to_string(m), CALL(im.zoom(2, 2, m, 0)), kRefused, kRefused, kRefused});
    v.push_back({"zoom same size", CALL(im.zoom(1, 1, 0, 0)), kRefused, kRefused, kRefused});
    // The weighted members: unknown flags, and alpha weighting of a palettized image (whose
    // fourth byte is an index), are refused.
    for (int f : {-1, 4, INT_MIN, INT_MAX}) {
        v.push_back({"zoom_rgba flags " + std::to_string(f), CALL(im.zoom_rgba(2, 2, 11, f)), kRefused, kRefused, kRefused});
        v.push_back({"rotate_any_rgba flags " + std::to_string(f), CALL(im.rotate_any_rgba(30, 1, f)), kRefused, kRefused, kRefused});
    }
    v.push_back({"zoom_rgba 0x0", CALL(im.zoom_rgba(0, 0, 11, 3)), kRefused, kRefused, kRefused});
    v.push_back({"zoom_rgba too large", CALL(im.zoom_rgba(65536, 32768, 0, 3)), kRefused, kRefused, kRefused});
    v.push_back({"zoom_rgba method 14", CALL(im.zoom_rgba(2, 2, 14, 1)), kRefused, kRefused, kRefused});
    v.push_back({"zoom_rgba palettized alpha", CALL(im.zoom_rgba(3, 2, 11, 1)), kRefused, {1, Post::Valid}, kRefused});
    v.push_back({"rotate_any_rgba NaN", CALL(im.rotate_any_rgba(kNaN, 1, 1)), kRefused, kRefused, kRefused});
    v.push_back({"rotate_any_rgba palettized alpha", CALL(im.rotate_any_rgba(30, 1, 3)), kRefused, kDone, kRefused});
    for (int d : {INT_MIN, -1, 0, 7})
        v.push_back({"rotate " + std::to_string(d), VCALL(im.rotate(d)), kVoidKeep, kVoidValid, kVoidValid});
    struct Box {
        int x, y, w, h;
    };
    for (Box b : {Box{1000000, 0, 5, 5}, Box{-10, -10, 5, 5}, Box{INT_MAX, INT_MAX, INT_MAX, INT_MAX}, Box{INT_MIN, INT_MIN, 5, 5},
                  Box{INT_MIN, INT_MIN, INT_MAX, INT_MAX}, Box{INT_MAX, 0, 1, 1}}) {
        const std::string n = " " + std::to_string(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w);
        v.push_back({"rotate180" + n, CALL(im.rotate180(b.x, b.y, b.w, b.h)), kRefused, kRefused, kRefused});
        v.push_back({"mirror" + n, CALL(im.mirror(b.x, b.y, b.w, b.h)), kRefused, kRefused, kRefused});
        v.push_back({"flip" + n, CALL(im.flip(b.x, b.y, b.w, b.h)), kRefused, kRefused, kRefused});
    }
    for (Box b : {Box{-5, -5, INT_MAX, INT_MAX}, Box{0, 0, -5, -5}, Box{-1, -1, INT_MAX, INT_MAX}}) {
        const std::string n = " " + std::to_string(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w);
        v.push_back({"rotate180" + n, CALL(im.rotate180(b.x, b.y, b.w, b.h)), kRefused, kDone, kDone});
        v.push_back({"mirror" + n, CALL(im.mirror(b.x, b.y, b.w, b.h)), kRefused, kDone, kDone});
        v.push_back({"flip" + n, CALL(im.flip(b.x, b.y, b.w, b.h)), kRefused, kDone, kDone});
    }
    for (int d : {INT_MIN, INT_MAX, -1})
        for (int wrap : {0, 1})
            v.push_back({"scroll " + std::to_string(d) + " wrap " + std::to_string(wrap), CALL(im.scroll(d, d, wrap)), kRefused, kDone, kDone});
    for (int n : {0, -1, INT_MIN})
        v.push_back({"tile " + std::to_string(n), CALL(im.tile(nullptr, n, 1)), kRefused, kRefused, kRefused});
    v.push_back({"tile INT_MAX", CALL(im.tile(nullptr, INT_MAX, 2)), kRefused, kRefused, kRefused});
    v.push_back({"tile too many pixels", CALL(im.tile(nullptr, 65536, 32768)), kRefused, kRefused, kRefused});
    add_rect_cases(v, "tile", [](kiv& im, tagRECT* r) { return im.tile(r, 1, 2); });
    for (int n : {1, 0, -1, INT_MIN, INT_MAX})
        v.push_back({"tile_divide " + std::to_string(n), CALL(im.tile_divide(nullptr, n)), kRefused, kRefused, kRefused});
    for (double a : {kNaN, kInf, -kInf})
        v.push_back({"rotate_any " + std::to_string(a), CALL(im.rotate_any(a, 0xFFFFFFFF, 1)), kRefused, kRefused, kRefused});
    for (int m : {-1, 2, INT_MAX})
        v.push_back({"rotate_any method " + std::to_string(m), CALL(im.rotate_any(30, 0, m)), kRefused, kRefused, kRefused});
    for (double a : {1e300, -1e18, 45.0, 4.9e-324})
        v.push_back({"rotate_any " + std::to_string(a), CALL(im.rotate_any(a, 0xFFFFFFFF, 0)), kRefused, kDone, kDone});
    run_cases(v);
}

TEST(BadInput, Compositing) {
    std::vector<Case> v;
    v.push_back({"addlayer null", CALL(im.addlayer(nullptr, 0, 0, 255, 0, 1)), kRefused, kRefused, kRefused});
    v.push_back({"merge null", CALL(im.merge(nullptr, nullptr, 0, 0, 255)), kRefused, kRefused, kRefused});
    v.push_back({"fadepaste null", CALL(im.fadepaste(nullptr, 0, 0, 0, 255, 0)), kRefused, kRefused, kRefused});
    v.push_back({"texturefill null", CALL(im.texturefill(nullptr, nullptr, 255, 0)), kRefused, kRefused, kRefused});
    v.push_back({"addlayer empty", CALL([&] { kiv e; return im.addlayer(&e, 0, 0, 255, 0, 1); }()), kRefused, kRefused, kRefused});
    v.push_back({"merge empty", CALL([&] { kiv e; return im.merge(&e, nullptr, 0, 0, 255); }()), kRefused, kRefused, kRefused});
    v.push_back({"fadepaste empty", CALL([&] { kiv e; return im.fadepaste(&e, 0, 0, 0, 255, 0); }()), kRefused, kRefused, kRefused});
    v.push_back({"texturefill empty", CALL([&] { kiv e; return im.texturefill(nullptr, &e, 255, 0); }()), kRefused, kRefused, kRefused});
    for (int p : {INT_MIN, INT_MAX, 1000000}) {
        const std::string n = " at " + std::to_string(p);
        v.push_back({"addlayer" + n, CALL(im.addlayer(&im, p, p, 255, 0, 0)), kRefused, kRefused, kRefused});
        v.push_back({"merge" + n, CALL(im.merge(&im, nullptr, p, p, 255)), kRefused, kRefused, kRefused});
        v.push_back({"fadepaste" + n, CALL(im.fadepaste(&im, p, p, 0, 255, 0)), kRefused, kRefused, kRefused});
    }
    for (int op : {0, -5, INT_MIN}) {
        v.push_back({"addlayer opacity " + std::to_string(op), CALL(im.addlayer(&im, 0, 0, op, 0, 0)), kRefused, kRefused, kRefused});
        v.push_back({"merge opacity " + std::to_string(op), CALL(im.merge(&im, nullptr, 0, 0, op)), kRefused, kRefused, kRefused});
        v.push_back({"texturefill opacity " + std::to_string(op), CALL(im.texturefill(nullptr, &im, op, 0)), kRefused, kRefused, kRefused});
    }
    for (int dir : {-1, 8, INT_MAX}) {
        v.push_back({"fadepaste dir " + std::to_string(dir), CALL(im.fadepaste(&im, 0, 0, 0, 255, dir)), kRefused, kRefused, kRefused});
        v.push_back({"fadeinrect dir " + std::to_string(dir), CALL(im.fadeinrect(nullptr, 0, 0, 255, dir)), kRefused, kRefused, kRefused});
    }
    v.push_back({"merge far source rect", CALL([&] { tagRECT r = far_rect(); return im.merge(&im, &r, 0, 0, 255); }()), kRefused, kRefused, kRefused});
    add_rect_cases(v, "fadeinrect", [](kiv& im, tagRECT* r) { return im.fadeinrect(r, 0xFFFFFFFF, INT_MIN, INT_MAX, 7); });
    add_rect_cases(v, "texturefill", [](kiv& im, tagRECT* r) { return im.texturefill(r, &im, INT_MAX, INT_MAX); });
    v.push_back({"addlayer extreme mode", CALL(im.addlayer(&im, 0, 0, INT_MAX, INT_MIN, 1)), kRefused, kDone, kDone});
    v.push_back({"merge negative source rect", CALL([&] { tagRECT r = neg_rect(); return im.merge(&im, &r, 0, 0, 255); }()), kRefused, kRefused, kRefused});
    run_cases(v);
}

TEST(BadInput, PointAndHistogramAdjustments) {
    std::vector<Case> v;
    // Point adjustments on a palettized image map its colour map whatever the rectangle.
    add_rect_cases(v, "bright_contrast", [](kiv& im, tagRECT* r) { return im.bright_contrast(r, INT_MAX, INT_MIN); }, true);
    add_rect_cases(v, "gamma_rgb", [](kiv& im, tagRECT* r) { return im.gamma_rgb(r, 1.5, 1.0, 0.5, 2.0); });
    add_rect_cases(v, "adjust_rgb", [](kiv& im, tagRECT* r) { return im.adjust_rgb(r, INT_MAX, INT_MIN, 0); });
    add_rect_cases(v, "modulate", [](kiv& im, tagRECT* r) { return im.modulate(r, INT_MAX, INT_MIN, INT_MAX); }, true);
    add_rect_cases(v, "hue_saturation", [](kiv& im, tagRECT* r) { return im.hue_saturation(r, 6, INT_MIN, INT_MAX, INT_MIN); }, true);
    add_rect_cases(v, "desaturate", [](kiv& im, tagRECT* r) { return im.desaturate(r); }, true);
    add_rect_cases(v, "posterize", [](kiv& im, tagRECT* r) { return im.posterize(r, INT_MIN); }, true);
    add_rect_cases(v, "colorify", [](kiv& im, tagRECT* r) { return im.colorify(r, 0xFFFFFFFF); });
    add_rect_cases(v, "colorbalance", [](kiv& im, tagRECT* r) {
        tagKIV_COLORBALANCE cb{{INT_MIN, INT_MAX, 0}, {INT_MAX, 0, INT_MIN}, {0, INT_MIN, INT_MAX}, 1};
        return im.colorbalance(r, &cb);
    }, true);
    add_rect_cases(v, "colorcut", [](kiv& im, tagRECT* r) {
        tagKIV_COLORCUT cc{KIV_CS_HSV, {INT_MAX, 300, 1}};
        return im.colorcut(r, &cc);
    });
    add_rect_cases(v, "autocontrast", [](kiv& im, tagRECT* r) { return im.autocontrast(r); }, true);
    add_rect_cases(v, "equalize", [](kiv& im, tagRECT* r) { return im.equalize(r); }, true);
    add_rect_cases(v, "autocolorenhance", [](kiv& im, tagRECT* r) { return im.autocolorenhance(r); }, true);
    for (double g : {0.0, -1.0, kNaN, kInf, -kInf, 1e-320, 1e308}) {
        v.push_back({"gamma " + std::to_string(g), CALL(im.gamma(nullptr, g)), kRefused, kAnyValid, kAnyValid});
        v.push_back({"gamma_rgb " + std::to_string(g), CALL(im.gamma_rgb(nullptr, g, 1.0, g, 1.0)), kRefused, kAnyValid, kAnyValid});
    }
    for (int range : {-1, 7, INT_MAX, INT_MIN})
        v.push_back({"hue_saturation range " + std::to_string(range), CALL(im.hue_saturation(nullptr, range, 10, 10, 10)), kRefused, kRefused, kRefused});
    v.push_back({"colorbalance null", CALL(im.colorbalance(nullptr, nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"colorcut null", CALL(im.colorcut(nullptr, nullptr)), kRefused, kRefused, kRefused});
    for (int cs : {-1, 7, INT_MAX}) {
        v.push_back({"colorcut space " + std::to_string(cs), CALL([&] {
                         tagKIV_COLORCUT cc{cs, {8, 8, 8}};
                         return im.colorcut(nullptr, &cc);
                     }()),
                     kRefused, kRefused, kRefused});
    }
    v.push_back({"colorcut negative steps", CALL([&] {
                     tagKIV_COLORCUT cc{KIV_CS_LAB, {-1, INT_MIN, -255}};
                     return im.colorcut(nullptr, &cc);
                 }()),
                 kRefused, kAnyValid, kAnyValid});
    v.push_back({"negative far", VCALL([&] { tagRECT r = far_rect(); im.negative(&r); }()), kVoidKeep, kVoidKeep, kVoidValid});
    struct Box {
        int x, y, w, h;
    };
    for (Box b : {Box{0, 0, 0, 5}, Box{0, 0, 5, -1}, Box{INT_MIN, INT_MIN, INT_MIN, INT_MIN}, Box{1000000, 0, 5, 5}, Box{INT_MAX, INT_MAX, INT_MAX, INT_MAX}}) {
        v.push_back({"invertrect " + std::to_string(b.x) + "," + std::to_string(b.y) + " " + std::to_string(b.w) + "x" + std::to_string(b.h),
                     VCALL(im.invertrect(b.x, b.y, b.w, b.h)), kVoidKeep, kVoidKeep, b.w < 1 || b.h < 1 ? kVoidKeep : kVoidValid});
    }
    v.push_back({"invertrect everything", VCALL(im.invertrect(INT_MIN, INT_MIN, INT_MAX, INT_MAX)), kVoidKeep, kVoidValid, kVoidValid});
    // Palettized: the whole map and image are complemented whatever the rectangle.
    v.push_back({"invertrect far rect", VCALL([&] { tagRECT r = far_rect(); im.invertrect(&r); }()), kVoidKeep, kVoidKeep, kVoidValid});
    // A single luminance level: documented to destroy the image.
    v.push_back({"normalize flat image", CALL(im.normalize(nullptr)), kRefused, {0, Post::Empty}, {kAny, Post::Valid}});
    v.push_back({"normalize far", CALL([&] { tagRECT r = far_rect(); return im.normalize(&r); }()), kRefused, kRefused, kRefused});
    run_cases(v);
}

TEST(BadInput, BlursKernelsSharpening) {
    std::vector<Case> v;
    add_rect_cases(v, "sharpen", [](kiv& im, tagRECT* r) { return im.sharpen(r); });
    add_rect_cases(v, "blur", [](kiv& im, tagRECT* r) { return im.blur(r, INT_MAX, INT_MAX); });
    add_rect_cases(v, "blur_simple", [](kiv& im, tagRECT* r) { return im.blur_simple(r, 1000); });
    add_rect_cases(v, "blur_gauss_iir", [](kiv& im, tagRECT* r) { return im.blur_gauss_iir(r, 1e9, 1e-300); });
    add_rect_cases(v, "blur_gauss_rle_plane", [](kiv& im, tagRECT* r) { return im.blur_gauss_rle_plane(r, 10000, 0xFFFFFFFFu); });
    add_rect_cases(v, "blur_gauss_sel", [](kiv& im, tagRECT* r) { return im.blur_gauss_sel(r, 127, INT_MAX); });
    add_rect_cases(v, "filter_3x3", [](kiv& im, tagRECT* r) { return im.filter_3x3(r, 15); });
    add_rect_cases(v, "filter_custom3x3", [](kiv& im, tagRECT* r) {
        int k[9] = {INT_MAX, INT_MIN, INT_MAX, INT_MIN, INT_MAX, INT_MIN, INT_MAX, INT_MIN, INT_MAX};
        return im.filter_custom3x3(r, k, INT_MIN);
    });
    add_rect_cases(v, "filter_sharpen", [](kiv& im, tagRECT* r) { return im.filter_sharpen(r, INT_MIN); });
    add_rect_cases(v, "filter_soften", [](kiv& im, tagRECT* r) { return im.filter_soften(r, INT_MAX); });
    add_rect_cases(v, "edge", [](kiv& im, tagRECT* r) { return im.edge(r, kNaN); });
    add_rect_cases(v, "emboss", [](kiv& im, tagRECT* r) { return im.emboss(r, nullptr); });
    add_rect_cases(v, "raise_edge", [](kiv& im, tagRECT* r) { return im.raise_edge(r, 0); });
    add_rect_cases(v, "sharpen2", [](kiv& im, tagRECT* r) { return im.sharpen2(r, 1000); });
    add_rect_cases(v, "unsharp_mask", [](kiv& im, tagRECT* r) { return im.unsharp_mask(r, 1000, 1000, 0); });
    add_rect_cases(v, "unsharp_mask2", [](kiv& im, tagRECT* r) { return im.unsharp_mask2(r, 1e-9, 0, 255); });
    add_rect_cases(v, "enhance", [](kiv& im, tagRECT* r) { return im.enhance(r, 1000, 100); });
    add_rect_cases(v, "mblur_linear", [](kiv& im, tagRECT* r) { return im.mblur_linear(r, -1e300, 1000); });
    add_rect_cases(v, "mblur_radial", [](kiv& im, tagRECT* r) { return im.mblur_radial(r, 500, -500, 360); });
    add_rect_cases(v, "mblur_round", [](kiv& im, tagRECT* r) { return im.mblur_round(r, -500, 500, 1000); });
    add_rect_cases(v, "mblur_zoom", [](kiv& im, tagRECT* r) { return im.mblur_zoom(r, 500, 500, 100); });
    // Centres far outside the image and radii past the documented limit are refused.
    v.push_back({"mblur_radial extreme centre", CALL(im.mblur_radial(nullptr, INT_MAX, INT_MIN, 360)), kRefused,
                 kRefused, kRefused});
    v.push_back({"mblur_round extreme centre", CALL(im.mblur_round(nullptr, INT_MIN, INT_MAX, 1000)), kRefused,
                 kRefused, kRefused});
    v.push_back({"mblur_zoom extreme centre", CALL(im.mblur_zoom(nullptr, 0, INT_MAX, 100)), kRefused, kRefused,
                 kRefused});
    v.push_back({"blur_simple past 1000000", CALL(im.blur_simple(nullptr, 1000001)), kRefused, kRefused, kRefused});
    v.push_back({"blur_simple INT_MAX", CALL(im.blur_simple(nullptr, INT_MAX)), kRefused, kRefused, kRefused});
    add_rect_cases(v, "sblur_wind", [](kiv& im, tagRECT* r) { return im.sblur_wind(r, 3, 1000); });
    add_rect_cases(v, "sblur_blast", [](kiv& im, tagRECT* r) { return im.sblur_blast(r, 0, 1); });

    v.push_back({"blur both spans below 1", CALL(im.blur(nullptr, 0, INT_MIN)), kRefused, kRefused, kRefused});
    v.push_back({"blur_simple negative", CALL(im.blur_simple(nullptr, -1)), kRefused, kRefused, kRefused});
    v.push_back({"blur_simple INT_MIN", CALL(im.blur_simple(nullptr, INT_MIN)), kRefused, kRefused, kRefused});
    for (double s : {0.0, -1.0, kNaN, kInf, -kInf}) {
        const std::string n = " " + std::to_string(s);
        v.push_back({"blur_gauss_iir sx" + n, CALL(im.blur_gauss_iir(nullptr, s, 1.0)), kRefused, kRefused, kRefused});
        v.push_back({"blur_gauss_iir sy" + n, CALL(im.blur_gauss_iir(nullptr, 1.0, s)), kRefused, kRefused, kRefused});
        v.push_back({"blur_gauss_rle" + n, CALL(im.blur_gauss_rle(nullptr, s)), kRefused, kRefused, kRefused});
        v.push_back({"unsharp_mask radius" + n, CALL(im.unsharp_mask(nullptr, s, 100, 0)), kRefused, kRefused, kRefused});
        v.push_back({"unsharp_mask2 radius" + n, CALL(im.unsharp_mask2(nullptr, s, 100, 0)), kRefused, kRefused, kRefused});
    }
    for (int f : {-1, 4, INT_MIN}) {
        v.push_back({"blur_gauss_rgba flags " + std::to_string(f), CALL(im.blur_gauss_rgba(nullptr, 1, 1, f)), kRefused, kRefused, kRefused});
        v.push_back({"unsharp_mask_rgba flags " + std::to_string(f), CALL(im.unsharp_mask_rgba(nullptr, 1, 100, 0, f)), kRefused,
                     kRefused, kRefused});
    }
    v.push_back({"blur_gauss_rgba sigma NaN", CALL(im.blur_gauss_rgba(nullptr, kNaN, 1, 3)), kRefused, kRefused, kRefused});
    v.push_back({"unsharp_mask_rgba amount", CALL(im.unsharp_mask_rgba(nullptr, 2, 1001, 0, 1)), kRefused, kRefused, kRefused});
    v.push_back({"blur_gauss_rgba palettized alpha", CALL(im.blur_gauss_rgba(nullptr, 1, 1, 1)), kRefused, kDone, kRefused});
    add_rect_cases(v, "blur_gauss_rgba", [](kiv& im, tagRECT* r) { return im.blur_gauss_rgba(r, 1e9, 1e-300, 2); });
    add_rect_cases(v, "unsharp_mask_rgba", [](kiv& im, tagRECT* r) { return im.unsharp_mask_rgba(r, 1000, 1000, 0, 2); });
    v.push_back({"blur_gauss_rle 10001", CALL(im.blur_gauss_rle_plane(nullptr, 10000.5, 7)), kRefused, kRefused, kRefused});
    v.push_back({"blur_gauss_rle 1e9", CALL(im.blur_gauss_rle(nullptr, 1e9)), kRefused, kRefused, kRefused});
    v.push_back({"unsharp_mask radius 1e9", CALL(im.unsharp_mask(nullptr, 1e9, 100, 0)), kRefused, kRefused, kRefused});
    for (double r : {127.5, 1e9, kNaN, kInf})
        v.push_back({"blur_gauss_sel radius " + std::to_string(r), CALL(im.blur_gauss_sel(nullptr, r, 10)), kRefused, kRefused, kRefused});
    for (double r : {0.0, -1.0, -kInf})
        v.push_back({"blur_gauss_sel radius " + std::to_string(r), CALL(im.blur_gauss_sel(nullptr, r, 10)), kRefused, kDone, kDone});
    for (unsigned m : {2u, 16u, 0xFFFFFFFFu})
        v.push_back({"filter_3x3 mode " + std::to_string(m), CALL(im.filter_3x3(nullptr, m)), kRefused, kRefused, {0, Post::Valid}});
    v.push_back({"filter_custom3x3 null", CALL(im.filter_custom3x3(nullptr, nullptr, 1)), kRefused, kRefused, kRefused});
    for (double s : {kNaN, -kInf, kInf, 1e-300})
        v.push_back({"edge " + std::to_string(s), CALL(im.edge(nullptr, s)), kRefused, kDone, kDone});
    for (tagKIV_EMBOSS e : {tagKIV_EMBOSS{kNaN, 45, 20, 1}, tagKIV_EMBOSS{30, kInf, 20, 0}, tagKIV_EMBOSS{30, 45, 0, 1},
                            tagKIV_EMBOSS{30, 45, 0x10000, 1}})
        v.push_back({"emboss refused", CALL(im.emboss(nullptr, &e)), kRefused, kRefused, kRefused});
    v.push_back({"emboss extreme accepted", CALL([&] {
                     tagKIV_EMBOSS e{-1e300, 1e300, INT_MIN + 1, INT_MAX};
                     return im.emboss(nullptr, &e);
                 }()),
                 kRefused, kDone, kDone});
    for (int n : {-1, 1, INT_MAX, INT_MIN})
        v.push_back({"raise_edge " + std::to_string(n), CALL(im.raise_edge(nullptr, n)), kRefused, kRefused, kRefused});
    for (int s : {-1, 1001, INT_MIN})
        v.push_back({"sharpen2 " + std::to_string(s), CALL(im.sharpen2(nullptr, s)), kRefused, kRefused, kRefused});
    for (int a : {-1, 1001, INT_MAX}) {
        v.push_back({"unsharp_mask amount " + std::to_string(a), CALL(im.unsharp_mask(nullptr, 2, a, 0)), kRefused, kRefused, kRefused});
        v.push_back({"unsharp_mask2 amount " + std::to_string(a), CALL(im.unsharp_mask2(nullptr, 2, a, 0)), kRefused, kRefused, kRefused});
    }
    for (int t : {-1, 256, INT_MIN})
        v.push_back({"unsharp_mask threshold " + std::to_string(t), CALL(im.unsharp_mask(nullptr, 2, 100, t)), kRefused, kRefused, kRefused});
    v.push_back({"unsharp_mask radius 1000.5", CALL(im.unsharp_mask2(nullptr, 1000.5, 100, 0)), kRefused, kRefused, kRefused});
    for (int r : {0, -1, 1001, INT_MAX})
        v.push_back({"enhance radius " + std::to_string(r), CALL(im.enhance(nullptr, r, 50)), kRefused, kRefused, kRefused});
    for (int a : {-1, 101, INT_MIN})
        v.push_back({"enhance amount " + std::to_string(a), CALL(im.enhance(nullptr, 3, a)), kRefused, kRefused, kRefused});
    for (double a : {kNaN, kInf, -kInf})
        v.push_back({"mblur_linear angle " + std::to_string(a), CALL(im.mblur_linear(nullptr, a, 5)), kRefused, kRefused, kRefused});
    for (int d : {-1, 1001, INT_MIN, INT_MAX})
        v.push_back({"mblur_linear distance " + std::to_string(d), CALL(im.mblur_linear(nullptr, 0, d)), kRefused, kRefused, kRefused});
    for (double a : {-0.5, 360.5, kNaN, kInf, -kInf})
        v.push_back({"mblur_radial angle " + std::to_string(a), CALL(im.mblur_radial(nullptr, 0, 0, a)), kRefused, kRefused, kRefused});
    for (int a : {-1, 1001, INT_MIN}) {
        v.push_back({"mblur_round amount " + std::to_string(a), CALL(im.mblur_round(nullptr, 0, 0, a)), kRefused, kRefused, kRefused});
        v.push_back({"mblur_zoom amount " + std::to_string(a), CALL(im.mblur_zoom(nullptr, 0, 0, a)), kRefused, kRefused, kRefused});
    }
    v.push_back({"mblur_zoom amount 101", CALL(im.mblur_zoom(nullptr, 0, 0, 101)), kRefused, kRefused, kRefused});
    for (int d : {-1, 4, INT_MAX})
        for (int s : {5, 0})
            v.push_back({"sblur dir " + std::to_string(d) + " strength " + std::to_string(s),
                         CALL(im.sblur_wind(nullptr, d, s) + im.sblur_blast(nullptr, d, s)), kRefused, kRefused, kRefused});
    for (int s : {0, -1, 1001, INT_MIN})
        v.push_back({"sblur strength " + std::to_string(s), CALL(im.sblur_wind(nullptr, 0, s) + im.sblur_blast(nullptr, 2, s)),
                     kRefused, kRefused, kRefused});
    run_cases(v);
}

TEST(BadInput, Effects) {
    std::vector<Case> v;
    tagKIV_NOISE noise{255, 1, 0, 0xFFFFFFFFu};
    add_rect_cases(v, "oilpaint", [](kiv& im, tagRECT* r) { return im.oilpaint(r, 100, 256); });
    add_rect_cases(v, "pixelize", [](kiv& im, tagRECT* r) { return im.pixelize(r, INT_MAX); });
    add_rect_cases(v, "pyramid", [](kiv& im, tagRECT* r) { return im.pyramid(r, INT_MAX, 255); });
    add_rect_cases(v, "spread", [](kiv& im, tagRECT* r) { return im.spread(r, 10000, 0xFFFFFFFFu); });
    add_rect_cases(v, "video", [](kiv& im, tagRECT* r) { return im.video(r, 100, 100); });
    add_rect_cases(v, "noise", [noise](kiv& im, tagRECT* r) {
        tagKIV_NOISE n = noise;
        return im.noise(r, &n);
    });
    add_rect_cases(v, "texturize", [](kiv& im, tagRECT* r) {
        tagKIV_TEXTURE t{1e300, 89.9, 1530};
        return im.texturize(r, &im, &t);
    });
    add_rect_cases(v, "bumpmap", [](kiv& im, tagRECT* r) {
        tagKIV_BUMPMAP b{-1e300, 90, 1530, INT_MIN};
        return im.bumpmap(r, &im, &b);
    });
    add_rect_cases(v, "bumpmap_merge", [](kiv& im, tagRECT* r) { return im.bumpmap_merge(r, &im, nullptr, INT_MAX, INT_MAX); });
    for (int r : {0, -1, 101, INT_MIN})
        v.push_back({"oilpaint radius " + std::to_string(r), CALL(im.oilpaint(nullptr, r, 16)), kRefused, kRefused, kRefused});
    for (int l : {1, 257, INT_MAX})
        v.push_back({"oilpaint levels " + std::to_string(l), CALL(im.oilpaint(nullptr, 2, l)), kRefused, kRefused, kRefused});
    for (int s : {0, -1, INT_MIN})
        v.push_back({"pixelize " + std::to_string(s), CALL(im.pixelize(nullptr, s)), kRefused, kRefused, kRefused});
    for (int s : {1, INT_MIN})
        v.push_back({"pyramid size " + std::to_string(s), CALL(im.pyramid(nullptr, s, 10)), kRefused, kRefused, kRefused});
    for (int d : {-1, 256, INT_MAX})
        v.push_back({"pyramid depth " + std::to_string(d), CALL(im.pyramid(nullptr, 4, d)), kRefused, kRefused, kRefused});
    for (int d : {-1, 10001, INT_MIN})
        v.push_back({"spread " + std::to_string(d), CALL(im.spread(nullptr, d, 1)), kRefused, kRefused, kRefused});
    for (int p : {-1, 101, INT_MAX}) {
        v.push_back({"video darken " + std::to_string(p), CALL(im.video(nullptr, p, 0)), kRefused, kRefused, kRefused});
        v.push_back({"video stripes " + std::to_string(p), CALL(im.video(nullptr, 0, p)), kRefused, kRefused, kRefused});
    }
    v.push_back({"noise null", CALL(im.noise(nullptr, nullptr)), kRefused, kRefused, kRefused});
    for (tagKIV_NOISE n : {tagKIV_NOISE{256, 0, 0, 1}, tagKIV_NOISE{-1, 0, 0, 1}, tagKIV_NOISE{10, 2, 0, 1}, tagKIV_NOISE{10, -1, 1, 1}})
        v.push_back({"noise refused", CALL(im.noise(nullptr, &n)), kRefused, kRefused, kRefused});
    v.push_back({"texturize null texture", CALL(im.texturize(nullptr, nullptr, nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"texturize empty texture", CALL([&] { kiv e; return im.texturize(nullptr, &e, nullptr); }()), kRefused, kRefused, kRefused});
    v.push_back({"bumpmap null map", CALL(im.bumpmap(nullptr, nullptr, nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"bumpmap empty map", CALL([&] { kiv e; return im.bumpmap(nullptr, &e, nullptr); }()), kRefused, kRefused, kRefused});
    v.push_back({"bumpmap_merge null map", CALL(im.bumpmap_merge(nullptr, nullptr, nullptr, 0, 255)), kRefused, kRefused, kRefused});
    for (int op : {0, -1, INT_MIN})
        v.push_back({"bumpmap_merge opacity " + std::to_string(op), CALL(im.bumpmap_merge(nullptr, &im, nullptr, 0, op)), kRefused, kRefused, kRefused});
    struct Light {
        double az, el;
        int depth;
    };
    for (Light l : {Light{kNaN, 45, 4}, Light{0, kInf, 4}, Light{0, 45, 0}, Light{0, 45, 1531}, Light{0, 45, INT_MIN}, Light{-kInf, 45, 4}}) {
        v.push_back({"texturize light", CALL([&] {
                         tagKIV_TEXTURE t{l.az, l.el, l.depth};
                         return im.texturize(nullptr, &im, &t);
                     }()),
                     kRefused, kRefused, kRefused});
        v.push_back({"bumpmap light", CALL([&] {
                         tagKIV_BUMPMAP b{l.az, l.el, l.depth, 0};
                         return im.bumpmap(nullptr, &im, &b);
                     }()),
                     kRefused, kRefused, kRefused});
    }
    v.push_back({"texturize flat shade", CALL([&] {
                     tagKIV_TEXTURE t{0, 0, 4};  // light in the image plane: a flat surface is black
                     return im.texturize(nullptr, &im, &t);
                 }()),
                 kRefused, kRefused, kRefused});
    v.push_back({"texturize_by_file null", CALL(im.texturize_by_file(nullptr, nullptr, nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"texturize_by_file empty name", CALL(im.texturize_by_file(nullptr, "", nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"texturize_by_file missing", CALL(im.texturize_by_file(nullptr, "no/such/dir/texture.bmp", nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"texture_save null", CALL(im.texture_save(nullptr, nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"texture_save empty name", CALL(im.texture_save(nullptr, "")), kRefused, kRefused, kRefused});
    v.push_back({"texture_save far rect", CALL([&] { tagRECT r = far_rect(); return im.texture_save(&r, "never_written.bmp"); }()),
                 kRefused, kRefused, kRefused});
    v.push_back({"texture_save unwritable", CALL(im.texture_save(nullptr, "no/such/dir/texture.bmp")), kRefused, kRefused, kRefused});
#ifdef _WIN32
    v.push_back({"texturize_by_resource null name", CALL(im.texturize_by_resource(nullptr, nullptr, nullptr, nullptr)), kRefused, kRefused, kRefused});
    v.push_back({"texturize_by_resource missing", CALL(im.texturize_by_resource(nullptr, nullptr, "NO_SUCH_TEXTURE", nullptr)), kRefused, kRefused, kRefused});
#endif
    run_cases(v);
}

// The free functions read a DIB and return a new one or null.
TEST(BadInput, FreeFunctions) {
    kiv src = kivtest::random_image(3, 2, 24, 11);
    for (int i = 0; i < src.packets(); ++i) src.pixels()[i].a = 0;  // a 24-bit DIB carries no alpha
    void* dib = src.createdib();
    ASSERT_NE(dib, nullptr);
    const std::vector<unsigned char> before(static_cast<unsigned char*>(GlobalLock(dib)),
                                            static_cast<unsigned char*>(GlobalLock(dib)) + GlobalSize(dib));
    GlobalUnlock(dib);
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
        SCOPED_TRACE("mode " + std::to_string(mode));
        EXPECT_TRUE(null_result(kivQuantize(dib, mode, 16)));
        EXPECT_TRUE(null_result(kivQuantizeWdp(dib, mode, 0)));
        EXPECT_TRUE(null_result(kivQuantizeWin256(dib, mode)));
        EXPECT_TRUE(null_result(kivQuantizeWin16(dib, mode)));
    }
    for (int colors : {0, -1, 257, INT_MIN}) EXPECT_TRUE(null_result(kivQuantize(dib, 0, colors))) << colors;
    EXPECT_TRUE(null_result(kivQuantize(nullptr, 0, 16)));
    EXPECT_TRUE(null_result(kivQuantizeWcp(nullptr, 0, nullptr)));
    EXPECT_TRUE(null_result(kivQuantizeWcp(dib, 0, nullptr)));
    EXPECT_TRUE(null_result(kivQuantizeWdp(nullptr, 0, 0)));
    EXPECT_TRUE(null_result(kivQuantizeWin256(nullptr, 0)));
    EXPECT_TRUE(null_result(kivQuantizeWin16(nullptr, 0)));
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
    const auto* now = static_cast<unsigned char*>(GlobalLock(dib));
    EXPECT_EQ(std::memcmp(now, before.data(), before.size()), 0) << "the input DIB was changed";
    GlobalUnlock(dib);
    GlobalFree(dib);
}

}  // namespace
