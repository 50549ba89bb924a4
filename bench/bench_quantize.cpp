// Quantization of the 4096 x 4096 photo to 256 colours (nearest, Floyd-Steinberg, ordered),
// with the PSNR of the result against the original as a counter; memcpy as the yardstick.
#include <cmath>

#include "bench_common.h"

static void BM_memcpy_4096(benchmark::State& state) { kivbench::memcpy_image(state, 4096); }
BENCHMARK(BM_memcpy_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

// Peak signal-to-noise ratio over red, green and blue, in dB.
static double psnr(kiv& a, kiv& b) {
    double se = 0;
    for (int i = 0; i < a.m_packets; ++i) {
        const tagRGBA &p = a.m_pixels[i], &q = b.m_pixels[i];
        const double dr = p.r - q.r, dg = p.g - q.g, db = p.b - q.b;
        se += dr * dr + dg * dg + db * db;
    }
    const double mse = se / (3.0 * a.m_packets);
    return mse == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

static void BM_quantize256_4096(benchmark::State& state) {
    kiv& src = kivbench::photo(4096);
    const int mode = static_cast<int>(state.range(0));
    kiv work;
    for (auto _ : state) {
        state.PauseTiming();
        src.copyto(&work);
        state.ResumeTiming();
        work.quantize(mode, 256, nullptr);
    }
    state.counters["PSNR_dB"] = psnr(src, work);
    state.counters["colors"] = work.colors();
    state.SetBytesProcessed(state.iterations() * 4096LL * 4096 * 4);
}
BENCHMARK(BM_quantize256_4096)->Arg(0)->Arg(1)->Arg(4)->ArgName("mode")->Unit(benchmark::kMillisecond)->UseRealTime();

KIV_BENCH_MAIN()
