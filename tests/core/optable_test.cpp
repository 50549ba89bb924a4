// Walks the operation table: every argument just outside its documented range must do what
// the table says (refused with the image unchanged, clamped or replaced by the stated value,
// ...), on a true-colour and on a palettized image, called through kiv_op_call.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "core/optable.h"
#include "support/checks.h"
#include "support/scratch_dir.h"
#include "support/test_images.h"

namespace {

bool same(const std::vector<tagRGBA>& a, const std::vector<tagRGBA>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * 4) == 0);
}
using Img = kivtest::Snapshot;

// What one call did: its success, the image afterwards and the bytes of what it returned.
struct State {
    int ok;
    Img img;
    std::vector<unsigned char> out;
    bool operator==(const State& o) const { return ok == o.ok && img == o.img && out == o.out; }
};

char kFresh;  // a pointer argument's marker: a fresh second image or DIB for every call
std::vector<unsigned char> kZeros(4096);

std::vector<unsigned char> result_bytes(int type, const kiv_value& r) {
    std::vector<unsigned char> v;
    if (type == KIV_T_DIB && r.p) {
        auto* p = static_cast<unsigned char*>(GlobalLock(const_cast<void*>(r.p)));
        v.assign(p, p + GlobalSize(const_cast<void*>(r.p)));
        GlobalUnlock(const_cast<void*>(r.p));
        GlobalFree(const_cast<void*>(r.p));
    } else if (type == KIV_T_PALETTE && r.p) {
        auto* lp = static_cast<tagLOGPALETTE*>(const_cast<void*>(r.p));
        auto* p = reinterpret_cast<unsigned char*>(lp);
        v.assign(p, p + 4 + 4 * lp->palNumEntries);
        kiv::free_gradtable(lp);
    } else if (type == KIV_T_ULONG) {
        v.assign(reinterpret_cast<const unsigned char*>(&r.i), reinterpret_cast<const unsigned char*>(&r.i) + 8);
    }
    return v;
}

struct Bench {
    int bits;
    State run(int op, std::vector<kiv_value> v) const {
        kiv img = kivtest::random_image(5, 4, bits, 7), second = kivtest::random_image(6, 3, bits, 8);
        std::vector<void*> dibs;
        for (kiv_value& x : v) {
            if (x.p != &kFresh) continue;
            if (x.type == KIV_T_DIB) dibs.push_back(img.createdib());
            x.p = x.type == KIV_T_IMAGE ? static_cast<void*>(&second) : dibs.back();
        }
        kiv_value r{};
        const int ok = kiv_op_call(reinterpret_cast<kiv_image*>(&img), op, v.data(), static_cast<int>(v.size()), &r);
        for (void* d : dibs) GlobalFree(d);
        return State{ok, Img(img), result_bytes(kiv_op_info(op)->result, r)};
    }
    Img fresh() const { return Img(kivtest::random_image(5, 4, bits, 7)); }
};

// An argument inside its range: the default, else the lowest bound, else 0 (or the test's
// own choice where that would make the call fail for another reason).
using Files = std::map<std::string, std::vector<unsigned char>>;
kiv_value sample(const kiv_opdesc& d, const kiv_argdesc& a, const std::map<std::string, double>& own,
                 const std::string& texture, const Files& bytes) {
    kiv_value v{a.type, 0, 0, 0.0, nullptr};
    double x = a.flags & KIV_ARG_DEFAULT ? a.def : a.flags & KIV_ARG_LO ? a.lo + ((a.flags & KIV_ARG_LO_OPEN) ? 1 : 0)
                                               : a.flags & KIV_ARG_HI ? a.hi : 0;
    if (auto it = own.find(a.name); it != own.end()) x = it->second;
    if (auto it = own.find(std::string(d.name) + "." + a.name); it != own.end()) x = it->second;
    v.i = static_cast<long long>(x);
    v.d = x;
    if (a.type >= KIV_T_COLORS && a.type <= KIV_T_BYTES) {
        v.p = kZeros.data();
        v.n = a.type == KIV_T_BYTES ? 4 : static_cast<int>(x);
    }
    if (auto it = bytes.find(d.name); a.type == KIV_T_BYTES && it != bytes.end())
        v.p = it->second.data(), v.n = static_cast<int>(it->second.size());
    static std::vector<unsigned char> pal = {0, 3, 2, 0, 10, 20, 30, 0, 200, 100, 50, 0};
    if (a.type == KIV_T_IMAGE || a.type == KIV_T_DIB) v.p = &kFresh;
    if (a.type == KIV_T_STRING) v.p = texture.c_str();
    if (a.type == KIV_T_PALETTE && !(a.flags & KIV_ARG_NULL)) v.p = pal.data();
    return v;
}

// Values just outside the argument's range (and NaN, infinities, null where they count).
std::vector<kiv_value> outside(const kiv_argdesc& a) {
    std::vector<kiv_value> v;
    const double inf = std::numeric_limits<double>::infinity();
    const bool array = a.type >= KIV_T_COLORS && a.type <= KIV_T_BYTES;
    auto add = [&](double x) {
        v.push_back(kiv_value{a.type, 0, 0, x, nullptr});
        if (a.type != KIV_T_REAL) v.back().i = static_cast<long long>(x), v.back().n = array ? static_cast<int>(x) : 0;
    };
    if (a.type == KIV_T_REAL) {
        if (a.flags & KIV_ARG_LO) add((a.flags & KIV_ARG_LO_OPEN) ? a.lo : std::nextafter(a.lo, -inf));
        if (a.flags & KIV_ARG_HI) add((a.flags & KIV_ARG_HI_OPEN) ? a.hi : std::nextafter(a.hi, inf));
        if (a.flags & (KIV_ARG_LO | KIV_ARG_HI | KIV_ARG_FINITE)) {
            add(std::nan(""));
            add(inf);
            add(-inf);
        }
    } else if (a.flags & (KIV_ARG_LO | KIV_ARG_HI)) {
        if ((a.flags & KIV_ARG_LO) && (!array || a.lo > 0)) add(a.lo - 1);
        if (a.flags & KIV_ARG_HI) add(a.hi + 1);
        if (!array && (a.flags & KIV_ARG_LO)) add(a.type == KIV_T_UINT ? 0 : INT_MIN);
        if (!array && (a.flags & KIV_ARG_HI)) add(a.type == KIV_T_UINT ? UINT_MAX : INT_MAX);
        for (int k = 0; k + 1 < a.nchoices; ++k)
            for (int gap = a.choices[k].value + 1; gap < a.choices[k + 1].value; ++gap) add(gap);
    }
    for (kiv_value& x : v)
        if (array) x.p = kZeros.data();
    if ((array || a.type == KIV_T_IMAGE || a.type == KIV_T_DIB || a.type == KIV_T_STRING || a.type == KIV_T_PALETTE) &&
        !(a.flags & KIV_ARG_NULL))
        v.push_back(kiv_value{a.type, 0, 0, 0.0, nullptr});
    return v;
}

TEST(OpTable, EveryArgumentJustOutsideItsRangeDoesWhatTheTableSays) {
    kivtest::ScratchDir dir("optable_");
    const std::string texture = dir("texture.bmp");
    kiv tex = kivtest::random_image(4, 4, 24, 3);
    ASSERT_EQ(1, tex.texture_save(nullptr, texture.c_str()));
    // Samples the defaults and bounds do not give: calls that would fail for another reason.
    const std::map<std::string, double> own = {
        {"blur.dx", 2}, {"op1", 255}, {"stops", 2}, {"zoom_inframe.w", 2}, {"zoom_inframe.h", 2}};
    // The readers of bytes take the texture's file, and its packed DIB after the file header.
    const std::vector<unsigned char> bmp = kivtest::read_bytes(texture);
    const Files bytes = {{"loadbmp_bytes", bmp}, {"attachdib_any_bytes", {bmp.begin() + 14, bmp.end()}}};
    const int dib_as_read = kiv_op_find("kivCrop");
    for (int op = 0; op < kiv_op_count(); ++op) {
        const kiv_opdesc& d = *kiv_op_info(op);
        ASSERT_LE(d.nargs, 16) << d.name;
        std::vector<kiv_value> base;
        for (int k = 0; k < d.nargs; ++k) base.push_back(sample(d, d.args[k], own, texture, bytes));
        bool walked = false;
        for (int bits : {24, 8}) {
            const Bench b{bits};
            SCOPED_TRACE(std::string(d.name) + " at " + std::to_string(bits) + " bits");
            if (!b.run(op, base).ok) continue;  // e.g. createlogpalette without a map
            walked = true;
            for (int k = 0; k < d.nargs; ++k) {
                for (const kiv_value& x : outside(d.args[k])) {
                    std::vector<kiv_value> v = base;
                    v[static_cast<std::size_t>(k)] = x;
                    const int outcome = kiv_arg_outcome(&d.args[k], &x);
                    SCOPED_TRACE(std::string(d.args[k].name) + " = " + (x.type == KIV_T_REAL ? std::to_string(x.d) : std::to_string(x.i)) +
                                 (x.p ? "" : " (null)") + ", outcome " + std::to_string(outcome));
                    if (outcome == KIV_OUT_NONE) continue;
                    const State got = b.run(op, v);
                    if (outcome == KIV_OUT_REFUSED || outcome == KIV_OUT_DEPTH || outcome == KIV_OUT_EMPTIED) {
                        EXPECT_EQ(0, got.ok);
                        const Img before = b.fresh();
                        const bool as_said = outcome == KIV_OUT_REFUSED ? got.img == before
                                             : outcome == KIV_OUT_DEPTH ? same(got.img.px, before.px) && got.img.bits >= 24
                                                                        : got.img.px.empty();
                        EXPECT_TRUE(as_said) << "the image is not as the refusal leaves it";
                    } else if (outcome == KIV_OUT_CLAMPED || outcome == KIV_OUT_REPLACED) {
                        const kiv_argdesc& a = d.args[k];
                        const bool below = (a.flags & KIV_ARG_LO) && !((a.flags & KIV_ARG_LO_OPEN) ? x.d > a.lo : x.d >= a.lo);
                        kiv_value y = x;
                        y.d = below ? a.below_value : a.above_value;
                        y.i = static_cast<long long>(y.d);
                        v[static_cast<std::size_t>(k)] = y;
                        EXPECT_TRUE(got == b.run(op, v)) << "differs from the stated value " << y.d;
                    } else if (outcome == KIV_OUT_UNCHANGED) {
                        EXPECT_EQ(1, got.ok);
                        EXPECT_TRUE(got.img == b.fresh()) << "the image changed";
                        if (d.result == KIV_T_DIB) {
                            EXPECT_TRUE(got.out == b.run(dib_as_read, {base[0], kiv_value{KIV_T_RECT, 0, 0, 0, nullptr}}).out);
                        }
                    } else {
                        ADD_FAILURE() << "a value outside the range with outcome " << outcome;
                    }
                }
            }
        }
        EXPECT_TRUE(walked) << d.name << ": the in-range call fails on both images: " << kiv_last_error();
    }
}

}  // namespace
