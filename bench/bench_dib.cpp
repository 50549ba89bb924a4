// DIB interchange and colour counting on 4096 x 4096 images, next to memcpy of the same bytes.
#include "bench_common.h"

static void BM_memcpy_4096(benchmark::State& state) { kivbench::memcpy_image(state, 4096); }
BENCHMARK(BM_memcpy_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_createdib_24_4096(benchmark::State& state) {
    kiv& img = kivbench::photo(4096);
    for (auto _ : state) {
        void* dib = img.createdib();
        benchmark::DoNotOptimize(dib);
        GlobalFree(dib);
    }
    state.SetBytesProcessed(state.iterations() * 4096LL * 4096 * 4);
}
BENCHMARK(BM_createdib_24_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_attachdib_24_4096(benchmark::State& state) {
    void* dib = kivbench::photo(4096).createdib();
    kiv img;
    for (auto _ : state) img.attachdib(dib);
    GlobalFree(dib);
    state.SetBytesProcessed(state.iterations() * 4096LL * 4096 * 4);
}
BENCHMARK(BM_attachdib_24_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_countcolors_photo_4096(benchmark::State& state) {
    kiv& img = kivbench::photo(4096);
    unsigned long n = 0;
    for (auto _ : state) benchmark::DoNotOptimize(n = img.countcolors());
    state.counters["colours"] = static_cast<double>(n);
    state.SetBytesProcessed(state.iterations() * 4096LL * 4096 * 4);
}
BENCHMARK(BM_countcolors_photo_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

KIV_BENCH_MAIN()
