// The row-parallel loop: coverage, nesting, exceptions, thread caps, progress hooks.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <climits>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "core/parallel.h"
#include "kiv.h"
#include "support/paths.h"

using kivcore::parallel_for;

using kivtest::ThreadCap;

TEST(ParallelLoop, EveryIndexExactlyOnce) {
    for (int threads : {0, 1, 2, 3, 8}) {
        ThreadCap cap(threads);
        for (auto [first, last] : {std::pair{0, 1}, {0, 2}, {0, 1000}, {-37, 91}, {5, 6}, {100, 20017}}) {
            std::vector<std::atomic<int>> hits(static_cast<std::size_t>(last - first));
            parallel_for(first, last, [&](int i) {
                ASSERT_GE(i, first);
                ASSERT_LT(i, last);
                hits[static_cast<std::size_t>(i - first)].fetch_add(1);
            });
            for (auto& h : hits) ASSERT_EQ(1, h.load()) << threads << " " << first << ".." << last;
        }
    }
}

TEST(ParallelLoop, EmptyRangesCallNothing) {
    int calls = 0;
    parallel_for(0, 0, [&](int) { ++calls; });
    parallel_for(10, 3, [&](int) { ++calls; });
    parallel_for(INT_MAX, INT_MIN, [&](int) { ++calls; });
    EXPECT_EQ(0, calls);
}

TEST(ParallelLoop, RangesNearTheIntLimits) {
    std::atomic<long long> sum{0};
    std::atomic<int> count{0};
    parallel_for(INT_MAX - 100, INT_MAX, [&](int i) {
        sum += i;
        ++count;
    });
    EXPECT_EQ(100, count.load());
    long long expect = 0;
    for (long long i = INT_MAX - 100LL; i < INT_MAX; ++i) expect += i;
    EXPECT_EQ(expect, sum.load());
}

TEST(ParallelLoop, ConcurrentCallersShareThePool) {
    // Several host threads each running their own loops: no index lost or repeated.
    std::vector<std::thread> hosts;
    std::atomic<int> failures{0};
    for (int t = 0; t < 4; ++t)
        hosts.emplace_back([&, t] {
            for (int round = 0; round < 50; ++round) {
                int n = 50 + 37 * t + round;
                std::vector<std::atomic<int>> hits(static_cast<std::size_t>(n));
                parallel_for(0, n, [&](int i) { hits[static_cast<std::size_t>(i)]++; });
                for (auto& h : hits)
                    if (h.load() != 1) ++failures;
            }
        });
    for (auto& h : hosts) h.join();
    EXPECT_EQ(0, failures.load());
}

TEST(ParallelLoop, NestedLoopsRunInline) {
    std::atomic<int> total{0};
    std::atomic<int> inner_threads_seen{0};
    parallel_for(0, 16, [&](int) {
        std::thread::id me = std::this_thread::get_id();
        parallel_for(0, 64, [&](int) {
            if (std::this_thread::get_id() != me) ++inner_threads_seen;
            ++total;
        });
    });
    EXPECT_EQ(16 * 64, total.load());
    EXPECT_EQ(0, inner_threads_seen.load());
}

TEST(ParallelLoop, ExceptionsReachTheCaller) {
    for (int threads : {1, 0}) {
        ThreadCap cap(threads);
        std::atomic<int> after{0};
        EXPECT_THROW(parallel_for(0, 10000,
                                  [&](int i) {
                                      if (i == 777) throw std::bad_alloc();
                                      ++after;
                                  }),
                     std::bad_alloc);
        EXPECT_LT(after.load(), 10000);
        // The pool is still usable afterwards.
        std::atomic<int> n{0};
        parallel_for(0, 500, [&](int) { ++n; });
        EXPECT_EQ(500, n.load());
    }
    EXPECT_THROW(parallel_for(0, 100, [](int i) {
                     if (i % 3 == 0) throw std::runtime_error("row");
                 }),
                 std::runtime_error);
}

TEST(ParallelLoop, ThreadCapIsHonoured) {
    kiv::setthreads(-5);
    EXPECT_EQ(0, kiv::getthreads());
    {
        ThreadCap cap(1);
        EXPECT_EQ(1, kiv::getthreads());
        std::thread::id me = std::this_thread::get_id();
        std::atomic<int> elsewhere{0};
        parallel_for(0, 5000, [&](int) {
            if (std::this_thread::get_id() != me) ++elsewhere;
        });
        EXPECT_EQ(0, elsewhere.load());
    }
    ThreadCap cap(2);
    std::mutex mu;
    std::set<std::thread::id> ids;
    parallel_for(0, 2000, [&](int) {
        std::this_thread::sleep_for(std::chrono::microseconds(20));
        std::lock_guard<std::mutex> lk(mu);
        ids.insert(std::this_thread::get_id());
    });
    EXPECT_LE(ids.size(), 2u);
}

TEST(ParallelLoop, ChunksCoverTheRange) {
    std::vector<std::atomic<int>> hits(1001);
    kivcore::parallel_chunks(0, 1001, [&](int b, int e) {
        ASSERT_LT(b, e);
        for (int i = b; i < e; ++i) hits[static_cast<std::size_t>(i)]++;
    });
    for (auto& h : hits) EXPECT_EQ(1, h.load());
}

namespace {
std::vector<std::pair<int, int>> g_calls;
std::thread::id g_callback_thread;
void record(int code, int value) {
    g_calls.emplace_back(code, value);
    g_callback_thread = std::this_thread::get_id();
}
}  // namespace

TEST(Progress, HooksCallTheCallbackWithTheirCodes) {
    kiv img(2, 2, 24);
    g_calls.clear();
    img.m_progressproc = record;
    img.progress_init(5);
    img.progress_continue();
    img.progress_term();
    img.progress_reset();
    std::vector<std::pair<int, int>> expect = {{0, 5}, {1, 0}, {2, 0}, {3, 0}};
    EXPECT_EQ(expect, g_calls);
    EXPECT_EQ(std::this_thread::get_id(), g_callback_thread);
}

TEST(ParallelLoop, WorkDecidesHowManyThreadsShareALoop) {
    const double from = kivcore::split_work();  // the caller alone below it
    struct Case {
        long long n;
        double work;
        int threads, want;
    };
    for (const Case& c : {Case{64, from / 128, 8, 1}, {2, from / 2, 8, 2}, {4, from / 2, 8, 4}, {1000, from, 2, 2},
                          {1, 1e12, 8, 1}, {100, -1.0, 8, 1}, {100, std::nan(""), 8, 1}, {100, 1e12, 1, 1}})
        EXPECT_EQ(c.want, kivcore::threads_for(c.n, kivcore::Work{c.work}, c.threads)) << c.n << " x " << c.work;
    // Small sized loops stay on the calling thread; large ones still cover the range once.
    ThreadCap cap(0);
    const std::thread::id me = std::this_thread::get_id();
    for (double work : {1.0, from}) {
        std::vector<std::atomic<int>> hits(500);
        std::atomic<int> elsewhere{0};
        kivcore::parallel_chunks(0, 500, kivcore::Work{work}, [&](int b, int e) {
            if (std::this_thread::get_id() != me) ++elsewhere;
            for (int i = b; i < e; ++i) hits[static_cast<std::size_t>(i)]++;
        });
        for (auto& h : hits) ASSERT_EQ(1, h.load());
        if (work == 1.0) {
            EXPECT_EQ(0, elsewhere.load());
        }
    }
}
