// Shared pieces of the benchmark programs: a deterministic photo-like image and the memcpy
// baseline every operation is reported against.
#ifndef KIV_BENCH_COMMON_H
#define KIV_BENCH_COMMON_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kiv.h"

namespace kivbench {

// Smooth gradients and blobs plus mild noise: compresses and quantizes like a photo, with
// about a million distinct colours at 4096 x 4096.
inline void fill_photo(kiv& img, std::uint32_t seed = 1) {
    const int w = img.m_width, h = img.m_height;
    std::uint32_t s = seed * 2654435761u + 1;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            s = s * 1664525u + 1013904223u;
            int n = static_cast<int>(s >> 28) - 8;
            double fx = static_cast<double>(x) / w, fy = static_cast<double>(y) / h;
            int r = static_cast<int>(128 + 100 * std::sin(6.0 * fx + 2.0 * fy)) + n;
            int g = static_cast<int>(128 + 90 * std::cos(5.0 * fy - 3.0 * fx * fy)) + n;
            int b = static_cast<int>(128 + 110 * std::sin(9.0 * fx * fy + 1.0)) + n;
            tagRGBA& p = img.m_pixels[static_cast<std::size_t>(y) * w + x];
            p.r = static_cast<BYTE>(r < 0 ? 0 : r > 255 ? 255 : r);
            p.g = static_cast<BYTE>(g < 0 ? 0 : g > 255 ? 255 : g);
            p.b = static_cast<BYTE>(b < 0 ? 0 : b > 255 ? 255 : b);
            p.a = 255;
        }
}

// Three more kinds of picture for the quantizer comparison, each deterministic.

inline BYTE bench_clamp(double v) { return static_cast<BYTE>(v < 0 ? 0 : v > 255 ? 255 : v + 0.5); }

// Smooth and gradient-heavy, no noise: a sky ramp, two soft glows and three shaded balls,
// where banding shows first.
inline void fill_smooth(kiv& img) {
    const int w = img.m_width, h = img.m_height;
    const double balls[3][6] = {{0.28, 0.62, 0.17, 220, 60, 40}, {0.62, 0.7, 0.13, 60, 170, 90}, {0.8, 0.35, 0.1, 240, 220, 120}};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double fx = (x + 0.5) / w, fy = (y + 0.5) / h;
            double r = 40 + 180 * fy, g = 70 + 110 * fy, b = 190 - 90 * fy;  // deep blue to dusk orange
            const double g1 = std::exp(-((fx - 0.2) * (fx - 0.2) + (fy - 0.15) * (fy - 0.15)) / 0.05);
            const double g2 = std::exp(-((fx - 0.85) * (fx - 0.85) + (fy - 0.9) * (fy - 0.9)) / 0.08);
            r += 60 * g1 - 20 * g2, g += 40 * g1 + 30 * g2, b += 10 * g1 + 50 * g2;
            for (const auto& bl : balls) {
                const double dx = (fx - bl[0]) / bl[2], dy = (fy - bl[1]) / bl[2], d2 = dx * dx + dy * dy;
                if (d2 >= 1) continue;
                // Lambert shading from the upper left, with a soft edge one percent wide.
                const double nz = std::sqrt(1 - d2), lit = std::max(0.0, (-0.5 * dx - 0.6 * dy + 0.62 * nz)) + 0.15;
                const double a = std::min(1.0, (1 - std::sqrt(d2)) * bl[2] * 100);
                r += a * (bl[3] * lit - r), g += a * (bl[4] * lit - g), b += a * (bl[5] * lit - b);
            }
            img.m_pixels[static_cast<std::size_t>(y) * w + x] = tagRGBA{bench_clamp(r), bench_clamp(g), bench_clamp(b), 255};
        }
}

// A flat-colour graphic: a light page with a gradient banner, coloured discs with soft
// shadows, panels, thin rules and lines of text in a 5 x 7 pixel font, all with anti-aliased
// edges (4 x 4 samples a pixel): a few dozen main colours plus their blends.
inline void fill_graphic(kiv& img) {
    const int w = img.m_width, h = img.m_height;
    static const std::uint64_t kGlyphs[] = {  // K I V L B Q U A N T Z E: 5 x 7, top row in the high bits
        0x4654C5251ull, 0x38842108Eull, 0x46318A944ull, 0x42108421Full, 0x7A31F463Eull, 0x3A318D64Dull,
        0x46318C62Eull, 0x3A31FC631ull, 0x47359C631ull, 0x7C8421084ull, 0x7C222221Full, 0x7E10F421Full};
    const BYTE colours[8][3] = {{200, 40, 50}, {30, 90, 180}, {250, 190, 30}, {40, 150, 80},
                                {120, 60, 160}, {20, 20, 30}, {240, 120, 40}, {90, 200, 210}};
    const double s = w / 1024.0;  // the layout scales with the image
    auto shape_colour = [&](double px, double py, BYTE* out) -> bool {
        // Later shapes lie on top: discs, panels, rules, then text.
        bool hit = false;
        for (int k = 0; k < 6; ++k) {
            const double cx = (160 + 150 * k) * s, cy = (180 + 90 * (k % 3)) * s, r = (60 + 12 * k) * s;
            if ((px - cx) * (px - cx) + (py - cy) * (py - cy) < r * r) std::memcpy(out, colours[k], 3), hit = true;
        }
        for (int k = 0; k < 8; ++k) {
            const double x0 = (40 + 120 * k) * s, y0 = (420 + 30 * (k % 4)) * s;
            if (px >= x0 && px < x0 + 100 * s && py >= y0 && py < y0 + 140 * s) std::memcpy(out, colours[(k + 3) % 8], 3), hit = true;
        }
        if (std::fmod(py, 96 * s) < 1.5 * s && py > 620 * s) std::memcpy(out, colours[5], 3), hit = true;
        if (py > 640 * s) {
            // Lines of text: glyph cell 6 x 9 font pixels, font pixel `fp` image pixels.
            const int line = static_cast<int>((py - 640 * s) / (24 * s));
            const double fp = (line % 3 == 0 ? 2.6 : 1.7) * s;
            const double ty = py - 640 * s - line * 24 * s, tx = px - 30 * s;
            const int col = static_cast<int>(tx / (6 * fp)), gy = static_cast<int>(ty / fp);
            const int gx = static_cast<int>(tx / fp) - col * 6;
            if (tx >= 0 && gx < 5 && gy < 7 && col % 9 != 8) {
                const std::uint64_t glyph = kGlyphs[(col * 7 + line * 3) % 12];
                if (glyph >> (34 - (gy * 5 + gx)) & 1) std::memcpy(out, colours[line % 4 == 1 ? 0 : line % 4 == 2 ? 1 : 5], 3), hit = true;
            }
        }
        return hit;
    };
    // The page behind the shapes: a gradient banner on top, soft shadows under the discs.
    auto page = [&](double px, double py, BYTE* out) {
        double c[3] = {246, 243, 236};
        if (py < 90 * s) {
            const double t = px / w;
            c[0] = 30 + 170 * t, c[1] = 60 + 10 * t, c[2] = 140 - 50 * t;
        }
        double shade = 1;
        for (int k = 0; k < 6; ++k) {
            const double cx = (168 + 150 * k) * s, cy = (190 + 90 * (k % 3)) * s, r = (60 + 12 * k) * s;
            const double d = std::sqrt((px - cx) * (px - cx) + (py - cy) * (py - cy));
            shade -= 0.3 * std::clamp((r + 12 * s - d) / (24 * s), 0.0, 1.0);
        }
        for (int k = 0; k < 3; ++k) out[k] = bench_clamp(c[k] * std::max(shade, 0.2));
    };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int acc[3] = {0, 0, 0};
            for (int sy = 0; sy < 4; ++sy)
                for (int sx = 0; sx < 4; ++sx) {
                    BYTE c[3];
                    const double px = x + (sx + 0.5) / 4, py = y + (sy + 0.5) / 4;
                    if (!shape_colour(px, py, c)) page(px, py, c);
                    for (int k = 0; k < 3; ++k) acc[k] += c[k];
                }
            img.m_pixels[static_cast<std::size_t>(y) * w + x] =
                tagRGBA{static_cast<BYTE>((acc[0] + 8) / 16), static_cast<BYTE>((acc[1] + 8) / 16), static_cast<BYTE>((acc[2] + 8) / 16), 255};
        }
}

// A noisy, photo-like texture (stone or bark): three octaves of value noise through an
// earthy colour ramp, then strong independent noise per channel.
inline void fill_texture(kiv& img, std::uint32_t seed = 7) {
    const int w = img.m_width, h = img.m_height;
    auto lattice = [seed](int x, int y) {
        std::uint32_t v = static_cast<std::uint32_t>(x) * 374761393u + static_cast<std::uint32_t>(y) * 668265263u + seed * 2246822519u;
        v = (v ^ (v >> 13)) * 1274126177u;
        return static_cast<double>((v ^ (v >> 16)) & 0xFFFF) / 65535.0;
    };
    auto value_noise = [&](double fx, double fy) {
        const int ix = static_cast<int>(std::floor(fx)), iy = static_cast<int>(std::floor(fy));
        double tx = fx - ix, ty = fy - iy;
        tx = tx * tx * (3 - 2 * tx), ty = ty * ty * (3 - 2 * ty);
        const double a = lattice(ix, iy) + tx * (lattice(ix + 1, iy) - lattice(ix, iy));
        const double b = lattice(ix, iy + 1) + tx * (lattice(ix + 1, iy + 1) - lattice(ix, iy + 1));
        return a + ty * (b - a);
    };
    std::uint32_t s = seed * 2654435761u + 3;
    const double scale = 8.0 / w;  // eight coarse cells across whatever the size
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double t = 0.55 * value_noise(x * scale, y * scale) + 0.3 * value_noise(x * scale * 4, y * scale * 4) +
                             0.15 * value_noise(x * scale * 16, y * scale * 16);
            const double moss = value_noise(x * scale * 2 + 17, y * scale * 2 + 5);
            int n[3];
            for (int& v : n) {
                s = s * 1664525u + 1013904223u;
                v = static_cast<int>(s >> 26) - 32;
            }
            const double r = 40 + 170 * t - 50 * moss, g = 35 + 150 * t + 30 * moss, b = 30 + 120 * t - 10 * moss;
            img.m_pixels[static_cast<std::size_t>(y) * w + x] =
                tagRGBA{bench_clamp(r + n[0]), bench_clamp(g + n[1]), bench_clamp(b + n[2]), 255};
        }
}

inline kiv& photo(int size) {
    static kiv* cache[2] = {nullptr, nullptr};
    kiv*& slot = cache[size == 4096 ? 1 : 0];
    if (!slot || slot->m_width != size) {
        delete slot;
        slot = new kiv(size, size, 24);
        fill_photo(*slot);
    }
    return *slot;
}

// memcpy of a size x size image's bytes: the yardstick for memory-bound operations.
inline void memcpy_image(benchmark::State& state, int size) {
    std::vector<unsigned char> a(static_cast<std::size_t>(size) * size * 4, 1), b(a.size());
    for (auto _ : state) {
        std::memcpy(b.data(), a.data(), a.size());
        benchmark::DoNotOptimize(b.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(a.size()));
}

// Runs f on a fresh copy of the size x size photo each iteration; the copy is timed apart
// and excluded.
template <class F>
void run_on_photo_copy(benchmark::State& state, int size, F f) {
    kiv& src = photo(size);
    kiv img(size, size, 24);
    for (auto _ : state) {
        state.PauseTiming();
        img.blt(0, 0, size, size, &src, 0, 0);
        state.ResumeTiming();
        f(img);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size) * size * 4);
}

}  // namespace kivbench

// The main of every benchmark program. KIV_BENCH_THREADS=N caps the library's threads
// (default: all cores).
#define KIV_BENCH_MAIN()                                                                         \
    int main(int argc, char** argv) {                                                            \
        if (const char* t = std::getenv("KIV_BENCH_THREADS")) kiv::setthreads(std::atoi(t));     \
        benchmark::Initialize(&argc, argv);                                                      \
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;                        \
        benchmark::RunSpecifiedBenchmarks();                                                     \
        benchmark::Shutdown();                                                                   \
        return 0;                                                                                \
    }

#endif
