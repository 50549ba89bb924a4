// The operation table of the kiv program: every family's operations, in family order, and
// argument parsing.
#include "ops.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace kivcli {

namespace {
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
    return ops;
}
}  // namespace

const std::vector<OpSpec>& all_ops() {
    static const std::vector<OpSpec> table = build_table();
    return table;
}

const OpSpec* find_op(const std::string& name) {
    for (const OpSpec& op : all_ops())
        if (op.name == name) return &op;
    return nullptr;
}

bool parse_arg(const std::string& text, ArgKind kind, double* out) {
    if (text.empty()) return false;
    if (kind == ArgKind::Color && text[0] == '#') {
        if (text.size() != 7) return false;
        char* end = nullptr;
        unsigned long v = std::strtoul(text.c_str() + 1, &end, 16);
        if (*end) return false;
        // #RRGGBB as written on the web; the library takes 0x00BBGGRR.
        *out = static_cast<double>(((v >> 16) & 0xFF) | (v & 0xFF00) | ((v & 0xFF) << 16));
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
    long long v = std::strtoll(text.c_str(), &end, 0);
    if (*end || errno == ERANGE) return false;
    if (kind == ArgKind::Color ? (v < 0 || v > 0xFFFFFFFFLL) : (v < INT32_MIN || v > INT32_MAX)) return false;
    *out = static_cast<double>(v);
    return true;
}

}  // namespace kivcli
