// Every instruction-set path of the kernels and every thread count, for tests that hold them
// to the same bytes: the one sweep the suite uses.
#ifndef KIV_TEST_PATHS_H
#define KIV_TEST_PATHS_H

#include <gtest/gtest.h>

#include <string>

#include "core/simd.h"
#include "kiv.h"
#include "support/test_images.h"

namespace kivtest {

// Path 0 the best this processor runs (AVX2 where it has it), 1 SSE2, 2 scalar.
constexpr int kPaths = 3;
inline const char* path_name(int path) { return path == 0 ? "best" : path == 1 ? "sse2" : "scalar"; }

// Caps the thread count for its lifetime, then restores the cap it found.
struct ThreadCap {
    int old = kiv::getthreads();
    explicit ThreadCap(int n) { kiv::setthreads(n); }
    ~ThreadCap() { kiv::setthreads(old); }
    ThreadCap(const ThreadCap&) = delete;
    ThreadCap& operator=(const ThreadCap&) = delete;
};

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
            SCOPED_TRACE(std::string(path_name(path)) + ", " + std::to_string(threads) + " threads");
            check(path, threads);
        }
    }
}

// check(path) on every path, the thread count left alone.
template <class Check>
void on_every_path(Check check) {
    for (int path = 0; path < kPaths; ++path) {
        const OnPath on(path);
        SCOPED_TRACE(path_name(path));
        check(path);
    }
}

// op(image) on a copy of src must give want's bytes on every path at 1 .. max_threads
// threads.  op returns the operation's result, which must be expect_result.
template <class Op>
void same_on_every_path(const kiv& src, kiv& want, Op op, int max_threads = 3, long long expect_result = 1) {
    on_every_path(max_threads, [&](int, int) {
        kiv got(src);
        EXPECT_EQ(static_cast<long long>(op(got)), expect_result);
        EXPECT_TRUE(images_equal(want, got));
    });
}

}  // namespace kivtest

#endif
