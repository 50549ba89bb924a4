// Golden hashes: every public operation that changes pixels, run with fixed parameters on a
// fixed set of generated images, must give the bytes recorded in hashes.txt on every
// platform, at every thread count and with or without the SSE2 paths.
//
// Each case hashes (FNV-1a, 64 bits) the operation's result code, the image's size, depth,
// colour map and pixels (or the bytes of a returned DIB or palette). The whole set runs
// single-threaded and on all cores; both must match the file line for line ("name hash").
// Missing and extra entries fail too.
//
// Regenerating after an intended change of output: run the program with the environment
// variable KIV_GOLDEN_WRITE set to the file to write, e.g.
//   KIV_GOLDEN_WRITE=tests/golden/hashes.txt build/linux/bin/kiv_golden_tests
// and review the diff: every changed line is an operation whose bytes changed.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "kiv.h"
#include "core/parallel.h"
#include "core/simd.h"
#include "support/test_images.h"

namespace {

// ---- Hashing ----

struct Fnv {
    std::uint64_t h = 0xCBF29CE484222325ull;
    void bytes(const void* p, std::size_t n) {
        const auto* b = static_cast<const unsigned char*>(p);
        for (std::size_t i = 0; i < n; ++i) {
            h ^= b[i];
            h *= 0x100000001B3ull;
        }
    }
    void num(long long v) {
        unsigned char b[8];
        for (int i = 0; i < 8; ++i) b[i] = static_cast<unsigned char>(static_cast<unsigned long long>(v) >> (8 * i));
        bytes(b, 8);
    }
};

void hash_image(Fnv& f, kiv& img) {
    f.num(img.m_width);
    f.num(img.m_height);
    f.num(img.m_bits);
    f.num(img.m_colors);
    if (img.m_pixels) f.bytes(img.m_pixels, static_cast<std::size_t>(img.m_packets) * sizeof(tagRGBA));
    if (img.m_map) f.bytes(img.m_map, static_cast<std::size_t>(img.m_colors) * sizeof(tagRGBA));
}

// A packed DIB: its bytes, then the block is freed.
void hash_dib(Fnv& f, void* dib) {
    f.num(dib ? 1 : 0);
    if (!dib) return;
    const std::size_t n = GlobalSize(static_cast<HGLOBAL>(dib));
    f.num(static_cast<long long>(n));
    f.bytes(GlobalLock(static_cast<HGLOBAL>(dib)), n);
    GlobalUnlock(static_cast<HGLOBAL>(dib));
    GlobalFree(static_cast<HGLOBAL>(dib));
}

void hash_logpalette(Fnv& f, tagLOGPALETTE* p) {
    f.num(p ? p->palNumEntries : -1);
    if (p) f.bytes(p->palPalEntry, p->palNumEntries * sizeof(PALETTEENTRY));
    kiv::free_gradtable(p);
}

std::string hex(std::uint64_t v) {
    char buf[17];
    std::snprintf(buf, sizeof buf, "%016llx", static_cast<unsigned long long>(v));
    return buf;
}

// ---- Images ----

using kivtest::Rng;  // splitmix64: the same sequence everywhere

BYTE clamp_byte(int v) { return static_cast<BYTE>(v < 0 ? 0 : v > 255 ? 255 : v); }

// Photo-like content: smooth ramps, a disc, a hard edge and noise, so that histogram,
// quantization and edge operations all have something to do. Alpha is noisy.
void paint(kiv& img, std::uint64_t seed) {
    Rng rng(seed);
    const int w = img.m_width, h = img.m_height;
    if (img.m_bits < 24) {
        for (int i = 0; i < img.m_colors; ++i) {
            const int t = img.m_colors > 1 ? 255 * i / (img.m_colors - 1) : 0;
            img.m_map[i] = tagRGBA{clamp_byte(t), clamp_byte(255 - t + rng.below(60) - 30),
                                   clamp_byte((t * 7 + rng.below(90)) % 256), 0};
        }
    }
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int dx = 2 * x - w, dy = 2 * y - h;
            const bool disc = dx * dx + dy * dy < (w * w + h * h) / 9;
            const int n = rng.below(33) - 16;
            tagRGBA& p = img.m_pixels[static_cast<std::size_t>(y) * w + x];
            if (img.m_bits < 24) {
                const int v = ((x * 3 + y * 2) * img.m_colors / (3 * w + 2 * h) + (disc ? img.m_colors / 2 : 0) +
                               (n > 12 ? 1 : 0)) % img.m_colors;
                p = img.m_map[v];
                p.a = static_cast<BYTE>(v);
            } else {
                p.r = clamp_byte(255 * x / (w > 1 ? w - 1 : 1) + n);
                p.g = clamp_byte((disc ? 200 : 40) + n + (x > w / 2 ? 30 : 0));
                p.b = clamp_byte(255 * y / (h > 1 ? h - 1 : 1) - n);
                p.a = static_cast<BYTE>(rng.next() >> 56);
            }
        }
}

struct ImageSpec {
    const char* name;
    int w, h, bits;
};
const ImageSpec kImages[] = {
    {"1x1", 1, 1, 24},       {"7x5", 7, 5, 24},       {"64x48", 64, 48, 24},   {"257x131", 257, 131, 24},
    {"64x48p8", 64, 48, 8},  {"37x23p4", 37, 23, 4},  {"33x17p1", 33, 17, 1},
};

kiv make_image(const ImageSpec& s, std::uint64_t seed) {
    kiv img(s.w, s.h, s.bits);
    paint(img, seed);
    return img;
}

// ---- Operations ----

using Op = std::function<long long(kiv& img, Fnv& extra)>;
struct Case {
    std::string name;
    Op op;
};

tagRECT inner(const kiv& img) {
    // A rectangle inset on the left and top that runs past the right and bottom edges.
    return tagRECT{img.m_width / 5, img.m_height / 4, img.m_width + 3, img.m_height * 4 / 5 + 1};
}

std::vector<Case> cases() {
    std::vector<Case> v;
    auto add = [&](std::string name, Op op) { v.push_back({std::move(name), std::move(op)}); };
    auto full = [&](std::string name, std::function<long long(kiv&)> f) {
        add(name, [f](kiv& img, Fnv&) { return f(img); });
    };
    auto both = [&](std::string name, std::function<long long(kiv&, tagRECT*)> f) {
        full(name, [f](kiv& img) { return f(img, nullptr); });
        full(name + "/rect", [f](kiv& img) {
            tagRECT r = inner(img);
            return f(img, &r);
        });
    };

    // Colour map, palettes, colour spaces.
    full("validate_rgb", [](kiv& i) { i.validate_rgb(); return 0LL; });
    full("grayscale", [](kiv& i) { i.grayscale(); return 0LL; });
    full("countcolors", [](kiv& i) { return static_cast<long long>(i.countcolors()); });
    full("increasecolor", [](kiv& i) { i.increasecolor(i.m_colors + 3); return 0LL; });
    add("createlogpalette", [](kiv& i, Fnv& f) { hash_logpalette(f, i.createlogpalette()); return 0LL; });
    full("copyplane", [](kiv& i) { i.copyplane(0, 3); return 0LL; });
    for (int cs = 0; cs <= 6; ++cs) {
        both("convert_colorspace" + std::to_string(cs), [cs](kiv& i, tagRECT* r) { return i.convert_colorspace(r, cs); });
        full("convert_rgb" + std::to_string(cs), [cs](kiv& i) { return i.convert_rgb(nullptr, cs); });
        full("colorspace_roundtrip" + std::to_string(cs),
             [cs](kiv& i) { return i.convert_colorspace(nullptr, cs) * 2 + i.convert_rgb(nullptr, cs); });
    }

    // DIB interchange: write at the image's depth and at 32 bits, read back.
    add("createdib", [](kiv& i, Fnv& f) { hash_dib(f, i.createdib()); return 0LL; });
    full("dib_roundtrip", [](kiv& i) {
        void* d = i.createdib();
        kiv back;
        const int ok = back.attachdib(d);
        GlobalFree(static_cast<HGLOBAL>(d));
        i.movefrom(&back);
        return static_cast<long long>(ok);
    });
    for (int bits : {1, 4, 8, 24, 32}) {
        full("dib_roundtrip_as" + std::to_string(bits), [bits](kiv& i) {
            kiv d(i);
            if (bits < 24 && d.m_bits >= 24) d.quantize(0, 1 << bits, nullptr);
            if (bits < 24 && d.m_bits > bits) return -1LL;  // more colours than the depth holds
            d.m_bits = bits;  // pixels always carry their colours, so any larger depth is valid
            void* h = d.createdib();
            kiv back;
            const int ok = back.attachdib(h);
            GlobalFree(static_cast<HGLOBAL>(h));
            i.movefrom(&back);
            return static_cast<long long>(ok);
        });
    }
    full("attachdib32", [](kiv& i) {
        std::vector<unsigned char> raw(static_cast<std::size_t>(i.m_packets) * 4);
        for (std::size_t k = 0; k < raw.size(); ++k) raw[k] = static_cast<unsigned char>(k * 37 + (k >> 5));
        return static_cast<long long>(i.attachdib32(i.m_width, i.m_height, raw.data()));
    });
    add("kivCrop", [](kiv& i, Fnv& f) {
        void* d = i.createdib();
        tagRECT r = inner(i);
        hash_dib(f, kivCrop(d, &r));
        GlobalFree(static_cast<HGLOBAL>(d));
        return 0LL;
    });
    // The full reader on the library's own DIBs, and the alpha writer (the true-colour
    // images' noisy fourth bytes taken as alpha).
    for (int pm : {0, 1})
        add("createdib_alpha" + std::to_string(pm), [pm](kiv& i, Fnv& f) {
            if (i.m_bits == 24) i.m_bits = 32;
            hash_dib(f, i.createdib_alpha(pm));
            return 0LL;
        });
    for (int alpha : {0, 1})
        full(alpha ? "attachdib_any_alpha" : "attachdib_any", [alpha](kiv& i) {
            if (alpha && i.m_bits == 24) i.m_bits = 32;
            void* d = alpha ? i.createdib_alpha(0) : i.createdib();
            kiv back;
            const int ok = back.attachdib_any(d, nullptr);
            GlobalFree(static_cast<HGLOBAL>(d));
            i.movefrom(&back);
            return static_cast<long long>(ok);
        });
    // The free functions on the image's DIB, which is freed after.
    auto on_dib = [&](std::string name, std::function<void(void*, Fnv&)> g) {
        add(name, [g](kiv& i, Fnv& f) {
            void* d = i.createdib();
            g(d, f);
            GlobalFree(static_cast<HGLOBAL>(d));
            return 0LL;
        });
    };
    for (int mode = 0; mode <= 4; ++mode) {
        const std::string m = std::to_string(mode);
        on_dib("kivQuantize" + m, [mode](void* d, Fnv& f) { hash_dib(f, kivQuantize(d, mode, 13)); });
        on_dib("kivQuantizeWcp" + m, [mode](void* d, Fnv& f) {
            std::vector<unsigned char> buf(sizeof(tagLOGPALETTE) + 12 * sizeof(PALETTEENTRY));
            auto* pal = reinterpret_cast<tagLOGPALETTE*>(buf.data());
            pal->palVersion = 0x300;
            pal->palNumEntries = 12;
            for (int k = 0; k < 12; ++k)
                pal->palPalEntry[k] = PALETTEENTRY{static_cast<BYTE>(k * 23), static_cast<BYTE>(255 - k * 19),
                                                   static_cast<BYTE>((k * 71) % 256), 0};
            hash_dib(f, kivQuantizeWcp(d, mode, pal));
        });
        on_dib("kivQuantizeWdp" + m, [mode](void* d, Fnv& f) { hash_dib(f, kivQuantizeWdp(d, mode, (mode * 2 + 1) % 9)); });
        on_dib("kivQuantizeWin" + m, [mode](void* d, Fnv& f) {
            hash_dib(f, kivQuantizeWin256(d, mode));
            hash_dib(f, kivQuantizeWin16(d, mode));
        });
    }

    // Quantization.
    for (int mode = 0; mode <= 4; ++mode) {
        const std::string m = std::to_string(mode);
        for (int colors : {2, 16, 256})
            full("quantize" + m + "_" + std::to_string(colors), [mode, colors](kiv& i) {
                i.quantize(mode, colors, nullptr);
                return 0LL;
            });
        for (int which = 0; which <= 8; ++which)
            full("quantize_wdp" + m + "_" + std::to_string(which),
                 [mode, which](kiv& i) { return static_cast<long long>(i.quantize_wdp(mode, which)); });
        full("quantize_wpal" + m, [mode](kiv& i) {
            const tagSYSCOL cols[5] = {{0, 0, 0}, {255, 255, 255}, {200, 30, 30}, {20, 180, 60}, {40, 60, 220}};
            i.quantize_wpal(mode, cols, 5);
            return 0LL;
        });
    }

    for (int colors : {3, 256})
        for (int dither : {0, 100})
            for (int flags : {0, int(KIV_QUANT_ALPHA)})
                full("quantize_hq_" + std::to_string(colors) + "_" + std::to_string(dither) + (flags ? "_alpha" : ""),
                     [=](kiv& i) { return static_cast<long long>(i.quantize_hq(colors, dither, flags)); });
    add("quantize_shared", [](kiv& i, Fnv& f) {
        kiv other(i);
        other.negative(nullptr);
        kiv* both[] = {&i, &other};
        const long long r = kiv::quantize_shared(both, 2, 40, 80, KIV_QUANT_ALPHA);
        hash_image(f, other);
        return r;
    });

    // Fills and gradients.
    for (int mode = 0; mode <= 18; ++mode) {
        both("solidfill" + std::to_string(mode),
             [mode](kiv& i, tagRECT* r) { return i.solidfill(r, RGB(200, 90, 40), 170, mode); });
    }
    for (int dir = 0; dir <= 7; ++dir) {
        both("shadefill" + std::to_string(dir), [dir](kiv& i, tagRECT* r) {
            COLORREF c[3] = {RGB(255, 0, 0), RGB(0, 255, 60), RGB(10, 20, 250)};
            return i.shadefill(r, c, 3, dir, 200, dir * 2);
        });
        both("gradientfill" + std::to_string(dir), [dir](kiv& i, tagRECT* r) {
            tagGRADCOLORS g[3] = {{RGB(0, 0, 0), 0}, {RGB(250, 128, 0), 400}, {RGB(30, 200, 255), 1000}};
            return i.gradientfill(r, g, 3, dir, 230, (dir * 3) % 19);
        });
    }
    add("make_gradtable", [](kiv&, Fnv& f) {
        tagGRADCOLORS g[3] = {{RGB(0, 0, 0), 0}, {RGB(250, 128, 0), 400}, {RGB(30, 200, 255), 1000}};
        hash_logpalette(f, kiv::make_gradtable(g, 3, 37));
        return 0LL;
    });
    full("settoalpha", [](kiv& i) { return static_cast<long long>(i.settoalpha()); });
    full("addborder", [](kiv& i) { return static_cast<long long>(i.addborder(2, 0, 3, 1, RGB(1, 2, 3))); });

    // Geometry.
    both("crop", [](kiv& i, tagRECT* r) { return i.crop(r); });
    for (int method = 0; method <= 13; ++method) {
        const std::string m = std::to_string(method);
        full("zoom" + m + "_up", [method](kiv& i) { return i.zoom(i.m_width * 3 / 2 + 1, i.m_height * 5 / 3 + 2, method, 0); });
        full("zoom" + m + "_down", [method](kiv& i) {
            return i.zoom(i.m_width > 2 ? i.m_width * 2 / 5 + 1 : 3, i.m_height > 2 ? i.m_height / 3 + 1 : 2, method, 0);
        });
        full("zoom" + m + "_mixed", [method](kiv& i) { return i.zoom(i.m_width * 2 + 1, i.m_height / 2 + 1, method, 0); });
    }
    for (int flags = 1; flags <= 3; ++flags)
        for (int method : {1, 10, 11}) {
            const std::string m = std::to_string(method) + "f" + std::to_string(flags);
            full("zoom_rgba" + m + "_down", [method, flags](kiv& i) {
                return i.zoom_rgba(i.m_width > 2 ? i.m_width * 2 / 5 + 1 : 3, i.m_height > 2 ? i.m_height / 3 + 1 : 2, method, flags);
            });
            full("zoom_rgba" + m + "_up", [method, flags](kiv& i) { return i.zoom_rgba(i.m_width * 3 / 2 + 1, i.m_height * 5 / 3 + 2, method, flags); });
        }
    full("zoom_pixel", [](kiv& i) { return i.zoom_pixel(i.m_width * 2 + 1, i.m_height / 2 + 1); });
    full("zoom_near", [](kiv& i) { return i.zoom_near(i.m_width / 3 + 1, i.m_height * 3 + 1); });
    full("zoom_linear", [](kiv& i) { return i.zoom_linear(i.m_width * 7 / 4 + 1, i.m_height * 2 / 3 + 1); });
    full("zoom_inframe", [](kiv& i) { return i.zoom_inframe(i.m_width / 2 + 1, i.m_height / 3 + 1); });
    full("rotate_ccw", [](kiv& i) { i.rotate(1); return 0LL; });
    full("rotate_cw", [](kiv& i) { i.rotate(0); return 0LL; });
    full("rotate180", [](kiv& i) { return i.rotate180(1, 1, i.m_width, i.m_height - 1); });
    full("mirror", [](kiv& i) { return i.mirror(0, 1, i.m_width - 1, i.m_height); });
    full("flip", [](kiv& i) { return i.flip(1, 0, i.m_width, i.m_height); });
    full("scroll_wrap", [](kiv& i) { return i.scroll(5, -3, 1); });
    full("scroll", [](kiv& i) { return i.scroll(-2, 7, 0); });
    both("tile", [](kiv& i, tagRECT* r) { return i.tile(r, 2, 3); });
    both("tile_divide", [](kiv& i, tagRECT* r) { return i.tile_divide(r, 2); });
    for (double deg : {30.0, -47.5, 90.0, 181.25, 1000000.3}) {
        for (int method = 0; method <= 1; ++method) {
            std::ostringstream n;
            n << "rotate_any" << deg << "_" << method;
            full(n.str(), [deg, method](kiv& i) { return i.rotate_any(deg, RGB(9, 200, 70), method); });
            for (int flags = 1; flags <= 3; ++flags)
                full(n.str() + "_rgba" + std::to_string(flags), [deg, method, flags](kiv& i) { return i.rotate_any_rgba(deg, method, flags); });
        }
    }

    // Compositing, against a second generated image.
    for (int mode = 0; mode <= 18; ++mode) {
        for (int usealpha = 0; usealpha <= 1; ++usealpha)
            full("addlayer" + std::to_string(mode) + "_" + std::to_string(usealpha), [mode, usealpha](kiv& i) {
                kiv layer = make_image({"", i.m_width / 2 + 3, i.m_height / 2 + 2, 24}, 77);
                return i.addlayer(&layer, i.m_width / 3 - 1, i.m_height / 4, 190, mode, usealpha);
            });
        full("texturefill" + std::to_string(mode), [mode](kiv& i) {
            kiv tex = make_image({"", 5, 3, 24}, 78);
            tagRECT r = inner(i);
            return i.texturefill(&r, &tex, 210, mode);
        });
    }
    full("merge", [](kiv& i) {
        kiv src = make_image({"", 40, 30, 24}, 79);
        tagRECT r{3, 2, 30, 25};
        return i.merge(&src, &r, -4, 1, 140);
    });
    full("merge_self", [](kiv& i) { return i.merge(&i, nullptr, 1, 1, 128); });
    for (int dir = 0; dir <= 7; ++dir) {
        full("fadepaste" + std::to_string(dir), [dir](kiv& i) {
            kiv src = make_image({"", i.m_width / 2 + 2, i.m_height / 2 + 2, 24}, 80);
            return i.fadepaste(&src, 1, i.m_height / 3, 20, 240, dir);
        });
        both("fadeinrect" + std::to_string(dir),
             [dir](kiv& i, tagRECT* r) { return i.fadeinrect(r, RGB(255, 240, 10), 250, 10, dir); });
    }
    full("blt", [](kiv& i) {
        kiv src = make_image({"", 20, 11, 24}, 81);
        i.blt(-3, 2, 18, 9, &src, 1, 1);
        return 0LL;
    });

    // Point adjustments.
    both("bright_contrast", [](kiv& i, tagRECT* r) { return i.bright_contrast(r, 20, 30); });
    both("bright_contrast_neg", [](kiv& i, tagRECT* r) { return i.bright_contrast(r, -40, -20); });
    both("gamma_rgb", [](kiv& i, tagRECT* r) { return i.gamma_rgb(r, 1.2, 0.8, 1.5, 1.1); });
    for (double g : {0.45, 1.8, 2.2, 3.7}) {
        std::ostringstream n;
        n << "gamma" << g;
        both(n.str(), [g](kiv& i, tagRECT* r) { return i.gamma(r, g); });
    }
    both("adjust_rgb", [](kiv& i, tagRECT* r) { return i.adjust_rgb(r, 10, -20, 30); });
    both("modulate", [](kiv& i, tagRECT* r) { return i.modulate(r, 30, 120, 90); });
    for (int range = 0; range <= 6; ++range)
        both("hue_saturation" + std::to_string(range),
             [range](kiv& i, tagRECT* r) { return i.hue_saturation(r, range, 20 - range * 9, 30 - range * 7, range * 4 - 10); });
    both("negative", [](kiv& i, tagRECT* r) { i.negative(r); return 0LL; });
    both("invertrect", [](kiv& i, tagRECT* r) { i.invertrect(r); return 0LL; });
    both("desaturate", [](kiv& i, tagRECT* r) { return i.desaturate(r); });
    both("posterize", [](kiv& i, tagRECT* r) { return i.posterize(r, 4); });
    both("colorify", [](kiv& i, tagRECT* r) { return i.colorify(r, RGB(30, 160, 220)); });
    for (int preserve = 0; preserve <= 1; ++preserve)
        both("colorbalance" + std::to_string(preserve), [preserve](kiv& i, tagRECT* r) {
            tagKIV_COLORBALANCE cb{{30, -20, 10}, {-50, 40, 0}, {5, 60, -70}, preserve};
            return i.colorbalance(r, &cb);
        });
    for (int cs = 0; cs <= 6; ++cs)
        both("colorcut" + std::to_string(cs), [cs](kiv& i, tagRECT* r) {
            tagKIV_COLORCUT cc{cs, {32, 0, 50}};
            return i.colorcut(r, &cc);
        });

    // Histogram-driven adjustments.
    both("autocontrast", [](kiv& i, tagRECT* r) { return i.autocontrast(r); });
    both("equalize", [](kiv& i, tagRECT* r) { return i.equalize(r); });
    both("normalize", [](kiv& i, tagRECT* r) { return i.normalize(r); });
    both("autocolorenhance", [](kiv& i, tagRECT* r) { return i.autocolorenhance(r); });

    // Blurs, kernels and sharpening.
    both("sharpen", [](kiv& i, tagRECT* r) { return i.sharpen(r); });
    both("blur", [](kiv& i, tagRECT* r) { return i.blur(r, 3, 2); });
    both("blur_simple", [](kiv& i, tagRECT* r) { return i.blur_simple(r, 2); });
    both("blur_gauss_iir", [](kiv& i, tagRECT* r) { return i.blur_gauss_iir(r, 2.0, 1.5); });
    full("blur_gauss_iir_large", [](kiv& i) { return i.blur_gauss_iir(nullptr, 17.5, 0.6); });
    both("blur_gauss_rle", [](kiv& i, tagRECT* r) { return i.blur_gauss_rle(r, 1.5); });
    full("blur_gauss_rle_plane", [](kiv& i) { return i.blur_gauss_rle_plane(nullptr, 3.25, 15); });
    both("blur_gauss_sel", [](kiv& i, tagRECT* r) { return i.blur_gauss_sel(r, 2.0, 20); });
    for (unsigned mode : {0u, 1u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 14u, 15u})
        both("filter_3x3_" + std::to_string(mode), [mode](kiv& i, tagRECT* r) { return i.filter_3x3(r, mode); });
    both("filter_custom3x3", [](kiv& i, tagRECT* r) {
        int k[9] = {1, -2, 1, 2, 5, -3, 0, 1, 2};
        return i.filter_custom3x3(r, k, 5);
    });
    both("filter_sharpen", [](kiv& i, tagRECT* r) { return i.filter_sharpen(r, 7); });
    both("filter_soften", [](kiv& i, tagRECT* r) { return i.filter_soften(r, 3); });
    both("edge", [](kiv& i, tagRECT* r) { return i.edge(r, 2.5); });
    for (int mono = 0; mono <= 1; ++mono)
        both("emboss" + std::to_string(mono), [mono](kiv& i, tagRECT* r) {
            tagKIV_EMBOSS e{135.0, 40.0, 3, mono};
            return i.emboss(r, &e);
        });
    both("raise_edge", [](kiv& i, tagRECT* r) { return i.raise_edge(r, 3); });
    both("sharpen2", [](kiv& i, tagRECT* r) { return i.sharpen2(r, 150); });
    both("unsharp_mask", [](kiv& i, tagRECT* r) { return i.unsharp_mask(r, 2.5, 120, 4); });
    both("unsharp_mask2", [](kiv& i, tagRECT* r) { return i.unsharp_mask2(r, 1.5, 200, 0); });
    for (int flags = 1; flags <= 3; ++flags) {
        both("blur_gauss_rgba" + std::to_string(flags), [flags](kiv& i, tagRECT* r) { return i.blur_gauss_rgba(r, 2.0, 1.5, flags); });
        both("unsharp_mask_rgba" + std::to_string(flags), [flags](kiv& i, tagRECT* r) { return i.unsharp_mask_rgba(r, 2.5, 120, 4, flags); });
    }
    both("enhance", [](kiv& i, tagRECT* r) { return i.enhance(r, 3, 60); });
    for (double angle : {0.0, 33.0, -120.5})
        both("mblur_linear" + std::to_string(static_cast<int>(angle)), [angle](kiv& i, tagRECT* r) { return i.mblur_linear(r, angle, 9); });
    both("mblur_radial", [](kiv& i, tagRECT* r) { return i.mblur_radial(r, i.m_width / 3, i.m_height / 2, 25.0); });
    both("mblur_round", [](kiv& i, tagRECT* r) { return i.mblur_round(r, i.m_width / 2, i.m_height / 3, 60); });
    both("mblur_zoom", [](kiv& i, tagRECT* r) { return i.mblur_zoom(r, i.m_width / 2 + 1, i.m_height / 2, 30); });
    for (int dir = 0; dir <= 3; ++dir) {
        both("sblur_wind" + std::to_string(dir), [dir](kiv& i, tagRECT* r) { return i.sblur_wind(r, dir, 8); });
        both("sblur_blast" + std::to_string(dir), [dir](kiv& i, tagRECT* r) { return i.sblur_blast(r, dir, 6); });
    }

    // Effects.
    both("oilpaint", [](kiv& i, tagRECT* r) { return i.oilpaint(r, 3, 20); });
    both("pixelize", [](kiv& i, tagRECT* r) { return i.pixelize(r, 4); });
    both("pyramid", [](kiv& i, tagRECT* r) { return i.pyramid(r, 6, 80); });
    both("spread", [](kiv& i, tagRECT* r) { return i.spread(r, 5, 1234u); });
    both("video", [](kiv& i, tagRECT* r) { return i.video(r, 30, 50); });
    for (int g = 0; g <= 1; ++g)
        for (int mono = 0; mono <= 1; ++mono)
            both("noise" + std::to_string(g) + std::to_string(mono), [g, mono](kiv& i, tagRECT* r) {
                tagKIV_NOISE n{40, g, mono, 99u};
                return i.noise(r, &n);
            });
    both("texturize", [](kiv& i, tagRECT* r) {
        kiv tex = make_image({"", 9, 7, 24}, 82);
        tagKIV_TEXTURE t{120.0, 35.0, 4};
        return i.texturize(r, &tex, &t);
    });
    for (int invert = 0; invert <= 1; ++invert)
        both("bumpmap" + std::to_string(invert), [invert](kiv& i, tagRECT* r) {
            kiv map = make_image({"", i.m_width, i.m_height, 24}, 83);
            tagKIV_BUMPMAP b{210.0, 50.0, 5, invert};
            return i.bumpmap(r, &map, &b);
        });
    for (int mode : {0, 7, 12})
        both("bumpmap_merge" + std::to_string(mode), [mode](kiv& i, tagRECT* r) {
            tagKIV_BUMPMAP b{45.0, 30.0, 2, 0};
            return i.bumpmap_merge(r, &i, &b, mode, 160);
        });
    return v;
}

// One full pass over every image and case: name -> hash.
std::map<std::string, std::string> run_all() {
    std::map<std::string, std::string> out;
    const std::vector<Case> cs = cases();
    for (const ImageSpec& shape : kImages) {
        const kiv original = make_image(shape, 1000 + static_cast<std::uint64_t>(shape.w) * 131 + shape.h + shape.bits);
        for (const Case& c : cs) {
            kiv img(original);
            Fnv f;
            const long long rc = c.op(img, f);
            f.num(rc);
            hash_image(f, img);
            out[c.name + "@" + shape.name] = hex(f.h);
        }
    }
    return out;
}

std::string golden_path() {
    std::string p = KIV_GOLDEN_FILE;
#if defined(_WIN32)
    if (!p.empty() && p[0] == '/') p = "Z:" + p;  // Wine maps the Unix root to drive Z:
#endif
    return p;
}

std::map<std::string, std::string> read_golden(const std::string& path) {
    std::map<std::string, std::string> m;
    std::ifstream in(path);
    std::string name, hash;
    while (in >> name >> hash) m[name] = hash;
    return m;
}

void compare(const std::map<std::string, std::string>& want, const std::map<std::string, std::string>& got,
             const char* label) {
    int shown = 0, bad = 0;
    for (const auto& [name, hash] : got) {
        auto it = want.find(name);
        const bool ok = it != want.end() && it->second == hash;
        if (!ok) {
            ++bad;
            if (shown++ < 25)
                ADD_FAILURE() << label << ": " << name << " gives " << hash << ", file has "
                              << (it == want.end() ? std::string("no entry") : it->second);
        }
    }
    for (const auto& [name, hash] : want)
        if (got.find(name) == got.end()) {
            ++bad;
            if (shown++ < 25) ADD_FAILURE() << label << ": file entry " << name << " is no longer produced";
        }
    EXPECT_EQ(bad, 0) << label << ": " << bad << " of " << got.size() << " entries differ";
}

}  // namespace

// One thread on the SSE2 kernels, all threads on the best the processor runs (AVX2 where
// it has it); the scalar copy of the library checks the portable code.
TEST(Golden, EveryOperationGivesTheRecordedBytesAtOneAndAllThreads) {
    const int saved = kiv::getthreads();
    kiv::setthreads(1);
    kivcore::cap_isa(kivcore::Isa::kSse2);
    const auto single = run_all();
    kivcore::cap_isa(kivcore::Isa::kAvx2);
    kiv::setthreads(0);
    // Every loop split, however little its work: small images would otherwise stay on one thread.
    const double split = kivcore::split_work();
    kivcore::set_split_work(0);
    const auto multi = run_all();
    kivcore::set_split_work(split);
    kiv::setthreads(saved);
    std::printf("AVX2 kernels %s\n", kivcore::use_avx2() ? "checked at all threads" : "not run: no AVX2 here");

    ASSERT_GT(single.size(), 1000u);
    if (const char* out = std::getenv("KIV_GOLDEN_WRITE")) {
        std::ofstream f(out, std::ios::binary);
        for (const auto& [name, hash] : single) f << name << ' ' << hash << '\n';
        ASSERT_TRUE(f.good()) << "cannot write " << out;
        std::printf("wrote %zu entries to %s\n", single.size(), out);
    }
    const auto want = read_golden(golden_path());
    ASSERT_FALSE(want.empty()) << "no golden file at " << golden_path();
    compare(want, single, "1 thread");
    compare(want, multi, "all threads");
    compare(single, multi, "all threads against 1 thread");
}
