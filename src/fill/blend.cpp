// The blend-mode table and its row kernels.
#include "fill/blend.h"

#include <cstddef>
#include <utility>

#include "core/simd.h"
#include "fill/blend_simd.h"

namespace kivfill {

namespace {

template <int M>
tagRGBA blend_pixel(tagRGBA d, tagRGBA s) {
    if constexpr (M >= kHue && M <= kValue) {
        return blend_colour_model(M, d, prepare_model_source(M, s));
    } else {
        const int sg = source_channel(M, 1) == 2 ? s.b : s.g;
        return tagRGBA{static_cast<BYTE>(channel_blend<M>(d.r, s.r)), static_cast<BYTE>(channel_blend<M>(d.g, sg)),
                       static_cast<BYTE>(channel_blend<M>(d.b, s.b)), d.a};
    }
}

// Pixels blended per pass of the two-pass kernel (a stack buffer of this many colours).
constexpr int kBlock = 256;

// Red, green and blue of p[i] become mix_channel(p, channel_blend<M>(p, c), op), M a mode
// with has_vector_blend; alpha stays. c_step 0 repeats one colour. The vector kernel first,
// the rest pixel by pixel.
template <int M>
void blend_mix_run(tagRGBA* p, const tagRGBA* c, int c_step, int n, int op) {
    static_assert(has_vector_blend(M));
    constexpr int green_from = source_channel(M, 1);
    BYTE* pb = reinterpret_cast<BYTE*>(p);
    const auto vec = kivcore::pick(KIV_AVX2_KERNEL(blend_mix_avx2), KIV_SSE2_KERNEL(blend_mix_sse2));
    int i = vec ? vec(M, pb, &c[0].r, c_step, n, op) : 0;
    for (; i < n; ++i) {
        const BYTE* s = &c[static_cast<std::size_t>(i) * c_step].r;
        BYTE* d = pb + 4 * i;
        d[0] = static_cast<BYTE>(mix_channel(d[0], channel_blend<M>(d[0], s[0]), op));
        d[1] = static_cast<BYTE>(mix_channel(d[1], channel_blend<M>(d[1], s[green_from]), op));
        d[2] = static_cast<BYTE>(mix_channel(d[2], channel_blend<M>(d[2], s[2]), op));
    }
}

// The blended colours of a block of a per-channel mode.
template <int M>
void blend_block(const tagRGBA* p, const tagRGBA* s, int s_step, int n, tagRGBA* out) {
    constexpr int green_from = source_channel(M, 1);
    for (int i = 0; i < n; ++i) {
        const BYTE* d = &p[i].r;
        const BYTE* c = &s[static_cast<std::size_t>(i) * s_step].r;
        out[i] = tagRGBA{static_cast<BYTE>(channel_blend<M>(d[0], c[0])),
                         static_cast<BYTE>(channel_blend<M>(d[1], c[green_from])),
                         static_cast<BYTE>(channel_blend<M>(d[2], c[2])), 0};
    }
}

// p[i] blended with s[i * s_step] at one opacity (op 1..255).
template <int M>
void row_op_strided(tagRGBA* p, const tagRGBA* s, int s_step, int n, int op) {
    if constexpr (M >= kHue && M <= kValue) {
        if (s_step == 0) {
            const ModelSource m = prepare_model_source(M, s[0]);
            for (int i = 0; i < n; ++i) {
                const tagRGBA d = p[i];
                const tagRGBA c = blend_colour_model(M, d, m);
                p[i] = tagRGBA{static_cast<BYTE>(mix_channel(d.r, c.r, op)), static_cast<BYTE>(mix_channel(d.g, c.g, op)),
                               static_cast<BYTE>(mix_channel(d.b, c.b, op)), d.a};
            }
            return;
        }
        for (int i = 0; i < n; ++i) {
            const tagRGBA d = p[i];
            const tagRGBA c = blend_pixel<M>(d, s[i]);
            p[i] = tagRGBA{static_cast<BYTE>(mix_channel(d.r, c.r, op)), static_cast<BYTE>(mix_channel(d.g, c.g, op)),
                           static_cast<BYTE>(mix_channel(d.b, c.b, op)), d.a};
        }
    } else if constexpr (has_vector_blend(M)) {
        blend_mix_run<M>(p, s, s_step, n, op);
    } else {
        tagRGBA block[kBlock];
        for (int off = 0; off < n; off += kBlock) {
            const int len = n - off < kBlock ? n - off : kBlock;
            blend_block<M>(p + off, s + static_cast<std::size_t>(off) * s_step, s_step, len, block);
            blend_mix_run<kNormal>(p + off, block, 1, len, op);
        }
    }
}

template <int M>
void row_op(tagRGBA* p, const tagRGBA* s, int n, int op) {
    row_op_strided<M>(p, s, 1, n, op);
}
template <int M>
void row_const(tagRGBA* p, const tagRGBA* s, int n, int op) {
    row_op_strided<M>(p, s, 0, n, op);
}

// Per-pixel weights (layers): the plain per-pixel sequence.
template <int M>
void row_weighted(tagRGBA* p, const tagRGBA* s, const BYTE* w, int n) {
    for (int i = 0; i < n; ++i) {
        const int op = w[i];
        if (op == 0) continue;
        const tagRGBA d = p[i];
        const tagRGBA c = blend_pixel<M>(d, s[i]);
        p[i] = tagRGBA{static_cast<BYTE>(mix_channel(d.r, c.r, op)), static_cast<BYTE>(mix_channel(d.g, c.g, op)),
                       static_cast<BYTE>(mix_channel(d.b, c.b, op)), d.a};
    }
}

using RowOpFn = void (*)(tagRGBA*, const tagRGBA*, int, int);
using RowWeightedFn = void (*)(tagRGBA*, const tagRGBA*, const BYTE*, int);

template <int... M>
struct Tables {
    static constexpr BlendFn pixel[] = {&blend_pixel<M>...};
    static constexpr RowOpFn op[] = {&row_op<M>...};
    static constexpr RowOpFn solid[] = {&row_const<M>...};
    static constexpr RowWeightedFn weighted[] = {&row_weighted<M>...};
};

template <std::size_t... I>
constexpr auto make_tables(std::index_sequence<I...>) {
    return Tables<static_cast<int>(I)...>{};
}
using ModeTables = decltype(make_tables(std::make_index_sequence<kBlendModeCount>{}));

}  // namespace

BlendFn blend_function(int mode) { return ModeTables::pixel[normalise_mode(mode)]; }

void blend_row(int mode, tagRGBA* p, const tagRGBA* s, int n, int op) {
    op = clamp_opacity(op);
    if (n < 1 || op == 0) return;
    ModeTables::op[normalise_mode(mode)](p, s, n, op);
}

void blend_row_weighted(int mode, tagRGBA* p, const tagRGBA* s, const BYTE* w, int n) {
    if (n < 1) return;
    ModeTables::weighted[normalise_mode(mode)](p, s, w, n);
}

SolidBlend::SolidBlend(int mode, tagRGBA s, int op)
    : mode_(normalise_mode(mode)), op_(clamp_opacity(op)), path_(Path::kTables), s_(s) {
    if (is_colour_model_mode(mode_)) {
        path_ = Path::kModel;
        model_ = prepare_model_source(mode_, s);
        return;
    }
    if (has_vector_blend(mode_)) {
        // Cheap integer blends: the vector kernel beats three table look-ups.
        path_ = Path::kDirect;
        return;
    }
    // Per-channel mode: feed every value through the one blend function, channel by
    // channel, so the tables hold exactly what the per-pixel path computes.
    const BlendFn f = blend_function(mode_);
    for (int v = 0; v < 256; ++v) {
        const BYTE b = static_cast<BYTE>(v);
        const tagRGBA c = f(tagRGBA{b, b, b, 0}, s);
        lut_[0][v] = static_cast<BYTE>(mix_channel(v, c.r, op_));
        lut_[1][v] = static_cast<BYTE>(mix_channel(v, c.g, op_));
        lut_[2][v] = static_cast<BYTE>(mix_channel(v, c.b, op_));
    }
}

void SolidBlend::apply(tagRGBA* p, int n) const {
    if (op_ == 0 || n < 1) return;
    if (path_ != Path::kTables) {
        ModeTables::solid[mode_](p, &s_, n, op_);
        return;
    }
    const BYTE* lr = lut_[0];
    const BYTE* lg = lut_[1];
    const BYTE* lb = lut_[2];
    for (int i = 0; i < n; ++i) {
        tagRGBA& d = p[i];
        d.r = lr[d.r];
        d.g = lg[d.g];
        d.b = lb[d.b];
    }
}

}  // namespace kivfill
