// Resampling and orientation on photo-like images, each next to a memcpy of the image.
#include "bench_common.h"

static void BM_memcpy_4096(benchmark::State& state) { kivbench::memcpy_image(state, 4096); }
BENCHMARK(BM_memcpy_4096)->Unit(benchmark::kMillisecond)->UseRealTime();
static void BM_memcpy_1024(benchmark::State& state) { kivbench::memcpy_image(state, 1024); }
BENCHMARK(BM_memcpy_1024)->Unit(benchmark::kMillisecond)->UseRealTime();

// zoom(method) from size -> to; the copy made per iteration is timed out.
static void zoom_case(benchmark::State& state, int method, int from, int to) {
    kiv& src = kivbench::photo(from);
    for (auto _ : state) {
        state.PauseTiming();
        kiv img(src);
        state.ResumeTiming();
        img.zoom(to, to, method, 0);
        benchmark::DoNotOptimize(img.m_pixels);
    }
}
static void BM_zoom_lanczos3_4096_to_1024(benchmark::State& s) { zoom_case(s, 11, 4096, 1024); }
static void BM_zoom_lanczos3_1024_to_4096(benchmark::State& s) { zoom_case(s, 11, 1024, 4096); }
static void BM_zoom_mitchell_4096_to_1024(benchmark::State& s) { zoom_case(s, 10, 4096, 1024); }
static void BM_zoom_mitchell_1024_to_4096(benchmark::State& s) { zoom_case(s, 10, 1024, 4096); }
static void BM_zoom_triangle_4096_to_1024(benchmark::State& s) { zoom_case(s, 1, 4096, 1024); }
static void BM_zoom_triangle_1024_to_4096(benchmark::State& s) { zoom_case(s, 1, 1024, 4096); }
BENCHMARK(BM_zoom_lanczos3_4096_to_1024)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_zoom_lanczos3_1024_to_4096)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_zoom_mitchell_4096_to_1024)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_zoom_mitchell_1024_to_4096)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_zoom_triangle_4096_to_1024)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_zoom_triangle_1024_to_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

static void linear_case(benchmark::State& state, int from, int to) {
    kiv& src = kivbench::photo(from);
    for (auto _ : state) {
        state.PauseTiming();
        kiv img(src);
        state.ResumeTiming();
        img.zoom_linear(to, to);
        benchmark::DoNotOptimize(img.m_pixels);
    }
}
static void BM_zoom_linear_4096_to_1024(benchmark::State& s) { linear_case(s, 4096, 1024); }
static void BM_zoom_linear_1024_to_4096(benchmark::State& s) { linear_case(s, 1024, 4096); }
BENCHMARK(BM_zoom_linear_4096_to_1024)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_zoom_linear_1024_to_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

// In-place operations on one 4096 x 4096 image, bytes counted as one image's worth.
static void BM_rotate_4096(benchmark::State& state) {
    kiv img(kivbench::photo(4096));
    for (auto _ : state) img.rotate(0);
    state.SetBytesProcessed(state.iterations() * 4096LL * 4096 * 4);
}
static void BM_mirror_4096(benchmark::State& state) {
    kiv img(kivbench::photo(4096));
    for (auto _ : state) img.mirror(0, 0, 4096, 4096);
    state.SetBytesProcessed(state.iterations() * 4096LL * 4096 * 4);
}
static void BM_flip_4096(benchmark::State& state) {
    kiv img(kivbench::photo(4096));
    for (auto _ : state) img.flip(0, 0, 4096, 4096);
    state.SetBytesProcessed(state.iterations() * 4096LL * 4096 * 4);
}
BENCHMARK(BM_rotate_4096)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_mirror_4096)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_flip_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

KIV_BENCH_MAIN()
