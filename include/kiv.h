/* kiv.h - kivlib, a raster-image library: the one public header.
 *
 * An image (class kiv) holds width x height four-byte tagRGBA pixels, row-major, top row
 * first, no padding, whatever its nominal depth.  Depths below 24 bits also carry a colour
 * map; each pixel's fourth byte is then its index into the map.  Most operations take a
 * tagRECT* limiting the work (null or empty = the whole image) and return 1 on success, 0
 * on failure (image unchanged unless the member says otherwise).  Colours are COLORREF
 * values: red in the low byte, then green, then blue.
 *
 * Threads: operations spread rows over a process-wide pool (see kiv::setthreads) and return
 * when done.  An image has no lock: one operation at a time per image.  Progress callbacks
 * (m_progressproc) are called on the thread that called the operation.
 */
#ifndef KIV_H
#define KIV_H

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

/* One pixel or colour-map entry: bytes red, green, blue, alpha in memory.  Read as a
 * little-endian 32-bit word its low three bytes have the COLORREF layout. */
struct tagRGBA {
    BYTE r, g, b, a;
};

/* Progress callback: code 0 = start (value = number of steps to follow), 1 = one step
 * done, 2 = finished, 3 = reset (only ever sent by a host). */
typedef void (*kivProgressProc)(int code, int value);

/* Parameter records. */
struct tagKIV_EMBOSS {
    double azimuth;   /* light direction, degrees */
    double elevation; /* light elevation, degrees */
    int depth;        /* relief depth */
    int mono;         /* nonzero: grey result */
};
struct tagKIV_COLORBALANCE {
    int red[3];   /* shadows, midtones, highlights: -100..100 */
    int green[3];
    int blue[3];
    int preserve; /* nonzero: keep each pixel's lightness */
};
struct tagKIV_COLORCUT {
    int colorspace; /* a KIV_CS_* code */
    int step[3];    /* quantization step per channel; 0 leaves the channel alone */
};
struct tagGRADCOLORS {
    COLORREF color; /* COLORREF layout */
    int pos;        /* position in thousandths of the gradient length, 0..1000 */
};
struct tagSYSCOL {
    BYTE r, g, b;
};

struct kivMapStore; /* the mapped-file pixel store (opaque) */

class KIV_API kiv {
public:
    /* The image's fields, public so a host can read them and install m_progressproc.
     * A host changes the others at its own risk. */
    int m_width;      /* pixels */
    int m_height;     /* pixels */
    int m_bits;       /* nominal depth: 1, 4, 8, 24 or 32 */
    int m_colors;     /* colour-map entries; 0 without a map */
    int m_packets;    /* m_width * m_height */
    tagRGBA* m_map;   /* colour map of m_colors entries, or null */
    tagRGBA* m_pixels;             /* m_packets pixels, or null when empty */
    kivMapStore* m_mapstore;       /* non-null when m_pixels is a mapped temporary file */
    kivProgressProc m_progressproc; /* progress callback or null; cleared by destroy() */

    /* ---- Lifecycle ------------------------------------------------------------------ */
    kiv();                               /* empty image */
    kiv(int width, int height, int bits); /* create(); check pixels() for failure */
    kiv(const kiv& src);                 /* deep copy (copyfrom) */
    explicit kiv(void* dib);             /* attachdib(); check pixels() for failure */
#ifdef _WIN32
    kiv(HBITMAP bitmap, HPALETTE palette); /* attachbitmap() */
#endif
    ~kiv();

    /* Shallow copy of all nine fields (pointers included): both objects then share the
     * buffers and only one of them may be destroyed.  The previous contents of *this are
     * not released. */
    kiv& operator=(const kiv& other);

    /* A fresh zero-filled image on the heap.  bits below 24 get a zeroed map of 1 << bits
     * entries.  Refused (0, object empty) for width or height below 1, bits outside 1..32,
     * or more than 2^31 - 1 pixels. */
    int create(int width, int height, int bits);
    /* The same with the pixels in a mapped temporary file ("~~kv..." in the temporary
     * directory, deleted on destroy); silently falls back to the heap. */
    int create_width_mapfile(int width, int height, int bits);
    void destroy();            /* release everything; safe on an empty object */
    int copyto(kiv* dst);      /* dst becomes a deep heap copy; 0 if dst is null or fails */
    int copyfrom(kiv* src);    /* this becomes a deep heap copy of src; 0 for null */
    int movefrom(kiv* src);    /* take src's contents, leave src empty; 0 for null */

    /* ---- Accessors ------------------------------------------------------------------ */
    int width();
    int height();
    int bits();
    int colors();
    int packets();
    tagRGBA* map();
    tagRGBA* pixels();
    tagRGBA* pos(int x, int y); /* address of (x, y); no bounds check */

    /* Clip *in to the image into *out.  A null or empty *in gives the whole image and 1;
     * otherwise 1 when the clipped rectangle is not empty, else 0 (out written anyway). */
    int validaterect(tagRECT* in, tagRECT* out);

    /* ---- Pixel access ----------------------------------------------------------------
     * Copies between the image and a caller's buffer: tagRGBA buffers hold 4 bytes a
     * pixel, _rgb buffers 3 (red, green, blue; alpha kept on writes), planes 1 byte
     * (plane 0 red, 1 green, 2 blue, 3 alpha/index).  Buffer element i stands for the
     * i-th pixel from (x, y); block and plane buffers are packed at the clipped width
     * w' = min(w, width - x).  Pixels outside the image are skipped (their buffer
     * elements are left alone); nothing outside the buffers is touched. */
    void getcol(tagRGBA* buf, int x, int y, int n);
    void setcol(tagRGBA* buf, int x, int y, int n);
    void getcol_rgb(unsigned char* buf, int x, int y, int n);
    void setcol_rgb(unsigned char* buf, int x, int y, int n);
    void getrow(tagRGBA* buf, int x, int y, int n);
    void setrow(tagRGBA* buf, int x, int y, int n);
    void getrow_rgb(unsigned char* buf, int x, int y, int n);
    void setrow_rgb(unsigned char* buf, int x, int y, int n);
    void getpacket(tagRGBA* buf, int x, int y, int w, int h);
    void setpacket(tagRGBA* buf, int x, int y, int w, int h);
    void getplane(unsigned char* buf, int x, int y, int w, int h, int plane);
    void setplane(unsigned char* buf, int x, int y, int w, int h, int plane);
    void copyplane(int src, int dst); /* byte src into byte dst of every pixel; 0..3 */

    /* ---- Threads and progress ------------------------------------------------------- */
    /* Cap the threads the library uses for one operation: 0 = all cores (default), 1 =
     * everything on the calling thread, n = at most n threads including the caller.
     * Process-wide; negative values count as 0. */
    static void setthreads(int n);
    static int getthreads(); /* the cap as set (0 = all cores) */
    void progress_init(int steps); /* callback(0, steps) */
    void progress_continue();      /* callback(1, 0) */
    void progress_term();          /* callback(2, 0) */
    void progress_reset();         /* callback(3, 0) */

    /* ---- Block transfer ------------------------------------------------------------- */
    /* Copy the w x h block at (sx, sy) of src to (x, y) of this image, all four bytes,
     * clipped per pixel against both images.  src may be this image. */
    void blt(int x, int y, int w, int h, kiv* src, int sx, int sy);

    /* ---- Colour map and palette ----------------------------------------------------- */
    void alloccmap(int n); /* free the map; colors = n; n > 0: n zeroed entries */

    /* ---- DIB and bitmap interchange ------------------------------------------------- */

    /* ---- Quantization --------------------------------------------------------------- */

    /* ---- Fills and gradients -------------------------------------------------------- */

    /* ---- Resampling, orientation and layout ----------------------------------------- */
    /* The image becomes the part of itself inside *rect (null or empty: the whole image);
     * palettized images keep their depth and colour map.  0, unchanged, when the clipped
     * rectangle is empty. */
    int crop(tagRECT* rect);

    /* Filtered resampling to w x h pixels (both >= 1).  method picks the filter, by
     * support in source pixels: 0 box (0.5), 1 triangle (1), 2 Hermite cubic (1),
     * 3 Hanning (1), 4 Hamming (1), 5 Blackman (1), 6 Gaussian (1.25), 7 quadratic (1.5),
     * 8 cubic B-spline (2), 9 Catmull-Rom (2), 10 Mitchell (2), 11 Lanczos 3 (3),
     * 12 Bessel (3.2383), 13 sinc (4).  Two separable passes (vertical first when the
     * height shrinks), edges mirrored, weights normalised to sum 1; each byte rounded and
     * clamped.  The result is 24 bits with alpha 0 (a palettized image's map is dropped);
     * mapped nonzero puts its pixels in a mapped temporary file.  Shrinking both sides
     * ends with sharpen(nullptr).  Refused (0, unchanged): empty image, w or h below 1,
     * the same size, method outside 0..13 (14 is an empty slot), or too little memory. */
    int zoom(int w, int h, int method, int mapped);
    /* Pixel replication to w x h: target (x, y) copies source column trunc(width * x / w)
     * and row round(height * y / h) (clamped to the last row), all four bytes.  Keeps the
     * depth and the colour map.  0 for an empty image or w, h below 1. */
    int zoom_pixel(int w, int h);
    /* Nearest neighbour to w x h: source position width * x / w (and likewise for rows)
     * in single precision, rounded half up; positions at or past the last pixel take the
     * last pixel.  All four bytes copied; keeps the depth and the colour map.  0 for an
     * empty image or w, h below 1. */
    int zoom_near(int w, int h);
    /* Bilinear to w x h in single precision between the two pixels left/right of and
     * above/below the position of zoom_near (positions at or past the last pixel sample
     * halfway between the last two), truncated.  The result is 24 bits, alpha 0.  0 for an
     * empty image or w, h below 1. */
    int zoom_linear(int w, int h);
    /* Shrink to fit a w x h frame keeping the aspect ratio (bilinear, as zoom_linear, to
     * floor(width * s) x floor(height * s), s the smaller of the two ratios).  Returns 1 and
     * changes nothing when the image already fits; 0 for an empty image or a frame that
     * leaves less than one pixel. */
    int zoom_inframe(int w, int h);

    /* Quarter turn of the whole image: dir nonzero counter-clockwise (the top edge becomes
     * the left edge), 0 clockwise.  Width and height swap; depth, colour map and the
     * progress callback are kept.  Does nothing to an empty image. */
    void rotate(int dir);
    /* Half turn of the rectangle (x, y, x + w, y + h) in place; with an odd height the
     * middle row is left unreversed.  The rectangle is clipped (empty: the whole image);
     * 0 when nothing of it is inside the image, else 1. */
    int rotate180(int x, int y, int w, int h);
    /* Left-right reversal of every row of the rectangle (as rotate180 for its rules). */
    int mirror(int x, int y, int w, int h);
    /* Top-bottom reversal of the rectangle's rows (as rotate180 for its rules). */
    int flip(int x, int y, int w, int h);
    /* Shift the whole image by dx columns (positive: right) and dy rows (positive: down),
     * each taken modulo the size.  wrap nonzero moves what leaves one edge in at the other;
     * wrap 0 makes the uncovered strips white (alpha kept) and raises the depth to 24
     * (a palettized image's map stays).  1 also when nothing moves; 0 for an empty image
     * or too little memory. */
    int scroll(int dx, int dy, int wrap);
    /* The image becomes nx x ny copies of its part inside rect (null or empty: the whole
     * image), at the same depth and colour map.  0, unchanged, for nx or ny below 1, a
     * rectangle wholly outside, a result over 2^31 - 1 pixels per side or too little
     * memory. */
    int tile(tagRECT* rect, int nx, int ny);
    /* The part inside rect is resampled to (width / n) x (height / n) with zoom's Mitchell
     * filter (method 10; it is sharpened) and repeated n x n times; the result is 24 bits.
     * 0, unchanged, for n below 2, a rectangle wholly outside, or a part narrower or lower
     * than n pixels. */
    int tile_divide(tagRECT* rect, int n);
    /* Turn the image by degrees (positive: counter-clockwise, any finite value) about its
     * centre into a new image just large enough to hold it (ceil of the turned extents;
     * exact multiples of 90 give exactly rotate's result).  Corners not covered by the
     * image take background (COLORREF, alpha 0).  method 0: nearest pixel; 1: bilinear
     * over all four bytes, background outside the image, rounded.  Sines and cosines come
     * from the library's own series, so every platform gives the same bytes.  The depth is
     * raised to 24 (a palettized image's map is dropped).  0, unchanged, for an empty
     * image, another method, a non-finite angle or a result too large. */
    int rotate_any(double degrees, COLORREF background, int method);

    /* ---- Compositing ---------------------------------------------------------------- */

    /* ---- Point adjustments ---------------------------------------------------------- */

    /* ---- Histogram-driven adjustments ----------------------------------------------- */

    /* ---- Blurs, kernels, sharpening, motion blurs ----------------------------------- */
    /* Plain 3x3 sharpening of the rectangle (null: whole image): centre 18, the eight
     * neighbours -1, divided by 10, clamped; the same result as filter_3x3 mode 3. */
    int sharpen(tagRECT* rect);

    /* ---- Effects -------------------------------------------------------------------- */

protected:
    void clearparam(); /* zero every field without releasing anything */
};

#ifdef __cplusplus
extern "C" {
#endif
/* ---- Free functions ------------------------------------------------------------------ */

#ifdef __cplusplus
}
#endif

#endif /* KIV_H */
