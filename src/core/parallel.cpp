// The process-wide worker pool behind parallel_range.
#include "core/parallel.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "core/watch.h"
#include "kiv.h"

namespace kivcore {
namespace {

std::atomic<int> g_thread_cap{0};  // 0 = all cores
thread_local bool t_inside_body = false;
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
    int helpers_in = 0;           // workers currently inside, guarded by Pool::mu
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
        {
            std::lock_guard<std::mutex> lk(mu);
            start_workers_locked(job.helpers_allowed);
            jobs_.push_back(&job);
        }
        cv_work_.notify_all();
        work_on(job, true);  // the caller takes chunks too
        std::unique_lock<std::mutex> lk(mu);
        jobs_.remove(&job);  // no new worker may join once its range is spent
        // A watched call's caller keeps reporting (and hearing a cancel) while the last
        // chunks finish on the workers.
        while (job.watch && !cv_done_.wait_for(lk, kWatchedWait, [&] { return job.helpers_in == 0; })) {
            lk.unlock();
            report(job, 0, true);
            lk.lock();
        }
        cv_done_.wait(lk, [&] { return job.helpers_in == 0; });
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
            Job* j = nullptr;
            cv_work_.wait(lk, [&] { return (j = pick_locked()) != nullptr; });
            ++j->helpers_in;
            lk.unlock();
            work_on(*j);
            lk.lock();
            if (--j->helpers_in == 0) cv_done_.notify_all();
        }
    }

    int cores_ = 1;
    std::vector<std::thread> threads_;
    std::list<Job*> jobs_;
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
    return cap <= 0 ? cores : std::min(cap, cores);
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
