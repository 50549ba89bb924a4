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

    /* ---- Histogram-driven adjustments ----------------------------------------------- */

    /* ---- Blurs, kernels, sharpening, motion blurs ----------------------------------- */
    /* Plain 3x3 sharpening of the rectangle (null: whole image): centre 18, the eight
     * neighbours -1, divided by 10, clamped; the same result as filter_3x3 mode 3. */
    int sharpen(tagRECT* rect);

    /* Blurs.  All take a rectangle (null or empty: the whole image, clipped to it) and
     * return 1, or 0 with the image unchanged when the clipped rectangle is empty, the image
     * has no pixels or a parameter is refused.  A palettized image becomes 24-bit (its
     * pixels already hold the colours).  Red, green and blue are treated alike. */

    /* Mean of up to four corner samples (x -+ dx/2, y -+ dy/2), each taken only if it lies
     * inside the image (pixels outside the rectangle are used); a pixel with no sample keeps
     * its colour.  dx, dy: full spans in pixels; negative spans count as 0; refused when
     * both are below 1.  Alpha kept; depth becomes exactly 24. */
    int blur(tagRECT* rect, int dx, int dy);
    /* Tent blur of radius r pixels (weights r+1 .. 1), rows then columns, integer.  The row
     * pass also reads columns outside the rectangle, the column pass only rows inside it;
     * both renormalise by the weights used.  Alpha of the rectangle becomes 0.  r = 0
     * copies the colours; refused for r < 0. */
    int blur_simple(tagRECT* rect, int r);
    /* Recursive (Deriche) Gaussian, constant cost per pixel: columns with sy, then rows with
     * sx (standard deviations in pixels, > 0 and finite, else refused).  Each line is
     * extended by its end pixels: nothing outside the rectangle is read.  Alpha kept.
     * Progress: init((w + h) >> 3), a step every 8 lines, term. */
    int blur_gauss_iir(tagRECT* rect, double sx, double sy);
    /* Sampled Gaussian with integer weights (255 at the centre, taps -h .. h-1 where
     * h = ceil(sigma * sqrt(2 ln 255))), columns then rows, ends of each line repeated:
     * nothing outside the rectangle is read.  sigma in pixels, 0 < sigma <= 10000, else
     * refused.  planes: bit 0 red, 1 green, 2 blue, 3 alpha; clear bits keep the channel.
     * Progress as blur_gauss_iir. */
    int blur_gauss_rle_plane(tagRECT* rect, double sigma, unsigned planes);
    int blur_gauss_rle(tagRECT* rect, double sigma); /* planes = 7: alpha kept */
    /* Selective Gaussian: each channel averages only the neighbours within the whole image
     * that differ from the centre by at most threshold (a negative threshold changes
     * nothing).  radius: pixels at which the kernel falls to 1/255, at most 127 (refused
     * above, or NaN); radius <= 0 changes no pixel but returns 1.  Alpha kept; depth
     * becomes exactly 24.  Progress: init(h >> 3), a step every 8 rows, term. */
    int blur_gauss_sel(tagRECT* rect, double radius, int threshold);

    /* 3x3 kernels.  The rectangle's border pixels are repeated outward; pixels outside it
     * are never read.  Alpha kept; depth becomes 24 (also for a refused mode).
     * mode: 0 mean, 1 median, 3 sharpen (-1s, centre 18, /10), 4 soft blur (8 12 8 / 12 20
     * 12 / 8 12 8, /100), 5 emboss (bottom-right minus top-left + 128, wrapped to a byte),
     * 6 sharpen more (centre 13, /5), 7 maximum, 8 minimum, 9 cross sharpen (centre 5),
     * 10 full sharpen (centre 9), 11 Laplacian, 12 Sobel horizontal, 13 Sobel vertical,
     * 14 adaptive sharpen (only where mode 3 would change a channel by more than 7),
     * 15 adaptive smooth (mode 4 only where mode 3 would change it by less than 5).
     * Refused: mode 2 and modes above 15.  Results are clamped to 0..255. */
    int filter_3x3(tagRECT* rect, unsigned mode);
    /* Nine row-major weights (null: refused), result clamp(sum / divisor) per channel,
     * divisor 0 taken as 1; sums wrap in 32 bits. */
    int filter_custom3x3(tagRECT* rect, int* kernel, int divisor);
    /* Kernel -1s around centre s + 8, divisor s; strength s in 1..40, else 10. */
    int filter_sharpen(tagRECT* rect, int strength);
    /* Kernel 1s around centre s, divisor s + 8; strength s in 1..40, else 10. */
    int filter_soften(tagRECT* rect, int strength);
    /* Gradient magnitude (rounded integer square root of gx^2 + gy^2) times 10 / strength,
     * clamped; strength below 1 (or NaN) counts as 1.  Neighbours come from the whole
     * image, coordinates clamped to it.  Alpha of the rectangle becomes 0. */
    int edge(tagRECT* rect, double strength);
    /* Relief lit from (azimuth, elevation), heights from the red channel of the whole image
     * (coordinates clamped to it).  param null: azimuth 30, elevation 45, depth 20, mono 1.
     * mono: grey shade; else each colour of the pixel above scaled by shade / 256.  Only the
     * low 16 bits of depth count (unsigned); refused when they are 0 or the angles are not
     * finite.  Alpha of the rectangle becomes 0. */
    int emboss(tagRECT* rect, tagKIV_EMBOSS* param);
    /* Bevelled frame n pixels wide: top and left lightened, bottom and right darkened,
     * mitred corners.  Refused when n < 0 or the rectangle is narrower or lower than 2n. */
    int raise_edge(tagRECT* rect, int n);

    /* Sharpening.  Alpha kept; depth raised to 24. */
    /* Adjustable 3x3 sharpen: O + (8 O - sum of the 8 neighbours) * strength / 800,
     * clamped, per channel; strength in percent 0..1000 (0: no change; else refused).
     * Rectangle border repeated outward as in filter_3x3. */
    int sharpen2(tagRECT* rect, int strength);
    /* Unsharp mask: B = recursive Gaussian of the rectangle (sigma = radius pixels, lines
     * extended by their ends), D = O - B; where |D| >= threshold the channel becomes
     * clamp(O + D * amount / 100).  radius > 0 and <= 1000, amount 0..1000 percent,
     * threshold 0..255; anything else refused.  Progress as blur_gauss_iir. */
    int unsharp_mask(tagRECT* rect, double radius, int amount, int threshold);
    /* The same on lightness L = (max + min) / 2 only: the same change is added to red,
     * green and blue (clamped), so edges get no colour fringes. */
    int unsharp_mask2(tagRECT* rect, double radius, int amount, int threshold);
    /* Local contrast: each pixel's lightness is pushed away from the mean of the
     * (2 radius + 1)^2 box around it (clipped to the rectangle) by a gain that grows where
     * the box's standard deviation is low: gain = 1 + amount / 100 * (g - 1), g = 40 /
     * (deviation + 1) limited to 1..3.  The change is added to red, green and blue
     * (clamped).  radius 1..1000 pixels, amount 0..100; anything else refused. */
    int enhance(tagRECT* rect, int radius, int amount);

    /* Motion and directional blurs.  Samples come from the whole image (coordinates
     * clamped to it); only the rectangle is written.  Each colour channel becomes the
     * rounded mean of its samples; alpha kept; depth raised to 24. */
    /* Straight motion: distance + 1 samples spaced one pixel apart along the line through
     * the pixel at angle degrees (0 = horizontal, 90 = up), centred on it.  distance 0..1000
     * pixels (0: no change); angle finite; else refused. */
    int mblur_linear(tagRECT* rect, double angle, int distance);
    /* Spin about (cx, cy): each pixel averaged over an arc of angle degrees (0..360)
     * centred on it, sampled at about one pixel spacing at the rectangle's farthest corner
     * (at most 256 samples).  Refused for angle outside 0..360 or NaN. */
    int mblur_radial(tagRECT* rect, int cx, int cy, double angle);
    /* Circular motion about (cx, cy) of the same length everywhere: each pixel averaged
     * over an arc amount pixels long (at most a full turn), samples one pixel apart.
     * amount 0..1000 (0: no change); else refused. */
    int mblur_round(tagRECT* rect, int cx, int cy, int amount);
    /* Zoom towards (cx, cy): each pixel averaged along the ray to the centre over amount
     * percent of its distance (0..100; 0: no change), at most 256 samples. */
    int mblur_zoom(tagRECT* rect, int cx, int cy, int amount);
    /* Wind: bright pixels leave streaks that fade over about `strength` pixels (1..1000) in
     * the direction the wind blows to: 0 right (from the left), 1 left, 2 down, 3 up.  The
     * streak length varies from line to line (fixed pattern, so the result is repeatable).
     * Only the rectangle is read.  Refused outside those ranges. */
    int sblur_wind(tagRECT* rect, int direction, int strength);
    /* Blast: a stronger wind; each pixel becomes the brighter of itself and the mean of the
     * upwind streak (about `strength` pixels, varying per line), per channel.  Parameters
     * as sblur_wind. */
    int sblur_blast(tagRECT* rect, int direction, int strength);

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
