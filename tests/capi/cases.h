/* Operations run through the C functions (capi_test.c) and through the class (capi_ref.cpp)
 * with the same arguments: CASE(member, (arguments)) for members returning a number, VCASE for
 * void ones, CASE0 for those without arguments.  SECOND is a second image; the records and
 * arrays below are shared. */
#ifndef KIV_CAPI_CASES_DATA
#define KIV_CAPI_CASES_DATA
static tagRECT R_ = {1, 1, 6, 4};
static COLORREF COLORS[3] = {0x0000FF, 0x00FFFF, 0xFF0000};
static tagGRADCOLORS STOPS[3] = {{0xFFFFFF, 0}, {0x00C0FF, 400}, {0x000080, 1000}};
static int KERNEL[9] = {-2, -1, 0, -1, 1, 1, 0, 1, 2};
static tagKIV_COLORBALANCE CB = {{40, 60, 20}, {0, 0, 0}, {-40, -60, -20}, 1};
static tagKIV_COLORCUT CC = {1, {32, 64, 0}};
static tagKIV_EMBOSS EMBOSS = {120.0, 30.0, 7, 0};
static tagKIV_NOISE NOISE = {40, 1, 0, 7};
static tagKIV_BUMPMAP BUMP = {60.0, 50.0, 3, 1};
#define R (&R_)
#endif
CASE(crop, (R))
CASE(zoom, (11, 3, 11, 0))
CASE(zoom, (11, 3, 99, 0))
CASE(zoom_near, (3, 9))
VCASE(rotate, (1))
CASE(rotate_any, (30.0, 0x123456, 1))
CASE(rotate_any_rgba, (30.0, 1, 3))
CASE(zoom_rgba, (11, 3, 11, 3))
CASE(mirror, (1, 1, 4, 3))
CASE(tile, (R, 2, 1))
CASE(scroll, (2, -1, 0))
VCASE(blt, (1, 1, 3, 3, SECOND, 0, 0))
CASE(addlayer, (SECOND, 1, 0, 200, 7, 1))
CASE(merge, (SECOND, R, 0, 0, 128))
CASE(texturefill, (R, SECOND, 160, 13))
CASE(solidfill, (R, 0x2040C0, 160, 7))
CASE(solidfill, (R, 0x2040C0, 0, 7))
CASE(shadefill, (R, COLORS, 3, 4, 200, 0))
CASE(gradientfill_xywh, (1, 0, 5, 4, STOPS, 3, 7, 255, 0))
CASE(gradientfill_xywh, (1, 0, 5, 4, STOPS, 3, 9, 255, 0))
CASE(addborder, (2, 1, 0, 3, 0xFFFFFF))
CASE(bright_contrast, (R, 30, 50))
CASE(gamma_rgb, (R, 1.4, 1.0, 0.7, 1.0))
CASE(hue_saturation, (R, 0, 90, 30, 0))
CASE(colorbalance, (R, &CB))
CASE(colorcut, (R, &CC))
VCASE(negative, (R))
CASE(posterize, (R, 4))
CASE(equalize, (R))
CASE(blur_gauss_iir, (R, 2.0, 1.5))
CASE(blur_gauss_rgba, (R, 2.0, 1.5, 1))
CASE(filter_3x3, (R, 5))
CASE(filter_custom3x3, (R, KERNEL, 1))
CASE(emboss, (R, NULL))
CASE(emboss, (NULL, &EMBOSS))
CASE(unsharp_mask, (R, 2.0, 150, 3))
CASE(unsharp_mask_rgba, (R, 2.0, 150, 3, 2))
CASE(mblur_radial, (R, 3, 2, 30.0))
CASE(oilpaint, (R, 2, 16))
CASE(noise, (R, &NOISE))
CASE(bumpmap, (R, SECOND, NULL))
CASE(bumpmap_merge, (R, SECOND, &BUMP, 11, 160))
VCASE(quantize, (1, 16, NULL))
CASE(quantize_wdp, (4, 0))
CASE(convert_colorspace, (R, 6))
CASE0(countcolors)
CASE0(settoalpha)
