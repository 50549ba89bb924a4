// Processor features behind the instruction-set switch.
#include <atomic>

#include "core/simd.h"

#if KIV_HAVE_AVX2
#  if defined(_MSC_VER)
#    include <immintrin.h>
#    include <intrin.h>
#  else
#    include <cpuid.h>
#  endif
#endif

namespace kivcore {

namespace {

#if KIV_HAVE_AVX2
void cpuid(unsigned leaf, unsigned sub, unsigned r[4]) {
#  if defined(_MSC_VER)
    int v[4];
    __cpuidex(v, static_cast<int>(leaf), static_cast<int>(sub));
    for (int i = 0; i < 4; ++i) r[i] = static_cast<unsigned>(v[i]);
#  else
    __cpuid_count(leaf, sub, r[0], r[1], r[2], r[3]);
#  endif
}

unsigned long long xcr0() {
#  if defined(_MSC_VER)
    return _xgetbv(0);
#  else
    unsigned lo = 0, hi = 0;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<unsigned long long>(hi) << 32) | lo;
#  endif
}

bool detect_avx2() {
    unsigned r[4] = {};
    cpuid(0, 0, r);
    if (r[0] < 7) return false;
    cpuid(1, 0, r);
    const bool osxsave = (r[2] >> 27) & 1u, avx = (r[2] >> 28) & 1u;
    if (!osxsave || !avx) return false;
    // The operating system must save the upper halves of the ymm registers (XCR0 bits 1, 2).
    if ((xcr0() & 6u) != 6u) return false;
    cpuid(7, 0, r);
    return (r[1] >> 5) & 1u;
}
#else
bool detect_avx2() { return false; }
#endif

bool has_avx2() {
    static const bool has = detect_avx2();
    return has;
}

// The cap as set, and the switch's value: the lower of the cap and the best set here,
// worked out on first use and again whenever the cap changes.
std::atomic<int> g_cap{static_cast<int>(Isa::kAvx2)};
std::atomic<int> g_isa{-1};

int settle() {
    const int best = has_avx2() ? 2 : (KIV_HAVE_SSE2 ? 1 : 0), cap = g_cap.load(std::memory_order_relaxed);
    const int v = cap < best ? cap : best;
    g_isa.store(v, std::memory_order_relaxed);
    return v;
}

inline int current() {
    const int v = g_isa.load(std::memory_order_relaxed);
    return v >= 0 ? v : settle();
}

}  // namespace

bool cpu_has_avx2() { return has_avx2(); }
Isa isa() { return static_cast<Isa>(current()); }
bool use_sse2() { return current() >= 1; }
bool use_avx2() { return current() == 2; }
void cap_isa(Isa most) {
    g_cap.store(static_cast<int>(most), std::memory_order_relaxed);
    settle();
}
void allow_avx2(bool allowed) { cap_isa(allowed ? Isa::kAvx2 : Isa::kSse2); }

}  // namespace kivcore
