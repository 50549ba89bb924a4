/* kivc.h - kivlib's C interface: every member of the class kiv as a C function over an
 * opaque image handle, and the operation table that describes the operations, for C hosts
 * and for languages that call C (Python ctypes, .NET P/Invoke, Delphi...).  C99, no C++
 * types; the functions live in the same DLL / shared library as the class.
 *
 * Naming.  Member m of kiv is kiv_m(kiv_image* img, ...) with the member's arguments, in
 * its order, and its result; static members take no image (kiv_make_gradtable,
 * kiv_setthreads).  Where kiv overloads a name, the tagRECT form keeps it and the
 * (x, y, w, h) form adds _xywh (kiv_solidfill / kiv_solidfill_xywh, kiv_invertrect /
 * kiv_invertrect_xywh ...); blt from a packed DIB is kiv_blt_dib.  The free functions
 * (kivCrop, kivQuantize...) keep their names (kiv_common.h).  Each member is documented in
 * kiv.h; docs/reference.md lists every operation with its arguments and ranges.
 *
 * Results.  The functions call the members unchanged, so the C route gives the same bytes as
 * the C++ route.  A null image handle is refused by every function (0, null or nothing).
 * A call that fails (0 or null, or a void function given an argument its member refuses)
 * leaves a one-line reason, naming the argument, for kiv_last_error() on the calling thread:
 * "zoom: method must be 0..13 (got 99)".
 *
 * Threads: as kiv.h: one call at a time per image; different images on different threads.
 */
#ifndef KIVC_H
#define KIVC_H

#include "kiv_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An image: the same object as a C++ kiv (a C++ host may cast a kiv* to kiv_image*). */
typedef struct kiv_image kiv_image;

/* ---- Images -------------------------------------------------------------------------- */
/* A new image: kiv_image_new(0, 0, 0) gives an empty one (for kiv_attachdib and the
 * like); other sizes go through kiv_create, and what it refuses gives null. */
KIV_API kiv_image* kiv_image_new(int width, int height, int bits);
/* A deep copy (pixels, map, depth; not the progress callback); null when img is null or
 * memory runs out.  The copy of an empty image is an empty image. */
KIV_API kiv_image* kiv_image_copy(kiv_image* img);
KIV_API void kiv_image_free(kiv_image* img); /* null is ignored */
/* The progress callback (kiv::m_progressproc; null: none) and whether the pixels live in a
 * mapped temporary file. */
KIV_API void kiv_image_set_progress(kiv_image* img, kivProgressProc proc);
/* Progress with cancellation (kiv::set_progress): fn(user, done, total) on the calling
 * thread; a nonzero result stops the call, which fails and leaves the image as it was. */
KIV_API void kiv_set_progress(kiv_image* img, kivProgressFn fn, void* user);
KIV_API int kiv_image_mapped(kiv_image* img);

/* The reason for the calling thread's last failed call.  Each operation (a function of the
 * table below, and kiv_image_new) clears it when it starts; the accessors and pixel copies
 * leave it alone unless they fail.  Valid until the thread's next call into the library. */
KIV_API const char* kiv_last_error(void);

/* ---- Lifecycle and accessors --------------------------------------------------------- */
KIV_API int kiv_create(kiv_image* img, int width, int height, int bits);
KIV_API int kiv_create_width_mapfile(kiv_image* img, int width, int height, int bits);
KIV_API void kiv_destroy(kiv_image* img);
KIV_API int kiv_copyto(kiv_image* img, kiv_image* dst);
KIV_API int kiv_copyfrom(kiv_image* img, kiv_image* src);
KIV_API int kiv_movefrom(kiv_image* img, kiv_image* src);
KIV_API int kiv_width(kiv_image* img);
KIV_API int kiv_height(kiv_image* img);
KIV_API int kiv_bits(kiv_image* img);
KIV_API int kiv_colors(kiv_image* img);
KIV_API int kiv_packets(kiv_image* img);
KIV_API tagRGBA* kiv_map(kiv_image* img);    /* colors() entries, or null */
KIV_API tagRGBA* kiv_pixels(kiv_image* img); /* width x height, row-major, top row first */
KIV_API tagRGBA* kiv_pos(kiv_image* img, int x, int y);
KIV_API int kiv_validaterect(kiv_image* img, tagRECT* in, tagRECT* out);

/* ---- Pixel access -------------------------------------------------------------------- */
KIV_API void kiv_getcol(kiv_image* img, tagRGBA* buf, int x, int y, int n);
KIV_API void kiv_setcol(kiv_image* img, tagRGBA* buf, int x, int y, int n);
KIV_API void kiv_getcol_rgb(kiv_image* img, unsigned char* buf, int x, int y, int n);
KIV_API void kiv_setcol_rgb(kiv_image* img, unsigned char* buf, int x, int y, int n);
KIV_API void kiv_getrow(kiv_image* img, tagRGBA* buf, int x, int y, int n);
KIV_API void kiv_setrow(kiv_image* img, tagRGBA* buf, int x, int y, int n);
KIV_API void kiv_getrow_rgb(kiv_image* img, unsigned char* buf, int x, int y, int n);
KIV_API void kiv_setrow_rgb(kiv_image* img, unsigned char* buf, int x, int y, int n);
KIV_API void kiv_getpacket(kiv_image* img, tagRGBA* buf, int x, int y, int w, int h);
KIV_API void kiv_setpacket(kiv_image* img, tagRGBA* buf, int x, int y, int w, int h);
KIV_API void kiv_getplane(kiv_image* img, unsigned char* buf, int x, int y, int w, int h, int plane);
KIV_API void kiv_setplane(kiv_image* img, unsigned char* buf, int x, int y, int w, int h, int plane);
KIV_API void kiv_copyplane(kiv_image* img, int src, int dst);

/* ---- Threads and progress ------------------------------------------------------------ */
KIV_API void kiv_setthreads(int n);
KIV_API int kiv_getthreads(void);
KIV_API void kiv_progress_init(kiv_image* img, int steps);
KIV_API void kiv_progress_continue(kiv_image* img);
KIV_API void kiv_progress_term(kiv_image* img);
KIV_API void kiv_progress_reset(kiv_image* img);

/* ---- Block transfer, colour map, palettes, DIBs -------------------------------------- */
KIV_API void kiv_blt(kiv_image* img, int x, int y, int w, int h, kiv_image* src, int sx, int sy);
KIV_API void kiv_blt_dib(kiv_image* img, int x, int y, int w, int h, void* dib, int sx, int sy);
KIV_API void kiv_alloccmap(kiv_image* img, int n);
KIV_API void kiv_increasecolor(kiv_image* img, int n);
KIV_API tagLOGPALETTE* kiv_createlogpalette(kiv_image* img); /* free with kiv_free_gradtable */
KIV_API void kiv_validate_rgb(kiv_image* img);
KIV_API void kiv_grayscale(kiv_image* img);
KIV_API unsigned long kiv_countcolors(kiv_image* img);
KIV_API int kiv_convert_colorspace(kiv_image* img, tagRECT* rect, int colorspace);
KIV_API int kiv_convert_rgb(kiv_image* img, tagRECT* rect, int colorspace);
KIV_API int kiv_attachdib(kiv_image* img, void* dib);
KIV_API int kiv_attachdib_width_mapfile(kiv_image* img, void* dib);
KIV_API int kiv_attachdib32(kiv_image* img, int width, int height, void* src);
KIV_API void* kiv_createdib(kiv_image* img); /* free with GlobalFree */
/* The full reader and the alpha writer.  reason (may be null) receives null on success,
 * else the text kiv_last_error() gives ("loadbmp: not a BMP file"), valid as long as it. */
KIV_API int kiv_attachdib_any(kiv_image* img, void* dib, const char** reason);
KIV_API int kiv_attachdib_any_bytes(kiv_image* img, const void* data, size_t size, const char** reason);
KIV_API int kiv_loadbmp(kiv_image* img, const char* path, const char** reason);
KIV_API int kiv_loadbmp_bytes(kiv_image* img, const void* data, size_t size, const char** reason);
KIV_API void* kiv_createdib_alpha(kiv_image* img, int premultiplied); /* free with GlobalFree */
KIV_API int kiv_savebmp_alpha(kiv_image* img, const char* path, int premultiplied, const char** reason);
#ifdef _WIN32
KIV_API HPALETTE kiv_createpalette(kiv_image* img);
KIV_API int kiv_replace_palette(kiv_image* img, HPALETTE palette);
KIV_API int kiv_attachbitmap(kiv_image* img, HBITMAP bitmap, HPALETTE palette);
KIV_API HBITMAP kiv_createbitmap(kiv_image* img, HPALETTE* palette);
#endif

/* ---- Quantization -------------------------------------------------------------------- */
KIV_API void kiv_quantize(kiv_image* img, int mode, int colors, tagLOGPALETTE* pal);
KIV_API void kiv_quantize_wpal(kiv_image* img, int mode, const tagSYSCOL* cols, int n);
KIV_API int kiv_quantize_wdp(kiv_image* img, int mode, int which);

/* ---- Fills and gradients ------------------------------------------------------------- */
KIV_API int kiv_solidfill(kiv_image* img, tagRECT* r, COLORREF color, int op, int mode);
KIV_API int kiv_solidfill_xywh(kiv_image* img, int x, int y, int w, int h, COLORREF color, int op, int mode);
KIV_API int kiv_fillsolidrect(kiv_image* img, tagRECT* r, COLORREF color, int op);
KIV_API int kiv_fillsolidrect_xywh(kiv_image* img, int x, int y, int w, int h, COLORREF color, int op);
KIV_API int kiv_shadefill(kiv_image* img, tagRECT* r, COLORREF* colors, int n, int dir, int op, int mode);
KIV_API int kiv_shadefill_xywh(kiv_image* img, int x, int y, int w, int h, COLORREF* colors, int n, int dir, int op, int mode);
KIV_API int kiv_fillshaderect(kiv_image* img, tagRECT* r, COLORREF* colors, int n, int dir, int op);
KIV_API int kiv_fillshaderect_xywh(kiv_image* img, int x, int y, int w, int h, COLORREF* colors, int n, int dir, int op);
KIV_API int kiv_gradientfill(kiv_image* img, tagRECT* r, tagGRADCOLORS* stops, int n, int dir, int op, int mode);
KIV_API int kiv_gradientfill_xywh(kiv_image* img, int x, int y, int w, int h, tagGRADCOLORS* stops, int n, int dir, int op, int mode);
KIV_API int kiv_fillgradientrect(kiv_image* img, tagRECT* r, tagGRADCOLORS* stops, int n, int dir, int op);
KIV_API int kiv_fillgradientrect_xywh(kiv_image* img, int x, int y, int w, int h, tagGRADCOLORS* stops, int n, int dir, int op);
KIV_API tagLOGPALETTE* kiv_make_gradtable(tagGRADCOLORS* stops, int n, int size);
KIV_API void kiv_free_gradtable(tagLOGPALETTE* t);
KIV_API int kiv_settoalpha(kiv_image* img);
KIV_API int kiv_addborder(kiv_image* img, int left, int right, int top, int bottom, COLORREF color);

/* ---- Geometry and compositing -------------------------------------------------------- */
KIV_API int kiv_crop(kiv_image* img, tagRECT* rect);
KIV_API int kiv_zoom(kiv_image* img, int w, int h, int method, int mapped);
KIV_API int kiv_zoom_pixel(kiv_image* img, int w, int h);
KIV_API int kiv_zoom_near(kiv_image* img, int w, int h);
KIV_API int kiv_zoom_linear(kiv_image* img, int w, int h);
KIV_API int kiv_zoom_inframe(kiv_image* img, int w, int h);
KIV_API void kiv_rotate(kiv_image* img, int dir);
KIV_API int kiv_rotate180(kiv_image* img, int x, int y, int w, int h);
KIV_API int kiv_mirror(kiv_image* img, int x, int y, int w, int h);
KIV_API int kiv_flip(kiv_image* img, int x, int y, int w, int h);
KIV_API int kiv_scroll(kiv_image* img, int dx, int dy, int wrap);
KIV_API int kiv_tile(kiv_image* img, tagRECT* rect, int nx, int ny);
KIV_API int kiv_tile_divide(kiv_image* img, tagRECT* rect, int n);
KIV_API int kiv_rotate_any(kiv_image* img, double degrees, COLORREF background, int method);
KIV_API int kiv_zoom_rgba(kiv_image* img, int w, int h, int method, int flags);
KIV_API int kiv_rotate_any_rgba(kiv_image* img, double degrees, int method, int flags);
KIV_API int kiv_addlayer(kiv_image* img, kiv_image* layer, int x, int y, int opacity, int mode, int usealpha);
KIV_API int kiv_merge(kiv_image* img, kiv_image* src, tagRECT* srcrect, int x, int y, int opacity);
KIV_API int kiv_fadepaste(kiv_image* img, kiv_image* src, int x, int y, int op0, int op1, int dir);
KIV_API int kiv_fadeinrect(kiv_image* img, tagRECT* rect, COLORREF color, int op0, int op1, int dir);
KIV_API int kiv_texturefill(kiv_image* img, tagRECT* rect, kiv_image* texture, int opacity, int mode);

/* ---- Point and histogram adjustments ------------------------------------------------- */
KIV_API int kiv_bright_contrast(kiv_image* img, tagRECT* rect, int brightness, int contrast);
KIV_API int kiv_gamma_rgb(kiv_image* img, tagRECT* rect, double red, double green, double blue, double master);
KIV_API int kiv_gamma(kiv_image* img, tagRECT* rect, double g);
KIV_API int kiv_adjust_rgb(kiv_image* img, tagRECT* rect, int red, int green, int blue);
KIV_API int kiv_modulate(kiv_image* img, tagRECT* rect, int hue, int saturation, int lightness);
KIV_API int kiv_hue_saturation(kiv_image* img, tagRECT* rect, int range, int hue, int saturation, int lightness);
KIV_API void kiv_negative(kiv_image* img, tagRECT* rect);
KIV_API void kiv_invertrect(kiv_image* img, tagRECT* rect);
KIV_API void kiv_invertrect_xywh(kiv_image* img, int x, int y, int w, int h);
KIV_API int kiv_desaturate(kiv_image* img, tagRECT* rect);
KIV_API int kiv_posterize(kiv_image* img, tagRECT* rect, int levels);
KIV_API int kiv_colorify(kiv_image* img, tagRECT* rect, COLORREF color);
KIV_API int kiv_colorbalance(kiv_image* img, tagRECT* rect, tagKIV_COLORBALANCE* cb);
KIV_API int kiv_colorcut(kiv_image* img, tagRECT* rect, tagKIV_COLORCUT* cc);
KIV_API int kiv_autocontrast(kiv_image* img, tagRECT* rect);
KIV_API int kiv_equalize(kiv_image* img, tagRECT* rect);
KIV_API int kiv_normalize(kiv_image* img, tagRECT* rect);
KIV_API int kiv_autocolorenhance(kiv_image* img, tagRECT* rect);

/* ---- Blurs, kernels, sharpening, motion blurs ---------------------------------------- */
KIV_API int kiv_sharpen(kiv_image* img, tagRECT* rect);
KIV_API int kiv_blur(kiv_image* img, tagRECT* rect, int dx, int dy);
KIV_API int kiv_blur_simple(kiv_image* img, tagRECT* rect, int r);
KIV_API int kiv_blur_gauss_iir(kiv_image* img, tagRECT* rect, double sx, double sy);
KIV_API int kiv_blur_gauss_rle_plane(kiv_image* img, tagRECT* rect, double sigma, unsigned planes);
KIV_API int kiv_blur_gauss_rle(kiv_image* img, tagRECT* rect, double sigma);
KIV_API int kiv_blur_gauss_rgba(kiv_image* img, tagRECT* rect, double sx, double sy, int flags);
KIV_API int kiv_blur_gauss_sel(kiv_image* img, tagRECT* rect, double radius, int threshold);
KIV_API int kiv_filter_3x3(kiv_image* img, tagRECT* rect, unsigned mode);
KIV_API int kiv_filter_custom3x3(kiv_image* img, tagRECT* rect, int* kernel, int divisor);
KIV_API int kiv_filter_sharpen(kiv_image* img, tagRECT* rect, int strength);
KIV_API int kiv_filter_soften(kiv_image* img, tagRECT* rect, int strength);
KIV_API int kiv_edge(kiv_image* img, tagRECT* rect, double strength);
KIV_API int kiv_emboss(kiv_image* img, tagRECT* rect, tagKIV_EMBOSS* param);
KIV_API int kiv_raise_edge(kiv_image* img, tagRECT* rect, int n);
KIV_API int kiv_sharpen2(kiv_image* img, tagRECT* rect, int strength);
KIV_API int kiv_unsharp_mask(kiv_image* img, tagRECT* rect, double radius, int amount, int threshold);
KIV_API int kiv_unsharp_mask2(kiv_image* img, tagRECT* rect, double radius, int amount, int threshold);
KIV_API int kiv_unsharp_mask_rgba(kiv_image* img, tagRECT* rect, double radius, int amount, int threshold, int flags);
KIV_API int kiv_enhance(kiv_image* img, tagRECT* rect, int radius, int amount);
KIV_API int kiv_mblur_linear(kiv_image* img, tagRECT* rect, double angle, int distance);
KIV_API int kiv_mblur_radial(kiv_image* img, tagRECT* rect, int cx, int cy, double angle);
KIV_API int kiv_mblur_round(kiv_image* img, tagRECT* rect, int cx, int cy, int amount);
KIV_API int kiv_mblur_zoom(kiv_image* img, tagRECT* rect, int cx, int cy, int amount);
KIV_API int kiv_sblur_wind(kiv_image* img, tagRECT* rect, int direction, int strength);
KIV_API int kiv_sblur_blast(kiv_image* img, tagRECT* rect, int direction, int strength);

/* ---- Effects ------------------------------------------------------------------------- */
KIV_API int kiv_oilpaint(kiv_image* img, tagRECT* rect, int radius, int levels);
KIV_API int kiv_pixelize(kiv_image* img, tagRECT* rect, int size);
KIV_API int kiv_pyramid(kiv_image* img, tagRECT* rect, int size, int depth);
KIV_API int kiv_spread(kiv_image* img, tagRECT* rect, int distance, unsigned int seed);
KIV_API int kiv_video(kiv_image* img, tagRECT* rect, int darken, int stripes);
KIV_API int kiv_noise(kiv_image* img, tagRECT* rect, tagKIV_NOISE* param);
KIV_API int kiv_texturize(kiv_image* img, tagRECT* rect, kiv_image* texture, tagKIV_TEXTURE* param);
KIV_API int kiv_texturize_by_file(kiv_image* img, tagRECT* rect, const char* path, tagKIV_TEXTURE* param);
#ifdef _WIN32
KIV_API int kiv_texturize_by_resource(kiv_image* img, tagRECT* rect, HMODULE module, const char* name, tagKIV_TEXTURE* param);
#endif
KIV_API int kiv_texture_save(kiv_image* img, tagRECT* rect, const char* path);
KIV_API int kiv_bumpmap(kiv_image* img, tagRECT* rect, kiv_image* map, tagKIV_BUMPMAP* param);
KIV_API int kiv_bumpmap_merge(kiv_image* img, tagRECT* rect, kiv_image* map, tagKIV_BUMPMAP* param, int mode, int opacity);

/* ---- The operation table -------------------------------------------------------------
 * One row per operation: the members above that work on an image's pixels or colour map
 * (everything but the accessors, the pixel copies to and from caller buffers, the progress
 * hooks and thread cap, and the Windows GDI forms), kiv_make_gradtable and
 * kiv_free_gradtable, and the six free functions.  Row names are the C names without
 * "kiv_" (the free functions: their own names).  Parameter records are flattened: each
 * field is one argument (flag KIV_ARG_FIELD), named as in the record (array fields by their
 * meaning: red_shadows ...).  Array arguments carry their element count, which the member
 * takes as the argument after the pointer (filter_custom3x3's kernel has none: it must hold 9;
 * attachdib32's src counts bytes).  The table is read-only and the same on every platform. */

/* Argument and result types, and the kiv_value field each uses. */
enum {
    KIV_T_VOID = 0,     /* result only: nothing */
    KIV_T_INT = 1,      /* int, in i */
    KIV_T_UINT = 2,     /* unsigned int, in i */
    KIV_T_REAL = 3,     /* double, in d */
    KIV_T_BOOL = 4,     /* int, in i: 0 no, nonzero yes */
    KIV_T_CHOICE = 5,   /* int, in i: one of the named choices */
    KIV_T_COLOR = 6,    /* COLORREF (red in the low byte), in i */
    KIV_T_RECT = 7,     /* tagRECT*, in p (null: the whole image) */
    KIV_T_IMAGE = 8,    /* kiv_image*, in p */
    KIV_T_STRING = 9,   /* const char* (a file path), in p */
    KIV_T_COLORS = 10,  /* COLORREF[n], in p and n */
    KIV_T_STOPS = 11,   /* tagGRADCOLORS[n], in p and n */
    KIV_T_SYSCOLS = 12, /* tagSYSCOL[n], in p and n */
    KIV_T_INTS = 13,    /* int[n], in p and n */
    KIV_T_BYTES = 14,   /* unsigned char[n], in p and n */
    KIV_T_DIB = 15,     /* a packed DIB in movable global memory (HGLOBAL), in p */
    KIV_T_PALETTE = 16, /* tagLOGPALETTE*, in p */
    KIV_T_ULONG = 17,   /* result only: unsigned long, in i */
    KIV_T_DEFAULT = 18  /* an argument value: use the argument's default (KIV_ARG_DEFAULT) */
};

/* kiv_argdesc.flags */
enum {
    KIV_ARG_LO = 1,        /* lo bounds the value (arrays: the element count) from below */
    KIV_ARG_HI = 2,        /* hi bounds it from above */
    KIV_ARG_LO_OPEN = 4,   /* lo itself is outside (value > lo) */
    KIV_ARG_HI_OPEN = 8,   /* hi itself is outside (value < hi) */
    KIV_ARG_FINITE = 16,   /* NaN and infinities are refused */
    KIV_ARG_DEFAULT = 32,  /* def is the default (pointers: 0 = null) */
    KIV_ARG_NULL = 64,     /* a null pointer is accepted (its meaning is in help) */
    KIV_ARG_FIELD = 128,   /* a field of the row's parameter record */
    KIV_ARG_IF_NULL = 256  /* the range applies only when the next argument is null;
                              otherwise the argument is ignored */
};

/* What the member does with a value outside the range (kiv_argdesc.below / .above, and
 * kiv_arg_outcome). */
enum {
    KIV_OUT_NONE = 0,      /* inside the range */
    KIV_OUT_REFUSED = 1,   /* refused: 0 or null, image unchanged */
    KIV_OUT_DEPTH = 2,     /* refused, but a palettized image is first raised to 24 bits
                              (pixels unchanged) */
    KIV_OUT_EMPTIED = 3,   /* refused, and the image is left empty */
    KIV_OUT_CLAMPED = 4,   /* taken as the nearest bound (below_value / above_value) */
    KIV_OUT_REPLACED = 5,  /* taken as below_value / above_value */
    KIV_OUT_UNCHANGED = 6  /* accepted: the image stays as it is (the result is success) */
};

/* kiv_opdesc.flags */
enum {
    KIV_OP_STATIC = 1,      /* takes no image (pass null to kiv_op_call) */
    KIV_OP_FREE = 2,        /* a free function: its C name is the row name */
    KIV_OP_NULL_RECORD = 4  /* a null record pointer means every field at its default */
};

typedef struct kiv_choice {
    int value;
    const char* name; /* an identifier: "lanczos3", "multiply" */
} kiv_choice;

typedef struct kiv_argdesc {
    const char* name;   /* lower case, as in kiv.h: "method" */
    const char* unit;   /* "pixels", "degrees", "percent"...; "" when none */
    const char* help;   /* one line */
    const char* range;  /* the range as text: "0..13", ">= 1", "> 0 and finite"; "" if any */
    const kiv_choice* choices; /* KIV_T_CHOICE: the named values, ascending; else null */
    int nchoices;
    int type;           /* KIV_T_* */
    int flags;          /* KIV_ARG_* */
    int below, above;   /* KIV_OUT_* for a value below lo, above hi (choices: not listed) */
    double lo, hi;      /* the bounds the flags name */
    double below_value, above_value; /* the value taken instead (CLAMPED, REPLACED) */
    double def;         /* the default, with KIV_ARG_DEFAULT */
} kiv_argdesc;

typedef struct kiv_opdesc {
    const char* name;    /* "zoom": the C function kiv_zoom (KIV_OP_FREE: the name itself) */
    const char* family;  /* "geometry", "filter"... */
    const char* summary; /* one line */
    const char* refuses; /* what else makes it fail (image-dependent); "" if nothing */
    const char* record;  /* the record flattened into KIV_ARG_FIELD arguments, or "" */
    const kiv_argdesc* args;
    int nargs;
    int result;          /* KIV_T_VOID, _INT (1 success, 0 failure), _ULONG, _DIB, _PALETTE */
    int flags;           /* KIV_OP_* */
} kiv_opdesc;

/* One argument or result of kiv_op_call.  Set type to the argument's KIV_T_* (or
 * KIV_T_DEFAULT) and the field that type uses. */
typedef struct kiv_value {
    int type;
    int n;         /* element count of an array */
    long long i;
    double d;
    const void* p;
} kiv_value;

KIV_API int kiv_op_count(void);
KIV_API const kiv_opdesc* kiv_op_info(int op); /* null outside 0 .. kiv_op_count() - 1 */
KIV_API int kiv_op_find(const char* name);     /* the row of that name, or -1 */
/* Where value lies for arg: KIV_OUT_NONE inside the range, else the KIV_OUT_* of the side
 * it falls on.  Values the argument's C type cannot hold, a null pointer without
 * KIV_ARG_NULL, and an array whose p is null though n > 0 give KIV_OUT_REFUSED. */
KIV_API int kiv_arg_outcome(const kiv_argdesc* arg, const kiv_value* value);
/* Call row op on img (null for KIV_OP_STATIC and KIV_OP_FREE rows) with nargs arguments.
 * The member is called as the C function would call it: 1 when it succeeded (an int result
 * other than 0, a non-null pointer; a void member given no argument it refuses), else 0
 * with the reason in kiv_last_error().  Refused before the member is called: a wrong
 * number of arguments or type, a value the C type cannot hold, an array count outside its
 * range, a null image.  result (may be null) receives the member's result, typed as
 * kiv_opdesc.result. */
KIV_API int kiv_op_call(kiv_image* img, int op, const kiv_value* args, int nargs, kiv_value* result);

#ifdef __cplusplus
}
#endif

#endif /* KIVC_H */
