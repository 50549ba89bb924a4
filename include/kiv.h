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

    /* ---- Compositing ---------------------------------------------------------------- */

    /* ---- Point adjustments ---------------------------------------------------------- */
    /* Per-pixel tone and colour corrections.  They change red, green and blue only: the
     * fourth byte (alpha, or the colour-map index of a palettized image) is never touched.
     * True colour (bits >= 24): the pixels inside *rect (null or empty: the whole image)
     * are mapped; 0, nothing changed, when the clipped rectangle is empty.  Palettized
     * (bits < 24): the colour map is mapped instead and the pixels' colours refreshed from
     * it; the rectangle is ignored unless a member says otherwise.  Every int member
     * returns 0, image unchanged, for an image without pixels. */

    /* Brightness and contrast, each clamped to -127..127; (0, 0) is the identity and
     * contrast 127 makes a step at mid-grey.  1 on success. */
    int bright_contrast(tagRECT* rect, int brightness, int contrast);
    /* Gamma per channel and a master gamma applied after them; 1.0 is neutral; a value
     * v maps i to (i / 255)^(1 / v) x 255, rounded, clamped to 0..255.  The rectangle is
     * validated on both paths (0 when empty). */
    int gamma_rgb(tagRECT* rect, double red, double green, double blue, double master);
    /* gamma_rgb(rect, 1.0, 1.0, 1.0, g). */
    int gamma(tagRECT* rect, double g);
    /* Percentage change per channel: c + c x p / 100 on a 16-bit scale, clamped; +100
     * doubles, -100 gives 0.  The rectangle is validated on both paths (0 when empty).
     * Depth 24 maps the pixels; any other depth maps the colour map, so a 32-bit image
     * (which has none) is left as it is and 1 returned. */
    int adjust_rgb(tagRECT* rect, int red, int green, int blue);
    /* Through the library's integer HLS model (0..255 each): hue in 1/255 turns added to
     * every non-zero hue (wrapped once), saturation s += (s x saturation) >> 7, lightness
     * added in levels; clamped to 0..255.  The HLS round trip alters colours slightly
     * even with neutral arguments. */
    int modulate(tagRECT* rect, int hue, int saturation, int lightness);
    /* Hue (degrees, -180..180), saturation and lightness (-100..100, percent) for all
     * colours (range 0) or for one sixth of the HLS hue circle (range 1..6, in hue order
     * from red: HLS hue 0..42, 43..84, 85..127, 128..170, 171..212, 213..255).  Out-of-
     * range hue, saturation and lightness are clamped; a range outside 0..6 is refused
     * (0).  Every colour goes through the HLS round trip, so all zeros still alter some. */
    int hue_saturation(tagRECT* rect, int range, int hue, int saturation, int lightness);
    /* Complement red, green and blue.  Palettized: only the colour map is complemented;
     * the pixels keep their colour bytes until the map is next applied to them. */
    void negative(tagRECT* rect);
    /* Complement red, green and blue of the w x h block at (x, y), clipped; nothing for
     * w < 1 or h < 1.  Palettized: the colour map and every pixel are complemented. */
    void invertrect(int x, int y, int w, int h);
    /* The same for a rectangle; null or empty means the whole image. */
    void invertrect(tagRECT* rect);
    /* Grey at each pixel's HLS lightness: (min + max) >> 1.  1 on success. */
    int desaturate(tagRECT* rect);
    /* max(levels, 2) evenly spaced levels per channel.  1 on success. */
    int posterize(tagRECT* rect, int levels);
    /* Tint: luminance 0.3 R + 0.59 G + 0.11 B scaled into the COLORREF color.  The image
     * becomes 24-bit whatever its depth (a colour map is kept but no longer used); only
     * the rectangle is mapped.  1 on success. */
    int colorify(tagRECT* rect, COLORREF color);
    /* Colour balance: per-channel shifts (clamped to -100..100) for shadows, midtones
     * and highlights; with preserve set every pixel keeps its HLS lightness.  0 for a
     * null record.  Palettized: the colour map is changed and the pixels are not
     * refreshed from it. */
    int colorbalance(tagRECT* rect, tagKIV_COLORBALANCE* cb);
    /* Quantize the channels of a colour space (cc->colorspace, a KIV_CS_* code) with
     * steps cc->step[0..2] (0 leaves a channel alone; ties round down, and the second
     * channel rounds on the first channel's remainder).  The image becomes 24-bit and
     * only the rectangle is changed.  0 for a null record, an empty rectangle or an
     * unsupported colour space. */
    int colorcut(tagRECT* rect, tagKIV_COLORCUT* cc);

    /* ---- Histogram-driven adjustments ----------------------------------------------- */
    /* Like the point adjustments, these change red, green and blue only, and a palettized
     * image has its colour map changed instead of its pixels.  Luminance here is
     * (77 R + 150 G + 29 B) >> 8.  All return 0, image unchanged, for an image without
     * pixels. */

    /* Stretch each channel of the rectangle's pixels (bits > 8) or of the colour map
     * (bits <= 8, rectangle then ignored; pixels refreshed) to 0..255 by its own minimum
     * and maximum.  0 when the clipped rectangle is empty, else 1. */
    int autocontrast(tagRECT* rect);
    /* Equalize the luminance histogram of the whole image and apply the resulting table
     * to every channel of the rectangle's pixels (palettized: of the colour map, pixels
     * refreshed).  0 when the clipped rectangle is empty, else 1. */
    int equalize(tagRECT* rect);
    /* Stretch luminance between the points where 1% of the whole image's pixels lie
     * below and above: the low point maps to 0, the high point to 254, anything above it
     * to 255.  True colour (bits >= 24): the rectangle's pixels; palettized: the colour
     * map only (pixels not refreshed).  0 when the clipped rectangle is empty.  An image
     * with a single luminance level is destroyed and 0 returned. */
    int normalize(tagRECT* rect);
    /* Stretch the HSV value of each colour's chromatic part (inverted channels less their
     * common black part) between the smallest and largest value found.  True colour: the
     * rectangle (0 when empty); palettized: the colour map only (rectangle ignored,
     * pixels not refreshed).  1 on success. */
    int autocolorenhance(tagRECT* rect);

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
