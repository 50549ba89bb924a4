// Textures and bump maps: lighting as emboss lights, texture files and resources.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/kmath.h"
#include "kiv.h"
#include "interchange/bmpfile.h"
#include "support/checks.h"
#include "support/scratch_dir.h"
#include "support/test_images.h"

namespace fs = std::filesystem;
using kivtest::images_equal;
using kivtest::px;

namespace {

kiv grey_random(int w, int h, std::uint64_t seed) {
    kiv img = kivtest::random_image(w, h, 24, seed);
    for (int i = 0; i < img.m_packets; ++i) {
        tagRGBA& p = img.m_pixels[i];
        p.g = p.b = p.r;
    }
    return img;
}

kiv flat(int w, int h, tagRGBA c) {
    kiv img(w, h, 24);
    for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = c;
    return img;
}

bool same_rgb(kiv& a, kiv& b) {
    if (a.m_packets != b.m_packets) return false;
    for (int i = 0; i < a.m_packets; ++i) {
        const tagRGBA p = a.m_pixels[i], q = b.m_pixels[i];
        if (p.r != q.r || p.g != q.g || p.b != q.b) {
            ADD_FAILURE() << "first difference at pixel " << i << ": " << kivtest::rgba_str(p) << " vs "
                          << kivtest::rgba_str(q);
            return false;
        }
    }
    return true;
}

struct Scratch : kivtest::ScratchDir {
    Scratch() : kivtest::ScratchDir("kiveffect_") {}
    std::size_t count() const { return files().size(); }
};
using kivtest::read_bytes;
using kivtest::write_bytes;

std::vector<unsigned char> bmp_of(kiv& img) {
    HGLOBAL dib = static_cast<HGLOBAL>(img.createdib());
    std::vector<unsigned char> file;
    EXPECT_TRUE(kivdib::bmp_from_dib(dib, &file));
    GlobalFree(dib);
    return file;
}

}  // namespace

// Over white, the bump map's shade is emboss's grey relief of the same heights.
TEST(BumpMap, ShadesAsEmbossLights) {
    const tagKIV_BUMPMAP params[] = {{30, 45, 20, 0}, {135, 45, 4, 0}, {-60, 10, 1, 0}, {200, 80, 1530, 0}, {0, -20, 7, 0}};
    for (const tagKIV_BUMPMAP& p : params) {
        kiv map = grey_random(19, 13, 5), white = flat(19, 13, tagRGBA{255, 255, 255, 77});
        tagKIV_BUMPMAP bp = p;
        ASSERT_EQ(1, white.bumpmap(nullptr, &map, &bp));
        tagKIV_EMBOSS e{p.azimuth, p.elevation, p.depth, 1};
        ASSERT_EQ(1, map.emboss(nullptr, &e));
        EXPECT_TRUE(same_rgb(map, white)) << p.azimuth << " " << p.elevation << " " << p.depth;
        EXPECT_EQ(77, px(white, 3, 3).a);
    }
}

TEST(BumpMap, FlatHeightFieldGivesTheFlatShade) {
    for (double el : {45.0, 90.0, 12.5}) {
        kiv img = kivtest::random_image(21, 9, 24, 8), src(img);
        kiv map = flat(5, 4, tagRGBA{90, 90, 90, 0});  // smaller than the image: edges repeat
        tagKIV_BUMPMAP p{70, el, 9, 0};
        tagRECT r{2, 1, 40, 8};
        ASSERT_EQ(1, img.bumpmap(&r, &map, &p));
        const int shade = static_cast<int>(kivcore::kmath::sin(el * 0.017453292519943295) * 255.9);
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 21; ++x) {
                const tagRGBA s = px(src, x, y), q = px(img, x, y);
                const bool in = x >= 2 && y >= 1 && y < 8;
                ASSERT_EQ(in ? s.r * shade / 255 : s.r, q.r) << el << " at " << x << "," << y;
                ASSERT_EQ(in ? s.b * shade / 255 : s.b, q.b);
                ASSERT_EQ(s.a, q.a);
            }
    }
}

TEST(BumpMap, InvertSelfMapAndMerge) {
    kiv src = kivtest::random_image(23, 17, 24, 31);
    tagKIV_BUMPMAP p{120, 35, 6, 0}, pi{120, 35, 6, 1};
    // invert on a map equals the negative map.
    kiv a(src), b(src), neg = grey_random(23, 17, 4), map(neg);
    neg.negative(nullptr);
    ASSERT_EQ(1, a.bumpmap(nullptr, &map, &pi));
    ASSERT_EQ(1, b.bumpmap(nullptr, &neg, &p));
    EXPECT_TRUE(images_equal(a, b));
    // The image as its own map equals a copy as the map.
    kiv self(src), other(src), copy(src);
    ASSERT_EQ(1, self.bumpmap(nullptr, &self, &p));
    ASSERT_EQ(1, other.bumpmap(nullptr, &copy, &p));
    EXPECT_TRUE(images_equal(self, other));
    // merge = the bumped copy laid over the original by the compositors' blend.
    for (int mode : {0, 7, 13, 5}) {
        for (int op : {255, 128, 1}) {
            tagRECT r{4, 3, 20, 15};
            kiv merged(src), bumped(src), want(src);
            ASSERT_EQ(1, merged.bumpmap_merge(&r, &map, &p, mode, op));
            ASSERT_EQ(1, bumped.bumpmap(&r, &map, &p));
            kiv layer(16, 12, 24);
            layer.blt(0, 0, 16, 12, &bumped, 4, 3);
            ASSERT_EQ(1, want.addlayer(&layer, 4, 3, op, mode, 0));
            EXPECT_TRUE(images_equal(want, merged)) << mode << " " << op;
            if (mode == 0 && op == 255) {
                EXPECT_TRUE(images_equal(bumped, merged));
            }
        }
    }
}

// Refusals the bad-input table does not reach: a light below the surface, bad lights for
// the merging form.
TEST(BumpMap, RefusalsBeyondTheTable) {
    kiv map = grey_random(4, 4, 1), img = kivtest::random_image(6, 5, 8, 2);
    tagKIV_TEXTURE below{0, -30, 5};
    EXPECT_TRUE(kivtest::refused_unchanged(img, [&](kiv& i) { return i.texturize(nullptr, &map, &below); }));
    for (tagKIV_BUMPMAP p : {tagKIV_BUMPMAP{0, 45, 0, 0}, tagKIV_BUMPMAP{0, 45, 1531, 0}, tagKIV_BUMPMAP{std::nan(""), 45, 3, 0},
                             tagKIV_BUMPMAP{0, HUGE_VAL, 3, 0}})
        EXPECT_TRUE(kivtest::refused_unchanged(img, [&](kiv& i) { return i.bumpmap_merge(nullptr, &map, &p, 0, 255); }));
}

TEST(Texturize, FlatTextureChangesNothing) {
    kiv img = kivtest::random_image(15, 11, 24, 3), before(img);
    kiv tex = flat(4, 3, tagRGBA{10, 200, 30, 0});
    for (double el : {45.0, 5.0, 90.0}) {
        tagKIV_TEXTURE p{60, el, 100};
        ASSERT_EQ(1, img.texturize(nullptr, &tex, &p));
        EXPECT_TRUE(images_equal(img, before)) << el;
    }
}

// Tiling from the rectangle's corner as given, slopes wrapping across tile edges: the same
// as texturizing with the tiles laid out in advance (whole tiles, so the big texture wraps
// the same way).
TEST(Texturize, TilesFromTheGivenCorner) {
    kiv tex = kivtest::random_image(5, 4, 24, 12);
    kiv big(40, 32, 24);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 40; ++x) big.m_pixels[y * 40 + x] = px(tex, x % 5, y % 4);
    for (tagRECT r : {tagRECT{3, 2, 30, 27}, tagRECT{-7, -3, 26, 20}}) {
        kiv a = kivtest::random_image(31, 23, 24, 2), b(a);
        tagKIV_TEXTURE p{135, 45, 10};
        tagRECT ra = r, rb = r;
        ASSERT_EQ(1, a.texturize(&ra, &tex, &p));
        ASSERT_EQ(1, b.texturize(&rb, &big, &p));
        EXPECT_TRUE(images_equal(a, b)) << r.left;
    }
}

TEST(Texturize, SlopesFacingTheLightBrighten) {
    // Heights rise to the right: the surface faces left.
    kiv tex(64, 8, 24);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 64; ++x) tex.m_pixels[y * 64 + x] = tagRGBA{BYTE(3 * x), BYTE(3 * x), BYTE(3 * x), 0};
    kiv from_left = flat(60, 8, tagRGBA{100, 100, 100, 0}), from_right(from_left);
    tagKIV_TEXTURE left{180, 45, 8}, right{0, 45, 8};
    ASSERT_EQ(1, from_left.texturize(nullptr, &tex, &left));
    ASSERT_EQ(1, from_right.texturize(nullptr, &tex, &right));
    for (int x = 1; x < 60; ++x) {
        EXPECT_GT(px(from_left, x, 4).r, 100) << x;
        EXPECT_LT(px(from_right, x, 4).r, 100) << x;
    }
}

TEST(TextureFile, SaveAndLoadRoundTrip) {
    Scratch s;
    kiv img = kivtest::random_image(29, 21, 8, 17);  // palettized: saved as its colours
    tagRECT r{-4, 3, 13, 19};
    const std::string path = s("tex.bmp");
    ASSERT_EQ(1, img.texture_save(&r, path.c_str()));
    EXPECT_EQ(1u, s.count());  // no temporary left behind
    // The file holds the clipped rectangle at 24 bits.
    kiv back;
    ASSERT_EQ(1, back.loadbmp(path.c_str(), nullptr));
    ASSERT_EQ(13, back.m_width);
    ASSERT_EQ(16, back.m_height);
    EXPECT_EQ(24, back.m_bits);
    kiv part(13, 16, 24);
    part.blt(0, 0, 13, 16, &img, 0, 3);
    EXPECT_TRUE(same_rgb(part, back));
    // Loading it texturizes as the texture itself does.
    kiv a = kivtest::random_image(40, 30, 24, 1), b(a);
    tagKIV_TEXTURE p{100, 30, 12};
    ASSERT_EQ(1, a.texturize_by_file(nullptr, path.c_str(), &p));
    ASSERT_EQ(1, b.texturize(nullptr, &part, &p));
    EXPECT_TRUE(images_equal(a, b));
    // Saving again replaces the file.
    tagRECT small{0, 0, 2, 2};
    ASSERT_EQ(1, img.texture_save(&small, path.c_str()));
    EXPECT_EQ(54u + 2 * 8u, read_bytes(path).size());
    EXPECT_EQ(1u, s.count());
}

// Failed writes and bad files leave no file behind and the image as it was (null names,
// missing files and rectangles outside are rows of the bad-input table).
TEST(TextureFile, FailuresLeaveNothing) {
    Scratch s;
    kiv img = kivtest::random_image(9, 9, 24, 4), before(img), empty;
    const std::string keep = s("keep.bmp");
    write_bytes(keep, {1, 2, 3});
    EXPECT_EQ(0, img.texture_save(nullptr, s.dir.string().c_str()));  // a directory
    EXPECT_EQ(0, empty.texture_save(nullptr, keep.c_str()));
    EXPECT_EQ(1u, s.count());
    EXPECT_EQ(3u, read_bytes(keep).size());
    kiv tex = kivtest::random_image(7, 5, 8, 3);
    const std::vector<unsigned char> good = bmp_of(tex);
    std::vector<unsigned char> not_bm = good;
    not_bm[1] = 'C';
    for (const auto& f : {std::vector<unsigned char>{}, std::vector<unsigned char>(good.begin(), good.end() - 3), not_bm}) {
        write_bytes(keep, f);
        EXPECT_EQ(0, img.texturize_by_file(nullptr, keep.c_str(), nullptr)) << f.size();
    }
    EXPECT_EQ(0, img.texturize_by_file(nullptr, s.dir.string().c_str(), nullptr));
    EXPECT_TRUE(images_equal(img, before));
    write_bytes(keep, good);
    EXPECT_EQ(1, img.texturize_by_file(nullptr, keep.c_str(), nullptr));
}

// Files of any form the full reader takes, here a 32-bit V5 file with bit fields and alpha.
TEST(TextureFile, ReadsEveryFormOfBmpFile) {
    Scratch s;
    kiv rgba = kivtest::random_image(7, 5, 32, 6), a = kivtest::random_image(12, 9, 24, 4), b(a);
    ASSERT_EQ(1, rgba.savebmp_alpha(s("v5.bmp").c_str(), 0, nullptr));
    ASSERT_EQ(1, a.texturize_by_file(nullptr, s("v5.bmp").c_str(), nullptr));
    ASSERT_EQ(1, b.texturize(nullptr, &rgba, nullptr));
    EXPECT_TRUE(images_equal(a, b));
}

#ifdef _WIN32
// A copy of this program with a bitmap resource added, loaded as a data file: the real
// FindResourceA / LoadResource path.
TEST(TextureResource, FromAModulesBitmapResource) {
    Scratch s;
    char self[MAX_PATH];
    ASSERT_GT(GetModuleFileNameA(nullptr, self, MAX_PATH), 0u);
    const std::string copy = s("res.exe");
    ASSERT_TRUE(CopyFileA(self, copy.c_str(), FALSE));
    kiv tex = kivtest::random_image(6, 4, 24, 3);
    const std::vector<unsigned char> file = bmp_of(tex);  // 6 x 4 at 24 bits: 40 + 4 rows of 20 bytes
    std::vector<unsigned char> packed(file.begin() + 14, file.begin() + 14 + 120);
    HANDLE up = BeginUpdateResourceA(copy.c_str(), FALSE);
    ASSERT_NE(nullptr, up);
    ASSERT_TRUE(UpdateResourceA(up, MAKEINTRESOURCEA(2), "TEXTURE", MAKELANGID(LANG_NEUTRAL, SUBLANG_NEUTRAL),
                                packed.data(), static_cast<DWORD>(packed.size())));
    ASSERT_TRUE(UpdateResourceA(up, MAKEINTRESOURCEA(2), MAKEINTRESOURCEA(7), MAKELANGID(LANG_NEUTRAL, SUBLANG_NEUTRAL),
                                packed.data(), 100));  // shorter than its header claims
    ASSERT_TRUE(EndUpdateResourceA(up, FALSE));
    HMODULE mod = LoadLibraryExA(copy.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(nullptr, mod);
    kiv a = kivtest::random_image(20, 15, 24, 8), b(a), before(a);
    tagKIV_TEXTURE p{45, 40, 9};
    EXPECT_EQ(1, a.texturize_by_resource(nullptr, mod, "TEXTURE", &p));
    ASSERT_EQ(1, b.texturize(nullptr, &tex, &p));
    EXPECT_TRUE(images_equal(a, b));
    kiv c(before);
    EXPECT_EQ(0, c.texturize_by_resource(nullptr, mod, MAKEINTRESOURCEA(7), &p));
    EXPECT_EQ(0, c.texturize_by_resource(nullptr, mod, "MISSING", &p));
    EXPECT_EQ(0, c.texturize_by_resource(nullptr, mod, nullptr, &p));
    EXPECT_EQ(0, c.texturize_by_resource(nullptr, nullptr, "MISSING", &p));
    EXPECT_TRUE(images_equal(c, before));
    FreeLibrary(mod);
}
#endif
