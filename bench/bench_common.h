// Shared pieces of the benchmark programs: a deterministic photo-like image and the memcpy
// baseline every operation is reported against.
#ifndef KIV_BENCH_COMMON_H
#define KIV_BENCH_COMMON_H

#include <benchmark/benchmark.h>

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
