/* kiv_common.h - kivlib: what the C++ header kiv.h and the C header kivc.h share: the
 * version, the Win32 types, the parameter records, the colour-space codes and the six free
 * functions.  Written in C so that both languages read the same layouts.
 */
#ifndef KIV_COMMON_H
#define KIV_COMMON_H

/* The library's version; the build takes its project version from these three lines. */
#define KIV_VERSION_MAJOR 0
#define KIV_VERSION_MINOR 1
#define KIV_VERSION_PATCH 0

#if defined(_WIN32)
#  include <windows.h>
#  ifndef KIV_API
#    if defined(KIV_STATIC)
#      define KIV_API
#    elif defined(KIV_BUILDING)
#      define KIV_API __declspec(dllexport)
#    else
#      define KIV_API __declspec(dllimport)
#    endif
#  endif
#else
#  include "kiv_win32.h"
#endif

#ifndef __cplusplus
/* C spells the Win32 records by their tags, as C++ does. */
typedef struct tagRECT tagRECT;
typedef struct tagPOINT tagPOINT;
typedef struct tagLOGPALETTE tagLOGPALETTE;
#endif

/* One pixel or colour-map entry: bytes red, green, blue, alpha in memory.  Read as a
 * little-endian 32-bit word its low three bytes have the COLORREF layout. */
typedef struct tagRGBA {
    BYTE r, g, b, a;
} tagRGBA;

/* Progress callback: code 0 = start (value = number of steps to follow), 1 = one step
 * done, 2 = finished, 3 = reset (only ever sent by a host). */
typedef void (*kivProgressProc)(int code, int value);

/* Progress with cancellation (kiv::set_progress): called on the thread that called the
 * operation with done rising from 0 to total; a nonzero result stops the operation, which
 * then returns 0 (or nothing) and leaves the image exactly as it was. */
typedef int (*kivProgressFn)(void* user, int done, int total);

/* Flags of the members that treat the fourth byte as alpha and can work in linear light
 * (kiv::zoom_rgba, blur_gauss_rgba, unsharp_mask_rgba, rotate_any_rgba). */
enum {
    KIV_FILTER_ALPHA = 1, /* the fourth byte is straight alpha: colour is weighted by it */
    KIV_FILTER_LINEAR = 2 /* red, green and blue are sRGB: filter them in linear light */
};

/* Parameter records. */
typedef struct tagKIV_EMBOSS {
    double azimuth;   /* light direction, degrees */
    double elevation; /* light elevation, degrees */
    int depth;        /* relief depth */
    int mono;         /* nonzero: grey result */
} tagKIV_EMBOSS;
typedef struct tagKIV_COLORBALANCE {
    int red[3];   /* shadows, midtones, highlights: -100..100 */
    int green[3];
    int blue[3];
    int preserve; /* nonzero: keep each pixel's lightness */
} tagKIV_COLORBALANCE;
typedef struct tagKIV_COLORCUT {
    int colorspace; /* a KIV_CS_* code */
    int step[3];    /* quantization step per channel; 0 leaves the channel alone */
} tagKIV_COLORCUT;
typedef struct tagGRADCOLORS {
    COLORREF color; /* COLORREF layout */
    int pos;        /* position in thousandths of the gradient length, 0..1000 */
} tagGRADCOLORS;
typedef struct tagSYSCOL {
    BYTE r, g, b;
} tagSYSCOL;

/* Noise of kiv::noise. */
typedef struct tagKIV_NOISE {
    int amount;        /* strength 0..255: uniform noise lies in -amount..amount; Gaussian noise
                          has a standard deviation of amount / 2, rounded to the nearest
                          integer (at most 3 x amount) */
    int gaussian;      /* 0 uniform, 1 Gaussian */
    int mono;          /* nonzero: one value added to red, green and blue alike (grey noise);
                          0: an independent value per channel */
    unsigned int seed; /* any value; the same seed gives the same bytes everywhere */
} tagKIV_NOISE;
/* Lighting of kiv::texturize and its file and resource forms, as kiv::emboss lights. */
typedef struct tagKIV_TEXTURE {
    double azimuth;   /* light direction, degrees counter-clockwise from the right (90: top) */
    double elevation; /* light elevation above the image plane, degrees, finite */
    int depth;        /* relief depth 1..1530 */
} tagKIV_TEXTURE;
/* Lighting of kiv::bumpmap and kiv::bumpmap_merge. */
typedef struct tagKIV_BUMPMAP {
    double azimuth;   /* as tagKIV_TEXTURE */
    double elevation;
    int depth;
    int invert;       /* nonzero: dark parts of the height field stand high */
} tagKIV_BUMPMAP;

/* Colour-space codes of convert_colorspace / convert_rgb (and tagKIV_COLORCUT).  Each space
 * is held in bytes 0..2 of a pixel; the scaling of each channel onto 0..255 is:
 *   KIV_CS_RGB    0  red, green, blue unchanged (identity).
 *   KIV_CS_HSV    1  hue, saturation, value of the library's HSV model (each 0..1), times 255,
 *                    rounded; hue 255 is the same as hue 0.
 *   KIV_CS_HLS    2  hue, lightness, saturation of the library's integer HLS model (already
 *                    0..255: one turn of hue is 255).
 *   KIV_CS_YCBCR  3  Y, Cb, Cr of ITU-R BT.601, full range (as in JFIF): Y 0..255, Cb and Cr
 *                    centred on 128; rounded, clamped.
 *   KIV_CS_YIQ    4  Y 0..255; I (+-151.9 for 8-bit RGB) and Q (+-133.3) scaled to +-127
 *                    around 128 (grey); rounded.
 *   KIV_CS_CMY    5  cyan, magenta, yellow = 255 - red, green, blue (exact).
 *   KIV_CS_LAB    6  CIE L*a*b* of sRGB, D65 white: L* x 2.55, a* + 128, b* + 128; rounded,
 *                    clamped.  Computed without libm, so the bytes are the same everywhere.
 * Largest error of a round trip (forward, then back) over all 8-bit colours, per channel:
 * RGB, CMY 0; YCbCr 1; YIQ 2; HSV 4; HLS 8 (the model truncates); LAB 26 (near the gamut
 * boundary, where one channel is close to black). */
enum {
    KIV_CS_RGB = 0,
    KIV_CS_HSV = 1,
    KIV_CS_HLS = 2,
    KIV_CS_YCBCR = 3,
    KIV_CS_YIQ = 4,
    KIV_CS_CMY = 5,
    KIV_CS_LAB = 6
};

#ifdef __cplusplus
extern "C" {
#endif
/* The library's version as "MAJOR.MINOR.PATCH", and as MAJOR * 10000 + MINOR * 100 + PATCH;
 * compare with the KIV_VERSION_* macros a host was compiled with. */
KIV_API const char* kiv_version(void);
KIV_API int kiv_version_number(void);

/* ---- Free functions ------------------------------------------------------------------ */
/* A new packed DIB holding the part of the packed DIB dib inside *rect (null or empty: all
 * of it), at the depth the DIB is read at; null when the DIB cannot be read or the clipped
 * rectangle is empty.  dib is left as it was. */
KIV_API void* kivCrop(void* dib, tagRECT* rect);
/* Quantization of a packed DIB (a movable global-memory handle, as attachdib reads it) into
 * a new packed DIB (createdib; the caller frees it with GlobalFree).  dib is only read, never
 * changed or freed.  The modes, palettes and threading are those of kiv::quantize.  Null
 * when dib cannot be read, for mode outside 0..4, or when memory runs out; besides:
 *   kivQuantize       colors outside 1..256; palette chosen from the image;
 *   kivQuantizeWcp    pal null or with 0 or more than 256 entries; palette = pal;
 *   kivQuantizeWdp    fixed palette `which` (kiv::quantize_wdp); for which outside 0..8
 *                     the result is the DIB as read, unquantized;
 *   kivQuantizeWin256 kivQuantizeWdp(dib, mode, 1): the 256-colour system palette;
 *   kivQuantizeWin16  kivQuantizeWdp(dib, mode, 0): the 16 VGA colours. */
KIV_API void* kivQuantize(void* dib, int mode, int colors);
KIV_API void* kivQuantizeWcp(void* dib, int mode, tagLOGPALETTE* pal);
KIV_API void* kivQuantizeWdp(void* dib, int mode, int which);
KIV_API void* kivQuantizeWin256(void* dib, int mode);
KIV_API void* kivQuantizeWin16(void* dib, int mode);

#ifdef __cplusplus
}
#endif

#endif /* KIV_COMMON_H */
