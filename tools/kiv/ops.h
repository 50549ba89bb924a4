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

const std::vector<OpSpec>& all_ops();
const OpSpec* find_op(const std::string& name);

// Parses one argument: integers and reals in decimal, colours as #RRGGBB or a COLORREF number
// (0x00BBGGRR). Returns false when the text is not of that kind.
bool parse_arg(const std::string& text, ArgKind kind, double* out);

}  // namespace kivcli

#endif
