// Processor features behind the SIMD dispatch.
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

std::atomic<bool> g_allowed{true};

}  // namespace

bool cpu_has_avx2() { return has_avx2(); }
bool use_avx2() { return g_allowed.load(std::memory_order_relaxed) && has_avx2(); }
void allow_avx2(bool allowed) { g_allowed.store(allowed, std::memory_order_relaxed); }

}  // namespace kivcore
