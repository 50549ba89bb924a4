// The kiv program's help texts: usage, the operation list, one operation's help and the manual
// page, all written from the operation table.
#include <algorithm>
#include <sstream>

#include "cli.h"
#include "colors.h"
#include "ops.h"

namespace kivcli {

const char* const kUsage =
    "usage: kiv [OPTIONS] INPUT [OPERATION ARGS...]... -o OUTPUT\n"
    "       kiv batch [-j N] 'PATTERN'... --out DIR [OPTIONS] [OPERATION ARGS...]...\n"
    "       kiv info FILE...\n"
    "       kiv demo [--out DIR]\n"
    "       kiv --list | kiv help OPERATION | kiv --formats | kiv --version\n"
    "INPUT and OUTPUT: image files (kiv --formats lists what this build reads and writes), or -\n"
    "for standard input or output.  The output's format follows its extension or --format.\n"
    "`rect X Y W H` limits the following operations to a rectangle (`rect 0 0 0 0`: the whole\n"
    "image again).  Colours: '#RRGGBB', RRGGBB, '#RGB', 0xRRGGBB or a CSS name (orange).\n"
    "Images with transparency are resampled, turned and blurred with colour weighted by alpha.\n"
    "Ctrl-C stops the running operation: exit code 130, nothing written.\n"
    "Options:\n"
    "  -o FILE          the output file (- for standard output)\n"
    "  --format NAME    output format (png, jpeg, tiff, webp, gif, bmp), whatever the extension\n"
    "  --quality N      JPEG and WebP quality, 1..100 (90)\n"
    "  --lossless       lossless WebP\n"
    "  --no-autorotate  keep a JPEG as stored instead of turning it by its EXIF orientation\n"
    "  --threads N      at most N threads per operation (0: all cores)\n"
    "  --linear         resample and blur in linear light (zoom then adds no sharpening)\n"
    "  -q               no progress bar\n"
    "  -v               say what is read, done and written\n"
    "  -j N             batch: N files at a time (default: one per core)\n"
    "  --out DIR        batch: where the results go, under the input's file name\n";

namespace {

// The rectangle's pseudo-operation, in the form of the table's.
const std::vector<ArgSpec>& rect_args() {
    static const std::vector<ArgSpec> args = {{"X", ArgKind::Int, "left edge (pixels)"},
                                              {"Y", ArgKind::Int, "top edge (pixels)"},
                                              {"W", ArgKind::Int, "width (pixels; >= 1)"},
                                              {"H", ArgKind::Int, "height (pixels; >= 1)"}};
    return args;
}
const char* const kRectSummary = "limit the following operations to a rectangle (rect 0 0 0 0: the whole image again)";

std::string signature(const std::string& name, const std::vector<ArgSpec>& args) {
    std::string sig = name;
    for (const ArgSpec& a : args) sig += " " + a.name;
    return sig;
}

// The demo's arguments as a user types them: colours quoted, since # starts a shell comment.
std::string example(const OpSpec& op) {
    std::istringstream words(op.demo);
    std::string s, w;
    for (std::size_t k = 0; words >> w; ++k) {
        const bool quote = k < op.args.size() && op.args[k].kind == ArgKind::Color;
        s.append(" ").append(quote ? "'" : "").append(w).append(quote ? "'" : "");
    }
    return "kiv in.png " + op.name + s + " -o out.png";
}

std::string kind_word(ArgKind k) { return k == ArgKind::Color ? "colour" : kind_name(k); }

// roff needs its backslashes, leading dots and dashes escaped.
std::string roff(const std::string& s) {
    std::string r;
    for (char c : s) {
        if (c == '\\') r += "\\e";
        else if (c == '-') r += "\\-";
        else r += c;
    }
    if (!r.empty() && (r[0] == '.' || r[0] == '\'')) r = "\\&" + r;
    return r;
}

}  // namespace

void list_ops(std::ostream& out) {
    auto row = [&](const std::string& sig, const std::string& summary) {
        out << sig << std::string(sig.size() < 40 ? 40 - sig.size() : 1, ' ') << summary << "\n";
    };
    row(signature("rect", rect_args()), "limit the following operations to a rectangle");
    for (const OpSpec& op : all_ops()) row(signature(op.name, op.args), op.summary);
}

int help_op(const std::string& name, std::ostream& out, std::ostream& err) {
    if (name == "rect") {
        out << signature("rect", rect_args()) << "\n  " << kRectSummary << "\n";
        for (const ArgSpec& a : rect_args()) out << "  " << a.name << " (integer): " << a.help << "\n";
        out << "  example: kiv in.png rect 10 10 200 100 negative -o out.png\n";
        return kExitOk;
    }
    const OpSpec* op = find_op(name);
    if (!op) {
        err << "kiv: unknown operation '" << name << "' (see kiv --list)\n";
        return kExitUsage;
    }
    out << signature(op->name, op->args) << "\n  " << op->summary << "\n";
    for (const ArgSpec& a : op->args) out << "  " << a.name << " (" << kind_word(a.kind) << "): " << a.help << "\n";
    if (op->alpha == AlphaEffect::Drops) out << "  The result is opaque: the operation defines alpha away.\n";
    if (op->demo != "-") out << "  example: " << example(*op) << "\n";
    return kExitOk;
}

void write_manpage(std::ostream& out) {
    out << ".\\\" kiv.1, generated from the operation table by kiv --manpage\n"
        << ".TH KIV 1 \"\" \"kivlib " << kiv_version() << "\" \"User Commands\"\n"
        << ".SH NAME\nkiv \\- run kivlib image operations from the command line\n.SH SYNOPSIS\n";
    // The usage's command forms make the synopsis, its prose the description, then the options.
    std::istringstream usage(kUsage);
    std::string line;
    bool options = false, described = false;
    while (std::getline(usage, line)) {
        const std::string text = line.substr(std::min(line.find_first_not_of(' '), line.size()));
        if (line == "Options:") {
            out << ".SH OPTIONS\n";
            options = true;
        } else if (options) {
            const std::size_t gap = line.find("  ", 2);
            out << ".TP\n.B " << roff(line.substr(2, gap - 2)) << "\n" << roff(line.substr(line.find_first_not_of(' ', gap))) << "\n";
        } else if (text.rfind("usage: ", 0) == 0 || text.rfind("kiv ", 0) == 0) {
            out << roff(text.rfind("usage: ", 0) == 0 ? text.substr(7) : text) << "\n.br\n";
        } else {
            if (!described) out << ".SH DESCRIPTION\n";
            described = true;
            out << roff(text) << "\n";
        }
    }
    out << ".SH COLOURS\nColours are written " << roff(kColorForms) << "; quote the forms with #, which starts a shell comment.\n";
    out << ".SH OPERATIONS\n.TP\n.B " << roff(signature("rect", rect_args())) << "\n" << roff(kRectSummary) << "\n";
    for (const OpSpec& op : all_ops()) {
        out << ".TP\n.B " << roff(signature(op.name, op.args)) << "\n" << roff(op.summary) << ".\n";
        for (const ArgSpec& a : op.args) out << ".br\n.I " << roff(a.name) << " (" << roff(kind_word(a.kind)) << "): " << roff(a.help) << "\n";
        if (op.demo != "-") out << ".br\nExample: " << roff(example(op)) << "\n";
    }
    out << ".SH EXIT STATUS\n0 success; 1 a file could not be read or written, or an operation refused; 2 a bad command line.\n"
        << ".SH SEE ALSO\nThe kivlib README and docs/reference.md.\n";
}

}  // namespace kivcli
