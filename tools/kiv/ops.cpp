// The operation table of the kiv program: every family's operations, in family order, and
// argument parsing.
#include "ops.h"

#include <algorithm>
#include <cerrno>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "colors.h"

namespace kivcli {

namespace {

// The table's argument types the command line writes as one number or colour.
bool asked(int type) {
    return type == KIV_T_INT || type == KIV_T_UINT || type == KIV_T_REAL || type == KIV_T_BOOL || type == KIV_T_CHOICE ||
           type == KIV_T_COLOR;
}

// "new width (pixels; >= 1)", and the named choices.
std::string help_of(const kiv_argdesc& a) {
    std::string h = a.help, more = a.unit;
    if (*a.range) more += (more.empty() ? "" : "; ") + std::string(a.range);
    if (!more.empty()) h += " (" + more + ")";
    for (int k = 0; k < a.nchoices; ++k) h += (k ? ", " : ": ") + std::to_string(a.choices[k].value) + " " + a.choices[k].name;
    return h;
}

std::vector<OpSpec> build_table() {
    std::vector<OpSpec> ops;
    OpTable t{&ops};
    add_geometry_ops(t);
    add_palette_ops(t);
    add_quantize_ops(t);
    add_fill_ops(t);
    add_adjust_ops(t);
    add_filter_ops(t);
    add_effect_ops(t);
    // What each operation does to alpha, where it does more than keep it: the resamplers
    // and the filters documented to leave alpha 0.
    for (OpSpec& op : ops) {
        for (const char* n : {"zoom", "zoom_rgba", "zoom_linear", "zoom_inframe", "tile_divide", "blur_simple", "edge", "emboss"})
            if (op.name == n) op.alpha = AlphaEffect::Drops;
        if (op.name == "settoalpha") op.alpha = AlphaEffect::Sets;
        if (op.name == "quantize_hq") op.alpha = AlphaEffect::InMap;
    }
    return ops;
}

std::string upper(const char* name) {
    std::string u = name;
    for (char& ch : u) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    return u;
}
}  // namespace

void OpTable::add(const char* name, std::string demo, std::function<int(kiv&, const OpCall&)> run,
                  std::vector<Supplied> supplied) {
    const kiv_opdesc* row = kiv_op_info(kiv_op_find(name));
    if (!row) throw std::logic_error(std::string("the library has no operation ") + name);
    std::vector<ArgSpec> args;
    for (int k = 0; k < row->nargs; ++k) {
        const kiv_argdesc& a = row->args[k];
        auto it = std::find_if(supplied.begin(), supplied.end(), [&](const Supplied& s) { return s.arg == a.name; });
        if (it != supplied.end()) {
            args.insert(args.end(), it->instead.begin(), it->instead.end());
        } else if (a.type == KIV_T_IMAGE || a.type == KIV_T_STRING) {
            // Second images come from files; file names are passed on as they stand.
            const bool image = a.type == KIV_T_IMAGE;
            args.push_back(ArgSpec{upper(a.name), image ? ArgKind::Image : ArgKind::Path,
                                   std::string(a.help) + (image ? " (an image file)" : ""), nullptr});
        } else if (asked(a.type)) {
            ArgKind kind = a.type == KIV_T_REAL ? ArgKind::Real : a.type == KIV_T_COLOR ? ArgKind::Color : ArgKind::Int;
            args.push_back(ArgSpec{upper(a.name), kind, help_of(a), &a});
        }
    }
    ops->push_back(OpSpec{name, row, std::move(args), row->summary, std::move(demo), std::move(run)});
}

const std::vector<OpSpec>& all_ops() {
    static const std::vector<OpSpec> table = build_table();
    return table;
}

const OpSpec* find_op(const std::string& name) {
    for (const OpSpec& op : all_ops())
        if (op.name == name) return &op;
    return nullptr;
}

std::string kind_name(ArgKind k) {
    switch (k) {
        case ArgKind::Int: return "integer";
        case ArgKind::Real: return "number";
        case ArgKind::Color: return std::string("colour (") + kColorForms + ")";
        case ArgKind::Image: return "image file";
        default: return "file name";
    }
}

bool parse_arg(const std::string& text, ArgKind kind, double* out) {
    if (text.empty()) return false;
    if (kind == ArgKind::Image || kind == ArgKind::Path) {
        *out = 0;
        return true;
    }
    if (kind == ArgKind::Color) {
        unsigned long c = 0;
        if (!parse_color(text, &c)) return false;
        *out = static_cast<double>(c);
        return true;
    }
    if (kind == ArgKind::Real) {
        char* end = nullptr;
        errno = 0;
        double v = std::strtod(text.c_str(), &end);
        if (*end || errno == ERANGE || !std::isfinite(v)) return false;
        *out = v;
        return true;
    }
    char* end = nullptr;
    errno = 0;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (*end || errno == ERANGE || v < INT32_MIN || v > INT32_MAX) return false;
    *out = static_cast<double>(v);
    return true;
}

bool parse_value(const std::string& text, const ArgSpec& a, double* out) {
    for (int k = 0; a.table && k < a.table->nchoices; ++k)
        if (text == a.table->choices[k].name) {
            *out = a.table->choices[k].value;
            return true;
        }
    return parse_arg(text, a.kind, out);
}

std::string out_of_range(const std::string& text, const ArgSpec& a, double v) {
    if (!a.table) {
        if (a.lo > a.hi || (v >= a.lo && v <= a.hi)) return "";
        char range[64];
        std::snprintf(range, sizeof range, "%g..%g", a.lo, a.hi);
        return a.name + " must be " + range + " (got " + text + ")";
    }
    // Reals keep their value in d alone: a huge one has no long long.
    const bool real = a.table->type == KIV_T_REAL;
    kiv_value x{a.table->type, 0, real ? 0 : static_cast<long long>(v), v, nullptr};
    // The program hands integers on as int; unsigned parameters take them modulo 2^32.
    if (a.table->type == KIV_T_UINT) x.i = static_cast<unsigned>(static_cast<int>(v));
    // Beyond refusals, a value the library would quietly replace (an unlisted blend mode, a
    // strength of 50 taken as 10) is more likely a slip than meant; clamping is not.
    const int o = kiv_arg_outcome(a.table, &x);
    if (o == KIV_OUT_NONE || o == KIV_OUT_CLAMPED) return "";
    return a.name + " must be " + a.table->range + " (got " + text + ")";
}

}  // namespace kivcli
