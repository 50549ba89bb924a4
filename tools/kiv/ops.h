// The operations the kiv program knows: each a library member, its arguments and their ranges
// read from the library's operation table (kivc.h).
#ifndef KIV_CLI_OPS_H
#define KIV_CLI_OPS_H

#include <functional>
#include <string>
#include <vector>

#include "kiv.h"
#include "kivc.h"

namespace kivcli {

enum class ArgKind { Int, Real, Color };

// One command-line argument: a table argument (table non-null, its name in upper case), or one
// only the program has (the colours of a shade, the weights of a kernel...).
struct ArgSpec {
    std::string name;
    ArgKind kind;
    std::string help;
    const kiv_argdesc* table = nullptr;
};

// What an operation sees: its parsed arguments and the rectangle set by `rect` (null for the
// whole image).
struct OpCall {
    std::vector<double> args;
    tagRECT* rect;
    // For members with a weighted form (zoom, rotate_any, blur_gauss_iir, unsharp_mask):
    // KIV_FILTER_ALPHA when the image has transparency, KIV_FILTER_LINEAR with --linear;
    // 0: the plain member.
    int flags = 0;
    int i(std::size_t k) const { return static_cast<int>(args[k]); }
    double d(std::size_t k) const { return args[k]; }
    COLORREF c(std::size_t k) const { return static_cast<COLORREF>(args[k]); }
};

struct OpSpec {
    std::string name;
    const kiv_opdesc* row;  // the library's description
    std::vector<ArgSpec> args;
    std::string summary;
    std::string demo;  // representative arguments for the demo gallery; "-" = not shown there
    std::function<int(kiv&, const OpCall&)> run;
};

// A table argument the program supplies itself, and what the command line gives instead (the
// rectangle, second images and records are supplied without asking).
struct Supplied {
    std::string arg;
    std::vector<ArgSpec> instead;
};

// Collects a family's operations; each family's list lives in its own ops_<family>.cpp.
struct OpTable {
    std::vector<OpSpec>* ops;
    // The library operation `name`, whose command-line arguments are the table's in order, less
    // the rectangle, second images and `supplied`; `run` gets them in that order.
    void add(const char* name, std::string demo, std::function<int(kiv&, const OpCall&)> run,
             std::vector<Supplied> supplied = {});
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
// parse_arg for one operation's argument, which also takes a choice by its name ("lanczos3").
bool parse_value(const std::string& text, const ArgSpec& a, double* out);
// "" when v lies in the table's range or the operation clamps it, else the reason from the table
// ("METHOD must be 0..13 (got 99)"; text is the argument as written).
std::string out_of_range(const std::string& text, const ArgSpec& a, double v);

}  // namespace kivcli

#endif
