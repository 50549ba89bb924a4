// Row-parallel loop: one process-wide pool of persistent workers plus the calling thread.
#ifndef KIV_CORE_PARALLEL_H
#define KIV_CORE_PARALLEL_H

#include <type_traits>
#include <utility>

namespace kivcore {

// Runs fn(ctx, b, e) over disjoint chunks [b, e) that together cover [first, last) exactly
// once, on the pool and the calling thread, and returns when every chunk has finished.
// Nested calls (from inside a chunk) and single-threaded settings run inline. An exception
// thrown by a chunk stops the handing out of further chunks and is rethrown here.
using RangeFn = void (*)(void* ctx, int begin, int end);
void parallel_range(int first, int last, RangeFn fn, void* ctx);

// Threads one operation may use (the cap from kiv::setthreads resolved against the cores,
// and inside a sized loop's call the threads that loop chose).
int parallel_threads();

// Whether the calling thread is running a chunk of a parallel_range.
bool inside_parallel_body();

// What one index of a loop costs, in pixel steps: one step is about a plain pass over one
// pixel (a copy, a table look-up, an add of its channels); a 3 x 3 kernel is about ten a
// pixel. It decides only how many threads share a loop, never what the bodies compute.
struct Work {
    double per_index;
};
// A row of `pixels` pixels at `steps` pixel steps each.
constexpr Work row_work(long long pixels, double steps = 1.0) { return Work{static_cast<double>(pixels) * steps}; }
// One of `pieces` equal pieces of n indices of the given work (for a loop over bands or
// strips cut by the caller): the loop as a whole then splits as the n indices would.
constexpr Work piece_work(long long n, Work work, long long pieces) {
    return Work{pieces > 0 ? work.per_index * static_cast<double>(n) / static_cast<double>(pieces) : 0.0};
}

// Threads worth using for n indices of the given work, at most `threads`: the calling thread
// alone while the whole loop costs less than handing part of it to another thread does, then
// one more thread for each further share of about that size.
int threads_for(long long n, Work work, int threads);
// The work from which a loop splits (pixel steps; about what waking a worker costs). Tests
// set 0 to run every sized loop of more than one index on all threads.
void set_split_work(double steps);
double split_work();

// parallel_range for a loop whose work is known: a small loop runs on the calling thread
// alone, a larger one on as many threads as threads_for gives. Same calls of fn otherwise;
// within a watched call it reports and hears a cancel on however many threads it runs.
void parallel_range(int first, int last, Work work, RangeFn fn, void* ctx);

// body(i) for every i in [first, last).
template <class F>
void parallel_for(int first, int last, F&& body) {
    using Fn = std::remove_reference_t<F>;
    parallel_range(
        first, last,
        [](void* c, int b, int e) {
            Fn& f = *static_cast<Fn*>(c);
            for (int i = b; i < e; ++i) f(i);
        },
        const_cast<void*>(static_cast<const void*>(&body)));
}

// body(b, e) for disjoint chunks covering [first, last): for bodies that keep per-chunk
// scratch or state (line buffers, running sums).
template <class F>
void parallel_chunks(int first, int last, F&& body) {
    using Fn = std::remove_reference_t<F>;
    parallel_range(
        first, last, [](void* c, int b, int e) { (*static_cast<Fn*>(c))(b, e); },
        const_cast<void*>(static_cast<const void*>(&body)));
}

// The same for loops whose work an index is known: small ones stay on the calling thread.
template <class F>
void parallel_for(int first, int last, Work work, F&& body) {
    using Fn = std::remove_reference_t<F>;
    parallel_range(
        first, last, work,
        [](void* c, int b, int e) {
            Fn& f = *static_cast<Fn*>(c);
            for (int i = b; i < e; ++i) f(i);
        },
        const_cast<void*>(static_cast<const void*>(&body)));
}

template <class F>
void parallel_chunks(int first, int last, Work work, F&& body) {
    using Fn = std::remove_reference_t<F>;
    parallel_range(
        first, last, work, [](void* c, int b, int e) { (*static_cast<Fn*>(c))(b, e); },
        const_cast<void*>(static_cast<const void*>(&body)));
}

}  // namespace kivcore

#endif
