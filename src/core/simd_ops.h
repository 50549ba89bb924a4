// The operations the SSE2 and AVX2 sets (core/simd_sse2.h, core/simd_avx2.h) share, listed
// once: each line names a member and the intrinsic behind it, which expands here with the
// including set's prefix and integer suffix (its KIV_OPS, KIV_OPS_SI, KIV_OPS_SI_TO and
// KIV_OPS_V, undefined again at the end). No include guard: each set's header includes it
// once, inside its own struct.
//   KIV_OP_V(name, intrinsic)       V name(V, V) on integer vectors
//   KIV_OP_SI(name, op)             V name(V, V), the whole-register bit operation op
//   KIV_OP_SHIFT(name, intrinsic)   template <int N> V name(V), shift by the constant N
//   KIV_OP_D(name, intrinsic)       D name(D, D) on doubles
//   KIV_OP_F(name, intrinsic)       F name(F, F) on floats
// Names end in the lane width (8, 16, 32, 64 bits), _u8 / _u16 for unsigned bytes and words;
// packs narrow two registers with saturation, unpacks interleave the low or high halves of
// each 16-byte half.

#define KIV_OP_V(name, op) \
    static V name(V a, V b) { return KIV_OPS(op)(a, b); }
#define KIV_OP_SI(name, op) \
    static V name(V a, V b) { return KIV_OPS_SI(op)(a, b); }
#define KIV_OP_SHIFT(name, op)    \
    template <int N>              \
    static V name(V a) {          \
        return KIV_OPS(op)(a, N); \
    }
#define KIV_OP_D(name, op) \
    static D name(D a, D b) { return KIV_OPS(op)(a, b); }
#define KIV_OP_F(name, op) \
    static F name(F a, F b) { return KIV_OPS(op)(a, b); }

// Memory and constants.
static V load(const void* p) { return KIV_OPS_SI(loadu)(static_cast<const KIV_OPS_V*>(p)); }
static void store(void* p, V v) { KIV_OPS_SI(storeu)(static_cast<KIV_OPS_V*>(p), v); }
static V zero() { return KIV_OPS_SI(setzero)(); }
static V set8(char v) { return KIV_OPS(set1_epi8)(v); }
static V set16(int v) { return KIV_OPS(set1_epi16)(static_cast<short>(v)); }
static V set32(int v) { return KIV_OPS(set1_epi32)(v); }
static V set64(long long v) { return KIV_OPS(set1_epi64x)(v); }
static D load_pd(const double* p) { return KIV_OPS(loadu_pd)(p); }
static void store_pd(double* p, D v) { KIV_OPS(storeu_pd)(p, v); }
static D set_pd(double v) { return KIV_OPS(set1_pd)(v); }
static D zero_pd() { return KIV_OPS(setzero_pd)(); }
static F set_ps(float v) { return KIV_OPS(set1_ps)(v); }
static F load_ps(const float* p) { return KIV_OPS(loadu_ps)(p); }
static void store_ps(float* p, F v) { KIV_OPS(storeu_ps)(p, v); }

// Bits.
KIV_OP_SI(and_, and)
KIV_OP_SI(or_, or)
KIV_OP_SI(xor_, xor)
KIV_OP_SI(andnot, andnot)  // ~a & b

// Integer lanes.
KIV_OP_V(add8, add_epi8)
KIV_OP_V(sub8, sub_epi8)
KIV_OP_V(adds_u8, adds_epu8)
KIV_OP_V(subs_u8, subs_epu8)
KIV_OP_V(min_u8, min_epu8)
KIV_OP_V(max_u8, max_epu8)
KIV_OP_V(avg_u8, avg_epu8)
KIV_OP_V(add16, add_epi16)
KIV_OP_V(sub16, sub_epi16)
KIV_OP_V(mullo16, mullo_epi16)
KIV_OP_V(mulhi_u16, mulhi_epu16)
KIV_OP_V(min16, min_epi16)
KIV_OP_V(max16, max_epi16)
KIV_OP_V(cmpeq16, cmpeq_epi16)
KIV_OP_V(cmpgt16, cmpgt_epi16)
KIV_OP_V(madd16, madd_epi16)  // pairs of words multiplied and added to dwords
KIV_OP_V(add32, add_epi32)
KIV_OP_V(sub32, sub_epi32)
KIV_OP_V(cmpeq32, cmpeq_epi32)
KIV_OP_V(sub64, sub_epi64)
KIV_OP_SHIFT(shl16, slli_epi16)
KIV_OP_SHIFT(shr16, srli_epi16)
KIV_OP_SHIFT(shl32, slli_epi32)
KIV_OP_SHIFT(shr32, srli_epi32)
KIV_OP_V(unpacklo8, unpacklo_epi8)
KIV_OP_V(unpackhi8, unpackhi_epi8)
KIV_OP_V(unpacklo16, unpacklo_epi16)
KIV_OP_V(unpackhi16, unpackhi_epi16)
KIV_OP_V(unpacklo32, unpacklo_epi32)
KIV_OP_V(unpackhi32, unpackhi_epi32)
KIV_OP_V(unpacklo64, unpacklo_epi64)
KIV_OP_V(unpackhi64, unpackhi_epi64)
KIV_OP_V(packs32, packs_epi32)
KIV_OP_V(packus16, packus_epi16)

// Floats, and dwords to and from them.
static F to_ps(V a) { return KIV_OPS(cvtepi32_ps)(a); }
static V trunc_ps(F a) { return KIV_OPS(cvttps_epi32)(a); }
static F sqrt_ps(F a) { return KIV_OPS(sqrt_ps)(a); }
KIV_OP_F(add_ps, add_ps)
KIV_OP_F(sub_ps, sub_ps)
KIV_OP_F(mul_ps, mul_ps)
KIV_OP_F(div_ps, div_ps)
KIV_OP_F(min_ps, min_ps)  // a < b ? a : b (NaN in a gives b)
KIV_OP_F(max_ps, max_ps)  // a > b ? a : b

// Doubles, their bits, and the dwords of one double vector (H) to and from them.
static D sqrt_pd(D a) { return KIV_OPS(sqrt_pd)(a); }
KIV_OP_D(add_pd, add_pd)
KIV_OP_D(sub_pd, sub_pd)
KIV_OP_D(mul_pd, mul_pd)
KIV_OP_D(div_pd, div_pd)
KIV_OP_D(min_pd, min_pd)
KIV_OP_D(max_pd, max_pd)
KIV_OP_D(and_pd, and_pd)
KIV_OP_D(andnot_pd, andnot_pd)
static D as_pd(V a) { return KIV_OPS_SI_TO(castsi, _pd)(a); }
static V as_int(D a) { return KIV_OPS_SI(castpd)(a); }
static D to_pd(H a) { return KIV_OPS(cvtepi32_pd)(a); }
static H trunc_pd(D a) { return KIV_OPS(cvttpd_epi32)(a); }

// Four 4-byte pixels at offset o of each of four rows as four columns: col[k] holds pixel k
// of rows 0..3 (a 4 x 4 transpose in 16-byte registers, the same on both sets).
static void columns4(const unsigned char* const* rows, long long o, H* col) {
    H r[4];
    for (int q = 0; q < 4; ++q) r[q] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[q] + o));
    const H a = _mm_unpacklo_epi32(r[0], r[1]), b = _mm_unpacklo_epi32(r[2], r[3]);
    const H c = _mm_unpackhi_epi32(r[0], r[1]), d = _mm_unpackhi_epi32(r[2], r[3]);
    col[0] = _mm_unpacklo_epi64(a, b);
    col[1] = _mm_unpackhi_epi64(a, b);
    col[2] = _mm_unpacklo_epi64(c, d);
    col[3] = _mm_unpackhi_epi64(c, d);
}

#undef KIV_OP_V
#undef KIV_OP_SI
#undef KIV_OP_SHIFT
#undef KIV_OP_D
#undef KIV_OP_F
#undef KIV_OPS
#undef KIV_OPS_SI
#undef KIV_OPS_SI_TO
#undef KIV_OPS_V
