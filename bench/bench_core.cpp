// Foundation: blt and copyto of a 4096 x 4096 image next to memcpy; parallel-loop overhead.
#include <atomic>

#include "bench_common.h"

static void BM_memcpy_4096(benchmark::State& state) { kivbench::memcpy_image(state, 4096); }
BENCHMARK(BM_memcpy_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_blt_4096(benchmark::State& state) {
    kiv& src = kivbench::photo(4096);
    kiv dst(4096, 4096, 24);
    for (auto _ : state) dst.blt(0, 0, 4096, 4096, &src, 0, 0);
    state.SetBytesProcessed(state.iterations() * 4096LL * 4096 * 4);
}
BENCHMARK(BM_blt_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_copyto_4096(benchmark::State& state) {
    kiv& src = kivbench::photo(4096);
    kiv dst(4096, 4096, 24);
    for (auto _ : state) src.copyto(&dst);
    state.SetBytesProcessed(state.iterations() * 4096LL * 4096 * 4);
}
BENCHMARK(BM_copyto_4096)->Unit(benchmark::kMillisecond)->UseRealTime();

// The loop's fixed cost: a blt of a 1-pixel-wide, n-row block is n empty-ish row bodies.
static void BM_parallel_loop_overhead(benchmark::State& state) {
    kiv src(1, static_cast<int>(state.range(0)), 24), dst(1, static_cast<int>(state.range(0)), 24);
    for (auto _ : state) dst.blt(0, 0, 1, static_cast<int>(state.range(0)), &src, 0, 0);
}
BENCHMARK(BM_parallel_loop_overhead)->Arg(2)->Arg(64)->Arg(4096)->Unit(benchmark::kMicrosecond)->UseRealTime();

KIV_BENCH_MAIN()
