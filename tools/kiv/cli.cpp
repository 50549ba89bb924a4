// Command-line parsing and the operation pipeline of the kiv program.
#include "cli.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <sstream>

#include "image_io.h"
#include "ops.h"
#include "platform/files.h"

namespace kivcli {

namespace {

const char* kUsage =
    "usage: kiv INPUT [OPERATION ARGS...]... -o OUTPUT [--linear]\n"
    "       kiv demo [--out DIR]\n"
    "       kiv --list | kiv help OPERATION\n"
    "INPUT: BMP, PNG or JPEG.  OUTPUT: .bmp (at the image's depth) or .png.\n"
    "`rect X Y W H` limits the following operations to a rectangle (`rect 0 0 0 0`: whole image).\n"
    "Images with transparency are resampled, turned and blurred with colour weighted by alpha;\n"
    "--linear does that in linear light (zoom then adds no sharpening).  Ctrl-C stops cleanly.\n";

const char* kind_name(ArgKind k) {
    switch (k) {
        case ArgKind::Int: return "integer";
        case ArgKind::Real: return "number";
        default: return "colour";
    }
}

// Progress of the running operation, drawn on stderr when it is a terminal.
int g_steps = 0, g_done = 0;
void draw_progress(int code, int value) {
    if (code == 0) {
        g_steps = value;
        g_done = 0;
    } else if (code == 1) {
        ++g_done;
    }
    if (code == 2) {
        std::fprintf(stderr, "\r%60s\r", "");
        return;
    }
    if (g_steps <= 0) return;
    int pct = static_cast<int>(100LL * g_done / g_steps);
    if (pct > 100) pct = 100;
    char bar[41];
    int fill = pct * 40 / 100;
    for (int i = 0; i < 40; ++i) bar[i] = i < fill ? '#' : '.';
    bar[40] = 0;
    std::fprintf(stderr, "\r[%s] %3d%%", bar, pct);
    std::fflush(stderr);
}

// Ctrl-C: the handler only raises the flag; the library's progress callback hands it on, so
// the running operation stops and leaves the image as it was.
volatile std::sig_atomic_t g_interrupted = 0;
extern "C" void on_interrupt(int) { g_interrupted = 1; }
int stop_when_interrupted(void*, int, int) { return g_interrupted ? 1 : 0; }

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

// Whether any pixel of a 32-bit image is not opaque.
bool has_transparency(const kiv& img) {
    if (img.m_bits != 32 || !img.m_pixels) return false;
    for (int i = 0; i < img.m_packets; ++i)
        if (img.m_pixels[i].a != 255) return true;
    return false;
}

void list_ops(std::ostream& out) {
    out << "rect X Y W H  limit the following operations to a rectangle\n";
    for (const OpSpec& op : all_ops()) {
        std::string sig = op.name;
        for (const ArgSpec& a : op.args) sig += std::string(" ") + a.name;
        out << sig;
        out << std::string(sig.size() < 40 ? 40 - sig.size() : 1, ' ') << op.summary << "\n";
    }
}

int help_op(const std::string& name, std::ostream& out, std::ostream& err) {
    const OpSpec* op = find_op(name);
    if (!op) {
        err << "kiv: unknown operation '" << name << "' (see kiv --list)\n";
        return kExitUsage;
    }
    out << op->name;
    for (const ArgSpec& a : op->args) out << " " << a.name;
    out << "\n  " << op->summary << "\n";
    for (const ArgSpec& a : op->args) out << "  " << a.name << " (" << kind_name(a.kind) << "): " << a.help << "\n";
    if (op->demo != "-") out << "  example: kiv in.png " << op->name << (op->demo.empty() ? "" : " ") << op->demo << " -o out.png\n";
    return kExitOk;
}

}  // namespace

int run_cli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    if (args.empty() || args[0] == "-h" || args[0] == "--help") {
        (args.empty() ? err : out) << kUsage;
        return args.empty() ? kExitUsage : kExitOk;
    }
    if (args[0] == "--list") {
        list_ops(out);
        return kExitOk;
    }
    if (args[0] == "help") {
        if (args.size() != 2) {
            err << "kiv: usage: kiv help OPERATION\n";
            return kExitUsage;
        }
        return help_op(args[1], out, err);
    }
    if (args[0] == "demo") {
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

    Pipeline p;
    if (int code = parse_pipeline(args, &p, err); code != kExitOk) return code;
    const InterruptHandler interrupts;
    try {
        kiv img;
        load_image(p.input, img);
        if (int code = run_pipeline(p, img, err); code != kExitOk) return code;
        if (g_interrupted) {
            err << "kiv: interrupted\n";
            return kExitInterrupted;
        }
        save_image(p.output, img);
    } catch (const CliError& e) {
        err << "kiv: " << e.what() << "\n";
        return kExitFailed;
    } catch (const std::bad_alloc&) {
        err << "kiv: out of memory\n";
        return kExitFailed;
    }
    return kExitOk;
}

int parse_pipeline(const std::vector<std::string>& args, Pipeline* p, std::ostream& err) {
    std::string& input = p->input;
    std::string& output = p->output;
    std::vector<Step>& steps = p->steps;
    // INPUT [OP ARGS...]... -o OUTPUT
    for (std::size_t k = 0; k < args.size(); ++k) {
        const std::string& a = args[k];
        if (a == "--linear") {
            p->linear = true;
            continue;
        }
        if (a == "-o") {
            if (k + 1 >= args.size()) {
                err << "kiv: -o needs a file name\n";
                return kExitUsage;
            }
            if (!output.empty()) {
                err << "kiv: -o given twice\n";
                return kExitUsage;
            }
            output = args[++k];
            continue;
        }
        if (input.empty()) {
            input = a;
            continue;
        }
        Step s{nullptr, {}, {0, 0, 0, 0}};
        std::vector<ArgSpec> specs;
        if (a == "rect") {
            specs = {{"X", ArgKind::Int, ""}, {"Y", ArgKind::Int, ""}, {"W", ArgKind::Int, ""}, {"H", ArgKind::Int, ""}};
        } else {
            s.op = find_op(a);
            if (!s.op) {
                err << "kiv: unknown operation '" << a << "' (see kiv --list)\n";
                return kExitUsage;
            }
            specs = s.op->args;
        }
        for (const ArgSpec& spec : specs) {
            if (k + 1 >= args.size() || args[k + 1] == "-o") {
                err << "kiv: " << a << ": missing argument " << spec.name << " (see kiv help " << a << ")\n";
                return kExitUsage;
            }
            double v = 0;
            if (!parse_value(args[k + 1], spec, &v)) {
                err << "kiv: " << a << ": argument " << spec.name << " expects " << kind_name(spec.kind) << ", got '"
                    << args[k + 1] << "'\n";
                return kExitUsage;
            }
            if (std::string why = out_of_range(args[k + 1], spec, v); !why.empty()) {
                err << "kiv: " << a << ": " << why << "\n";
                return kExitUsage;
            }
            s.call.args.push_back(v);
            ++k;
        }
        if (!s.op) {
            // X + W may pass the int range: the far edge saturates, as the library's own
            // boxes do, instead of an out-of-range conversion.
            auto edge = [](double v) { return static_cast<LONG>(std::clamp<double>(v, INT32_MIN, INT32_MAX)); };
            s.rect = tagRECT{edge(s.call.args[0]), edge(s.call.args[1]), edge(s.call.args[0] + s.call.args[2]),
                             edge(s.call.args[1] + s.call.args[3])};
        }
        steps.push_back(s);
    }
    if (input.empty()) {
        err << kUsage;
        return kExitUsage;
    }
    if (output.empty()) {
        err << "kiv: no output file (-o OUTPUT)\n";
        return kExitUsage;
    }

    return kExitOk;
}

int run_pipeline(Pipeline& p, kiv& img, std::ostream& err) {
    const bool tty = kivplat::is_terminal(stderr);
    tagRECT current{0, 0, 0, 0};
    bool have_rect = false;
    for (Step& s : p.steps) {
        if (!s.op) {
            current = s.rect;
            have_rect = current.right > current.left && current.bottom > current.top;
            continue;
        }
        s.call.rect = have_rect ? &current : nullptr;
        s.call.flags = (has_transparency(img) ? KIV_FILTER_ALPHA : 0) | (p.linear ? KIV_FILTER_LINEAR : 0);
        img.m_progressproc = tty ? draw_progress : nullptr;
        img.set_progress(stop_when_interrupted, nullptr);
        int ok = g_interrupted ? 0 : s.op->run(img, s.call);
        img.m_progressproc = nullptr;
        img.set_progress(nullptr, nullptr);
        if (g_interrupted) {
            if (tty) std::fprintf(stderr, "\r%60s\r", "");
            err << "kiv: interrupted\n";
            return kExitInterrupted;
        }
        if (!ok) {
            err << "kiv: " << s.op->name << " failed (refused its arguments or the image)\n";
            return kExitFailed;
        }
    }
    return kExitOk;
}

}  // namespace kivcli
