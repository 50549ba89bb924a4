// The kiv program's progress bar: one line on stderr (operation name, percent, elapsed time)
// for work that runs longer than about half a second, drawn only on a terminal.
#ifndef KIV_CLI_PROGRESS_H
#define KIV_CLI_PROGRESS_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "kiv.h"

namespace kivcli {

class Progress {
public:
    // enabled false (stderr not a terminal, or -q): nothing is ever drawn.
    explicit Progress(bool enabled);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // A piece of work starts; the bar appears once it has run for half a second.
    void begin(const std::string& name);
    // How far it is, 0..1; until the first report the bar shows elapsed time only.
    void update(double fraction);
    // The work ended: the bar's line is cleared.
    void end();

    // The line drawn for name at fraction (negative: not known) after seconds, width 40.
    static std::string line(const std::string& name, double fraction, double seconds);

private:
    void draw_loop();
    const bool enabled_;
    std::mutex m_;
    std::condition_variable wake_;
    std::thread drawer_;
    bool stop_ = false, running_ = false, drawn_ = false;
    std::string name_;
    double fraction_ = -1;
    std::chrono::steady_clock::time_point start_;
};

// Connects one library call on img to a Progress (may be null) for its lifetime, through the
// image's watch callback (kiv::set_progress); the call stops early, leaving the image as it
// was, once stop (may be null) says so.
class ProgressFeed {
public:
    ProgressFeed(kiv& img, Progress* progress, bool (*stop)());
    ~ProgressFeed();
    ProgressFeed(const ProgressFeed&) = delete;
    ProgressFeed& operator=(const ProgressFeed&) = delete;

private:
    static int on_progress(void* user, int done, int total);
    kiv& img_;
    Progress* progress_;
    bool (*stop_)();
};

}  // namespace kivcli

#endif
