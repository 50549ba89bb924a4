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
    /* Reduce the whole image to a palette of at most 256 colours.  Afterwards the image is
     * palettized: bits = 1 for a palette of 1..2 entries, 4 for 3..16, 8 for 17..256; the
     * colour map holds the palette; every pixel's red, green, blue are its entry's colour
     * and byte 3 is its index.
     *
     * mode: how pixels are mapped to the palette:
     *   0  nearest colour (weights red 30, green 59, blue 11), no dithering;
     *   1  Floyd-Steinberg error diffusion, serpentine, errors limited to +-190;
     *   2  exact match: a pixel whose colour is not in the palette takes the index of the
     *      pixel before it (0 for the first);
     *   3  Floyd-Steinberg with a strong limit (identity below 24, half-slope to 48);
     *   4  ordered dither with a 128 x 128 threshold matrix.
     * pal null: the palette is chosen from the image, at most `colors` (1..256) entries.
     *   An image with at most `colors` distinct colours gets exactly those colours in order
     *   of first appearance and is mapped by exact match whatever `mode` says; otherwise a
     *   variance-driven median cut picks the palette (sorted by lightness), and it may have
     *   fewer entries than asked (a single colour gives one entry).
     * pal non-null: `colors` is ignored; the palette is pal's palNumEntries (1..256)
     *   entries (peRed, peGreen, peBlue) in their order.
     * Refused, image unchanged: an empty image, mode outside 0..4, colors outside 1..256
     * without a palette, a palette of 0 or more than 256 entries.
     * Threads: all working state belongs to the call, so different images may be quantized
     * on several threads at once (the results are those of one call at a time).  Modes 0,
     * 2 and 4 spread rows over the pool; error diffusion runs on the calling thread. */
    void quantize(int mode, int colors, tagLOGPALETTE* pal);
    /* quantize(mode, 0, palette of the n colours cols[0..n-1]).  Refused, image unchanged:
     * cols null, n outside 1..256, or what quantize refuses. */
    void quantize_wpal(int mode, const tagSYSCOL* cols, int n);
    /* Quantize to fixed palette `which` through quantize_wpal:
     *   0  the 16 VGA colours;             1  the 256-colour system palette;
     *   2  web cube (descending) + ramps;  3  the 216-colour web cube (ascending);
     *   4  hue wheel, 256 entries;         5  pastel wheel, 256 entries;
     *   6  heat ramp black-red-yellow-white; 7 cold ramp black-blue-cyan-white;
     *   8  warm ramp (255,255,128) to black.
     * 1 when done; 0, image unchanged, for which outside 0..8, mode outside 0..4 or an
     * empty image. */
    int quantize_wdp(int mode, int which);

    /* ---- Fills and gradients -------------------------------------------------------- */

    /* ---- Resampling, orientation and layout ----------------------------------------- */
    /* The image becomes the part of itself inside *rect (null or empty: the whole image);
     * palettized images keep their depth and colour map.  0, unchanged, when the clipped
     * rectangle is empty. */
    int crop(tagRECT* rect);

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
