// The operation table's machinery: range texts, argument checks, the generic call with its
// reasons, and the C functions that read the table.
#include "core/optable.h"

#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "core/watch.h"

namespace kivops {

namespace {

thread_local char t_error[256];

bool is_int_type(int t) {
    return t == KIV_T_INT || t == KIV_T_UINT || t == KIV_T_BOOL || t == KIV_T_CHOICE || t == KIV_T_COLOR;
}
bool is_array(int t) { return t >= KIV_T_COLORS && t <= KIV_T_BYTES; }
bool is_pointer(int t) { return t == KIV_T_RECT || t == KIV_T_IMAGE || t == KIV_T_STRING || t == KIV_T_DIB || t == KIV_T_PALETTE; }

std::string num(double v) {
    char b[32];
    std::snprintf(b, sizeof b, "%.15g", v);
    return b;
}

// "0..13", ">= 1", "> 0 and <= 10000", "0, 1, 3..15", "finite"; arrays count entries.
std::string range_text(const kiv_argdesc& a) {
    std::string s;
    if (a.choices) {
        for (int k = 0; k < a.nchoices;) {
            int e = k;
            while (e + 1 < a.nchoices && a.choices[e + 1].value == a.choices[e].value + 1) ++e;
            s += (s.empty() ? "" : ", ") + num(a.choices[k].value);
            if (e > k) s += (e == k + 1 ? ", " : "..") + num(a.choices[e].value);
            k = e + 1;
        }
        return s;
    }
    const bool lo = a.flags & KIV_ARG_LO, hi = a.flags & KIV_ARG_HI;
    const bool open = a.flags & (KIV_ARG_LO_OPEN | KIV_ARG_HI_OPEN);
    if (lo && hi && a.lo == a.hi) {
        s = num(a.lo);
    } else if (lo && hi && !open) {
        s = num(a.lo) + ".." + num(a.hi);
    } else {
        if (lo) s = std::string(a.flags & KIV_ARG_LO_OPEN ? "> " : ">= ") + num(a.lo);
        if (hi) s += std::string(lo ? " and " : "") + (a.flags & KIV_ARG_HI_OPEN ? "< " : "<= ") + num(a.hi);
    }
    if (is_array(a.type) && !s.empty()) s += " entries";
    if (a.flags & KIV_ARG_FINITE) s += s.empty() ? "finite" : " and finite";
    return s;
}

std::string shown(const kiv_argdesc& a, const kiv_value& v) {
    if (is_array(a.type)) return std::to_string(v.n) + " entries";
    return a.type == KIV_T_REAL ? num(v.d) : std::to_string(v.i);
}

// Whether the value can be handed to the member at all: an integer its C type holds, an
// array with a count and a pointer where the count asks for one.
bool fits(const kiv_argdesc& a, const kiv_value& v) {
    if (a.type == KIV_T_UINT || a.type == KIV_T_COLOR) return v.i >= 0 && v.i <= static_cast<long long>(UINT_MAX);
    if (is_int_type(a.type)) return v.i >= INT_MIN && v.i <= INT_MAX;
    return !is_array(a.type) || (v.n >= 0 && (v.p || v.n == 0));
}

// The reason a refused argument gives, "<op>: <arg> must be <range> (got <value>)".
void explain_arg(const Row& r, int k, const kiv_value& v) {
    const kiv_argdesc& a = r.args[static_cast<std::size_t>(k)];
    const char* op = r.desc.name;
    if (!fits(a, v))
        set_error("%s: %s does not fit its C type (got %s)", op, a.name, shown(a, v).c_str());
    else if ((is_pointer(a.type) || is_array(a.type)) && !v.p)
        set_error("%s: %s must not be null", op, a.name);
    else
        set_error("%s: %s must %s %s (got %s)", op, a.name, is_array(a.type) ? "have" : "be", a.range, shown(a, v).c_str());
}

bool refusal(int outcome) {
    return outcome == KIV_OUT_REFUSED || outcome == KIV_OUT_DEPTH || outcome == KIV_OUT_EMPTIED;
}

// The outcome of argument k in the context of the whole call (KIV_ARG_IF_NULL looks ahead).
int outcome_in_call(const Row& r, int k, const kiv_value* v) {
    const kiv_argdesc& a = r.args[static_cast<std::size_t>(k)];
    if ((a.flags & KIV_ARG_IF_NULL) && k + 1 < r.desc.nargs && v[k + 1].p) return KIV_OUT_NONE;
    return kiv_arg_outcome(&a, &v[k]);
}

}  // namespace

bool Args::is(int k, std::initializer_list<int> types) const {
    for (int t : types)
        if (v[k].type == t) return true;
    bad = true;
    return false;
}

void set_error(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(t_error, sizeof t_error, fmt, ap);
    va_end(ap);
}

void clear_error() { t_error[0] = '\0'; }

const std::vector<Row>& table() {
    static const std::vector<Row> rows = [] {
        std::vector<Row> v;
        add_rows(v);
        for (Row& r : v) {
            for (kiv_argdesc& a : r.args) r.ranges.push_back(range_text(a));
            for (std::size_t k = 0; k < r.args.size(); ++k) r.args[k].range = r.ranges[k].c_str();
            r.desc.args = r.args.data();
            r.desc.nargs = static_cast<int>(r.args.size());
        }
        return v;
    }();
    return rows;
}

int find(const char* name) {
    const std::vector<Row>& t = table();
    for (std::size_t k = 0; name && k < t.size(); ++k)
        if (std::strcmp(t[k].desc.name, name) == 0) return static_cast<int>(k);
    return -1;
}

int call(kiv_image* img, int op, const kiv_value* in, int nargs, kiv_value* result, bool stamp) {
    clear_error();
    const std::vector<Row>& t = table();
    if (op < 0 || op >= static_cast<int>(t.size())) {
        set_error("no operation number %d", op);
        return 0;
    }
    const Row& r = t[static_cast<std::size_t>(op)];
    const char* name = r.desc.name;
    if (result) *result = kiv_value{r.desc.result, 0, 0, 0.0, nullptr};
    kiv_value v[16];  // no row has more arguments (the table's test checks)
    if (nargs != r.desc.nargs || nargs > 16 || (nargs > 0 && !in)) {
        set_error("%s: takes %d arguments (got %d)", name, r.desc.nargs, nargs);
        return 0;
    }
    kiv* im = reinterpret_cast<kiv*>(img);
    if (!im && !(r.desc.flags & (KIV_OP_STATIC | KIV_OP_FREE))) {
        set_error("%s: the image is null", name);
        return 0;
    }
    for (int k = 0; k < nargs; ++k) {
        const kiv_argdesc& a = r.args[static_cast<std::size_t>(k)];
        v[k] = in[k];
        if (stamp && v[k].type == KIV_T_VOID) v[k].type = a.type;
        if (v[k].type == KIV_T_DEFAULT) {
            if (!(a.flags & KIV_ARG_DEFAULT)) {
                if (a.flags & KIV_ARG_FIELD)
                    set_error("%s: the %s record is null", name, r.desc.record);
                else
                    set_error("%s: %s has no default", name, a.name);
                return 0;
            }
            v[k] = kiv_value{a.type, 0, static_cast<long long>(a.def), a.def, nullptr};
        }
        if (v[k].type != a.type) {
            set_error("%s: %s is of type %d (got %d)", name, a.name, a.type, v[k].type);
            return 0;
        }
        // Only what cannot be handed to the member is refused here (and arrays the member
        // would refuse: one without a count reads a fixed number); the member judges the rest.
        if (!fits(a, v[k]) || (is_array(a.type) && kiv_arg_outcome(&a, &v[k]) == KIV_OUT_REFUSED)) {
            explain_arg(r, k, v[k]);
            return 0;
        }
    }
    tagRECT clipped{0, 0, 0, 0};
    const bool had_pixels = im && im->m_pixels;
    const bool rect_inside = !had_pixels || nargs == 0 || r.args[0].type != KIV_T_RECT ||
                             im->validaterect(static_cast<tagRECT*>(const_cast<void*>(v[0].p)), &clipped);
    Args a{v};
    Result got;
    kivcore::reset_cancelled();
    try {
        got = r.call(im, a);
    } catch (const std::bad_alloc&) {
        set_error("%s: out of memory", name);
        return 0;
    } catch (...) {
        set_error("%s: failed", name);
        return 0;
    }
    if (a.bad) {
        set_error("%s: the table's invoker read an argument of another type", name);
        return 0;
    }
    if (got.why) {
        set_error("%s: %s", name, got.why);
        return 0;
    }
    if (result) {
        result->i = got.i;
        result->p = got.p;
    }
    bool ok = r.desc.result == KIV_T_DIB || r.desc.result == KIV_T_PALETTE ? got.p != nullptr : got.i != 0;
    int refused_arg = -1;
    for (int k = 0; k < nargs && refused_arg < 0; ++k)
        if (refusal(outcome_in_call(r, k, v))) refused_arg = k;
    if (r.desc.result == KIV_T_VOID && refused_arg >= 0) ok = false;
    if (ok) return 1;
    if (kivcore::was_cancelled())
        set_error("%s: cancelled", name);
    else if (refused_arg >= 0)
        explain_arg(r, refused_arg, v[refused_arg]);
    else if (!(r.desc.flags & (KIV_OP_STATIC | KIV_OP_FREE)) && !had_pixels)
        set_error("%s: the image is empty", name);
    else if (!rect_inside)
        set_error("%s: rect lies outside the image", name);
    else
        set_error("%s: refused%s%s", name, r.desc.refuses[0] ? ": " : "", r.desc.refuses);
    return 0;
}

}  // namespace kivops

using kivops::table;

extern "C" {

KIV_API const char* kiv_last_error(void) { return kivops::t_error; }

KIV_API const char* kiv_version(void) {
#define KIV_STR2(x) #x
#define KIV_STR(x) KIV_STR2(x)
    return KIV_STR(KIV_VERSION_MAJOR) "." KIV_STR(KIV_VERSION_MINOR) "." KIV_STR(KIV_VERSION_PATCH);
}

KIV_API int kiv_version_number(void) { return KIV_VERSION_MAJOR * 10000 + KIV_VERSION_MINOR * 100 + KIV_VERSION_PATCH; }

KIV_API int kiv_op_count(void) { return static_cast<int>(table().size()); }

KIV_API const kiv_opdesc* kiv_op_info(int op) {
    return op >= 0 && op < kiv_op_count() ? &table()[static_cast<std::size_t>(op)].desc : nullptr;
}

KIV_API int kiv_op_find(const char* name) { return kivops::find(name); }

KIV_API int kiv_arg_outcome(const kiv_argdesc* a, const kiv_value* v) {
    if (!a || !v) return KIV_OUT_REFUSED;
    double x = 0;
    switch (a->type) {
        case KIV_T_INT:
        case KIV_T_BOOL:
        case KIV_T_CHOICE:
            if (v->i < INT_MIN || v->i > INT_MAX) return KIV_OUT_REFUSED;
            x = static_cast<double>(v->i);
            break;
        case KIV_T_UINT:
        case KIV_T_COLOR:
            if (v->i < 0 || v->i > static_cast<long long>(UINT_MAX)) return KIV_OUT_REFUSED;
            x = static_cast<double>(v->i);
            break;
        case KIV_T_REAL:
            x = v->d;
            break;
        default:
            if (kivops::is_array(a->type)) {
                if (!v->p) return (a->flags & KIV_ARG_NULL) ? KIV_OUT_NONE : KIV_OUT_REFUSED;
                if (v->n < 0) return KIV_OUT_REFUSED;
                x = v->n;
                break;
            }
            return v->p || (a->flags & KIV_ARG_NULL) ? KIV_OUT_NONE : KIV_OUT_REFUSED;
    }
    if (a->choices) {
        for (int k = 0; k < a->nchoices; ++k)
            if (a->choices[k].value == x) return KIV_OUT_NONE;
        return x < a->lo ? a->below : a->above;  // a gap between choices counts as above
    }
    if ((a->flags & KIV_ARG_LO) && !((a->flags & KIV_ARG_LO_OPEN) ? x > a->lo : x >= a->lo)) return a->below;
    if ((a->flags & KIV_ARG_HI) && !((a->flags & KIV_ARG_HI_OPEN) ? x < a->hi : x <= a->hi)) return a->above;
    if ((a->flags & KIV_ARG_FINITE) && !std::isfinite(x)) return KIV_OUT_REFUSED;
    return KIV_OUT_NONE;
}

KIV_API int kiv_op_call(kiv_image* img, int op, const kiv_value* args, int nargs, kiv_value* result) {
    return kivops::call(img, op, args, nargs, result, false);
}

}  // extern "C"
