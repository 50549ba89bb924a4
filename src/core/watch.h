// Progress with cancellation (kiv::set_progress): the host's callback per image, the context
// of one watched call on its calling thread, and the restore of the image when the host
// stops the call. Members that can run long wrap their body in watched(); the parallel loop
// reports and stops through the context, serial loops call poll().
#ifndef KIV_CORE_WATCH_H
#define KIV_CORE_WATCH_H

#include <atomic>
#include <initializer_list>
#include <type_traits>

#include "kiv.h"

namespace kivcore {

// Thrown through the loops of a call the host cancels; watched() catches it.
struct Cancelled {};

// The context of one watched call, on its calling thread. Progress is a fraction of the
// whole call; the stage running owns the part [lo, hi] of it.
class Watch {
public:
    static constexpr int kTotal = 100;  // done runs 0 .. kTotal
    Watch(kivProgressFn fn, void* user) : fn_(fn), user_(user) {}
    // Fraction f (0..1) of the current stage is done; false once the host has cancelled.
    bool stage(double f) { return report(lo + (hi - lo) * f); }
    bool report(double whole);
    bool start();   // done 0: false when the host cancels at once
    void finish();  // done = total (its result is ignored: the work is done)
    bool cancelled() const { return cancelled_; }
    double lo = 0.0, hi = 1.0;

private:
    bool call(int done);
    kivProgressFn fn_;
    void* user_;
    int done_ = -1;
    bool cancelled_ = false;
};

// Watched calls running on any thread: when 0, poll() and the loops skip all of this.
extern std::atomic<int> g_watching;
// The calling thread's watched call, or null (also inside the host's callback and in
// quiet loops).
Watch* current_watch();

// Loops that run while one lives report nothing: copies of whole images and the like, which
// would otherwise fill the share of the work the stage around them owns.
class Quiet {
public:
    Quiet();
    ~Quiet();
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

private:
    Watch* w_;
};
inline Watch* active_watch() { return g_watching.load(std::memory_order_relaxed) ? current_watch() : nullptr; }

// A serial loop's progress: `done` of `n` steps of the current stage (inside a chunk of a
// parallel loop, which reports for itself, only the cancel is looked at). Throws Cancelled
// when the host has cancelled. Costs a load of one atomic when nothing is watched.
void poll_slow(Watch& w, long long done, long long n);
inline void poll(long long done, long long n) {
    if (Watch* w = active_watch()) poll_slow(*w, done, n);
}

// Splits the current stage into parts of the given relative weights (at most 8); next()
// moves on to the following part; the destructor gives the stage back whole. Nothing
// without a watched call.
class Stages {
public:
    explicit Stages(std::initializer_list<double> weights);
    ~Stages();
    Stages(const Stages&) = delete;
    Stages& operator=(const Stages&) = delete;
    void next();

private:
    Watch* w_;
    double lo_ = 0.0, hi_ = 1.0, cut_[9] = {};
    int n_ = 0, k_ = 0;
};

// Narrows the current stage to its part [from, to] (fractions of it) for a loop run in
// pieces, such as batches of lines; the destructor widens it back.
class Part {
public:
    Part(double from, double to);
    ~Part();
    Part(const Part&) = delete;
    Part& operator=(const Part&) = delete;

private:
    Watch* w_;
    double lo_ = 0.0, hi_ = 1.0;
};

// The pieces a loop that cuts its work itself (bands, segments, strips) should use: usual,
// or while a call is watched more of them (up to most), so the calling thread reports often
// and a cancel waits for little.
int watched_pieces(int usual, int most);

// How a member keeps the image restorable under cancellation: kCopy keeps a copy of the
// image made before the call (members that change pixels in place); kAside relies on the
// member building its result aside and committing it only once no loop is left to cancel.
enum class Keep { kCopy, kAside };

// Runs body() (returning the member's int result) watched when img has a callback and no
// call on this thread is watched yet: on cancellation the image is put back and 0 returned.
int watched_call(kiv& img, Keep keep, int (*body)(void*), void* ctx);
extern std::atomic<int> g_hooks;  // images with a callback
template <class F>
int watched(kiv& img, Keep keep, F&& body) {
    if (!g_hooks.load(std::memory_order_relaxed)) return body();
    return watched_call(img, keep, [](void* c) { return (*static_cast<std::remove_reference_t<F>*>(c))(); }, &body);
}

// Whether a watched call on this thread was cancelled since reset_cancelled (for the
// reason the C interface gives).
bool was_cancelled();
void reset_cancelled();

// The callback table behind kiv::set_progress; drop_hook when an object dies.
void drop_hook(const kiv* img);

}  // namespace kivcore

#endif
