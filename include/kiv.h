/* kiv.h - kivlib, a raster-image library: the C++ header (kivc.h is the C interface).
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

#include "kiv_common.h"

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
    /* Deep heap copies (the map too, also one kept at 24 bits); the callback is not copied.
     * 0 when the other image is null (nothing changes), when the source is empty (the
     * destination is then emptied) or when memory runs out (destination empty). */
    int copyto(kiv* dst);      /* dst becomes a deep copy of this image */
    int copyfrom(kiv* src);    /* this image becomes a deep copy of src */
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
    /* Watch and stop this image's long operations: fn(user, done, total) is called on the
     * calling thread with total 100 and done rising from 0 (the start) to 100 (the end, whose
     * result is ignored), at most 101 times a call.  A nonzero result cancels the call soon
     * after (within about 50 ms, or a twentieth of the call's running time when that is
     * longer): it returns 0 (void members simply return) and the image is exactly as before
     * the call (size, depth, colour map, pixels).  fn null removes the callback; it stays
     * until then or until the object is destroyed (destroy() keeps it; copies do not get it).
     * The operations that report are those that can take long: the resamplers, rotate_any,
     * the blurs, sharpening, motion blurs, effects, quantize and the histogram corrections
     * (kiv.h says "Progress" at each).  While a callback is installed, an operation that
     * changes the image in place first keeps a copy to restore (memory for one more image).
     * The callback may use other images, not this one.  m_progressproc is independent. */
    void set_progress(kivProgressFn fn, void* user);

    /* ---- Block transfer ------------------------------------------------------------- */
    /* Copy the w x h block at (sx, sy) of src to (x, y) of this image, all four bytes,
     * clipped per pixel against both images.  src may be this image. */
    void blt(int x, int y, int w, int h, kiv* src, int sx, int sy);

    /* ---- Colour map and palette ----------------------------------------------------- */
    void alloccmap(int n); /* free the map; colors = n; n > 0: n zeroed entries */
    /* Raise bits so that the image can hold n: 4 for n <= 4, 8 for n 5..8, 24 for n >= 9.
     * Nothing when bits is already that deep or the image is empty.  Raising to 24 frees the
     * map (colors 0); raising 1 -> 4 or 4 -> 8 keeps the map and colors as they are. */
    void increasecolor(int n);
    /* A new logical palette (version 0x300, colors entries, flags 0) of the colour map, from
     * malloc: release it with free_gradtable (std::free).  Null without a map or colors 0.
     * The record always holds all colors entries, but its 16-bit count keeps only the low
     * 16 bits of colors: a map of more than 65535 entries (alloccmap(70000)) gives a count
     * of colors - 65536 (0 for 65536), so a reader of the count sees a prefix of the map. */
    tagLOGPALETTE* createlogpalette();
    /* Refresh red, green, blue of every pixel from map[index], index = the pixel's fourth
     * byte, which is kept.  Only for bits below 24 with a map; an index at or beyond colors
     * takes the colour of entry 0. */
    void validate_rgb();
    /* The whole image becomes 8-bit grey: every byte of a pixel = (min + max of red, green,
     * blue) >> 1, and the map a 256-entry ramp (entry i = i, i, i).  Nothing for an empty
     * image. */
    void grayscale();
    /* Distinct colours: below 9 bits the number of distinct indexes in use (fourth bytes);
     * otherwise distinct red, green, blue triples (alpha ignored).  0 for an empty image or
     * when memory runs out. */
    unsigned long countcolors();
    /* Convert every pixel of *rect (null or empty: the whole image) in place from RGB to the
     * space colorspace (a KIV_CS_* code, see there for the byte scaling); the fourth byte is
     * kept.  convert_rgb is the inverse, from that space back to RGB.  A palettized image is
     * first raised to 24 bits (its map stays, its pixels keep their colours), so only the
     * rectangle changes.  0, unchanged, for an unknown code, an empty image or an empty
     * clipped rectangle; else 1.  Deterministic: the same bytes on every platform. */
    int convert_colorspace(tagRECT* rect, int colorspace);
    int convert_rgb(tagRECT* rect, int colorspace);
#ifdef _WIN32
    /* A new GDI palette of the colour map (caller deletes it with DeleteObject); null
     * without a map. */
    HPALETTE createpalette();
    /* Take red, green, blue of map[0..colors-1] from a GDI palette of exactly colors entries
     * (the map is never resized), then validate_rgb.  0, unchanged, for a null handle or an
     * entry-count mismatch. */
    int replace_palette(HPALETTE palette);
#endif

    /* ---- DIB and bitmap interchange ------------------------------------------------- */
    /* Packed DIBs are movable global-memory handles: BITMAPINFOHEADER, colour table, rows
     * bottom-up.  Handles passed in are only read; handles returned belong to the caller
     * (GlobalFree).
     *
     * Read a packed DIB into a heap image (attachdib) or a mapped-file image
     * (attachdib_width_mapfile); 1 on success.  Accepted: BI_RGB of 1, 2, 4, 8, 16, 24, 32
     * bits, biHeight > 0.  Depths up to 8 become palettized images (2 bits become 4) with
     * colors = biClrUsed (0: 1 << biBitCount), at most 256.  16- and 32-bit DIBs give black
     * images of the right size at 24 bits (the reader's default channel shifts zero every
     * channel); 24 bits are read as they are; alpha bytes come out 0; other depths leave
     * every pixel zero.  The table is read at offset 40, the rows at biSize + 4 x biClrUsed
     * (depths above 8 skip a table of biClrUsed entries too).  Refused with 0 and the image
     * left untouched: a null or unknown handle, other compressions, biSize below 40, a
     * table the image's map cannot hold (min(biClrUsed, 256) above 1 << bits, bits being 4
     * for 2-bit DIBs), a block (GlobalSize) smaller than the header, table and rows claim.
     * Refused with 0 and the image left empty: width or height below 1 (top-down DIBs),
     * more than 2^31 - 1 pixels, depth 0. */
    int attachdib(void* dib);
    int attachdib_width_mapfile(void* dib);
    /* A 24-bit image from a caller's buffer of width x height 4-byte pixels (rows of width *
     * 4 bytes, no padding): the first three bytes of each are copied as they are, and row y
     * of the buffer becomes image row height - 1 - y.  0 for a null src or a failed create. */
    int attachdib32(int width, int height, void* src);
    /* A new packed DIB of the image, bottom-up, or null for an empty image or when memory
     * runs out.  Depth by bits: 1 -> 1; 2..4 -> 4; 5..8 -> 8; 9..24 -> 24; 25..32 -> 32.
     * Below 24 bits the table holds the whole map (biClrUsed = colors, also when that is
     * more than the depth can index, a table attachdib refuses at depths 1 and 4; without a
     * map biClrUsed is 0 and, at depths up to 8, a zero table of 1 << depth entries is
     * written) and the pixel values are the fourth bytes; 32 bits write the fourth byte as it is.  Only bits
     * 1, 4, 8, 24 and 32 have pixels written; other depths give a zero pixel area.  The block
     * has 16 rows of slack beyond the image (zero). */
    void* createdib();
    /* Copy the w x h block at (sx, sy) of a packed DIB to (x, y) of this image, clipped as
     * the image form of blt; an unreadable DIB copies nothing. */
    void blt(int x, int y, int w, int h, void* dib, int sx, int sy);
    /* A null literal source copies nothing (and keeps the two blt forms unambiguous). */
    void blt(int, int, int, int, decltype(nullptr), int, int) {}
#ifdef _WIN32
    /* Read a GDI bitmap through a temporary packed DIB of depth 1, 4, 8 or 24 (by its planes
     * x bits), with palette (null: the stock default palette) selected on the screen DC.
     * 0 for a null or unreadable bitmap. */
    int attachbitmap(HBITMAP bitmap, HPALETTE palette);
    /* A new GDI bitmap of the image (through createdib), compatible with the screen; when
     * palette is non-null it receives a palette of the DIB's colour table (the colour map;
     * null when the DIB has no table), which the caller then owns.  Null, with *palette
     * null, for an empty image. */
    HBITMAP createbitmap(HPALETTE* palette);
#endif

    /* ---- Every DIB and BMP form; 32-bit DIBs with alpha ------------------------------
     * The full reader, beside attachdib (which keeps its own fixed behaviour):
     *   attachdib_any        a packed DIB in a movable global-memory handle (CF_DIB,
     *                        CF_DIBV5, a copied resource); nothing past GlobalSize is read;
     *   attachdib_any_bytes  a packed DIB of size bytes at data (a locked clipboard block,
     *                        LockResource data);
     *   loadbmp              a BMP file (its 14-byte file header, then a packed DIB whose
     *                        pixel data starts at bfOffBits; a colour table is what fits
     *                        between the header and bfOffBits);
     *   loadbmp_bytes        the bytes of a BMP file, size of them at data.
     * 1 on success; 0 on refusal with this image unchanged.  When reason is non-null it
     * receives null on success, else a static English text saying why (never freed).
     * Read: headers of 12 bytes (OS/2 1.x: 16-bit sizes, 3-byte table entries), 16 to 64
     * bytes (OS/2 2.x; fields it omits are 0), 40 (BITMAPINFOHEADER), 52 and 56 (with
     * masks), 108 (V4) and 124 (V5); depths 1, 2, 4, 8, 16, 24, 32 and 64; BI_RGB,
     * BI_RLE8, BI_RLE4, BI_BITFIELDS and BI_ALPHABITFIELDS (6) with any contiguous,
     * non-overlapping masks (after a 40-byte header, 12 or 16 bytes of masks follow it;
     * later headers hold them); rows bottom-up (biHeight > 0) or top-down (< 0), also for
     * run-length data.  Colour spaces and ICC profiles of V4/V5 headers are ignored; the
     * pixel values are taken as they are.  The image made:
     *   - depths 1, 2, 4, 8 uncompressed and RLE data setting every pixel: palettized at
     *     that depth (2 becomes 4), each pixel's fourth byte its index; colors = the
     *     table's entries (biClrUsed, 0 meaning 1 << depth; entries past 1 << depth are
     *     skipped), raised to cover the highest index the pixels use, the added entries
     *     black;
     *   - RLE data leaving pixels unset (deltas, early end of line or bitmap): 32 bits,
     *     those pixels 0 (transparent black), the others their colours with alpha 255;
     *   - 16, 24, 32 and 64 bits: 32 bits with alpha in the fourth byte when some pixel's
     *     alpha is not 0, else 24 bits with fourth bytes 0.  Bit-field channels are scaled
     *     from their mask's width to 0..255 as round(v x 255 / (2^width - 1)); a missing
     *     mask gives 0 (alpha: none).  BI_RGB is 5-5-5 at 16 bits and 8-8-8 at 32 bits
     *     with the fourth byte as alpha (all zero: 24 bits, as most such files mean).
     *     64 bits: blue, green, red, alpha as signed 16-bit fixed point, 8192 = 1.0,
     *     linear light, straight alpha: colours clamped to 0..1 and encoded to sRGB,
     *     alpha clamped and scaled, both rounded.
     *   - Alpha is taken as straight (not premultiplied).
     * Refused (with a reason): a null handle, data or path; an unreadable file; no 'BM'
     * (files); an unknown header size; width below 1, height 0, more than 2^31 - 1
     * pixels; a bit count or compression outside the above (BI_JPEG and BI_PNG data are
     * not decoded; OS/2 Huffman and RLE24 neither); masks that are not contiguous,
     * overlap, or exceed 16 bits at depth 16; a header, masks, table or rows running
     * past the data; bfOffBits inside the header or past the file; run data cut short
     * or writing outside the image (an RLE4 run may end on the pad nibble of an odd
     * width); memory running out. */
    int attachdib_any(void* dib, const char** reason);
    int attachdib_any_bytes(const void* data, size_t size, const char** reason);
    int loadbmp(const char* path, const char** reason);
    int loadbmp_bytes(const void* data, size_t size, const char** reason);
    /* A new packed DIB (movable global memory; the caller frees it) of the whole image at
     * 32 bits: a 124-byte V5 header (BI_BITFIELDS, masks red 0xFF0000, green 0xFF00, blue
     * 0xFF, alpha 0xFF000000, colour space sRGB), no table, rows bottom-up, blue, green,
     * red, alpha.  Alpha is the fourth byte of 32-bit images and 255 at other depths.
     * premultiplied 1: colours multiplied by alpha / 255, rounded to nearest (the form
     * AlphaBlend with AC_SRC_ALPHA and UpdateLayeredWindow take); 0: straight alpha (the
     * clipboard's CF_DIBV5).  Null for an empty image, premultiplied outside 0..1, or
     * when memory runs out.  attachdib_any reads it back (straight alpha). */
    void* createdib_alpha(int premultiplied);
    /* The same DIB as a BMP file at path (file header, bfOffBits 138), replacing any file
     * there.  1 on success; 0 with a reason (as the readers give it) for a null or empty
     * path, premultiplied outside 0..1, an empty image, one whose file would pass 4 GiB,
     * or a failed write, which leaves no file at path. */
    int savebmp_alpha(const char* path, int premultiplied, const char** reason);

protected:
    int _attachdib(void* dib, int mapped); /* the reader; mapped nonzero: mapped-file store */

public:

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
     * 1 when done (an image without pixels is left as it is); 0, image unchanged, for which
     * outside 0..8 or mode outside 0..4. */
    int quantize_wdp(int mode, int which);

    /* ---- Fills and gradients -------------------------------------------------------- */
    /* Blend modes (mode), d the existing pixel and s the fill colour, per channel 0..255:
     *   0 normal (s; also 9 and any unlisted value)  1 darken min(d, s)  2 lighten max(d, s)
     *   3 hue, 4 saturation, 6 value: d's HSV with s's hue, saturation or value
     *   5 colour: d's HLS lightness with s's hue and saturation
     *   7 multiply  8 screen  10 overlay  11 hard light  12 soft light  13 difference
     *   14 exclusion  15 colour dodge  16 colour burn
     *   17 add, 18 subtract: saturating; both take s's blue for green as well as for blue.
     * The blended colour c is then mixed in with the opacity op (0..255, 255 = c replaces
     * the pixel; values outside are clamped, 0 does nothing):
     *   pixel = trunc((pixel * (255 - op) + c * op) / 255) for red, green and blue.
     * The alpha byte of every pixel is kept.  Palettized images are raised to true colour
     * (their colour map is kept).
     *
     * Rectangles: (x, y, w, h) is the box x..x+w-1, y..y+h-1, clipped to the image; the
     * tagRECT overloads take the whole image for a null or empty rectangle.  A ramp (shade,
     * gradient) spans the box as given, so a clipped box shows its inner part.
     *
     * Directions (dir) of shades and gradients name the side or corner the ramp runs toward,
     * numbered like the outer cells of a 3 x 3 grid: 0 top-left, 1 top, 2 top-right, 3 left,
     * 4 right, 5 bottom-left, 6 bottom, 7 bottom-right.  The first colour lies at the
     * opposite side or corner, the last at the named one. */

    /* Blend colour over the box.  0, image unchanged, for an empty image, w or h below 1
     * or op 0; otherwise bits becomes at least 24, then 0 when the box lies outside the
     * image, else 1. */
    int solidfill(int x, int y, int w, int h, COLORREF color, int op, int mode);
    int solidfill(tagRECT* r, COLORREF color, int op, int mode);
    int fillsolidrect(int x, int y, int w, int h, COLORREF color, int op); /* mode 0 */
    int fillsolidrect(tagRECT* r, COLORREF color, int op);                 /* mode 0 */

    /* Linear shade of colors[0..n-1] (n 1..16) toward dir, through a 512-step table.
     * 0, image unchanged, for an empty image, w or h below 1, op 0, a null list or n
     * outside 1..16; otherwise bits becomes 24, then 0 for a direction outside 0..7 or a
     * box outside the image, else 1. */
    int shadefill(int x, int y, int w, int h, COLORREF* colors, int n, int dir, int op, int mode);
    int shadefill(tagRECT* r, COLORREF* colors, int n, int dir, int op, int mode);
    int fillshaderect(int x, int y, int w, int h, COLORREF* colors, int n, int dir, int op); /* mode 0 */
    int fillshaderect(tagRECT* r, COLORREF* colors, int n, int dir, int op);                 /* mode 0 */

    /* Gradient of n stops (positions 0..1000, ascending) toward dir, through the table of
     * make_gradtable(stops, n, 1000).  One stop is solidfill with its colour.  0, image
     * unchanged, for an empty image, a null list, n below 1, w or h below 1 or op 0;
     * otherwise bits becomes 24, then 0 for a direction outside 0..7 or a box outside the
     * image, else 1. */
    int gradientfill(int x, int y, int w, int h, tagGRADCOLORS* stops, int n, int dir, int op, int mode);
    int gradientfill(tagRECT* r, tagGRADCOLORS* stops, int n, int dir, int op, int mode);
    int fillgradientrect(int x, int y, int w, int h, tagGRADCOLORS* stops, int n, int dir, int op); /* mode 0 */
    int fillgradientrect(tagRECT* r, tagGRADCOLORS* stops, int n, int dir, int op);                 /* mode 0 */

    /* A gradient rendered into a logical palette of size entries (0..65535; version 0x300).
     * The stops are padded to run from 0 to 1000 (the first colour put at 0, the last at
     * 1000, when missing); each pair of stops k, k+1 then adds pos[k+1] - pos[k] entries
     * ramping from colour k toward (never reaching) colour k+1, appended from the start of
     * the table.  Entries no pair reaches stay zero.  Null for a null list, n below 1, a
     * size outside 0..65535 or no memory.  The caller releases it with free_gradtable. */
    static tagLOGPALETTE* make_gradtable(tagGRADCOLORS* stops, int n, int size);
    /* Release a table of make_gradtable or a logical palette of createlogpalette; null is
     * ignored. */
    static void free_gradtable(tagLOGPALETTE* t);

    /* The image's lightness, (min + max) >> 1 of each pixel, into red, green, blue and
     * alpha; bits becomes 24.  0 for an empty image, else 1. */
    int settoalpha();

    /* Grow the image by borders of the given widths (pixels) filled with color: the result
     * is (width + left + right) x (height + top + bottom), the old pixels (all four bytes)
     * land at (left, top), clipped, so a negative width trims that side; bits becomes at
     * least 24 (palettized images lose their colour map).  0, image unchanged, for an empty
     * image, a result with no pixels or too large, or no memory; else 1. */
    int addborder(int left, int right, int top, int bottom, COLORREF color);


    /* ---- Resampling, orientation and layout ----------------------------------------- */
    /* The image becomes the part of itself inside *rect (null or empty: the whole image);
     * palettized images keep their depth, colour map and colors(); a true-colour image
     * keeps no map.  The image is rebuilt, so the progress callback is cleared.  0,
     * unchanged, when the clipped rectangle is empty. */
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
     * depth, and below 9 bits the colour map and colors(); the colours are then refreshed
     * from the map (validate_rgb), so at 9 to 23 bits, whose new map is blank, they become
     * 0.  0 for an empty image or w, h below 1. */
    int zoom_pixel(int w, int h);
    /* Nearest neighbour to w x h: source position width * x / w (and likewise for rows)
     * in single precision, rounded half up; positions at or past the last pixel take the
     * last pixel.  All four bytes copied; depth, map and colours as zoom_pixel.  0 for an
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
     * image), at the same depth; below 24 bits the map's entries are copied into a new map
     * of 1 << bits entries, so colors() becomes 1 << bits (or the old count when the map
     * was longer).  0, unchanged, for nx or ny below 1, a rectangle wholly outside, a result
     * over 2^31 - 1 pixels per side or too little memory. */
    int tile(tagRECT* rect, int nx, int ny);
    /* The part inside rect is resampled to (width / n) x (height / n) with zoom's Mitchell
     * filter (method 10; it is sharpened) and repeated n x n times; the result is 24 bits.
     * 0, unchanged, for n below 2, a rectangle wholly outside, or a part narrower or lower
     * than n pixels. */
    int tile_divide(tagRECT* rect, int n);
    /* Turn the image by degrees (positive: counter-clockwise, any finite value) about its
     * centre into a new image just large enough to hold it (ceil of the turned extents;
     * exact multiples of 90 give exactly rotate's pixels).  Corners not covered by the
     * image take background (COLORREF, alpha 0).  method 0: nearest pixel; 1: bilinear
     * over all four bytes, background outside the image, rounded.  Sines and cosines come
     * from the library's own series, so every platform gives the same bytes.  The depth is
     * raised to 24 (a palettized image's map is dropped).  0, unchanged, for an empty
     * image, another method, a non-finite angle or a result too large. */
    int rotate_any(double degrees, COLORREF background, int method);

    /* Members that treat the fourth byte as straight alpha and can filter in linear light.
     * flags: KIV_FILTER_ALPHA weights red, green and blue by alpha while filtering
     * (premultiplied), filters alpha with them and divides again at the end, so colours of
     * transparent pixels never bleed into their neighbours; a pixel whose alpha comes out 0
     * gets colour 0, and the result is 32 bits.  KIV_FILTER_LINEAR turns sRGB red, green and
     * blue into linear light (exact tables, 16-bit intermediates), filters there and turns
     * the result back, so fine detail keeps its brightness (a one-pixel black and white
     * checkerboard shrinks to 187..188, not 128).  Without KIV_FILTER_ALPHA the fourth byte
     * is treated as the plain member treats it.  Other flag bits are refused, and so is
     * KIV_FILTER_ALPHA on a palettized image (its fourth byte is a colour index).  Where the
     * weighting changes nothing (no KIV_FILTER_LINEAR, and no KIV_FILTER_ALPHA or alpha 255
     * throughout what is read) the plain member's arithmetic runs and gives its bytes; the
     * weighted path rounds each byte to nearest from 16-bit intermediates.  Progress. */
    /* zoom's filtered resampling (method 0..13, the same filters) without the sharpening
     * that zoom adds when shrinking.  The result is 24 bits with alpha 0 (32 bits with the
     * filtered alpha under KIV_FILTER_ALPHA).  Refused as zoom refuses, and for unknown
     * flags. */
    int zoom_rgba(int w, int h, int method, int flags);
    /* rotate_any's turn (method 0 nearest, 1 bilinear) into a surround of colour 0 and
     * alpha 0: with KIV_FILTER_ALPHA the edges fade into it without taking on its colour.
     * Without flags it is rotate_any(degrees, 0, method).  Refused as rotate_any refuses,
     * and for unknown flags. */
    int rotate_any_rgba(double degrees, int method, int flags);

    /* ---- Compositing ---------------------------------------------------------------- */
    /* Compositors combine another image (or a colour) with this one through the blend
     * modes of the fills (see "Fills and gradients"): per pixel c = blend(pixel, source),
     * then pixel = trunc((pixel * (255 - w) + c * w) / 255) for red, green and blue with a
     * weight w of 0..255; every alpha byte of this image is kept.  Opacities outside 0..255
     * are clamped.  Sources are only read (they may be this image); a palettized source is
     * read through its pixels' colours.  Placement is clipped against both images; a
     * palettized target is raised to 24 bits (colour map kept) when something is drawn.
     * Each returns 1 when it drew, 0 (image unchanged) for a null or empty image, nothing
     * to draw (no overlap, opacity 0) or an unknown direction. */

    /* Draw layer with its top-left corner at (x, y) of this image through blend mode `mode`
     * at `opacity`.  usealpha nonzero weighs each pixel by the layer's alpha byte as well,
     * w = alpha * opacity / 255 (a layer below 24 bits has no alpha and counts as opaque);
     * zero draws every pixel at w = opacity. */
    int addlayer(kiv* layer, int x, int y, int opacity, int mode, int usealpha);

    /* Mix the part of src inside *srcrect (null or empty: all of src; clipped to src) into
     * this image with its top-left corner at (x, y), normal mode, w = opacity. */
    int merge(kiv* src, tagRECT* srcrect, int x, int y, int opacity);

    /* Paste all of src with its top-left corner at (x, y), normal mode, with an opacity
     * that fades across the pasted area from op0 at the side or corner opposite dir to op1
     * at the one dir names (the direction codes of the fills): w = op0 + (op1 - op0) * t /
     * 255, t the 0..255 ramp position of the pixel within src's area as placed. */
    int fadepaste(kiv* src, int x, int y, int op0, int op1, int dir);

    /* Fade the rectangle (null or empty: the whole image; clipped) toward color: normal
     * mode with w ramping from op0 to op1 toward dir as in fadepaste, across the rectangle
     * as given. */
    int fadeinrect(tagRECT* rect, COLORREF color, int op0, int op1, int dir);

    /* Tile texture over the rectangle (null or empty: the whole image; clipped) through
     * blend mode `mode` at `opacity`; the texture's top-left pixel sits at the rectangle's
     * top-left corner as given, and tiles repeat right and down from there. */
    int texturefill(tagRECT* rect, kiv* texture, int opacity, int mode);


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
     * doubles, -100 gives 0.  The product (c x 257) x p is taken in 32 bits: beyond about
     * +-32768 per cent it wraps.  The rectangle is validated on both paths (0 when empty).
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
     * copies the colours; refused for r < 0 or r > 1000000. */
    int blur_simple(tagRECT* rect, int r);
    /* Recursive (Deriche) Gaussian, constant cost per pixel: columns with sy, then rows with
     * sx (standard deviations in pixels, > 0 and finite, else refused; so is a sigma whose
     * filter coefficients are not finite: below about 1e-308, and some beyond 1.5e8).  Each
     * line is extended by its end pixels: nothing outside the rectangle is read.  Alpha kept.
     * Progress: init((w + h) >> 3), a step every 8 lines, term. */
    int blur_gauss_iir(tagRECT* rect, double sx, double sy);
    /* Sampled Gaussian with integer weights (255 at the centre, taps -h .. h-1 where
     * h = ceil(sigma * sqrt(2 ln 255))), columns then rows, ends of each line repeated:
     * nothing outside the rectangle is read.  sigma in pixels, 0 < sigma <= 10000, else
     * refused (as is a sigma below about 1.5e-162, whose square is 0).  planes: bit 0 red,
     * 1 green, 2 blue, 3 alpha; clear bits keep the channel.  Progress as blur_gauss_iir. */
    int blur_gauss_rle_plane(tagRECT* rect, double sigma, unsigned planes);
    int blur_gauss_rle(tagRECT* rect, double sigma); /* planes = 7: alpha kept */
    /* Selective Gaussian: each channel averages only the neighbours within the whole image
     * that differ from the centre by at most threshold (a negative threshold changes
     * nothing).  radius: pixels at which the kernel falls to 1/255, at most 127 (refused
     * above, or NaN); radius <= 0, or below about 5e-162 (sigma^2 is then 0), changes no
     * pixel but returns 1.  Alpha kept; depth becomes exactly 24.  Progress: init(h >> 3),
     * a step every 8 rows, term. */
    int blur_gauss_sel(tagRECT* rect, double radius, int threshold);
    /* blur_gauss_iir's recursive Gaussian (columns with sy, then rows with sx, lines
     * extended by their ends) with the flags of zoom_rgba (see there); the weighted path
     * rounds where blur_gauss_iir truncates.  Alpha is blurred under KIV_FILTER_ALPHA, else
     * kept.  Refused as blur_gauss_iir refuses, and for unknown flags. */
    int blur_gauss_rgba(tagRECT* rect, double sx, double sy, int flags);

    /* 3x3 kernels.  The rectangle's border pixels are repeated outward; pixels outside it
     * are never read.  Alpha kept; depth becomes 24 (also for a refused mode).
     * mode: 0 mean, 1 median, 3 sharpen (-1s, centre 18, /10), 4 soft blur (8 12 8 / 12 20
     * 12 / 8 12 8, /100), 5 emboss (bottom-right minus top-left + 128, wrapped to a byte),
     * 6 sharpen more (centre 13, /5), 7 maximum, 8 minimum, 9 cross sharpen (centre 5),
     * 10 full sharpen (centre 9), 11 Laplacian, 12 Sobel horizontal, 13 Sobel vertical,
     * 14 adaptive sharpen (mode 3 where it would change a channel by more than 11, blended
     * with the original from 8 to 11, the original below 8), 15 adaptive smooth (mode 4
     * where mode 3 would change a channel by less than 5, blended with the original from 5
     * to 8, the original above 8).  Refused: mode 2 and modes above 15.  Results other than
     * mode 5's are clamped to 0..255. */
    int filter_3x3(tagRECT* rect, unsigned mode);
    /* Nine row-major weights (null: refused), result clamp(sum / divisor) per channel, the
     * division truncating toward zero, divisor 0 taken as 1; sums wrap in 32 bits. */
    int filter_custom3x3(tagRECT* rect, int* kernel, int divisor);
    /* Kernel -1s around centre s + 8, divisor s; strength s in 1..40, else 10. */
    int filter_sharpen(tagRECT* rect, int strength);
    /* Kernel 1s around centre s, divisor s + 8; strength s in 1..40, else 10. */
    int filter_soften(tagRECT* rect, int strength);
    /* Gradient magnitude m (rounded integer square root of gx^2 + gy^2) scaled by
     * 10 / strength in 16.16 fixed point, (m * trunc(655360 / strength)) >> 16, clamped to
     * 255; strength below 1 (or NaN) counts as 1.  Neighbours come from the whole image,
     * coordinates clamped to it.  Alpha of the rectangle becomes 0; depth becomes 24. */
    int edge(tagRECT* rect, double strength);
    /* Relief lit from (azimuth, elevation), heights from the red channel of the whole image
     * (coordinates clamped to it).  param null: azimuth 30, elevation 45, depth 20, mono 1.
     * mono: grey shade; else each colour of the pixel above scaled by shade / 256.  Only the
     * low 16 bits of depth count (unsigned); refused when they are 0 or the angles are not
     * finite.  A light from below the plane (negative sine of elevation) leaves flat areas
     * at 0.  Alpha of the rectangle becomes 0; depth becomes 24. */
    int emboss(tagRECT* rect, tagKIV_EMBOSS* param);
    /* Bevelled frame n pixels wide: top and left lightened, bottom and right darkened,
     * mitred corners.  Refused when n < 0 or the rectangle is narrower or lower than 2n.
     * Alpha kept; depth becomes 24 (n = 0 changes only the depth). */
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
    /* unsharp_mask with the flags of zoom_rgba: B is blur_gauss_rgba's blur of the
     * rectangle; D = O - B of the straight colours (and of alpha under KIV_FILTER_ALPHA,
     * which is sharpened too; else alpha is kept), in linear light under KIV_FILTER_LINEAR,
     * in units of a byte; where |D| >= threshold the channel becomes O + D * amount / 100,
     * rounded and clamped.  Refused as unsharp_mask refuses, and for unknown flags. */
    int unsharp_mask_rgba(tagRECT* rect, double radius, int amount, int threshold, int flags);
    /* Local contrast: each pixel's lightness is pushed away from the mean of the
     * (2 radius + 1)^2 box around it (clipped to the rectangle) by a gain that grows where
     * the box's standard deviation is low: gain = 1 + amount / 100 * (g - 1), g = 40 /
     * (deviation + 1) limited to 1..3.  The change is added to red, green and blue
     * (clamped).  radius 1..1000 pixels, amount 0..100; anything else refused. */
    int enhance(tagRECT* rect, int radius, int amount);

    /* Motion and directional blurs.  Samples come from the whole image (coordinates
     * clamped to it); only the rectangle is written.  Each colour channel becomes the
     * rounded mean of its samples; alpha kept; depth raised to 24.  The centred ones
     * (mblur_radial, mblur_round, mblur_zoom) refuse a centre farther than
     * 4 * (width + height) + 1024 pixels outside the image on either axis. */
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
    /* Effects change the pixels inside *rect (null or empty: the whole image; clipped to
     * it) and return 1, or 0 with the image unchanged for an image without pixels, an empty
     * clipped rectangle or a refused parameter.  A palettized image is raised to 24 bits
     * (its pixels already hold the colours; its colour map is kept).  Alpha is kept.
     * Intensity below is (77 R + 150 G + 29 B) >> 8.  Randomised effects take a seed and give
     * the same bytes for the same seed on every platform and with any number of threads. */

    /* Oil paint: each pixel takes the mean colour (each channel truncated) of the pixels of
     * the (2 radius + 1)^2 square around it (clipped to the image: pixels outside the
     * rectangle are read) whose intensity falls in the square's most frequent of `levels`
     * equal intensity buckets (ties: the darker bucket).  radius 1..100 pixels, levels
     * 2..256; else refused.  A flat image stays as it is. */
    int oilpaint(tagRECT* rect, int radius, int levels);
    /* Mosaic: size x size cells laid from the clipped rectangle's top-left corner (cells at
     * its right and bottom edges are cut by it); every pixel of a cell takes the cell's mean
     * red, green and blue (truncated).  size >= 1 pixels (1 changes nothing); else refused. */
    int pixelize(tagRECT* rect, int size);
    /* Pyramid tiles: cells as pixelize, each shaded as a four-sided pyramid lit from the top
     * left.  A pixel belongs to the face of the cell edge nearest to it (ties in the order
     * top, left, right, bottom); red, green and blue are raised by depth on the top face and
     * by depth / 2 on the left face, lowered by depth / 2 on the right face and by depth on
     * the bottom face, clamped.  size >= 2 pixels, depth 0..255 (0 changes nothing); else
     * refused. */
    int pyramid(tagRECT* rect, int size, int depth);
    /* Spread (diffuse): every pixel of the rectangle, in a fixed order, swaps all four bytes
     * with a pixel picked at random from the square of +-distance pixels around it, clipped
     * to the rectangle.  The rectangle's pixels are only permuted: their colours as a
     * multiset stay the same.  distance 0..10000 (0 changes nothing); else refused. */
    int spread(tagRECT* rect, int distance, unsigned int seed);
    /* Video display look: red, green and blue of odd image rows are scaled by
     * (100 - darken) / 100 (scan lines); with stripes > 0 each column keeps one primary
     * (image column x % 3: 0 red, 1 green, 2 blue) and the other two are scaled by
     * (100 - stripes) / 100 (an aperture-grille mask).  Integer, truncated.  darken and
     * stripes 0..100 percent; else refused. */
    int video(tagRECT* rect, int darken, int stripes);
    /* Add noise (see tagKIV_NOISE) to red, green and blue, clamped to 0..255.  The value of
     * each pixel depends only on the seed and its image coordinates.  Refused: a null record,
     * amount outside 0..255, gaussian outside 0..1.  amount 0 changes nothing. */
    int noise(tagRECT* rect, tagKIV_NOISE* param);

    /* Textures.  texturize lights the texture's intensity as a height field (as emboss does)
     * and multiplies the rectangle's red, green and blue by the shade over the shade of a
     * flat surface (clamped): flat parts of the texture change nothing, slopes facing the
     * light brighten and the others darken.  The texture is tiled from the rectangle's
     * top-left corner as given (before clipping) and its slopes wrap across tile edges.
     * param null: azimuth 135, elevation 45, depth 4.  Refused: a null or empty texture, a
     * depth outside 1..1530, angles that are not finite, an elevation giving a flat shade
     * of 0.  texture may be this image. */
    int texturize(tagRECT* rect, kiv* texture, tagKIV_TEXTURE* param);
    /* texturize with the texture read from a BMP file by loadbmp (every form it reads:
     * OS/2 and V4/V5 headers, 1 to 64 bits, run-length and bit-field data, top-down).
     * 0, image unchanged, for a null path, a missing or unreadable file, or one loadbmp
     * refuses (truncated or malformed). */
    int texturize_by_file(tagRECT* rect, const char* path, tagKIV_TEXTURE* param);
#ifdef _WIN32
    /* texturize with the texture read from a bitmap resource (RT_BITMAP: a packed DIB, as a
     * BMP file without its file header) of module (null: the program's executable) by
     * attachdib_any_bytes; name is a resource name or MAKEINTRESOURCEA(id).  0, image
     * unchanged, for a null name, a missing resource or one the reader refuses (too short
     * for what its header claims). */
    int texturize_by_resource(tagRECT* rect, HMODULE module, const char* name, tagKIV_TEXTURE* param);
#endif
    /* Write the rectangle's pixels as a 24-bit BMP file at path, for texturize_by_file.  The
     * file is written under a temporary name in the same directory and then renamed, so a
     * failure never leaves a partial file under path (an existing file there is replaced
     * only on success).  0 for a null or empty path, an empty rectangle or a write failure. */
    int texture_save(tagRECT* rect, const char* path);

    /* Bump map: light the height field given by map's intensity (inverted with invert set)
     * from (azimuth, elevation) as emboss does, and multiply each pixel's red, green and
     * blue by the shade / 255.  Image pixel (x, y) takes its height from map pixel (x, y),
     * coordinates clamped to map's edges (a smaller map repeats its edge pixels); a flat
     * height field gives every pixel the flat shade sin(elevation) x 255.9 (truncated).
     * param null: azimuth 135, elevation 45, depth 4, invert 0.  Refused: a null or empty
     * map, a depth outside 1..1530, angles that are not finite.  map may be this image. */
    int bumpmap(tagRECT* rect, kiv* map, tagKIV_BUMPMAP* param);
    /* The bump-mapped rectangle blended over the original through blend mode `mode` at
     * `opacity` (0..255, clamped), as the fills and compositors blend (see "Fills and
     * gradients"): opacity 255 in mode 0 equals bumpmap; opacity 0 is refused. */
    int bumpmap_merge(tagRECT* rect, kiv* map, tagKIV_BUMPMAP* param, int mode, int opacity);

protected:
    void clearparam(); /* zero every field without releasing anything */
};

#endif /* KIV_H */
