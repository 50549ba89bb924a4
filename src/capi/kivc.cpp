// The C interface: each function of kivc.h calls its member unchanged.  Operations go
// through their row of the operation table (the same call kiv_op_call makes), which adds
// the reasons; the members that give their own reason pass it on; the others check only
// for a null image.
#include <new>
#include <type_traits>

#include "core/optable.h"

namespace {

kiv* K(kiv_image* img) { return reinterpret_cast<kiv*>(img); }

// A value whose type the table stamps in (see kivops::call).
template <class T>
kiv_value V(T x) {
    kiv_value v{};
    if constexpr (std::is_floating_point_v<T>)
        v.d = x;
    else if constexpr (std::is_pointer_v<T>)
        v.p = x;
    else
        v.i = static_cast<long long>(x);
    return v;
}
kiv_value Arr(const void* p, int n) {
    kiv_value v{};
    v.p = p;
    v.n = n;
    return v;
}
// A record field, or the field's default when the record is null.
#define F(rec, field) ((rec) ? V((rec)->field) : kiv_value{KIV_T_DEFAULT, 0, 0, 0.0, nullptr})

kiv_value run(kiv_image* img, int op, std::initializer_list<kiv_value> args) {
    kiv_value r{};
    kivops::call(img, op, args.begin(), static_cast<int>(args.size()), &r, true);
    return r;
}
template <class R>
R as(const kiv_value& r) {
    if constexpr (std::is_void_v<R>)
        return;
    else if constexpr (std::is_pointer_v<R>)
        return static_cast<R>(const_cast<void*>(r.p));
    else
        return static_cast<R>(r.i);
}

// Null-image check for the functions outside the table (which leave an earlier reason alone).
kiv* need(kiv_image* img, const char* name) {
    if (!img) kivops::set_error("%s: the image is null", name);
    return K(img);
}

// The members that say why they refuse, called with a pointer of the function's own (their
// rows take byte counts below 2^31 only): the reason goes to kiv_last_error and *reason.
template <class Call>
int reasoned(kiv_image* img, const char* name, const char** reason, Call call) {
    kivops::clear_error();
    const char* why = nullptr;
    kiv* m = need(img, name);
    const int ok = m ? call(m, &why) : 0;
    if (m && !ok) kivops::set_error("%s: %s", name, why ? why : "refused");
    if (reason) *reason = ok ? nullptr : kiv_last_error();
    return ok;
}

}  // namespace

// One function of the table: kiv_NAME(PARAMS) calls row NAME with the listed values.
#define OP(R, NAME, PARAMS, ...)                                   \
    extern "C" KIV_API R kiv_##NAME PARAMS {                       \
        static const int row = kivops::find(#NAME);                \
        return as<R>(run(img, row, {__VA_ARGS__}));                \
    }
#define STATIC_OP(R, NAME, PARAMS, ...)                            \
    extern "C" KIV_API R kiv_##NAME PARAMS {                       \
        static const int row = kivops::find(#NAME);                \
        return as<R>(run(nullptr, row, {__VA_ARGS__}));            \
    }
// A function outside the table: the member's result, DEFAULT for a null image.
#define MEMBER(R, NAME, PARAMS, DEFAULT, CALL)                     \
    extern "C" KIV_API R kiv_##NAME PARAMS {                       \
        kiv* m = need(img, #NAME);                                 \
        if (!m) return DEFAULT;                                    \
        return CALL;                                               \
    }
#define NOTHING

extern "C" {

KIV_API kiv_image* kiv_image_new(int width, int height, int bits) {
    kivops::clear_error();
    kiv* m = new (std::nothrow) kiv();
    if (!m) {
        kivops::set_error("image_new: out of memory");
        return nullptr;
    }
    kiv_image* img = reinterpret_cast<kiv_image*>(m);
    if ((width || height || bits) && !kiv_create(img, width, height, bits)) {
        delete m;
        return nullptr;
    }
    return img;
}

KIV_API kiv_image* kiv_image_copy(kiv_image* img) {
    kiv* src = need(img, "image_copy");
    kiv* m = src ? new (std::nothrow) kiv() : nullptr;
    if (!m) return nullptr;
    if (src->m_pixels && !m->copyfrom(src)) {
        kivops::set_error("image_copy: out of memory");
        delete m;
        return nullptr;
    }
    return reinterpret_cast<kiv_image*>(m);
}

KIV_API void kiv_image_free(kiv_image* img) { delete K(img); }

KIV_API void kiv_image_set_progress(kiv_image* img, kivProgressProc proc) {
    if (kiv* m = need(img, "image_set_progress")) m->m_progressproc = proc;
}

KIV_API int kiv_image_mapped(kiv_image* img) {
    kiv* m = need(img, "image_mapped");
    return m && m->m_mapstore ? 1 : 0;
}

KIV_API void kiv_setthreads(int n) { kiv::setthreads(n); }
KIV_API int kiv_getthreads(void) { return kiv::getthreads(); }

}  // extern "C"

// ---- Outside the table: accessors, pixel copies, progress, GDI ------------------------
MEMBER(int, width, (kiv_image* img), 0, m->width())
MEMBER(int, height, (kiv_image* img), 0, m->height())
MEMBER(int, bits, (kiv_image* img), 0, m->bits())
MEMBER(int, colors, (kiv_image* img), 0, m->colors())
MEMBER(int, packets, (kiv_image* img), 0, m->packets())
MEMBER(tagRGBA*, map, (kiv_image* img), nullptr, m->map())
MEMBER(tagRGBA*, pixels, (kiv_image* img), nullptr, m->pixels())
MEMBER(tagRGBA*, pos, (kiv_image* img, int x, int y), nullptr, m->pos(x, y))
MEMBER(int, validaterect, (kiv_image* img, tagRECT* in, tagRECT* out), 0, m->validaterect(in, out))
MEMBER(void, getcol, (kiv_image* img, tagRGBA* buf, int x, int y, int n), NOTHING, m->getcol(buf, x, y, n))
MEMBER(void, setcol, (kiv_image* img, tagRGBA* buf, int x, int y, int n), NOTHING, m->setcol(buf, x, y, n))
MEMBER(void, getcol_rgb, (kiv_image* img, unsigned char* buf, int x, int y, int n), NOTHING, m->getcol_rgb(buf, x, y, n))
MEMBER(void, setcol_rgb, (kiv_image* img, unsigned char* buf, int x, int y, int n), NOTHING, m->setcol_rgb(buf, x, y, n))
MEMBER(void, getrow, (kiv_image* img, tagRGBA* buf, int x, int y, int n), NOTHING, m->getrow(buf, x, y, n))
MEMBER(void, setrow, (kiv_image* img, tagRGBA* buf, int x, int y, int n), NOTHING, m->setrow(buf, x, y, n))
MEMBER(void, getrow_rgb, (kiv_image* img, unsigned char* buf, int x, int y, int n), NOTHING, m->getrow_rgb(buf, x, y, n))
MEMBER(void, setrow_rgb, (kiv_image* img, unsigned char* buf, int x, int y, int n), NOTHING, m->setrow_rgb(buf, x, y, n))
MEMBER(void, getpacket, (kiv_image* img, tagRGBA* buf, int x, int y, int w, int h), NOTHING, m->getpacket(buf, x, y, w, h))
MEMBER(void, setpacket, (kiv_image* img, tagRGBA* buf, int x, int y, int w, int h), NOTHING, m->setpacket(buf, x, y, w, h))
MEMBER(void, getplane, (kiv_image* img, unsigned char* buf, int x, int y, int w, int h, int plane), NOTHING,
       m->getplane(buf, x, y, w, h, plane))
MEMBER(void, setplane, (kiv_image* img, unsigned char* buf, int x, int y, int w, int h, int plane), NOTHING,
       m->setplane(buf, x, y, w, h, plane))
MEMBER(void, progress_init, (kiv_image* img, int steps), NOTHING, m->progress_init(steps))
MEMBER(void, progress_continue, (kiv_image* img), NOTHING, m->progress_continue())
MEMBER(void, progress_term, (kiv_image* img), NOTHING, m->progress_term())
MEMBER(void, progress_reset, (kiv_image* img), NOTHING, m->progress_reset())
MEMBER(void, set_progress, (kiv_image* img, kivProgressFn fn, void* user), NOTHING, m->set_progress(fn, user))
#ifdef _WIN32
MEMBER(HPALETTE, createpalette, (kiv_image* img), nullptr, m->createpalette())
MEMBER(int, replace_palette, (kiv_image* img, HPALETTE palette), 0, m->replace_palette(palette))
MEMBER(int, attachbitmap, (kiv_image* img, HBITMAP bitmap, HPALETTE palette), 0, m->attachbitmap(bitmap, palette))
MEMBER(HBITMAP, createbitmap, (kiv_image* img, HPALETTE* palette), nullptr, m->createbitmap(palette))
MEMBER(int, texturize_by_resource, (kiv_image* img, tagRECT* rect, HMODULE module, const char* name, tagKIV_TEXTURE* param),
       0, m->texturize_by_resource(rect, module, name, param))
#endif

// A buffer whose size only the caller knows: the member trusts width x height x 4 bytes.
extern "C" KIV_API int kiv_attachdib32(kiv_image* img, int width, int height, void* src) {
    static const int op = kivops::find("attachdib32");
    const long long bytes = static_cast<long long>(width) * height * 4;
    return as<int>(run(img, op, {V(width), V(height), Arr(src, bytes > 0x7fffffff ? 0x7fffffff : static_cast<int>(bytes))}));
}

// ---- Image, palette, interchange ----------------------------------------------------------
OP(int, create, (kiv_image* img, int width, int height, int bits), V(width), V(height), V(bits))
OP(int, create_width_mapfile, (kiv_image* img, int width, int height, int bits), V(width), V(height), V(bits))
OP(void, destroy, (kiv_image* img))
OP(int, copyto, (kiv_image* img, kiv_image* dst), V(dst))
OP(int, copyfrom, (kiv_image* img, kiv_image* src), V(src))
OP(int, movefrom, (kiv_image* img, kiv_image* src), V(src))
OP(void, copyplane, (kiv_image* img, int src, int dst), V(src), V(dst))
OP(void, alloccmap, (kiv_image* img, int n), V(n))
OP(void, increasecolor, (kiv_image* img, int n), V(n))
OP(tagLOGPALETTE*, createlogpalette, (kiv_image* img))
OP(void, validate_rgb, (kiv_image* img))
OP(void, grayscale, (kiv_image* img))
OP(unsigned long, countcolors, (kiv_image* img))
OP(int, convert_colorspace, (kiv_image* img, tagRECT* rect, int colorspace), V(rect), V(colorspace))
OP(int, convert_rgb, (kiv_image* img, tagRECT* rect, int colorspace), V(rect), V(colorspace))
OP(int, attachdib, (kiv_image* img, void* dib), V(dib))
OP(int, attachdib_width_mapfile, (kiv_image* img, void* dib), V(dib))
OP(void*, createdib, (kiv_image* img))
OP(void*, createdib_alpha, (kiv_image* img, int premultiplied), V(premultiplied))
#define REASONED(NAME, PARAMS, ...)                                                              \
    extern "C" KIV_API int kiv_##NAME PARAMS {                                                   \
        return reasoned(img, #NAME, reason, [&](kiv* m, const char** why) { return __VA_ARGS__; }); \
    }
REASONED(attachdib_any, (kiv_image* img, void* dib, const char** reason), m->attachdib_any(dib, why))
REASONED(attachdib_any_bytes, (kiv_image* img, const void* data, size_t size, const char** reason),
         m->attachdib_any_bytes(data, size, why))
REASONED(loadbmp, (kiv_image* img, const char* path, const char** reason), m->loadbmp(path, why))
REASONED(loadbmp_bytes, (kiv_image* img, const void* data, size_t size, const char** reason), m->loadbmp_bytes(data, size, why))
REASONED(savebmp_alpha, (kiv_image* img, const char* path, int premultiplied, const char** reason),
         m->savebmp_alpha(path, premultiplied, why))
OP(void, blt_dib, (kiv_image* img, int x, int y, int w, int h, void* dib, int sx, int sy), V(x), V(y), V(w), V(h), V(dib), V(sx), V(sy))

// ---- Quantization ---------------------------------------------------------------------------
OP(void, quantize, (kiv_image* img, int mode, int colors, tagLOGPALETTE* pal), V(mode), V(colors), V(pal))
OP(void, quantize_wpal, (kiv_image* img, int mode, const tagSYSCOL* cols, int n), V(mode), Arr(cols, n))
OP(int, quantize_wdp, (kiv_image* img, int mode, int which), V(mode), V(which))

// ---- Fills and gradients --------------------------------------------------------------------
#define XYWH V(x), V(y), V(w), V(h)
OP(int, solidfill, (kiv_image* img, tagRECT* r, COLORREF color, int op, int mode), V(r), V(color), V(op), V(mode))
OP(int, solidfill_xywh, (kiv_image* img, int x, int y, int w, int h, COLORREF color, int op, int mode), XYWH, V(color), V(op), V(mode))
OP(int, fillsolidrect, (kiv_image* img, tagRECT* r, COLORREF color, int op), V(r), V(color), V(op))
OP(int, fillsolidrect_xywh, (kiv_image* img, int x, int y, int w, int h, COLORREF color, int op), XYWH, V(color), V(op))
OP(int, shadefill, (kiv_image* img, tagRECT* r, COLORREF* colors, int n, int dir, int op, int mode), V(r), Arr(colors, n), V(dir),
   V(op), V(mode))
OP(int, shadefill_xywh, (kiv_image* img, int x, int y, int w, int h, COLORREF* colors, int n, int dir, int op, int mode), XYWH,
   Arr(colors, n), V(dir), V(op), V(mode))
OP(int, fillshaderect, (kiv_image* img, tagRECT* r, COLORREF* colors, int n, int dir, int op), V(r), Arr(colors, n), V(dir), V(op))
OP(int, fillshaderect_xywh, (kiv_image* img, int x, int y, int w, int h, COLORREF* colors, int n, int dir, int op), XYWH,
   Arr(colors, n), V(dir), V(op))
OP(int, gradientfill, (kiv_image* img, tagRECT* r, tagGRADCOLORS* stops, int n, int dir, int op, int mode), V(r), Arr(stops, n),
   V(dir), V(op), V(mode))
OP(int, gradientfill_xywh, (kiv_image* img, int x, int y, int w, int h, tagGRADCOLORS* stops, int n, int dir, int op, int mode),
   XYWH, Arr(stops, n), V(dir), V(op), V(mode))
OP(int, fillgradientrect, (kiv_image* img, tagRECT* r, tagGRADCOLORS* stops, int n, int dir, int op), V(r), Arr(stops, n), V(dir),
   V(op))
OP(int, fillgradientrect_xywh, (kiv_image* img, int x, int y, int w, int h, tagGRADCOLORS* stops, int n, int dir, int op), XYWH,
   Arr(stops, n), V(dir), V(op))
STATIC_OP(tagLOGPALETTE*, make_gradtable, (tagGRADCOLORS* stops, int n, int size), Arr(stops, n), V(size))
STATIC_OP(void, free_gradtable, (tagLOGPALETTE* t), V(t))
OP(int, settoalpha, (kiv_image* img))
OP(int, addborder, (kiv_image* img, int left, int right, int top, int bottom, COLORREF color), V(left), V(right), V(top),
   V(bottom), V(color))

// ---- Geometry and compositing ---------------------------------------------------------------
OP(void, blt, (kiv_image* img, int x, int y, int w, int h, kiv_image* src, int sx, int sy), XYWH, V(src), V(sx), V(sy))
OP(int, crop, (kiv_image* img, tagRECT* rect), V(rect))
OP(int, zoom, (kiv_image* img, int w, int h, int method, int mapped), V(w), V(h), V(method), V(mapped))
OP(int, zoom_pixel, (kiv_image* img, int w, int h), V(w), V(h))
OP(int, zoom_near, (kiv_image* img, int w, int h), V(w), V(h))
OP(int, zoom_linear, (kiv_image* img, int w, int h), V(w), V(h))
OP(int, zoom_inframe, (kiv_image* img, int w, int h), V(w), V(h))
OP(void, rotate, (kiv_image* img, int dir), V(dir))
OP(int, rotate180, (kiv_image* img, int x, int y, int w, int h), XYWH)
OP(int, mirror, (kiv_image* img, int x, int y, int w, int h), XYWH)
OP(int, flip, (kiv_image* img, int x, int y, int w, int h), XYWH)
OP(int, scroll, (kiv_image* img, int dx, int dy, int wrap), V(dx), V(dy), V(wrap))
OP(int, tile, (kiv_image* img, tagRECT* rect, int nx, int ny), V(rect), V(nx), V(ny))
OP(int, tile_divide, (kiv_image* img, tagRECT* rect, int n), V(rect), V(n))
OP(int, rotate_any, (kiv_image* img, double degrees, COLORREF background, int method), V(degrees), V(background), V(method))
OP(int, zoom_rgba, (kiv_image* img, int w, int h, int method, int flags), V(w), V(h), V(method), V(flags))
OP(int, rotate_any_rgba, (kiv_image* img, double degrees, int method, int flags), V(degrees), V(method), V(flags))
OP(int, addlayer, (kiv_image* img, kiv_image* layer, int x, int y, int opacity, int mode, int usealpha), V(layer), V(x), V(y),
   V(opacity), V(mode), V(usealpha))
OP(int, merge, (kiv_image* img, kiv_image* src, tagRECT* srcrect, int x, int y, int opacity), V(src), V(srcrect), V(x), V(y),
   V(opacity))
OP(int, fadepaste, (kiv_image* img, kiv_image* src, int x, int y, int op0, int op1, int dir), V(src), V(x), V(y), V(op0), V(op1),
   V(dir))
OP(int, fadeinrect, (kiv_image* img, tagRECT* rect, COLORREF color, int op0, int op1, int dir), V(rect), V(color), V(op0), V(op1),
   V(dir))
OP(int, texturefill, (kiv_image* img, tagRECT* rect, kiv_image* texture, int opacity, int mode), V(rect), V(texture), V(opacity),
   V(mode))

// ---- Point and histogram adjustments --------------------------------------------------------
OP(int, bright_contrast, (kiv_image* img, tagRECT* rect, int brightness, int contrast), V(rect), V(brightness), V(contrast))
OP(int, gamma_rgb, (kiv_image* img, tagRECT* rect, double red, double green, double blue, double master), V(rect), V(red),
   V(green), V(blue), V(master))
OP(int, gamma, (kiv_image* img, tagRECT* rect, double g), V(rect), V(g))
OP(int, adjust_rgb, (kiv_image* img, tagRECT* rect, int red, int green, int blue), V(rect), V(red), V(green), V(blue))
OP(int, modulate, (kiv_image* img, tagRECT* rect, int hue, int saturation, int lightness), V(rect), V(hue), V(saturation),
   V(lightness))
OP(int, hue_saturation, (kiv_image* img, tagRECT* rect, int range, int hue, int saturation, int lightness), V(rect), V(range),
   V(hue), V(saturation), V(lightness))
OP(void, negative, (kiv_image* img, tagRECT* rect), V(rect))
OP(void, invertrect, (kiv_image* img, tagRECT* rect), V(rect))
OP(void, invertrect_xywh, (kiv_image* img, int x, int y, int w, int h), XYWH)
OP(int, desaturate, (kiv_image* img, tagRECT* rect), V(rect))
OP(int, posterize, (kiv_image* img, tagRECT* rect, int levels), V(rect), V(levels))
OP(int, colorify, (kiv_image* img, tagRECT* rect, COLORREF color), V(rect), V(color))
OP(int, colorbalance, (kiv_image* img, tagRECT* rect, tagKIV_COLORBALANCE* cb), V(rect), F(cb, red[0]), F(cb, red[1]),
   F(cb, red[2]), F(cb, green[0]), F(cb, green[1]), F(cb, green[2]), F(cb, blue[0]), F(cb, blue[1]), F(cb, blue[2]),
   F(cb, preserve))
OP(int, colorcut, (kiv_image* img, tagRECT* rect, tagKIV_COLORCUT* cc), V(rect), F(cc, colorspace), F(cc, step[0]),
   F(cc, step[1]), F(cc, step[2]))
OP(int, autocontrast, (kiv_image* img, tagRECT* rect), V(rect))
OP(int, equalize, (kiv_image* img, tagRECT* rect), V(rect))
OP(int, normalize, (kiv_image* img, tagRECT* rect), V(rect))
OP(int, autocolorenhance, (kiv_image* img, tagRECT* rect), V(rect))

// ---- Blurs, kernels, sharpening, motion blurs -----------------------------------------------
OP(int, sharpen, (kiv_image* img, tagRECT* rect), V(rect))
OP(int, blur, (kiv_image* img, tagRECT* rect, int dx, int dy), V(rect), V(dx), V(dy))
OP(int, blur_simple, (kiv_image* img, tagRECT* rect, int r), V(rect), V(r))
OP(int, blur_gauss_iir, (kiv_image* img, tagRECT* rect, double sx, double sy), V(rect), V(sx), V(sy))
OP(int, blur_gauss_rle_plane, (kiv_image* img, tagRECT* rect, double sigma, unsigned planes), V(rect), V(sigma), V(planes))
OP(int, blur_gauss_rle, (kiv_image* img, tagRECT* rect, double sigma), V(rect), V(sigma))
OP(int, blur_gauss_rgba, (kiv_image* img, tagRECT* rect, double sx, double sy, int flags), V(rect), V(sx), V(sy),
   V(flags))
OP(int, blur_gauss_sel, (kiv_image* img, tagRECT* rect, double radius, int threshold), V(rect), V(radius), V(threshold))
OP(int, filter_3x3, (kiv_image* img, tagRECT* rect, unsigned mode), V(rect), V(mode))
OP(int, filter_custom3x3, (kiv_image* img, tagRECT* rect, int* kernel, int divisor), V(rect), Arr(kernel, 9), V(divisor))
OP(int, filter_sharpen, (kiv_image* img, tagRECT* rect, int strength), V(rect), V(strength))
OP(int, filter_soften, (kiv_image* img, tagRECT* rect, int strength), V(rect), V(strength))
OP(int, edge, (kiv_image* img, tagRECT* rect, double strength), V(rect), V(strength))
OP(int, emboss, (kiv_image* img, tagRECT* rect, tagKIV_EMBOSS* p), V(rect), F(p, azimuth), F(p, elevation), F(p, depth),
   F(p, mono))
OP(int, raise_edge, (kiv_image* img, tagRECT* rect, int n), V(rect), V(n))
OP(int, sharpen2, (kiv_image* img, tagRECT* rect, int strength), V(rect), V(strength))
OP(int, unsharp_mask, (kiv_image* img, tagRECT* rect, double radius, int amount, int threshold), V(rect), V(radius), V(amount),
   V(threshold))
OP(int, unsharp_mask2, (kiv_image* img, tagRECT* rect, double radius, int amount, int threshold), V(rect), V(radius), V(amount),
   V(threshold))
OP(int, unsharp_mask_rgba, (kiv_image* img, tagRECT* rect, double radius, int amount, int threshold, int flags),
   V(rect), V(radius), V(amount), V(threshold), V(flags))
OP(int, enhance, (kiv_image* img, tagRECT* rect, int radius, int amount), V(rect), V(radius), V(amount))
OP(int, mblur_linear, (kiv_image* img, tagRECT* rect, double angle, int distance), V(rect), V(angle), V(distance))
OP(int, mblur_radial, (kiv_image* img, tagRECT* rect, int cx, int cy, double angle), V(rect), V(cx), V(cy), V(angle))
OP(int, mblur_round, (kiv_image* img, tagRECT* rect, int cx, int cy, int amount), V(rect), V(cx), V(cy), V(amount))
OP(int, mblur_zoom, (kiv_image* img, tagRECT* rect, int cx, int cy, int amount), V(rect), V(cx), V(cy), V(amount))
OP(int, sblur_wind, (kiv_image* img, tagRECT* rect, int direction, int strength), V(rect), V(direction), V(strength))
OP(int, sblur_blast, (kiv_image* img, tagRECT* rect, int direction, int strength), V(rect), V(direction), V(strength))

// ---- Effects --------------------------------------------------------------------------------
OP(int, oilpaint, (kiv_image* img, tagRECT* rect, int radius, int levels), V(rect), V(radius), V(levels))
OP(int, pixelize, (kiv_image* img, tagRECT* rect, int size), V(rect), V(size))
OP(int, pyramid, (kiv_image* img, tagRECT* rect, int size, int depth), V(rect), V(size), V(depth))
OP(int, spread, (kiv_image* img, tagRECT* rect, int distance, unsigned int seed), V(rect), V(distance), V(seed))
OP(int, video, (kiv_image* img, tagRECT* rect, int darken, int stripes), V(rect), V(darken), V(stripes))
OP(int, noise, (kiv_image* img, tagRECT* rect, tagKIV_NOISE* p), V(rect), F(p, amount), F(p, gaussian), F(p, mono), F(p, seed))
OP(int, texturize, (kiv_image* img, tagRECT* rect, kiv_image* texture, tagKIV_TEXTURE* p), V(rect), V(texture),
   F(p, azimuth), F(p, elevation), F(p, depth))
OP(int, texturize_by_file, (kiv_image* img, tagRECT* rect, const char* path, tagKIV_TEXTURE* p), V(rect), V(path),
   F(p, azimuth), F(p, elevation), F(p, depth))
OP(int, texture_save, (kiv_image* img, tagRECT* rect, const char* path), V(rect), V(path))
OP(int, bumpmap, (kiv_image* img, tagRECT* rect, kiv_image* map, tagKIV_BUMPMAP* p), V(rect), V(map), F(p, azimuth),
   F(p, elevation), F(p, depth), F(p, invert))
OP(int, bumpmap_merge, (kiv_image* img, tagRECT* rect, kiv_image* map, tagKIV_BUMPMAP* p, int mode, int opacity), V(rect),
   V(map), F(p, azimuth), F(p, elevation), F(p, depth), F(p, invert), V(mode), V(opacity))
