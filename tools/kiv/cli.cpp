// Command-line parsing and the operation pipeline of the kiv program.
#include "cli.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "image_io.h"
#include "ops.h"
#include "platform/files.h"
#include "progress.h"

namespace kivcli {

namespace {

// An integer option value in lo..hi, or a usage error.
bool int_option(const std::string& name, const std::string& text, int lo, int hi, int* v, std::ostream& err) {
    double d = 0;
    if (!parse_arg(text, ArgKind::Int, &d) || d < lo || d > hi) {
        err << "kiv: " << name << " must be " << lo << ".." << hi << " (got '" << text << "')\n";
        return false;
    }
    *v = static_cast<int>(d);
    return true;
}

// Option args[*k] (its value, if it takes one, after it): kExitOk, or kExitUsage.
int parse_option(const std::vector<std::string>& args, std::size_t* k, Pipeline* p, bool batch, std::ostream& err) {
    const std::string& a = args[*k];
    Options& o = p->opt;
    static const std::pair<const char*, bool Options::*> flags[] = {
        {"-q", &Options::quiet}, {"-v", &Options::verbose}, {"--lossless", &Options::lossless}, {"--linear", &Options::linear}};
    for (const auto& [name, member] : flags)
        if (a == name) {
            o.*member = true;
            return kExitOk;
        }
    if (a == "--no-autorotate") {
        o.autorotate = false;
        return kExitOk;
    }
    static const char* const with_value[] = {"-o", "--out", "-j", "--format", "--quality", "--threads"};
    if (std::find_if(std::begin(with_value), std::end(with_value), [&](const char* n) { return a == n; }) == std::end(with_value)) {
        err << "kiv: unknown option '" << a << "' (see kiv --help)\n";
        return kExitUsage;
    }
    if (*k + 1 >= args.size()) {
        err << "kiv: " << a << " needs a value\n";
        return kExitUsage;
    }
    const std::string& v = args[++*k];
    if ((a == "-o" && batch) || ((a == "--out" || a == "-j") && !batch)) {
        err << "kiv: " << a << (batch ? " is not for a batch (use --out DIR)\n" : " is only for a batch\n");
        return kExitUsage;
    }
    if (a == "-o" || a == "--out") {
        std::string& dest = a == "-o" ? p->output : o.out_dir;
        if (!dest.empty()) {
            err << "kiv: " << a << " given twice\n";
            return kExitUsage;
        }
        dest = v;
        return kExitOk;
    }
    if (a == "--format") {
        const Codec* c = find_codec(v);
        if (!c || !c->encode) {
            err << "kiv: --format: this build writes no format '" << v << "' (see kiv --formats)\n";
            return kExitUsage;
        }
        o.format = c->name;
        return kExitOk;
    }
    const bool ok = a == "-j" ? int_option(a, v, 1, 1024, &o.jobs, err)
                    : a == "--quality" ? int_option(a, v, 1, 100, &o.quality, err)
                                       : int_option(a, v, 0, 1024, &o.threads, err);
    return ok ? kExitOk : kExitUsage;
}

bool is_option(const std::string& a) { return a.size() > 1 && a[0] == '-'; }

// The rectangle's arguments, as the help shows them.
const std::vector<ArgSpec> kRectArgs = {
    {"X", ArgKind::Int, ""}, {"Y", ArgKind::Int, ""}, {"W", ArgKind::Int, ""}, {"H", ArgKind::Int, ""}};

// Says on err what happened to alpha, under -v.
struct Notes {
    std::ostream& err;
    bool on;
    void operator()(const std::string& s) const {
        if (on) err << "kiv: " << s << "\n";
    }
};

// Ctrl-C: the handler only raises the flag; the library's progress callback hands it on, so
// the running operation stops and leaves the image as it was.
volatile std::sig_atomic_t g_interrupted = 0;
extern "C" void on_interrupt(int) { g_interrupted = 1; }

// Installs the handler for one run and puts the previous one back.
class InterruptHandler {
public:
    InterruptHandler() : previous_(std::signal(SIGINT, on_interrupt)) { g_interrupted = 0; }
    ~InterruptHandler() { std::signal(SIGINT, previous_ == SIG_ERR ? SIG_DFL : previous_); }
    InterruptHandler(const InterruptHandler&) = delete;
    InterruptHandler& operator=(const InterruptHandler&) = delete;

private:
    void (*previous_)(int);
};

// Whether any pixel carries transparency the weighted members should respect.
bool has_transparency(const Picture& pic) {
    const kiv& img = pic.img;
    if (pic.alpha != Alpha::Pixels || img.m_bits != 32 || !img.m_pixels) return false;
    for (int i = 0; i < img.m_packets; ++i)
        if (img.m_pixels[i].a != 255) return true;
    return false;
}

// The flags a weighted call runs with: the program's choice for the plain names, the
// argument for the _rgba forms.
int weighted_flags(const OpSpec& op, const OpCall& call) {
    const bool rgba = op.name.size() > 5 && op.name.compare(op.name.size() - 5, 5, "_rgba") == 0;
    return rgba ? static_cast<int>(call.args.back()) : call.flags;
}

// The resamplers keep (filtered) alpha when weighting by it; otherwise as the table says.
AlphaEffect effect_of(const OpSpec& op, const OpCall& call) {
    const bool resampler = op.name == "zoom" || op.name == "zoom_rgba";
    return resampler && (weighted_flags(op, call) & KIV_FILTER_ALPHA) ? AlphaEffect::Keeps : op.alpha;
}

// After an operation: where the picture's alpha now lives.
void follow_alpha(const OpSpec& op, AlphaEffect effect, Picture& pic, Alpha before, const std::vector<BYTE>& map_alpha_before,
                  const Notes& note) {
    const kiv& img = pic.img;
    const bool palettized = img.m_bits <= 8 && img.m_map;
    Alpha now = before;
    switch (effect) {
        case AlphaEffect::Sets: now = Alpha::Pixels; break;
        case AlphaEffect::Drops: now = Alpha::None; break;
        case AlphaEffect::InMap: now = before == Alpha::Pixels && palettized ? Alpha::Map : Alpha::None; break;
        case AlphaEffect::Keeps:
            if (before == Alpha::Pixels && palettized) now = Alpha::None;
            if (before == Alpha::Map) {
                std::vector<BYTE> after;
                for (int k = 0; palettized && k < img.m_colors; ++k) after.push_back(img.m_map[k].a);
                if (!palettized || after != map_alpha_before) now = Alpha::None;
            }
            break;
    }
    if (before != Alpha::None && now == Alpha::None)
        note(op.name + (effect == AlphaEffect::Drops ? " defines alpha away" : " leaves no alpha") + ": the output is opaque");
    if (before == Alpha::None && now == Alpha::Pixels) note(op.name + " makes alpha: the output keeps it");
    pic.alpha = now;
}

}  // namespace

bool interrupted() { return g_interrupted != 0; }

int run_cli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    if (args.empty() || args[0] == "-h" || args[0] == "--help") {
        (args.empty() ? err : out) << kUsage;
        return args.empty() ? kExitUsage : kExitOk;
    }
    const std::string& cmd = args[0];
    if (args.size() == 1 && cmd == "--version") {
        out << "kiv " << kiv_version() << " (kivlib)\n";
        return kExitOk;
    }
    if (args.size() == 1 && (cmd == "--formats" || cmd == "--list" || cmd == "--manpage")) {
        if (cmd == "--formats") out << formats_text();
        if (cmd == "--list") list_ops(out);
        if (cmd == "--manpage") write_manpage(out);
        return kExitOk;
    }
    if (cmd == "help") {
        if (args.size() != 2) {
            err << "kiv: usage: kiv help OPERATION\n";
            return kExitUsage;
        }
        return help_op(args[1], out, err);
    }
    if (cmd == "info") {
        if (args.size() < 2) {
            err << "kiv: usage: kiv info FILE...\n";
            return kExitUsage;
        }
        return run_info(std::vector<std::string>(args.begin() + 1, args.end()), out, err);
    }
    if (cmd == "demo") {
        std::string dir = "out/demo";
        for (std::size_t k = 1; k < args.size(); ++k) {
            if (args[k] == "--out" && k + 1 < args.size()) {
                dir = args[++k];
            } else {
                err << "kiv: usage: kiv demo [--out DIR]\n";
                return kExitUsage;
            }
        }
        return run_demo(dir, out, err);
    }
    const bool batch = cmd == "batch";
    Pipeline p;
    if (int code = parse_pipeline(batch ? std::vector<std::string>(args.begin() + 1, args.end()) : args, &p, err, batch);
        code != kExitOk)
        return code;
    if (p.opt.threads >= 0) kiv::setthreads(p.opt.threads);
    const InterruptHandler interrupts;
    if (batch) return run_batch(p, out, err);
    Progress progress(!p.opt.quiet && kivplat::is_terminal(stderr));
    return run_file(p, p.input, p.output, err, &progress);
}

int parse_pipeline(const std::vector<std::string>& args, Pipeline* p, std::ostream& err, bool batch) {
    std::vector<Step>& steps = p->steps;
    for (std::size_t k = 0; k < args.size(); ++k) {
        const std::string& a = args[k];
        if (is_option(a)) {
            if (int code = parse_option(args, &k, p, batch, err); code != kExitOk) return code;
            continue;
        }
        // The input comes first; a batch takes patterns until the first operation.
        const bool op_name = a == "rect" || find_op(a);
        if (!batch && p->input.empty()) {
            p->input = a;
            continue;
        }
        if (batch && steps.empty() && !op_name) {
            p->patterns.push_back(a);
            continue;
        }
        Step s{nullptr, {}, {0, 0, 0, 0}};
        if (a != "rect") {
            s.op = find_op(a);
            if (!s.op) {
                err << "kiv: unknown operation '" << a << "' (see kiv --list)\n";
                return kExitUsage;
            }
        }
        for (const ArgSpec& param : s.op ? s.op->args : kRectArgs) {
            if (k + 1 >= args.size() || args[k + 1] == "-o" || args[k + 1].rfind("--", 0) == 0) {
                err << "kiv: " << a << ": missing argument " << param.name << " (see kiv help " << a << ")\n";
                return kExitUsage;
            }
            const std::string& text = args[k + 1];
            double v = 0;
            if (!parse_value(text, param, &v)) {
                err << "kiv: " << a << ": " << param.name << " expects " << kind_name(param.kind) << ", got '" << text << "'\n";
                return kExitUsage;
            }
            if (std::string why = out_of_range(text, param, v); !why.empty()) {
                err << "kiv: " << a << ": " << why << "\n";
                return kExitUsage;
            }
            s.call.args.push_back(v);
            s.call.text.push_back(text);
            ++k;
        }
        if (!s.op) {
            const std::vector<double>& r = s.call.args;
            const bool reset = r[0] == 0 && r[1] == 0 && r[2] == 0 && r[3] == 0;
            if (!reset && (r[2] < 1 || r[3] < 1)) {
                err << "kiv: rect: W and H must be >= 1 (got " << s.call.text[2] << " x " << s.call.text[3]
                    << "; rect 0 0 0 0 selects the whole image again)\n";
                return kExitUsage;
            }
            // X + W may pass the int range: the far edge saturates, as the library's own
            // boxes do, instead of an out-of-range conversion.
            auto edge = [](double v) { return static_cast<LONG>(std::clamp<double>(v, INT32_MIN, INT32_MAX)); };
            s.rect = tagRECT{edge(r[0]), edge(r[1]), edge(r[0] + r[2]), edge(r[1] + r[3])};
        }
        steps.push_back(std::move(s));
    }
    if (batch ? p->patterns.empty() : p->input.empty()) {
        err << kUsage;
        return kExitUsage;
    }
    if (batch ? p->opt.out_dir.empty() : p->output.empty()) {
        err << (batch ? "kiv: batch: no output directory (--out DIR)\n" : "kiv: no output file (-o OUTPUT)\n");
        return kExitUsage;
    }
    return kExitOk;
}

int run_pipeline(const Pipeline& p, Picture& pic, std::ostream& err, Progress* progress) {
    const Notes note{err, p.opt.verbose};
    tagRECT current{0, 0, 0, 0};
    bool have_rect = false;
    for (const Step& s : p.steps) {
        if (!s.op) {
            current = s.rect;
            have_rect = current.right > current.left && current.bottom > current.top;
            continue;
        }
        OpCall call = s.call;
        call.rect = have_rect ? &current : nullptr;
        call.flags = (has_transparency(pic) ? KIV_FILTER_ALPHA : 0) | (p.opt.linear ? KIV_FILTER_LINEAR : 0);
        // An opaque image weighted by alpha on request: its fourth bytes mean nothing, so
        // they become opaque rather than weigh its colours to nothing.
        if ((weighted_flags(*s.op, call) & KIV_FILTER_ALPHA) && pic.alpha == Alpha::None && pic.img.m_bits > 8)
            for (int i = 0; i < pic.img.m_packets; ++i) pic.img.m_pixels[i].a = 255;
        call.images.assign(call.args.size(), nullptr);
        for (std::size_t k = 0; k < s.op->args.size(); ++k) {
            if (s.op->args[k].kind != ArgKind::Image) continue;
            call.images[k] = std::make_shared<kiv>();
            load_second_image(call.text[k], *call.images[k]);
        }
        const Alpha before = pic.alpha;
        std::vector<BYTE> map_alpha;
        for (int k = 0; before == Alpha::Map && k < pic.img.m_colors; ++k) map_alpha.push_back(pic.img.m_map[k].a);
        const auto t0 = std::chrono::steady_clock::now();
        if (progress) progress->begin(s.op->name);
        int result = 0;
        {
            ProgressFeed feed(pic.img, progress, interrupted);
            if (!g_interrupted) result = s.op->run(pic.img, call);
        }
        if (progress) progress->end();
        if (g_interrupted) {
            err << "kiv: interrupted\n";
            return kExitInterrupted;
        }
        if (!result) {
            const std::string refuses = s.op->row->refuses;
            err << "kiv: " << s.op->name << " failed on this image"
                << (refuses.empty() ? "" : " (it refuses " + refuses + ")") << "\n";
            return kExitFailed;
        }
        if (p.opt.verbose) {
            const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
            char line[64];
            std::snprintf(line, sizeof line, "%.1f ms", ms);
            note(s.op->name + (result == kUnchanged ? ": nothing to do" : ": " + std::string(line)));
        }
        if (result != kUnchanged) follow_alpha(*s.op, effect_of(*s.op, call), pic, before, map_alpha, note);
    }
    return kExitOk;
}

int run_file(const Pipeline& p, const std::string& input, const std::string& output, std::ostream& err, Progress* progress) {
    const Notes note{err, p.opt.verbose};
    try {
        Picture pic;
        load_image(input, pic, ReadOptions{p.opt.autorotate});
        note("read " + input + ": " + pic.format + ", " + std::to_string(pic.img.m_width) + " x " +
             std::to_string(pic.img.m_height) + (pic.alpha == Alpha::None ? "" : ", with alpha"));
        if (int code = run_pipeline(p, pic, err, progress); code != kExitOk) return code;
        // Standard output without --format keeps the input's format.
        const std::string format = p.opt.format.empty() && output == "-" ? pic.format : p.opt.format;
        save_image(output, pic, format, WriteOptions{p.opt.quality, p.opt.lossless, note});
        note("wrote " + output);
    } catch (const CliError& e) {
        err << "kiv: " << e.what() << "\n";
        return kExitFailed;
    } catch (const std::bad_alloc&) {
        err << "kiv: out of memory\n";
        return kExitFailed;
    }
    return kExitOk;
}

}  // namespace kivcli
