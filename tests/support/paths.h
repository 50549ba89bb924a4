// Every instruction-set path of the kernels, for tests that hold them to the same bytes.
#ifndef KIV_TEST_PATHS_H
#define KIV_TEST_PATHS_H

#include "core/simd.h"
#include "kiv.h"

namespace kivtest {

// Path 0 the best this processor runs (AVX2 where it has it), 1 SSE2, 2 scalar.
constexpr int kPaths = 3;
inline const char* path_name(int path) { return path == 0 ? "best" : path == 1 ? "sse2" : "scalar"; }

// Runs on one path for its lifetime, then lifts the cap and the thread limit again.
struct OnPath {
    explicit OnPath(int path) { kivcore::cap_isa(static_cast<kivcore::Isa>(2 - path)); }
    ~OnPath() {
        kivcore::cap_isa(kivcore::Isa::kAvx2);
        kiv::setthreads(0);
    }
};

// check(path, threads) on every path at 1 .. max_threads threads (band boundaries differ).
template <class Check>
void on_every_path(int max_threads, Check check) {
    for (int path = 0; path < kPaths; ++path) {
        const OnPath on(path);
        for (int threads = 1; threads <= max_threads; ++threads) {
            kiv::setthreads(threads);
            check(path, threads);
        }
    }
}

// check(path) on every path, the thread count left alone.
template <class Check>
void on_every_path(Check check) {
    for (int path = 0; path < kPaths; ++path) {
        const OnPath on(path);
        check(path);
    }
}

}  // namespace kivtest

#endif
