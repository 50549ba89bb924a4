/* kiv_win32.h - the Win32 types and functions kiv.h needs, for builds outside Windows.
 *
 * Names and layouts follow Win32 (LONG and DWORD are 32-bit, as on Windows), so records
 * keep their Windows sizes and a host's code reads the same on both platforms.  The
 * global-memory functions are a movable-memory emulation provided by kivlib: a handle is
 * not the data pointer, GlobalLock gives the data and GlobalSize the block's true size.
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

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef unsigned int UINT;
typedef int BOOL;
typedef size_t SIZE_T;
typedef DWORD COLORREF;
typedef void* HGLOBAL;
typedef void* LPVOID;

#ifndef TRUE
#  define TRUE 1
#endif
#ifndef FALSE
#  define FALSE 0
#endif

#define BI_RGB 0L
#define BI_RLE8 1L
#define BI_RLE4 2L
#define BI_BITFIELDS 3L

#define GMEM_FIXED 0x0000u
#define GMEM_MOVEABLE 0x0002u
#define GMEM_ZEROINIT 0x0040u
#define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)
#define GPTR (GMEM_FIXED | GMEM_ZEROINIT)

#ifndef MAX_PATH
#  define MAX_PATH 260
#endif

#define RGB(r, g, b) ((COLORREF)(((BYTE)(r) | ((WORD)((BYTE)(g)) << 8)) | (((DWORD)(BYTE)(b)) << 16)))
#define GetRValue(c) ((BYTE)(c))
#define GetGValue(c) ((BYTE)(((WORD)(c)) >> 8))
#define GetBValue(c) ((BYTE)((c) >> 16))

typedef struct tagRECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
} RECT, *PRECT, *LPRECT;

typedef struct tagPOINT {
    LONG x;
    LONG y;
} POINT, *PPOINT, *LPPOINT;

typedef struct tagPALETTEENTRY {
    BYTE peRed;
    BYTE peGreen;
    BYTE peBlue;
    BYTE peFlags;
} PALETTEENTRY, *PPALETTEENTRY, *LPPALETTEENTRY;

typedef struct tagLOGPALETTE {
    WORD palVersion;
    WORD palNumEntries;
    PALETTEENTRY palPalEntry[1];
} LOGPALETTE, *PLOGPALETTE, *LPLOGPALETTE;

#pragma pack(push, 2)
typedef struct tagBITMAPFILEHEADER {
    WORD bfType;
    DWORD bfSize;
    WORD bfReserved1;
    WORD bfReserved2;
    DWORD bfOffBits;
} BITMAPFILEHEADER, *PBITMAPFILEHEADER;
#pragma pack(pop)

typedef struct tagBITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight;
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
} BITMAPINFOHEADER, *PBITMAPINFOHEADER, *LPBITMAPINFOHEADER;

typedef struct tagRGBQUAD {
    BYTE rgbBlue;
    BYTE rgbGreen;
    BYTE rgbRed;
    BYTE rgbReserved;
} RGBQUAD;

typedef struct tagBITMAPINFO {
    BITMAPINFOHEADER bmiHeader;
    RGBQUAD bmiColors[1];
} BITMAPINFO, *PBITMAPINFO, *LPBITMAPINFO;

#ifdef __cplusplus
extern "C" {
#endif

/* Movable global memory.  GlobalAlloc gives a handle (null on failure or a zero or
 * overflowing size); GlobalLock the data (null for a null or unknown handle) and counts
 * locks; GlobalSize the size in bytes (0 for an unknown handle); GlobalFree returns null on
 * success and the handle when it is unknown; GlobalReAlloc keeps the handle and the
 * leading bytes, zero-fills growth with GMEM_ZEROINIT and returns null on failure. */
KIV_API HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes);
KIV_API LPVOID GlobalLock(HGLOBAL mem);
KIV_API BOOL GlobalUnlock(HGLOBAL mem);
KIV_API HGLOBAL GlobalFree(HGLOBAL mem);
KIV_API SIZE_T GlobalSize(HGLOBAL mem);
KIV_API HGLOBAL GlobalReAlloc(HGLOBAL mem, SIZE_T bytes, UINT flags);

/* Rectangles, as in USER32: right and bottom are exclusive.  A null pointer gives FALSE,
 * except that IsRectEmpty(NULL) is TRUE (a missing rectangle is empty). */
KIV_API BOOL IsRectEmpty(const RECT* rc);
KIV_API BOOL SetRect(LPRECT rc, int left, int top, int right, int bottom);
KIV_API BOOL IntersectRect(LPRECT dst, const RECT* a, const RECT* b);
KIV_API BOOL CopyRect(LPRECT dst, const RECT* src);
KIV_API BOOL InflateRect(LPRECT rc, int dx, int dy);

#ifdef __cplusplus
}
#endif

#endif /* KIV_WIN32_H */
