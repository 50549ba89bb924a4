// Fills and gradients on a 4096 x 4096 image next to a memcpy of the image.
#include "bench_common.h"

namespace {
constexpr int kSize = 4096;
constexpr std::int64_t kBytes = 4096LL * 4096 * 4;

kiv& work_image() {
    static kiv img(kivbench::photo(kSize));
    return img;
}
}  // namespace

static void BM_memcpy_4096(benchmark::State& state) { kivbench::memcpy_image(state, kSize); }
BENCHMARK(BM_memcpy_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

// Arguments: mode, opacity.
static void BM_solidfill_4096(benchmark::State& state) {
    kiv& img = work_image();
    const int mode = static_cast<int>(state.range(0)), op = static_cast<int>(state.range(1));
    for (auto _ : state) img.solidfill(nullptr, RGB(200, 120, 40), op, mode);
    state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK(BM_solidfill_4096)
    ->Args({0, 255})->Args({0, 128})->Args({7, 128})->Args({12, 128})->Args({3, 128})
    ->Unit(benchmark::kMillisecond)->UseRealTime();

// Arguments: direction, mode.
static void BM_shadefill_4096(benchmark::State& state) {
    kiv& img = work_image();
    COLORREF c[3] = {RGB(255, 0, 0), RGB(0, 255, 0), RGB(0, 0, 255)};
    const int dir = static_cast<int>(state.range(0)), mode = static_cast<int>(state.range(1));
    for (auto _ : state) img.shadefill(nullptr, c, 3, dir, 128, mode);
    state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK(BM_shadefill_4096)
    ->Args({6, 0})->Args({4, 0})->Args({7, 0})->Args({7, 7})->Args({7, 12})
    ->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_gradientfill_4096(benchmark::State& state) {
    kiv& img = work_image();
    tagGRADCOLORS g[3] = {{RGB(255, 0, 0), 0}, {RGB(0, 255, 0), 400}, {RGB(0, 0, 255), 1000}};
    const int dir = static_cast<int>(state.range(0)), mode = static_cast<int>(state.range(1));
    for (auto _ : state) img.gradientfill(nullptr, g, 3, dir, 128, mode);
    state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK(BM_gradientfill_4096)
    ->Args({6, 0})->Args({4, 0})->Args({2, 0})->Args({2, 7})->Args({2, 12})
    ->Unit(benchmark::kMillisecond)->UseRealTime();

KIV_BENCH_MAIN()
