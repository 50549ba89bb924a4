// kiv batch: the same operations over many files, several at a time.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

#include "cli.h"
#include "image_io.h"
#include "platform/files.h"
#include "progress.h"

namespace kivcli {

namespace {

std::string base_name(const std::string& path) {
    const std::size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// DIR/name, with the extension of the --format when one is given.
std::string output_for(const std::string& input, const Options& o) {
    std::string name = base_name(input);
    if (!o.format.empty()) {
        const std::size_t dot = name.rfind('.');
        const Codec* c = find_codec(o.format);
        std::string ext = c->extensions;
        name = (dot == std::string::npos ? name : name.substr(0, dot)) + ext.substr(0, ext.find(' '));
    }
    return o.out_dir + "/" + name;
}

}  // namespace

int run_batch(const Pipeline& p, std::ostream& out, std::ostream& err) {
    std::vector<std::string> files;
    std::set<std::string> seen, names;
    for (const std::string& pattern : p.patterns) {
        std::vector<std::string> found = kivplat::glob_files(pattern);
        if (found.empty()) err << "kiv: batch: nothing matches '" << pattern << "'\n";
        for (std::string& f : found)
            if (seen.insert(f).second) files.push_back(f);
    }
    if (files.empty()) return kExitFailed;
    for (const std::string& f : files)
        if (!names.insert(output_for(f, p.opt)).second) {
            err << "kiv: batch: two inputs would both write '" << output_for(f, p.opt) << "'\n";
            return kExitUsage;
        }
    std::string why;
    if (!kivplat::make_directories(p.opt.out_dir, &why)) {
        err << "kiv: batch: cannot create '" << p.opt.out_dir << "': " << why << "\n";
        return kExitFailed;
    }
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const std::size_t workers = std::min<std::size_t>(files.size(), p.opt.jobs > 0 ? static_cast<unsigned>(p.opt.jobs) : cores);
    std::atomic<std::size_t> next{0};
    std::mutex m;
    std::size_t done = 0, failed = 0;
    Progress progress(!p.opt.quiet && kivplat::is_terminal(stderr));
    progress.begin("batch");
    auto work = [&] {
        for (std::size_t i; !interrupted() && (i = next++) < files.size();) {
            std::ostringstream e;
            const int code = run_file(p, files[i], output_for(files[i], p.opt), e);
            std::lock_guard<std::mutex> lock(m);
            if (code == kExitInterrupted) continue;
            // One line per failure, naming the file (reasons about the file name it already).
            std::string msg = e.str();
            if (code != kExitOk) {
                ++failed;
                if (msg.rfind("kiv: ", 0) == 0) msg.erase(0, 5);
                if (msg.find(files[i]) == std::string::npos) msg = files[i] + ": " + msg;
                progress.end();
                err << "kiv: " << msg.substr(0, msg.find('\n')) << "\n";
                progress.begin("batch");
            } else if (p.opt.verbose) {
                err << msg;
            }
            progress.update(static_cast<double>(++done) / files.size());
        }
    };
    std::vector<std::thread> pool;
    for (std::size_t k = 1; k < workers; ++k) pool.emplace_back(work);
    work();
    for (std::thread& t : pool) t.join();
    progress.end();
    if (interrupted()) {
        err << "kiv: batch: interrupted after " << done << " of " << files.size() << " files\n";
        return kExitInterrupted;
    }
    if (failed || p.opt.verbose)
        err << "kiv: batch: " << files.size() - failed << " of " << files.size() << " files done" << (failed ? ", " + std::to_string(failed) + " failed" : "") << "\n";
    (void)out;
    return failed ? kExitFailed : kExitOk;
}

}  // namespace kivcli
