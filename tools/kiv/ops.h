// The operations the kiv program knows: each a library member, its arguments and their ranges
// read from the library's operation table (kivc.h).
#ifndef KIV_CLI_OPS_H
#define KIV_CLI_OPS_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kiv.h"
#include "kivc.h"

namespace kivcli {

// Image: a second image file, read before the operation runs; Path: a file name used as it
// stands (a palette, a texture, a file the operation writes).
enum class ArgKind { Int, Real, Color, Image, Path };

// One command-line argument: a table argument (table non-null, its name in upper case), or one
// only the program has (the colours of a shade, the weights of a kernel...), whose range, if
// it has one, is lo..hi.
struct ArgSpec {
    std::string name;
    ArgKind kind;
    std::string help;
    const kiv_argdesc* table = nullptr;
    double lo = 0, hi = -1;
};

// What an operation sees: its parsed arguments, each as written, the second images read for
// its Image arguments (null elsewhere) and the rectangle set by `rect` (null for the whole
// image).
struct OpCall {
    std::vector<double> args;
    std::vector<std::string> text;
    std::vector<std::shared_ptr<kiv>> images;
    tagRECT* rect = nullptr;
    // For members with a weighted form (zoom, rotate_any, blur_gauss_iir, unsharp_mask):
    // KIV_FILTER_ALPHA when the image has transparency, KIV_FILTER_LINEAR with --linear;
    // 0: the plain member.
    int flags = 0;
    int i(std::size_t k) const { return static_cast<int>(args[k]); }
    double d(std::size_t k) const { return args[k]; }
    COLORREF c(std::size_t k) const { return static_cast<COLORREF>(args[k]); }
    const char* s(std::size_t k) const { return text[k].c_str(); }
    kiv* img(std::size_t k) const { return images[k].get(); }
};

// An operation's result beside 1 and 0: it succeeded by changing nothing (zoom to the same
// size), so the image keeps whatever alpha it had.
constexpr int kUnchanged = 2;

// What an operation does to the alpha an image carries in its pixels' fourth byte.
enum class AlphaEffect {
    Keeps,     // keeps it (or turns the image palettized, which drops it)
    Drops,     // defines it away (alpha 0): the program then writes an opaque image
    Sets,      // makes it (settoalpha)
    InMap      // palettizes, keeping each entry's alpha in the colour map's fourth byte
};

struct OpSpec {
    std::string name;
    const kiv_opdesc* row;  // the library's description
    std::vector<ArgSpec> args;
    std::string summary;
    std::string demo;  // representative arguments for the demo gallery; "-" = not shown there
    std::function<int(kiv&, const OpCall&)> run;
    AlphaEffect alpha = AlphaEffect::Keeps;
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

// Parses one argument: integers and reals in decimal, colours in the forms of colors.h (to a
// COLORREF), file names as they stand (0). Returns false when the text is not of that kind.
bool parse_arg(const std::string& text, ArgKind kind, double* out);
// parse_arg for one operation's argument, which also takes a choice by its name ("lanczos3").
bool parse_value(const std::string& text, const ArgSpec& a, double* out);
// "" when v lies in the argument's range or the operation clamps it, else the reason from the
// table ("METHOD must be 0..13 (got 99)"; text is the argument as written).
std::string out_of_range(const std::string& text, const ArgSpec& a, double v);
// What the kind expects, for messages: "integer", "colour (#RRGGBB, ...)".
std::string kind_name(ArgKind k);

}  // namespace kivcli

#endif
