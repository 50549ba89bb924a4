// The process-wide worker pool behind parallel_range.
#include "core/parallel.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "core/watch.h"
#include "kiv.h"

#if defined(__x86_64__) || defined(_M_X64) || defined(__i386__) || defined(_M_IX86)
#include <immintrin.h>
#endif

namespace kivcore {
namespace {

std::atomic<int> g_thread_cap{0};  // 0 = all cores
thread_local bool t_inside_body = false;
thread_local int t_sized_cap = 0;  // threads a sized loop chose for its call, 0 = no limit

// Below this many pixel steps in all (about as many nanoseconds of one core), a loop runs
// on the calling thread: a parked worker can take tens of microseconds to wake, and until it
// does the caller works alone, so only a loop well past that gains. Each further thread
// needs about half as much again to pay for itself.
constexpr double kSplitWork = 65536;
std::atomic<double> g_split_work{kSplitWork};

// One spin-wait step: tells the core (and a hyperthread sibling) that this thread is waiting.
inline void spin_pause() {
#if defined(__x86_64__) || defined(_M_X64) || defined(__i386__) || defined(_M_IX86)
    _mm_pause();
#else
    std::this_thread::yield();
#endif
}

// Spins while busy() holds, for at most about `budget`; true when busy() stopped holding.
// Waiting this way costs no sleep and wake-up of the thread, which on a virtual machine can
// take longer than a small loop's whole work.
template <class Busy>
bool spin_while(Busy busy, std::chrono::microseconds budget) {
    const auto until = std::chrono::steady_clock::now() + budget;
    for (;;) {
        for (int i = 0; i < 64; ++i) {
            if (!busy()) return true;
            spin_pause();
        }
        if (std::chrono::steady_clock::now() >= until) return !busy();
    }
}

// How long an idle worker keeps looking for the next loop before it sleeps (operations
// called back to back then find it awake, and the system need not wake its core to have it
// drop mappings the caller frees just after a loop), and how long a caller waits for the
// workers still inside its loop before it sleeps (they finish at most one chunk each).
constexpr std::chrono::microseconds kWorkerSpin{100};
constexpr std::chrono::microseconds kCallerSpin{1000};
// How long the caller of a watched loop waits for its workers between two reports.
constexpr std::chrono::milliseconds kWatchedWait{5};

// One call of parallel_range. Lives on the caller's stack; the caller leaves only when no
// worker holds it any more.
struct Job {
    RangeFn fn;
    void* ctx;
    int last;
    int chunk;
    std::atomic<long long> next;  // next index to hand out (64-bit: no overflow near INT_MAX)
    std::atomic<bool> failed{false};
    std::exception_ptr error;     // first exception, guarded by Pool::mu
    int helpers_allowed;          // workers that may join besides the caller
    std::atomic<int> helpers_in{0};  // workers currently inside; changed only under Pool::mu
    // A watched call's loop (see watched_range): indices finished so far, reported by the
    // calling thread, which stops the handing out of chunks when the host cancels.
    Watch* watch = nullptr;
    long long count = 0;
    std::atomic<long long> finished{0};
    bool cancelled = false;
};

class Pool {
public:
    static Pool& get() {
        // Leaked on purpose: workers may still be parked at process exit, and a static
        // destructor joining them could deadlock inside DllMain or exit handlers.
        static Pool* p = new Pool();
        return *p;
    }

    int cores() const { return cores_; }

    void run(Job& job) {
        bool wake;
        {
            std::lock_guard<std::mutex> lk(mu);
            start_workers_locked(job.helpers_allowed);
            jobs_.push_back(&job);
            posted_.fetch_add(1, std::memory_order_release);
            wake = parked_ > 0;  // spinning workers see posted_ change without a wake-up call
        }
        if (wake) cv_work_.notify_all();
        work_on(job, true);  // the caller takes chunks too
        {
            std::lock_guard<std::mutex> lk(mu);
            jobs_.remove(&job);  // no new worker may join once its range is spent
        }
        wait_for_helpers(job);
    }

    std::mutex mu;

private:
    Pool() {
        unsigned hc = std::thread::hardware_concurrency();
        cores_ = hc == 0 ? 1 : static_cast<int>(std::min(hc, 256u));
    }

    void start_workers_locked(int wanted) {
        wanted = std::min(wanted, cores_ - 1);
        while (static_cast<int>(threads_.size()) < wanted) {
            // A system out of threads is no reason to fail: the calling thread always works,
            // so carry on with the workers already running.
            try {
                threads_.emplace_back([this] { worker_loop(); });
            } catch (...) {
                return;
            }
            threads_.back().detach();
        }
    }

    static void work_on(Job& job, bool caller = false) {
        bool was_inside = t_inside_body;
        t_inside_body = true;
        for (;;) {
            if (job.failed.load(std::memory_order_relaxed)) break;
            long long b = job.next.fetch_add(job.chunk, std::memory_order_relaxed);
            if (b >= job.last) break;
            long long e = std::min<long long>(b + job.chunk, job.last);
            try {
                job.fn(job.ctx, static_cast<int>(b), static_cast<int>(e));
                if (job.watch) report(job, e - b, caller);
            } catch (...) {
                std::lock_guard<std::mutex> lk(Pool::get().mu);
                if (!job.error) job.error = std::current_exception();
                job.failed.store(true);
            }
        }
        t_inside_body = was_inside;
    }

    // Returns once no worker is inside job any more. A worker leaves with its last touch of the
    // job being the decrement of helpers_in, so the job may end as soon as it reads 0.
    void wait_for_helpers(Job& job) {
        auto inside = [&] { return job.helpers_in.load(std::memory_order_acquire) != 0; };
        if (spin_while(inside, kCallerSpin)) return;
        std::unique_lock<std::mutex> lk(mu);
        // A watched call's caller keeps reporting (and hearing a cancel) while the last
        // chunks finish on the workers; only it calls the host, so it does so unlocked.
        while (job.watch && !cv_done_.wait_for(lk, kWatchedWait, [&] { return !inside(); })) {
            lk.unlock();
            report(job, 0, true);
            lk.lock();
        }
        cv_done_.wait(lk, [&] { return !inside(); });
    }

    // An idle worker's wait for the next loop: first spinning on posted_, then asleep.
    // Returns with mu held (through lk) and a job to join.
    Job* wait_for_job(std::unique_lock<std::mutex>& lk) {
        Job* j = pick_locked();
        if (j) return j;
        const unsigned seen = posted_.load(std::memory_order_acquire);
        lk.unlock();
        spin_while([&] { return posted_.load(std::memory_order_acquire) == seen; }, kWorkerSpin);
        lk.lock();
        ++parked_;
        cv_work_.wait(lk, [&] { return (j = pick_locked()) != nullptr; });
        --parked_;
        return j;
    }

    static void report(Job& job, long long chunk, bool caller) {
        const long long done = job.finished.fetch_add(chunk) + chunk;
        if (caller && !job.watch->stage(static_cast<double>(done) / static_cast<double>(job.count))) {
            job.cancelled = true;
            job.failed.store(true);
        }
    }

    Job* pick_locked() {
        for (Job* j : jobs_) {
            if (j->helpers_in < j->helpers_allowed && !j->failed.load() &&
                j->next.load(std::memory_order_relaxed) < j->last)
                return j;
        }
        return nullptr;
    }

    void worker_loop() {
        std::unique_lock<std::mutex> lk(mu);
        for (;;) {
            Job* j = wait_for_job(lk);
            j->helpers_in.fetch_add(1, std::memory_order_relaxed);
            lk.unlock();
            work_on(*j);
            lk.lock();
            if (j->helpers_in.fetch_sub(1, std::memory_order_acq_rel) == 1) cv_done_.notify_all();
        }
    }

    int cores_ = 1;
    std::vector<std::thread> threads_;
    std::list<Job*> jobs_;
    std::atomic<unsigned> posted_{0};  // loops posted so far: what spinning workers watch
    int parked_ = 0;                   // workers asleep on cv_work_, guarded by mu
    std::condition_variable cv_work_;
    std::condition_variable cv_done_;
};

// Chunks a thread of a watched loop takes at the most: each is at most about a sixtieth of
// the loop, so the calling thread reports often enough and a cancel waits for little.
constexpr long long kWatchedChunks = 64;

// parallel_range within a watched call: the calling thread reports the share of indices
// finished after each of its chunks and, when the host cancels, hands out no more chunks
// and throws Cancelled once the chunks under way are done.
void watched_range(int first, int last, RangeFn fn, void* ctx, Watch& w) {
    const long long n = static_cast<long long>(last) - first;
    const int threads = parallel_threads();
    const long long chunk = std::max<long long>(1, n / (static_cast<long long>(threads) * kWatchedChunks));
    if (threads <= 1 || n < 2) {
        for (long long b = first; b < last; b += chunk) {
            const long long e = std::min<long long>(b + chunk, last);
            t_inside_body = true;
            try {
                fn(ctx, static_cast<int>(b), static_cast<int>(e));
            } catch (...) {
                t_inside_body = false;
                throw;
            }
            t_inside_body = false;
            if (!w.stage(static_cast<double>(e - first) / static_cast<double>(n))) throw Cancelled{};
        }
        return;
    }
    Job job;
    job.fn = fn;
    job.ctx = ctx;
    job.last = last;
    job.chunk = static_cast<int>(chunk);
    job.next.store(first);
    job.helpers_allowed = static_cast<int>(std::min<long long>(threads - 1, n - 1));
    job.watch = &w;
    job.count = n;
    Pool::get().run(job);
    if (job.error) std::rethrow_exception(job.error);
    if (job.cancelled) throw Cancelled{};
}

}  // namespace

bool inside_parallel_body() { return t_inside_body; }

int parallel_threads() {
    int cap = g_thread_cap.load(std::memory_order_relaxed);
    int cores = Pool::get().cores();
    const int n = cap <= 0 ? cores : std::min(cap, cores);
    return t_sized_cap > 0 ? std::min(n, t_sized_cap) : n;
}

int threads_for(long long n, Work work, int threads) {
    const double total = static_cast<double>(n) * work.per_index, from = split_work();
    if (threads <= 1 || n < 2 || !(total >= from)) return 1;  // NaN and negative work too
    const double shares = from > 0 ? std::floor(total / (from / 2)) : threads;
    return shares >= threads ? threads : std::max(1, static_cast<int>(shares));
}

void set_split_work(double steps) { g_split_work.store(steps >= 0 ? steps : kSplitWork); }
double split_work() { return g_split_work.load(std::memory_order_relaxed); }

void parallel_range(int first, int last, Work work, RangeFn fn, void* ctx) {
    // The choice holds for this call only; a sized loop inside a body runs inline anyway.
    const int saved = t_sized_cap;
    t_sized_cap = threads_for(static_cast<long long>(last) - first, work, parallel_threads());
    struct Restore {
        int v;
        ~Restore() { t_sized_cap = v; }
    } restore{saved};
    parallel_range(first, last, fn, ctx);
}

void parallel_range(int first, int last, RangeFn fn, void* ctx) {
    if (last <= first || !fn) return;
    if (!t_inside_body)
        if (Watch* w = active_watch()) return watched_range(first, last, fn, ctx, *w);
    long long n = static_cast<long long>(last) - first;
    int threads = t_inside_body ? 1 : parallel_threads();
    if (threads <= 1 || n < 2) {
        fn(ctx, first, last);
        return;
    }
    Job job;
    job.fn = fn;
    job.ctx = ctx;
    job.last = last;
    // About eight chunks a thread: small enough that uneven rows balance, large enough
    // that the shared counter stays cold.
    long long chunk = n / (static_cast<long long>(threads) * 8);
    job.chunk = static_cast<int>(std::max<long long>(1, chunk));
    job.next.store(first);
    job.helpers_allowed = static_cast<int>(std::min<long long>(threads - 1, n - 1));
    Pool::get().run(job);
    if (job.error) std::rethrow_exception(job.error);
}

}  // namespace kivcore

void kiv::setthreads(int n) { kivcore::g_thread_cap.store(n < 0 ? 0 : n); }
int kiv::getthreads() { return kivcore::g_thread_cap.load(); }
