// Tone and colour adjustments on a 4096 x 4096 photo-like image, next to a memcpy of it.
// Each case works on its own copy; repeated iterations adjust the result again.
#include "bench_common.h"

namespace {

constexpr int kSize = 4096;

template <class F>
void run_adjust(benchmark::State& state, F op) {
    kiv img(kivbench::photo(kSize));
    for (auto _ : state) {
        benchmark::DoNotOptimize(op(img));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kSize) * kSize * 4);
}

tagKIV_COLORBALANCE balance(int preserve) {
    tagKIV_COLORBALANCE cb{};
    cb.red[0] = 20;
    cb.green[1] = -15;
    cb.blue[2] = 10;
    cb.preserve = preserve;
    return cb;
}

}  // namespace

static void BM_memcpy_4096(benchmark::State& state) { kivbench::memcpy_image(state, kSize); }

static void BM_bright_contrast(benchmark::State& s) {
    run_adjust(s, [](kiv& k) { return k.bright_contrast(nullptr, 10, 20); });
}
static void BM_gamma(benchmark::State& s) {
    run_adjust(s, [](kiv& k) { return k.gamma(nullptr, 1.1); });
}
static void BM_posterize(benchmark::State& s) {
    run_adjust(s, [](kiv& k) { return k.posterize(nullptr, 6); });
}
static void BM_desaturate(benchmark::State& s) {
    run_adjust(s, [](kiv& k) { return k.desaturate(nullptr); });
}
static void BM_hue_saturation(benchmark::State& s) {
    run_adjust(s, [](kiv& k) { return k.hue_saturation(nullptr, 0, 10, 5, 0); });
}
static void BM_modulate(benchmark::State& s) {
    run_adjust(s, [](kiv& k) { return k.modulate(nullptr, 3, 4, 0); });
}
static void BM_colorbalance(benchmark::State& s) {
    tagKIV_COLORBALANCE cb = balance(0);
    run_adjust(s, [&](kiv& k) { return k.colorbalance(nullptr, &cb); });
}
static void BM_colorbalance_preserve(benchmark::State& s) {
    tagKIV_COLORBALANCE cb = balance(1);
    run_adjust(s, [&](kiv& k) { return k.colorbalance(nullptr, &cb); });
}
static void BM_equalize(benchmark::State& s) {
    run_adjust(s, [](kiv& k) { return k.equalize(nullptr); });
}
static void BM_normalize(benchmark::State& s) {
    run_adjust(s, [](kiv& k) { return k.normalize(nullptr); });
}
static void BM_autocontrast(benchmark::State& s) {
    run_adjust(s, [](kiv& k) { return k.autocontrast(nullptr); });
}

#define KIV_BENCH(fn) BENCHMARK(fn)->Unit(benchmark::kMillisecond)->UseRealTime()
KIV_BENCH(BM_memcpy_4096);
KIV_BENCH(BM_bright_contrast);
KIV_BENCH(BM_gamma);
KIV_BENCH(BM_posterize);
KIV_BENCH(BM_desaturate);
KIV_BENCH(BM_hue_saturation);
KIV_BENCH(BM_modulate);
KIV_BENCH(BM_colorbalance);
KIV_BENCH(BM_colorbalance_preserve);
KIV_BENCH(BM_equalize);
KIV_BENCH(BM_normalize);
KIV_BENCH(BM_autocontrast);

KIV_BENCH_MAIN()
