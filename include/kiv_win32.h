/* kiv_win32.h - the Win32 names kiv.h needs, for builds outside Windows.
 *
 * Names and layouts follow Win32 (LONG and DWORD are 32-bit, as on Windows), so records
 * keep their Windows sizes and a host's code reads the same on both platforms.  Each name is
 * defined only where the host has not defined it already (as a macro; a typedef of the same
 * type may also come first), so a host with its own Win32 names still compiles.
 *
 * The library exports its functions under kiv-prefixed names (kiv_GlobalAlloc, kiv_SetRect,
 * ...), which collide with no other Win32 layer in the process; the Win32 spellings below are
 * inline wrappers.  A host whose own Win32 layer declares those functions defines
 * KIV_NO_WIN32_FUNCTIONS before including kiv.h and calls the kiv-prefixed names.
 */
#ifndef KIV_WIN32_H
#define KIV_WIN32_H

#ifdef _WIN32
#error "kiv_win32.h is for builds outside Windows; include <windows.h> instead"
#endif

#include <stddef.h>
#include <stdint.h>

#ifndef KIV_API
#  if defined(KIV_STATIC)
#    define KIV_API
#  elif defined(KIV_BUILDING)
#    define KIV_API __attribute__((visibility("default")))
#  else
#    define KIV_API
#  endif
#endif

#ifndef BYTE
typedef uint8_t BYTE;
#endif
#ifndef WORD
typedef uint16_t WORD;
#endif
#ifndef DWORD
typedef uint32_t DWORD;
#endif
#ifndef LONG
typedef int32_t LONG;
#endif
#ifndef UINT
typedef unsigned int UINT;
#endif
#ifndef BOOL
typedef int BOOL;
#endif
#ifndef SIZE_T
typedef size_t SIZE_T;
#endif
#ifndef COLORREF
typedef uint32_t COLORREF;
#endif
#ifndef HGLOBAL
typedef void* HGLOBAL;
#endif

#ifndef TRUE
#  define TRUE 1
#endif
#ifndef FALSE
#  define FALSE 0
#endif

/* biCompression of a BITMAPINFOHEADER. */
#ifndef BI_RGB
#  define BI_RGB 0L
#endif
#ifndef BI_RLE8
#  define BI_RLE8 1L
#endif
#ifndef BI_RLE4
#  define BI_RLE4 2L
#endif
#ifndef BI_BITFIELDS
#  define BI_BITFIELDS 3L
#endif

#ifndef GMEM_FIXED
#  define GMEM_FIXED 0x0000u
#endif
#ifndef GMEM_MOVEABLE
#  define GMEM_MOVEABLE 0x0002u
#endif
#ifndef GMEM_ZEROINIT
#  define GMEM_ZEROINIT 0x0040u
#endif
#ifndef GHND
#  define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)
#endif
#ifndef GPTR
#  define GPTR (GMEM_FIXED | GMEM_ZEROINIT)
#endif

/* COLORREF values: red in the low byte, then green, then blue. */
#ifndef RGB
#  define RGB(r, g, b) ((uint32_t)((uint8_t)(r) | ((uint32_t)(uint8_t)(g) << 8) | ((uint32_t)(uint8_t)(b) << 16)))
#endif
#ifndef GetRValue
#  define GetRValue(c) ((uint8_t)(c))
#endif
#ifndef GetGValue
#  define GetGValue(c) ((uint8_t)((uint32_t)(c) >> 8))
#endif
#ifndef GetBValue
#  define GetBValue(c) ((uint8_t)((uint32_t)(c) >> 16))
#endif

/* The records of the API, by their tags; the Win32 type names are aliases of them. */
struct tagRECT {
    int32_t left;
    int32_t top;
    int32_t right; /* exclusive */
    int32_t bottom; /* exclusive */
};
struct tagPALETTEENTRY {
    uint8_t peRed;
    uint8_t peGreen;
    uint8_t peBlue;
    uint8_t peFlags;
};
struct tagLOGPALETTE {
    uint16_t palVersion;
    uint16_t palNumEntries;
    struct tagPALETTEENTRY palPalEntry[1];
};
/* The header of a packed DIB, and the entries of its colour table. */
struct tagBITMAPINFOHEADER {
    uint32_t biSize;
    int32_t biWidth;
    int32_t biHeight;
    uint16_t biPlanes;
    uint16_t biBitCount;
    uint32_t biCompression;
    uint32_t biSizeImage;
    int32_t biXPelsPerMeter;
    int32_t biYPelsPerMeter;
    uint32_t biClrUsed;
    uint32_t biClrImportant;
};
struct tagRGBQUAD {
    uint8_t rgbBlue;
    uint8_t rgbGreen;
    uint8_t rgbRed;
    uint8_t rgbReserved;
};
#ifndef RECT
typedef struct tagRECT RECT;
#endif
#ifndef PALETTEENTRY
typedef struct tagPALETTEENTRY PALETTEENTRY;
#endif
#ifndef LOGPALETTE
typedef struct tagLOGPALETTE LOGPALETTE;
#endif
#ifndef BITMAPINFOHEADER
typedef struct tagBITMAPINFOHEADER BITMAPINFOHEADER;
#endif
#ifndef RGBQUAD
typedef struct tagRGBQUAD RGBQUAD;
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Movable global memory.  kiv_GlobalAlloc gives a handle (null on failure or a zero or
 * overflowing size); kiv_GlobalLock the data (null for a null or unknown handle) and counts
 * locks; kiv_GlobalSize the size in bytes (0 for an unknown handle); kiv_GlobalFree returns
 * null on success and the handle when it is unknown; kiv_GlobalReAlloc keeps the handle and
 * the leading bytes, zero-fills growth and returns null on failure. */
KIV_API void* kiv_GlobalAlloc(unsigned int flags, size_t bytes);
KIV_API void* kiv_GlobalLock(void* mem);
KIV_API int kiv_GlobalUnlock(void* mem);
KIV_API void* kiv_GlobalFree(void* mem);
KIV_API size_t kiv_GlobalSize(void* mem);
KIV_API void* kiv_GlobalReAlloc(void* mem, size_t bytes, unsigned int flags);

/* Rectangles, as in USER32: right and bottom are exclusive.  A null pointer gives 0, except
 * that kiv_IsRectEmpty(NULL) is 1 (a missing rectangle is empty). */
KIV_API int kiv_IsRectEmpty(const struct tagRECT* rc);
KIV_API int kiv_SetRect(struct tagRECT* rc, int left, int top, int right, int bottom);
KIV_API int kiv_IntersectRect(struct tagRECT* dst, const struct tagRECT* a, const struct tagRECT* b);
KIV_API int kiv_CopyRect(struct tagRECT* dst, const struct tagRECT* src);
KIV_API int kiv_InflateRect(struct tagRECT* rc, int dx, int dy);

#ifndef KIV_NO_WIN32_FUNCTIONS
#  ifndef GlobalAlloc
static inline HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) { return kiv_GlobalAlloc(flags, bytes); }
#  endif
#  ifndef GlobalLock
static inline void* GlobalLock(HGLOBAL mem) { return kiv_GlobalLock(mem); }
#  endif
#  ifndef GlobalUnlock
static inline BOOL GlobalUnlock(HGLOBAL mem) { return kiv_GlobalUnlock(mem); }
#  endif
#  ifndef GlobalFree
static inline HGLOBAL GlobalFree(HGLOBAL mem) { return kiv_GlobalFree(mem); }
#  endif
#  ifndef GlobalSize
static inline SIZE_T GlobalSize(HGLOBAL mem) { return kiv_GlobalSize(mem); }
#  endif
#  ifndef GlobalReAlloc
static inline HGLOBAL GlobalReAlloc(HGLOBAL mem, SIZE_T bytes, UINT flags) { return kiv_GlobalReAlloc(mem, bytes, flags); }
#  endif
#  ifndef IsRectEmpty
static inline BOOL IsRectEmpty(const RECT* rc) { return kiv_IsRectEmpty(rc); }
#  endif
#  ifndef SetRect
static inline BOOL SetRect(RECT* rc, int left, int top, int right, int bottom) { return kiv_SetRect(rc, left, top, right, bottom); }
#  endif
#  ifndef IntersectRect
static inline BOOL IntersectRect(RECT* dst, const RECT* a, const RECT* b) { return kiv_IntersectRect(dst, a, b); }
#  endif
#  ifndef CopyRect
static inline BOOL CopyRect(RECT* dst, const RECT* src) { return kiv_CopyRect(dst, src); }
#  endif
#  ifndef InflateRect
static inline BOOL InflateRect(RECT* rc, int dx, int dy) { return kiv_InflateRect(rc, dx, dy); }
#  endif
#endif

#ifdef __cplusplus
}
#endif

#endif /* KIV_WIN32_H */
