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

// Threads one operation may use (the cap from kiv::setthreads resolved against the cores).
int parallel_threads();

// Whether the calling thread is running a chunk of a parallel_range.
bool inside_parallel_body();

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

}  // namespace kivcore

#endif
