// Progress with cancellation: the callback table, the context of a watched call and the
// restore of a cancelled one.
#include "core/watch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "core/parallel.h"

namespace kivcore {

std::atomic<int> g_watching{0};
std::atomic<int> g_hooks{0};

namespace {

thread_local Watch* t_watch = nullptr;
thread_local bool t_cancelled = false;

struct Hook {
    kivProgressFn fn;
    void* user;
};

std::mutex& hooks_mutex() {
    static std::mutex* m = new std::mutex();  // leaked: objects may die during exit
    return *m;
}
std::unordered_map<const kiv*, Hook>& hooks() {
    static auto* h = new std::unordered_map<const kiv*, Hook>();
    return *h;
}

bool find_hook(const kiv* img, Hook* out) {
    std::lock_guard<std::mutex> lk(hooks_mutex());
    const auto it = hooks().find(img);
    if (it == hooks().end()) return false;
    *out = it->second;
    return true;
}

// Installs the context on the calling thread for one call.
class Installed {
public:
    explicit Installed(Watch& w) {
        t_watch = &w;
        g_watching.fetch_add(1);
    }
    ~Installed() {
        t_watch = nullptr;
        g_watching.fetch_sub(1);
    }
    Installed(const Installed&) = delete;
    Installed& operator=(const Installed&) = delete;
};

// Puts back what the image was when the call began. An image whose buffer is still there
// (or has the same size again) gets its pixels copied back, so a mapped store stays mapped;
// one the member rebuilt takes the copy itself.
void restore(kiv& img, kiv& before) {
    if (!before.m_pixels) return;
    if (img.m_pixels && img.m_width == before.m_width && img.m_height == before.m_height) {
        // In 1 MiB pieces over the pool: the copy counts towards the time a cancel takes.
        constexpr std::size_t kPiece = (1u << 20) / sizeof(tagRGBA);
        const std::size_t n = static_cast<std::size_t>(before.m_packets);
        parallel_for(0, static_cast<int>((n + kPiece - 1) / kPiece), row_work(kPiece, 0.5), [&](int i) {
            const std::size_t b = static_cast<std::size_t>(i) * kPiece;
            std::memcpy(img.m_pixels + b, before.m_pixels + b, std::min(kPiece, n - b) * sizeof(tagRGBA));
        });
        std::free(img.m_map);
        img.m_map = before.m_map;
        img.m_colors = before.m_colors;
        img.m_bits = before.m_bits;
        before.m_map = nullptr;
        before.m_colors = 0;
        return;
    }
    const kivProgressProc proc = img.m_progressproc;
    img.movefrom(&before);
    img.m_progressproc = proc;
}

}  // namespace

Watch* current_watch() { return t_watch; }

Quiet::Quiet() : w_(t_watch) { t_watch = nullptr; }
Quiet::~Quiet() { t_watch = w_; }

bool Watch::call(int done) {
    // The host's callback may use the library on other images: those calls are not part of
    // this one.
    Watch* const self = t_watch;
    t_watch = nullptr;
    const int stop = fn_(user_, done, kTotal);
    t_watch = self;
    if (stop) cancelled_ = true;
    return !cancelled_;
}

bool Watch::report(double whole) {
    if (cancelled_) return false;
    // The last step is the end's own: reported only by finish().
    const int d = std::min(kTotal - 1, static_cast<int>(std::clamp(whole, 0.0, 1.0) * kTotal));
    if (d <= done_) return true;
    done_ = d;
    return call(d);
}

bool Watch::start() {
    done_ = 0;
    return call(0);
}

void Watch::finish() {
    done_ = kTotal;
    Watch* const self = t_watch;
    t_watch = nullptr;
    fn_(user_, kTotal, kTotal);
    t_watch = self;
}

void poll_slow(Watch& w, long long done, long long n) {
    // Inside a chunk of a loop the loop reports; a serial stretch reports for itself.
    const bool go_on = inside_parallel_body() ? !w.cancelled()
                                              : w.stage(n > 0 ? static_cast<double>(done) / static_cast<double>(n) : 1.0);
    if (!go_on) throw Cancelled{};
}

Stages::Stages(std::initializer_list<double> weights) : w_(active_watch()) {
    if (!w_) return;
    lo_ = w_->lo;
    hi_ = w_->hi;
    double total = 0.0;
    for (double x : weights) total += x;
    cut_[0] = lo_;
    for (double x : weights) {
        if (n_ == 8) break;
        cut_[n_ + 1] = cut_[n_] + (total > 0.0 ? (hi_ - lo_) * x / total : 0.0);
        ++n_;
    }
    cut_[n_] = hi_;
    w_->lo = cut_[0];
    w_->hi = cut_[n_ > 0 ? 1 : 0];
}

void Stages::next() {
    if (!w_ || k_ + 1 >= n_) return;
    ++k_;
    w_->lo = cut_[k_];
    w_->hi = cut_[k_ + 1];
}

Stages::~Stages() {
    if (!w_) return;
    w_->lo = lo_;
    w_->hi = hi_;
}

Part::Part(double from, double to) : w_(active_watch()) {
    if (!w_) return;
    lo_ = w_->lo;
    hi_ = w_->hi;
    w_->lo = lo_ + (hi_ - lo_) * from;
    w_->hi = lo_ + (hi_ - lo_) * to;
}

Part::~Part() {
    if (!w_) return;
    w_->lo = lo_;
    w_->hi = hi_;
}

int watched_pieces(int usual, int most) {
    if (!active_watch()) return usual;
    constexpr int kPerThread = 32;
    return std::max(usual, std::min(most, parallel_threads() * kPerThread));
}

int watched_call(kiv& img, Keep keep, int (*body)(void*), void* ctx) {
    Hook hook{};
    if (t_watch || !find_hook(&img, &hook)) return body(ctx);
    Watch w(hook.fn, hook.user);
    if (!w.start()) {
        t_cancelled = true;
        return 0;
    }
    kiv before;
    // Without memory for the copy the call could not be undone: refuse it.
    if (keep == Keep::kCopy && img.m_pixels && !img.copyto(&before)) return 0;
    int result = 0;
    {
        const Installed on(w);
        try {
            result = body(ctx);
        } catch (const Cancelled&) {
            // the loops stopped; w knows it was cancelled
        }
    }
    if (w.cancelled()) {
        t_cancelled = true;
        restore(img, before);
        return 0;
    }
    w.finish();
    return result;
}

bool was_cancelled() { return t_cancelled; }
void reset_cancelled() { t_cancelled = false; }

void drop_hook(const kiv* img) {
    if (!g_hooks.load(std::memory_order_relaxed)) return;
    std::lock_guard<std::mutex> lk(hooks_mutex());
    if (hooks().erase(img)) g_hooks.fetch_sub(1);
}

}  // namespace kivcore

void kiv::set_progress(kivProgressFn fn, void* user) {
    std::lock_guard<std::mutex> lk(kivcore::hooks_mutex());
    auto& h = kivcore::hooks();
    const auto it = h.find(this);
    if (!fn) {
        if (it != h.end()) {
            h.erase(it);
            kivcore::g_hooks.fetch_sub(1);
        }
        return;
    }
    if (it == h.end()) kivcore::g_hooks.fetch_add(1);
    h[this] = kivcore::Hook{fn, user};
}
