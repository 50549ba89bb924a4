// Effects on the 4096 x 4096 photo-like image, next to a memcpy of the same image.
#include "bench_common.h"

namespace {

constexpr int kSize = 4096;

// A 256 x 256 canvas-like texture (grey noise, softened).
kiv& texture() {
    static kiv tex(256, 256, 24);
    static bool made = false;
    if (!made) {
        for (int i = 0; i < tex.m_packets; ++i) tex.m_pixels[i] = tagRGBA{128, 128, 128, 0};
        tagKIV_NOISE n{60, 1, 1, 3u};
        tex.noise(nullptr, &n);
        tex.blur_gauss_iir(nullptr, 1.0, 1.0);
        made = true;
    }
    return tex;
}

}  // namespace

static void BM_memcpy_4096(benchmark::State& state) { kivbench::memcpy_image(state, kSize); }
BENCHMARK(BM_memcpy_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_oilpaint(benchmark::State& state) {
    const int r = static_cast<int>(state.range(0)), levels = static_cast<int>(state.range(1));
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.oilpaint(nullptr, r, levels); });
}
BENCHMARK(BM_oilpaint)->Args({2, 20})->Args({8, 20})->Args({8, 256})->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_pixelize(benchmark::State& state) {
    const int size = static_cast<int>(state.range(0));
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.pixelize(nullptr, size); });
}
BENCHMARK(BM_pixelize)->Arg(4)->Arg(32)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_pyramid(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.pyramid(nullptr, 32, 60); });
}
BENCHMARK(BM_pyramid)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_spread(benchmark::State& state) {
    const int d = static_cast<int>(state.range(0));
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.spread(nullptr, d, 1u); });
}
BENCHMARK(BM_spread)->Arg(4)->Arg(32)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_video(benchmark::State& state) {
    kivbench::run_on_photo_copy(state, kSize, [](kiv& i) { i.video(nullptr, 40, 30); });
}
BENCHMARK(BM_video)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_noise(benchmark::State& state) {
    tagKIV_NOISE p{40, static_cast<int>(state.range(0)), 0, 7u};
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.noise(nullptr, &p); });
}
BENCHMARK(BM_noise)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_texturize(benchmark::State& state) {
    kiv& tex = texture();
    tagKIV_TEXTURE p{135, 45, 8};
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.texturize(nullptr, &tex, &p); });
}
BENCHMARK(BM_texturize)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_bumpmap(benchmark::State& state) {
    kiv& map = kivbench::photo(kSize);
    tagKIV_BUMPMAP p{135, 45, 4, 0};
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.bumpmap(nullptr, &map, &p); });
}
BENCHMARK(BM_bumpmap)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_bumpmap_merge(benchmark::State& state) {
    kiv& map = kivbench::photo(kSize);
    tagKIV_BUMPMAP p{135, 45, 4, 0};
    const int mode = static_cast<int>(state.range(0));
    kivbench::run_on_photo_copy(state, kSize, [&](kiv& i) { i.bumpmap_merge(nullptr, &map, &p, mode, 160); });
}
BENCHMARK(BM_bumpmap_merge)->Arg(0)->Arg(11)->Unit(benchmark::kMillisecond)->UseRealTime();

KIV_BENCH_MAIN()
