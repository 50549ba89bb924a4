// The blend-mode table and its row kernels.
#include "fill/blend.h"

#include <cstddef>
#include <utility>

#include "core/simd.h"
#if KIV_HAVE_SSE2
#include <emmintrin.h>
#endif

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

// Modes whose blend is cheap integer work the vector kernel does itself.
constexpr bool has_vector_blend(int m) {
    return m == kNormal || m == 9 || m == kDarken || m == kLighten || m == kMultiply || m == kScreen ||
           m == kDifference || m == kAdd || m == kSubtract;
}

#if KIV_HAVE_SSE2
// (t + (t >> 8)) >> 8 on 16-bit lanes, t <= 65153: the rounding of multiply and screen.
inline __m128i round_div255_epi16(__m128i t) { return _mm_srli_epi16(_mm_add_epi16(t, _mm_srli_epi16(t, 8)), 8); }

inline __m128i mul_epu8(__m128i a, __m128i b) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bias = _mm_set1_epi16(128);
    const __m128i lo = _mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero)), bias);
    const __m128i hi = _mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero)), bias);
    return _mm_packus_epi16(round_div255_epi16(lo), round_div255_epi16(hi));
}

// Sixteen bytes (four pixels) of channel_blend<M>; lanes of alpha are don't-care.
template <int M>
inline __m128i blend_epu8(__m128i d, __m128i s) {
    if constexpr (M == kDarken) {
        return _mm_min_epu8(d, s);
    } else if constexpr (M == kLighten) {
        return _mm_max_epu8(d, s);
    } else if constexpr (M == kMultiply) {
        return mul_epu8(d, s);
    } else if constexpr (M == kScreen) {
        const __m128i ones = _mm_set1_epi8(-1);
        return _mm_xor_si128(mul_epu8(_mm_xor_si128(d, ones), _mm_xor_si128(s, ones)), ones);
    } else if constexpr (M == kDifference) {
        return _mm_or_si128(_mm_subs_epu8(d, s), _mm_subs_epu8(s, d));
    } else if constexpr (M == kAdd) {
        return _mm_adds_epu8(d, s);
    } else if constexpr (M == kSubtract) {
        return _mm_subs_epu8(d, s);
    } else {
        return s;
    }
}

// Add and subtract read the source's blue for green: copy byte 2 of each pixel to byte 1.
inline __m128i blue_for_green(__m128i s) {
    const __m128i g = _mm_set1_epi32(0x0000FF00);
    return _mm_or_si128(_mm_andnot_si128(g, s), _mm_and_si128(_mm_srli_epi32(s, 8), g));
}
#endif

// Red, green and blue of p[i] become mix_channel(p, channel_blend<M>(p, c), op), M a mode
// with has_vector_blend; alpha stays. c_step 0 repeats one colour. The mix sums
// d (255 - op) + c op stay within 16 bits, so eight lanes at a time give the scalar bytes.
template <int M>
void blend_mix_run(tagRGBA* p, const tagRGBA* c, int c_step, int n, int op) {
    static_assert(has_vector_blend(M));
    constexpr int green_from = source_channel(M, 1);
    BYTE* pb = reinterpret_cast<BYTE*>(p);
    int i = 0;
#if KIV_HAVE_SSE2
    if (kivcore::use_sse2()) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i one = _mm_set1_epi16(1);
        const short o = static_cast<short>(op), io = static_cast<short>(255 - op);
        const __m128i w = _mm_set_epi16(0, o, o, o, 0, o, o, o);             // alpha weight 0
        const __m128i iw = _mm_set_epi16(255, io, io, io, 255, io, io, io);  // so alpha stays
        __m128i cconst = _mm_set1_epi32(static_cast<int>(c[0].r | (c[0].g << 8) | (c[0].b << 16)));
        if (green_from == 2) cconst = blue_for_green(cconst);
        for (; i + 4 <= n; i += 4) {
            const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pb + 4 * i));
            __m128i sv = cconst;
            if (c_step) {
                sv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(c + static_cast<std::size_t>(i)));
                if (green_from == 2) sv = blue_for_green(sv);
            }
            const __m128i cv = blend_epu8<M>(d, sv);
            __m128i lo = _mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(d, zero), iw),
                                       _mm_mullo_epi16(_mm_unpacklo_epi8(cv, zero), w));
            __m128i hi = _mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(d, zero), iw),
                                       _mm_mullo_epi16(_mm_unpackhi_epi8(cv, zero), w));
            // x / 255 for x <= 65025 as (x + 1 + (x >> 8)) >> 8.
            lo = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(lo, one), _mm_srli_epi16(lo, 8)), 8);
            hi = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(hi, one), _mm_srli_epi16(hi, 8)), 8);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(pb + 4 * i), _mm_packus_epi16(lo, hi));
        }
    }
#endif
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
