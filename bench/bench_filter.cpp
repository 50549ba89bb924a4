// Filters on the 4096 x 4096 photo-like image, next to a memcpy of the same image.
#include <cstdlib>

#include "bench_common.h"

namespace {
constexpr int kSize = 4096;
}  // namespace

static void BM_memcpy_4096(benchmark::State& state) { kivbench::memcpy_image(state, kSize); }
BENCHMARK(BM_memcpy_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_blur_gauss_iir(benchmark::State& state) {
    const double s = static_cast<double>(state.range(0));
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.blur_gauss_iir(nullptr, s, s); });
}
BENCHMARK(BM_blur_gauss_iir)->Arg(2)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_blur_gauss_rle(benchmark::State& state) {
    const double s = static_cast<double>(state.range(0));
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.blur_gauss_rle(nullptr, s); });
}
BENCHMARK(BM_blur_gauss_rle)->Arg(2)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_blur_simple_r5(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.blur_simple(nullptr, 5); });
}
BENCHMARK(BM_blur_simple_r5)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_filter_3x3(benchmark::State& state) {
    const unsigned mode = static_cast<unsigned>(state.range(0));
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.filter_3x3(nullptr, mode); });
}
BENCHMARK(BM_filter_3x3)->Arg(0)->Arg(1)->Arg(3)->Arg(12)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_edge(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.edge(nullptr, 10.0); });
}
BENCHMARK(BM_edge)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_emboss(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.emboss(nullptr, nullptr); });
}
BENCHMARK(BM_emboss)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_blur_gauss_sel_r5(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.blur_gauss_sel(nullptr, 5.0, 20); });
}
BENCHMARK(BM_blur_gauss_sel_r5)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

static void BM_unsharp_mask(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.unsharp_mask(nullptr, 2.0, 100, 3); });
}
BENCHMARK(BM_unsharp_mask)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_unsharp_mask2(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.unsharp_mask2(nullptr, 2.0, 100, 3); });
}
BENCHMARK(BM_unsharp_mask2)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_enhance(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.enhance(nullptr, 5, 50); });
}
BENCHMARK(BM_enhance)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_sharpen2(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.sharpen2(nullptr, 150); });
}
BENCHMARK(BM_sharpen2)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_filter_custom3x3(benchmark::State& state) {
    int k[9] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.filter_custom3x3(nullptr, k, 16); });
}
BENCHMARK(BM_filter_custom3x3)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_filter_sharpen(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.filter_sharpen(nullptr, 10); });
}
BENCHMARK(BM_filter_sharpen)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_mblur_linear(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.mblur_linear(nullptr, 30.0, 20); });
}
BENCHMARK(BM_mblur_linear)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_mblur_radial(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.mblur_radial(nullptr, kSize / 2, kSize / 2, 2.0); });
}
BENCHMARK(BM_mblur_radial)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_mblur_round(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.mblur_round(nullptr, kSize / 2, kSize / 2, 20); });
}
BENCHMARK(BM_mblur_round)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_mblur_zoom(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.mblur_zoom(nullptr, kSize / 2, kSize / 2, 2); });
}
BENCHMARK(BM_mblur_zoom)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_sblur_wind(benchmark::State& state) {
    const int dir = static_cast<int>(state.range(0));
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.sblur_wind(nullptr, dir, 20); });
}
BENCHMARK(BM_sblur_wind)->Arg(0)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_sblur_blast(benchmark::State& state) {
    const int dir = static_cast<int>(state.range(0));
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.sblur_blast(nullptr, dir, 20); });
}
BENCHMARK(BM_sblur_blast)->Arg(0)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

KIV_BENCH_MAIN()
