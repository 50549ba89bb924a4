// Whether the SSE2 kernels are compiled. Every vector path has a scalar twin giving the same
// bytes; defining KIV_NO_SIMD builds the scalar twins everywhere so they can be checked
// against the same golden hashes.
#ifndef KIV_CORE_SIMD_H
#define KIV_CORE_SIMD_H

#if !defined(KIV_NO_SIMD) && (defined(__SSE2__) || defined(_M_X64) || defined(_M_AMD64) || \
                              (defined(_M_IX86_FP) && _M_IX86_FP >= 2))
#  define KIV_HAVE_SSE2 1
#else
#  define KIV_HAVE_SSE2 0
#endif

#endif
