// The nearest-colour kernels of the refined quantizer over an operations set: each vector
// file instantiates them with its own register operations, so each is compiled for its own
// instruction set.  Every lane computes the scalar key (distance << 8 | index) exactly.
#ifndef KIV_QUANTIZE_HQ_SIMD_H
#define KIV_QUANTIZE_HQ_SIMD_H

#include <cstdint>

namespace kivhq {

// Channel weights of every distance, over premultiplied red, green, blue and alpha: green
// counts most and blue least, as the eye resolves them, but mildly, since every channel's
// error adds to the visible noise.
constexpr int kWeight[4] = {4, 4, 4, 5};
constexpr int kWeightSum = kWeight[0] + kWeight[1] + kWeight[2] + kWeight[3];

// Lists are padded with a sentinel entry at 510 in every channel: farther from every colour
// than any real entry, yet each difference times its weight still fits 16 bits.  The largest
// distance, 510^2 x (sum of the weights), stays below 2^23, so a distance shifted left by 8
// bits with the entry's index in the low byte (the key) fits a signed 32-bit lane.
constexpr int kSentinel = 510;
static_assert(kSentinel * kSentinel * kWeightSum < (1 << 23), "keys must fit 31 bits");
static_assert(kSentinel * 6 < 32768, "weighted differences must fit 16 bits");

// A colour of the search space as two pairs of 16-bit lanes, the form the kernels multiply:
// (c0 | c1 << 16) and (c2 | c3 << 16).
struct Packed {
    std::uint32_t rg, ba;
};

// Eight candidate entries laid out for the kernels (a shorter list ends in sentinels).
struct Chunk {
    std::int16_t rg[16];  // (c0, c1) of candidates 0..7
    std::int16_t ba[16];  // (c2, c3)
    std::int32_t idx[8];  // their palette indices
};

// The smallest key of q over the n chunks: the nearest candidate, the lower index on a tie.
using NearestFn = std::int32_t (*)(const Chunk* chunks, int n, Packed q);
// The nearest and second-nearest distances (not keys) of q; the nearest's index in *idx.
using Nearest2Fn = void (*)(const Chunk* chunks, int n, Packed q, std::int32_t* best, std::int32_t* second, int* idx);

std::int32_t nearest_scalar(const Chunk* chunks, int n, Packed q);
void nearest2_scalar(const Chunk* chunks, int n, Packed q, std::int32_t* best, std::int32_t* second, int* idx);
std::int32_t nearest_sse2(const Chunk* chunks, int n, Packed q);
void nearest2_sse2(const Chunk* chunks, int n, Packed q, std::int32_t* best, std::int32_t* second, int* idx);
std::int32_t nearest_avx2(const Chunk* chunks, int n, Packed q);
void nearest2_avx2(const Chunk* chunks, int n, Packed q, std::int32_t* best, std::int32_t* second, int* idx);

// Ops supplies: V (a register of Ops::kLanes 32-bit lanes), set1(x), load_pairs(p) (kLanes
// pairs of 16-bit lanes from p), load_keys(p) (kLanes 32-bit lanes), sub16(a, b), mul16(a, b)
// (low halves of the 16-bit products), madd(a, b) (pairwise products added into 32-bit
// lanes), add32, or32, shl8 (32-bit lanes shifted left by 8), min32 and max32 (signed),
// hmin(v) (the smallest lane) and store(p, v) (the lanes to int32 memory).
template <class Ops>
inline typename Ops::V chunk_keys(const Chunk& c, int half, typename Ops::V qrg, typename Ops::V qba,
                                  typename Ops::V wrg, typename Ops::V wba) {
    using V = typename Ops::V;
    const V d = Ops::sub16(qrg, Ops::load_pairs(c.rg + 2 * half));
    const V e = Ops::sub16(qba, Ops::load_pairs(c.ba + 2 * half));
    const V dist = Ops::add32(Ops::madd(d, Ops::mul16(d, wrg)), Ops::madd(e, Ops::mul16(e, wba)));
    return Ops::or32(Ops::shl8(dist), Ops::load_keys(c.idx + half));
}

template <class Ops>
inline void weights(typename Ops::V* wrg, typename Ops::V* wba) {
    *wrg = Ops::set1(kWeight[0] | kWeight[1] << 16);
    *wba = Ops::set1(kWeight[2] | kWeight[3] << 16);
}

template <class Ops>
std::int32_t nearest_loop(const Chunk* chunks, int n, Packed q) {
    using V = typename Ops::V;
    V wrg, wba;
    weights<Ops>(&wrg, &wba);
    const V qrg = Ops::set1(static_cast<std::int32_t>(q.rg)), qba = Ops::set1(static_cast<std::int32_t>(q.ba));
    V best = Ops::set1(0x7FFFFFFF);
    for (int i = 0; i < n; ++i)
        for (int h = 0; h < 8; h += Ops::kLanes) best = Ops::min32(best, chunk_keys<Ops>(chunks[i], h, qrg, qba, wrg, wba));
    return Ops::hmin(best);
}

template <class Ops>
void nearest2_loop(const Chunk* chunks, int n, Packed q, std::int32_t* best, std::int32_t* second, int* idx) {
    using V = typename Ops::V;
    V wrg, wba;
    weights<Ops>(&wrg, &wba);
    const V qrg = Ops::set1(static_cast<std::int32_t>(q.rg)), qba = Ops::set1(static_cast<std::int32_t>(q.ba));
    V b1 = Ops::set1(0x7FFFFFFF), b2 = b1;
    for (int i = 0; i < n; ++i)
        for (int h = 0; h < 8; h += Ops::kLanes) {
            const V k = chunk_keys<Ops>(chunks[i], h, qrg, qba, wrg, wba);
            b2 = Ops::min32(b2, Ops::max32(b1, k));
            b1 = Ops::min32(b1, k);
        }
    std::int32_t l1[Ops::kLanes], l2[Ops::kLanes];
    Ops::store(l1, b1);
    Ops::store(l2, b2);
    std::int32_t m1 = 0x7FFFFFFF, m2 = 0x7FFFFFFF;
    for (int k = 0; k < 2 * Ops::kLanes; ++k) {
        const std::int32_t v = k & 1 ? l2[k >> 1] : l1[k >> 1];
        if (v < m1) m2 = m1, m1 = v;
        else if (v < m2) m2 = v;
    }
    *best = m1 >> 8;
    *second = m2 >> 8;
    *idx = m1 & 0xFF;
}

}  // namespace kivhq

#endif
