// Fuzz target: an image and a sequence of up to 12 operations of the operation table, with
// arguments inside and outside their ranges, run in lockstep four ways: the vector kernels
// on all threads, the same on one thread, the scalar kernels, and the C interface
// (kiv_op_call).  Results, geometry, depth, colour map and pixels must agree after every
// step, and a refused call must leave the image as it was.
#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <vector>

#include "core/optable.h"
#include "core/simd.h"
#include "fuzz_common.h"
#include "kiv_win32.h"

namespace {

using kivfuzz::fail;
using kivfuzz::Params;

// The rows a pipeline can use: members of an image, no files, DIBs or statics.
const std::vector<int>& usable_rows() {
    static const std::vector<int> rows = [] {
        std::vector<int> v;
        const auto& t = kivops::table();
        for (std::size_t k = 0; k < t.size(); ++k) {
            bool ok = !(t[k].desc.flags & (KIV_OP_STATIC | KIV_OP_FREE));
            for (const kiv_argdesc& a : t[k].args) ok = ok && a.type != KIV_T_STRING && a.type != KIV_T_DIB;
            if (ok) v.push_back(static_cast<int>(k));
        }
        return v;
    }();
    return rows;
}

// Sizes that make an image grow are kept small (inside the range) so that a run stays fast.
bool grows(const char* name) {
    for (const char* g : {"w", "h", "width", "height", "left", "right", "top", "bottom", "nx", "ny", "n"})
        if (!std::strcmp(name, g)) return true;
    return false;
}

// A number for a: the default, a bound, just past one, inside, near the image, or extreme.
double draw(const kiv_argdesc& a, Params& p, int span) {
    const bool real = a.type == KIV_T_REAL, arr = a.type >= KIV_T_COLORS && a.type <= KIV_T_BYTES;
    const double lo = (a.flags & KIV_ARG_LO) ? a.lo : arr ? 0 : -span, hi = (a.flags & KIV_ARG_HI) ? a.hi : span;
    if (a.choices && (p.u8() & 1)) return a.choices[p.u8() % a.nchoices].value;
    const double step = real && !(p.u8() & 1) ? 1e-9 * std::max(1.0, std::fabs(hi)) : 1 + p.u8() % 3;
    const double width = std::min(hi - lo, arr ? 24.0 : 65535.0);
    double v = 0;
    switch (p.u8() % 8) {
        case 0: v = (a.flags & KIV_ARG_DEFAULT) ? a.def : lo; break;
        case 1: v = lo; break;
        case 2: v = std::min(hi, arr ? lo + 24 : hi); break;
        case 3: v = lo - step; break;
        case 4: v = hi + step; break;
        case 5: v = lo + (real ? width * p.u16() / 65535.0 : std::fmod(p.u16(), width + 1)); break;
        case 6: v = real ? p.s16() / 64.0 : p.s16() % (span + 1); break;
        default: {
            static const double far[] = {NAN, INFINITY, -INFINITY, 1e300, INT_MAX, INT_MIN, UINT_MAX, -0.0};
            v = far[p.u8() % 8];
        }
    }
    // Under ASan a failed operator new ends the run instead of throwing bad_alloc, and a
    // mapped image of 2^31 pixels is accepted (and then slow): sizes past 2048 stay out.
    if (!real && !arr && grows(a.name) && v > 256) v = v <= hi ? 256 : std::min(v, 2048.0);
    if (real) return v;
    if (!std::isfinite(v)) v = 0;
    if (arr) return std::clamp(v, 0.0, 64.0);  // a negative count would lie about the buffer
    return a.type == KIV_T_UINT || a.type == KIV_T_COLOR ? std::clamp(v, 0.0, double(UINT_MAX)) : std::clamp(v, double(INT_MIN), double(INT_MAX));
}

// Pixels and map from a seed: random, flat or a few colours; palettized images either keep
// pixels consistent with their map or hold stray indices.
std::uint32_t next(std::uint32_t& s) { return s = s * 1664525u + 1013904223u; }

void fill(kiv& img, Params& p) {
    const int pattern = p.u8();
    std::uint32_t s = static_cast<std::uint32_t>(p.u16());
    for (int i = 0; i < img.m_colors; ++i) img.m_map[i] = tagRGBA{BYTE(next(s) >> 24), BYTE(next(s) >> 24), BYTE(next(s) >> 24), 0};
    const std::uint32_t flat = next(s);
    for (int i = 0; i < img.m_packets; ++i) {
        const std::uint32_t r = pattern % 3 == 0 ? next(s) : pattern % 3 == 1 ? flat : flat ^ (next(s) >> 30);
        std::memcpy(&img.m_pixels[i], &r, 4);
    }
    if (img.m_colors && (pattern & 4)) {
        for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i].a = BYTE(img.m_pixels[i].a % img.m_colors);
        img.validate_rgb();
    }
}

bool make_image(kiv& img, Params& p, int wmax, int hmax) {
    static const int depths[] = {1, 4, 8, 24, 32};
    const int w = 1 + p.u8() % wmax, h = 1 + p.u8() % hmax, f = p.u8();
    if (!((f & 8) ? img.create_width_mapfile(w, h, depths[f % 5]) : img.create(w, h, depths[f % 5]))) return false;
    fill(img, p);
    return true;
}

// One call's arguments with their storage: arrays, rectangles and palettes.
struct Call {
    int op = 0;
    std::vector<kiv_value> v;
    std::vector<std::vector<std::uint8_t>> store;
    std::vector<tagRECT> rects;
    std::vector<int> image_slot;  // per argument: -1, or 0 null, 1 this image, 2 the other one
};

std::size_t elem_size(int type) {
    return type == KIV_T_STOPS ? sizeof(tagGRADCOLORS) : type == KIV_T_SYSCOLS ? sizeof(tagSYSCOL) : type == KIV_T_BYTES ? 1 : 4;
}

Call make_call(Params& p, const kiv& img) {
    Call c;
    const auto& rows = usable_rows();
    c.op = rows[p.u8() % rows.size()];
    const kivops::Row& row = kivops::table()[static_cast<std::size_t>(c.op)];
    const int span = 2 * (img.m_width + img.m_height) + 8;
    c.rects.reserve(row.args.size());
    std::uint32_t s = static_cast<std::uint32_t>(p.u16());
    for (const kiv_argdesc& a : row.args) {
        kiv_value x{a.type, 0, 0, 0.0, nullptr};
        const bool null = (p.u8() % 16) == 0;
        c.image_slot.push_back(a.type == KIV_T_IMAGE ? (null ? 0 : 1 + p.u8() % 2) : -1);
        if (a.type == KIV_T_REAL) {
            x.d = draw(a, p, span);
        } else if (a.type <= KIV_T_COLOR) {
            x.i = static_cast<long long>(draw(a, p, span));
            if (a.type == KIV_T_COLOR && (p.u8() & 1)) x.i = next(s) >> (p.u8() & 1 ? 8 : 0);
        } else if (a.type == KIV_T_RECT && !null) {
            const int l = p.u8() % (img.m_width + 8) - 4, t = p.u8() % (img.m_height + 8) - 4;
            c.rects.push_back(p.u8() == 255 ? tagRECT{INT_MIN, INT_MIN, INT_MAX, INT_MAX}
                                            : tagRECT{l, t, l + p.u8() % (img.m_width + 8) - 2, t + p.u8() % (img.m_height + 8) - 2});
            x.p = &c.rects.back();
        } else if (a.type == KIV_T_PALETTE && !null) {
            const int n = p.u8() & 1 ? 1 + p.u8() : p.u8() % 2 ? 0 : 300;
            c.store.emplace_back(8 + 4 * std::size_t(std::max(n, 1)));
            for (auto& b : c.store.back()) b = BYTE(next(s) >> 24);
            auto* lp = reinterpret_cast<tagLOGPALETTE*>(c.store.back().data());
            lp->palVersion = 0x300;
            lp->palNumEntries = WORD(n);
            x.p = lp;
        } else if (a.type >= KIV_T_COLORS && a.type <= KIV_T_BYTES) {
            // A fixed count (a 3 x 3 kernel) is not passed to the member: only the C route
            // would see another one (and refuse it).
            x.n = (a.flags & KIV_ARG_LO) && a.lo == a.hi ? int(a.lo) : static_cast<int>(draw(a, p, span));
            c.store.emplace_back(elem_size(a.type) * std::size_t(std::max(x.n, 1)));
            for (auto& b : c.store.back()) b = BYTE(next(s) >> 24);
            if (a.type == KIV_T_STOPS)  // positions mostly inside 0..1000
                for (int k = 0; k < x.n; ++k)
                    if (p.u8() & 3) reinterpret_cast<tagGRADCOLORS*>(c.store.back().data())[k].pos = p.u16() % 1001;
            x.p = null && (a.flags & KIV_ARG_NULL) ? nullptr : c.store.back().data();
        }
        c.v.push_back(x);
    }
    return c;
}

// One of the four routes: its image, the second image, and how it runs.
struct Route {
    kiv img, other;
    const char* name;
};

// What one call gave, to compare across routes.
struct Outcome {
    long long i = 0;
    bool ptr = false, refused_early = false;
    std::vector<std::uint8_t> bytes;  // a returned palette or DIB
};

Outcome run(Route& r, const Call& c, bool capi) {
    std::vector<kiv_value> v = c.v;
    for (std::size_t k = 0; k < v.size(); ++k)
        if (c.image_slot[k] >= 0) v[k].p = c.image_slot[k] == 0 ? nullptr : c.image_slot[k] == 1 ? &r.img : &r.other;
    const kivops::Row& row = kivops::table()[static_cast<std::size_t>(c.op)];
    Outcome o;
    void* p = nullptr;
    if (capi) {
        kiv_value res{};
        o.refused_early = !kiv_op_call(reinterpret_cast<kiv_image*>(&r.img), c.op, v.data(), int(v.size()), &res);
        o.i = res.i;
        p = const_cast<void*>(res.p);
    } else {
        const kivops::Result got = row.call(&r.img, kivops::Args{v.data()});
        o.i = got.why ? -1 : got.i;
        p = got.p;
    }
    o.ptr = p != nullptr;
    if (p && row.desc.result == KIV_T_PALETTE) {
        auto* lp = static_cast<tagLOGPALETTE*>(p);
        const auto* b = reinterpret_cast<const std::uint8_t*>(lp);
        o.bytes.assign(b, b + 4 + 4 * std::size_t(lp->palNumEntries));
        kiv::free_gradtable(lp);
    } else if (p && row.desc.result == KIV_T_DIB) {
        const auto* b = static_cast<const std::uint8_t*>(kiv_GlobalLock(p));
        o.bytes.assign(b, b + kiv_GlobalSize(p));
        kiv_GlobalUnlock(p);
        kiv_GlobalFree(p);
    }
    return o;
}

// The table's verdict on argument k (a range that applies only beside a null pointer).
int outcome(const kivops::Row& row, const Call& c, std::size_t k) {
    if ((row.args[k].flags & KIV_ARG_IF_NULL) && k + 1 < c.v.size() && c.v[k + 1].p) return KIV_OUT_NONE;
    return c.image_slot[k] > 0 ? KIV_OUT_NONE : kiv_arg_outcome(&row.args[k], &c.v[k]);
}

// The calls before this one, and this call, as text for a report.
std::string trail;
std::string describe(const kivops::Row& row, const Call& c) {
    std::string s = trail + row.desc.name;
    for (std::size_t k = 0; k < c.v.size(); ++k) {
        const kiv_value& x = c.v[k];
        char b[96];
        if (c.image_slot[k] >= 0)
            std::snprintf(b, sizeof b, "%s", c.image_slot[k] == 0 ? "null" : c.image_slot[k] == 1 ? "self" : "other");
        else if (x.type == KIV_T_REAL)
            std::snprintf(b, sizeof b, "%.17g", x.d);
        else if (const auto* r = static_cast<const tagRECT*>(x.p); x.type == KIV_T_RECT && r)
            std::snprintf(b, sizeof b, "{%d,%d,%d,%d}", r->left, r->top, r->right, r->bottom);
        else
            std::snprintf(b, sizeof b, x.type <= KIV_T_COLOR ? "%lld" : "[%lld %s n=%d]", x.i, x.p ? "ptr" : "null", x.n);
        s += std::string(k ? ", " : "(") + row.args[k].name + "=" + b;
    }
    return s + ")";
}

// What a refusal must keep: geometry, depth, colour count (any value alloccmap left), map
// and pixels.  A kiv copy would drop the map of an empty image.
struct Snap {
    int w, h, bits, colors;
    std::vector<tagRGBA> px, map;
    explicit Snap(const kiv& m)
        : w(m.m_width), h(m.m_height), bits(m.m_bits), colors(m.m_colors),
          px(m.m_pixels, m.m_pixels + std::max(m.m_packets, 0)), map(m.m_map, m.m_map + std::max(m.m_colors, 0)) {}
    static bool same(const std::vector<tagRGBA>& a, const std::vector<tagRGBA>& b) {
        return a.size() == b.size() && (a.empty() || !std::memcmp(a.data(), b.data(), a.size() * sizeof(tagRGBA)));
    }
    bool operator==(const Snap& o) const {
        return w == o.w && h == o.h && bits == o.bits && colors == o.colors && same(px, o.px) && same(map, o.map);
    }
};

// The image may change on a refusal only by being emptied where the table or kiv.h says so
// (normalize of a single level; copyfrom of an empty source; create), or set to 24 bits with its
// pixels as they were (fills set 24 bits before they judge the box).
void check_refusal(const kivops::Row& row, const Call& c, const Snap& before, const Snap& after) {
    int change = KIV_OUT_NONE;
    for (std::size_t k = 0; k < c.v.size(); ++k) change = std::max(change, outcome(row, c, k));
    for (const char* n : {"normalize", "copyfrom", "create", "create_width_mapfile"})
        if (!std::strcmp(row.desc.name, n)) change = KIV_OUT_EMPTIED;
    if (change == KIV_OUT_EMPTIED && after.px.empty()) return;
    if (before.bits != 24 && after.bits == 24 && before.w == after.w && before.h == after.h && Snap::same(before.px, after.px)) return;
    if (!(before == after))
        fail("refused but changed the image", describe(row, c) + " " + std::to_string(before.w) + "x" + std::to_string(before.h) + "x" +
                                                  std::to_string(before.bits) + "/" + std::to_string(before.colors) + " -> " +
                                                  std::to_string(after.w) + "x" + std::to_string(after.h) + "x" +
                                                  std::to_string(after.bits) + "/" + std::to_string(after.colors));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Params p{data, size};
    const int flags = p.u8();
    const std::size_t mark = size - p.n;
    Route routes[4] = {{{}, {}, "vector"}, {{}, {}, "one thread"}, {{}, {}, "scalar"}, {{}, {}, "C interface"}};
    for (Route& r : routes) {
        Params q{data + mark, size - mark};  // every route builds the same two images
        if (!make_image(r.img, q, 48, 24) || !make_image(r.other, q, 12, 12)) return 0;
        p = q;
    }
    const kivcore::Isa vec = (flags & 1) ? kivcore::Isa::kSse2 : kivcore::Isa::kAvx2;
    const int ops = p.u8() % 13;
    bool raw_map = false;
    trail.clear();
    for (int step = 0; step < ops && routes[0].img.m_packets <= (1 << 18); ++step) {
        const Call c = make_call(p, routes[0].img);
        const kivops::Row& row = kivops::table()[static_cast<std::size_t>(c.op)];
        if (std::getenv("KIVFUZZ_TRACE")) std::fprintf(stderr, "step %d: %s\n", step, describe(row, c).c_str());
        const Snap before(routes[0].img);
        Outcome out[4];
        for (int k = 0; k < 4; ++k) {
            kivcore::cap_isa(k == 2 ? kivcore::Isa::kScalar : vec);
            kiv::setthreads(k == 1 ? 1 : 0);
            out[k] = run(routes[k], c, k == 3);
        }
        kivcore::cap_isa(kivcore::Isa::kAvx2);
        kiv::setthreads(0);
        // alloccmap sets the map as the caller says: the map checks stop there.
        raw_map = raw_map || !std::strcmp(row.desc.name, "alloccmap");
        for (const kiv* im : {&routes[0].img, &routes[0].other})
            if (const std::string v = kivtest::image_violation(*im, !raw_map); !v.empty()) fail(v.c_str(), describe(row, c));
        for (int k = 1; k < 4; ++k) {
            const bool same_result = k == 3 ? out[k].refused_early || out[k].i == out[0].i : out[k].i == out[0].i;
            if (!same_result || out[k].ptr != out[0].ptr || out[k].bytes != out[0].bytes)
                fail((std::string("result differs: ") + routes[k].name).c_str(), describe(row, c));
            if (!kivfuzz::images_same(routes[0].img, routes[k].img) || !kivfuzz::images_same(routes[0].other, routes[k].other))
                fail((std::string("image differs: ") + routes[k].name).c_str(), describe(row, c));
        }
        bool refused = row.desc.result == KIV_T_VOID ? false : out[0].i == 0 || out[0].i == -1;
        if (row.desc.result == KIV_T_PALETTE || row.desc.result == KIV_T_DIB) refused = !out[0].ptr;
        if (row.desc.result == KIV_T_VOID)
            for (std::size_t k = 0; k < c.v.size(); ++k) {
                const int o = outcome(row, c, k);
                refused = refused || o == KIV_OUT_REFUSED || o == KIV_OUT_DEPTH || o == KIV_OUT_EMPTIED;
            }
        if (refused) check_refusal(row, c, before, Snap(routes[0].img));
        trail = describe(row, c) + " -> " + std::to_string(out[0].i) + "; ";
    }
    return 0;
}
