// The progress bar and its feed from the library.
#include "progress.h"

#include <cstdio>

namespace kivcli {

namespace {

constexpr double kDelay = 0.5;  // seconds of quiet before a bar appears
constexpr auto kRedraw = std::chrono::milliseconds(100);

}  // namespace

Progress::Progress(bool enabled) : enabled_(enabled) {
    if (enabled_) drawer_ = std::thread([this] { draw_loop(); });
}

Progress::~Progress() {
    if (!enabled_) return;
    end();
    {
        std::lock_guard<std::mutex> lock(m_);
        stop_ = true;
    }
    wake_.notify_all();
    drawer_.join();
}

void Progress::begin(const std::string& name) {
    if (!enabled_) return;
    std::lock_guard<std::mutex> lock(m_);
    name_ = name;
    fraction_ = -1;
    start_ = std::chrono::steady_clock::now();
    running_ = true;
}

void Progress::update(double fraction) {
    if (!enabled_) return;
    std::lock_guard<std::mutex> lock(m_);
    fraction_ = fraction;
}

void Progress::end() {
    if (!enabled_) return;
    std::lock_guard<std::mutex> lock(m_);
    running_ = false;
    if (drawn_) std::fprintf(stderr, "\r%*s\r", 79, "");
    drawn_ = false;
}

std::string Progress::line(const std::string& name, double fraction, double seconds) {
    char bar[41];
    const int width = 40;
    const int fill = fraction < 0 ? 0 : static_cast<int>(fraction * width + 1e-9);
    // Without a fraction a short block runs to and fro, so the line still shows life.
    const int pos = static_cast<int>(seconds * 10) % (2 * (width - 4));
    const int at = pos < width - 4 ? pos : 2 * (width - 4) - pos;
    for (int i = 0; i < width; ++i) bar[i] = fraction < 0 ? (i >= at && i < at + 4 ? '=' : ' ') : i < fill ? '#' : '.';
    bar[width] = 0;
    char pct[8] = " --%";
    if (fraction >= 0) std::snprintf(pct, sizeof pct, "%3d%%", static_cast<int>(fraction * 100 + 1e-9));
    char out[160];
    std::snprintf(out, sizeof out, "%-18.18s [%s] %s %6.1fs", name.c_str(), bar, pct, seconds);
    return out;
}

void Progress::draw_loop() {
    std::unique_lock<std::mutex> lock(m_);
    while (!stop_) {
        wake_.wait_for(lock, kRedraw);
        if (!running_) continue;
        const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        if (s < kDelay) continue;
        std::fprintf(stderr, "\r%s", line(name_, fraction_, s).c_str());
        std::fflush(stderr);
        drawn_ = true;
    }
}

ProgressFeed::ProgressFeed(kiv& img, Progress* progress, bool (*stop)()) : img_(img), progress_(progress), stop_(stop) {
    img_.set_progress(on_progress, this);
}

ProgressFeed::~ProgressFeed() { img_.set_progress(nullptr, nullptr); }

int ProgressFeed::on_progress(void* user, int done, int total) {
    const auto* f = static_cast<const ProgressFeed*>(user);
    if (f->progress_ && total > 0) f->progress_->update(done >= total ? 1.0 : static_cast<double>(done) / total);
    return f->stop_ && f->stop_() ? 1 : 0;
}

}  // namespace kivcli
