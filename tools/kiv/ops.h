// The operations the kiv program knows: each a library member with its arguments.
#ifndef KIV_CLI_OPS_H
#define KIV_CLI_OPS_H

#include <functional>
#include <string>
#include <vector>

#include "kiv.h"

namespace kivcli {

enum class ArgKind { Int, Real, Color };

struct ArgSpec {
    const char* name;
    ArgKind kind;
    const char* help;
};

// What an operation sees: its parsed arguments and the rectangle set by `rect` (null for the
// whole image).
struct OpCall {
    std::vector<double> args;
    tagRECT* rect;
    int i(std::size_t k) const { return static_cast<int>(args[k]); }
    double d(std::size_t k) const { return args[k]; }
    COLORREF c(std::size_t k) const { return static_cast<COLORREF>(args[k]); }
};

struct OpSpec {
    std::string name;
    std::vector<ArgSpec> args;
    std::string summary;
    std::string demo;  // representative arguments for the demo gallery; "-" = not shown there
    std::function<int(kiv&, const OpCall&)> run;
};

// Collects a family's operations; each family's table lives in its own ops_<family>.cpp.
struct OpTable {
    std::vector<OpSpec>* ops;
    void add(std::string name, std::vector<ArgSpec> args, std::string summary, std::string demo,
             std::function<int(kiv&, const OpCall&)> run) {
        ops->push_back(OpSpec{std::move(name), std::move(args), std::move(summary), std::move(demo), std::move(run)});
    }
};
void add_geometry_ops(OpTable& t);
void add_palette_ops(OpTable& t);
void add_quantize_ops(OpTable& t);
void add_fill_ops(OpTable& t);
void add_adjust_ops(OpTable& t);
void add_filter_ops(OpTable& t);
void add_effect_ops(OpTable& t);

const std::vector<OpSpec>& all_ops();
const OpSpec* find_op(const std::string& name);

// Parses one argument: integers and reals in decimal, colours as #RRGGBB or a COLORREF number
// (0x00BBGGRR). Returns false when the text is not of that kind.
bool parse_arg(const std::string& text, ArgKind kind, double* out);

}  // namespace kivcli

#endif
