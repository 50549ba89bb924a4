/* The C interface used from C: the same bytes as the class for every case of cases.h on a
 * true-colour and a palettized image, reasons for refusals, the table read at run time, and a
 * C function for every row of the table. */
#include <stdio.h>
#include <string.h>

#include "kivc.h"

#ifdef _WIN32
#define EXPORTED(name) (GetProcAddress(GetModuleHandleA("kivlib.dll"), name) != NULL)
#else
#include <dlfcn.h>
#define EXPORTED(name) (dlsym(dlopen(NULL, RTLD_LAZY), name) != NULL)
#endif

int ref_run(const char* name, int k, kiv_image* img, kiv_image* second);

static int failures;
#define CHECK(cond, what, arg)                                                  \
    do {                                                                        \
        if (!(cond)) {                                                          \
            ++failures;                                                         \
            fprintf(stderr, "capi_test:%d: %s (%s)\n", __LINE__, what, arg);    \
        }                                                                       \
    } while (0)

#define STRIP(...) __VA_ARGS__
#define CAT2(a, b) a##b
#define CAT(a, b) CAT2(a, b)
#define CASE(m, a) static int CAT(c_, __LINE__)(kiv_image* img, kiv_image* second) { (void)second; return (int)kiv_##m(img, STRIP a); }
#define VCASE(m, a) static int CAT(c_, __LINE__)(kiv_image* img, kiv_image* second) { (void)second; kiv_##m(img, STRIP a); return 1; }
#define CASE0(m) static int CAT(c_, __LINE__)(kiv_image* img, kiv_image* second) { (void)second; return (int)kiv_##m(img); }
#define SECOND second
#include "cases.h"
#undef CASE
#undef VCASE
#undef CASE0
#define CASE(m, a) {#m, CAT(c_, __LINE__)},
#define VCASE(m, a) CASE(m, a)
#define CASE0(m) CASE(m, ())
static const struct {
    const char* name;
    int (*run)(kiv_image*, kiv_image*);
} cases[] = {
#include "cases.h"
};

/* A 7 x 5 image with a deterministic pattern; palettized depths get a map to match. */
static kiv_image* card(int bits, unsigned seed) {
    kiv_image* img = kiv_image_new(7, 5, bits);
    tagRGBA* px = kiv_pixels(img);
    int i;
    for (i = 0; i < kiv_colors(img); ++i) {
        tagRGBA c = {(BYTE)(i * 37 + seed), (BYTE)(i * 91), (BYTE)(255 - i * 13), 0};
        kiv_map(img)[i] = c;
    }
    for (i = 0; i < 35; ++i) {
        seed = seed * 1103515245u + 12345u;
        if (bits < 24) {
            px[i] = kiv_map(img)[(seed >> 16) & 255];
            px[i].a = (BYTE)((seed >> 16) & 255);
        } else {
            memcpy(&px[i], &seed, 4);
        }
    }
    return img;
}

/* Answers the second report with "stop". */
static int stop_second(void* user, int done, int total) {
    int* calls = (int*)user;
    (void)done, (void)total;
    return ++*calls == 2;
}

static int same_image(kiv_image* a, kiv_image* b) {
    return kiv_width(a) == kiv_width(b) && kiv_height(a) == kiv_height(b) && kiv_bits(a) == kiv_bits(b) &&
           kiv_colors(a) == kiv_colors(b) && (kiv_pixels(a) == NULL) == (kiv_pixels(b) == NULL) &&
           (!kiv_pixels(a) || !memcmp(kiv_pixels(a), kiv_pixels(b), 4 * (size_t)kiv_packets(a))) &&
           (kiv_map(a) == NULL) == (kiv_map(b) == NULL) &&
           (!kiv_map(a) || !memcmp(kiv_map(a), kiv_map(b), 4 * (size_t)kiv_colors(a)));
}

int main(void) {
    int bits, n, k, op;
    char name[64];
    kiv_value args[4], result;
    kiv_image *img, *a, *b;
    for (bits = 24; bits >= 8; bits -= 16) {
        for (n = 0; n < (int)(sizeof cases / sizeof cases[0]); ++n) {
            kiv_image *c = card(bits, 5), *cpp = kiv_image_copy(c), *s1 = card(bits, 9), *s2 = kiv_image_copy(s1);
            int rc, rcpp;
            for (k = 0, op = 0; op < n; ++op) k += !strcmp(cases[op].name, cases[n].name);
            rc = cases[n].run(c, s1);
            rcpp = ref_run(cases[n].name, k, cpp, s2);
            CHECK(rc == rcpp && same_image(c, cpp) && same_image(s1, s2), "the C route differs from the class", cases[n].name);
            kiv_image_free(c), kiv_image_free(cpp), kiv_image_free(s1), kiv_image_free(s2);
        }
    }

    img = card(24, 3);
    a = kiv_image_copy(img);
    CHECK(kiv_zoom(a, 10, 10, 99, 0) == 0 && same_image(a, img), "zoom method 99 is refused", kiv_last_error());
    CHECK(!strcmp(kiv_last_error(), "zoom: method must be 0..13 (got 99)"), "the reason names the argument", kiv_last_error());
    CHECK(kiv_zoom(NULL, 10, 10, 1, 0) == 0 && !strcmp(kiv_last_error(), "zoom: the image is null"), "null image", kiv_last_error());
    CHECK(kiv_zoom(a, 7, 5, 1, 0) == 0 && strstr(kiv_last_error(), "same size"), "a refusal the table cannot see", kiv_last_error());
    kiv_quantize(a, 9, 16, NULL);
    CHECK(same_image(a, img) && strstr(kiv_last_error(), "quantize: mode must be 0..4"), "void members report too", kiv_last_error());

    /* A cancelled call fails with its reason and leaves the image as it was. */
    b = kiv_image_copy(img);
    n = 0;
    kiv_setthreads(1);
    kiv_set_progress(b, stop_second, &n);
    CHECK(kiv_blur_gauss_rgba(b, NULL, 2.0, 2.0, 3) == 0 && n == 2 && same_image(b, img) &&
              !strcmp(kiv_last_error(), "blur_gauss_rgba: cancelled"), "cancelled", kiv_last_error());
    kiv_set_progress(b, NULL, NULL);
    kiv_setthreads(0);
    CHECK(kiv_blur_gauss_rgba(b, NULL, 2.0, 2.0, 3) == 1 && n == 2, "the callback is removed", kiv_last_error());
    kiv_image_free(b);

    /* The generic call gives what the C function gives. */
    op = kiv_op_find("zoom");
    CHECK(op >= 0 && kiv_op_info(op)->nargs == 4 && kiv_op_info(op)->args[2].nchoices == 14 &&
              !strcmp(kiv_op_info(op)->args[2].choices[11].name, "lanczos3"), "the table describes zoom", "zoom");
    memset(args, 0, sizeof args);
    args[0].type = args[1].type = KIV_T_INT, args[2].type = KIV_T_CHOICE, args[3].type = KIV_T_DEFAULT;
    args[0].i = 12, args[1].i = 4, args[2].i = 11;
    b = kiv_image_copy(img);
    CHECK(kiv_op_call(b, op, args, 4, &result) == 1 && result.i == 1 && kiv_zoom(a, 12, 4, 11, 0) == 1 && same_image(a, b),
          "kiv_op_call and kiv_zoom agree", kiv_last_error());
    args[0].type = KIV_T_REAL;
    CHECK(kiv_op_call(b, op, args, 4, NULL) == 0 && strstr(kiv_last_error(), "w is of type"), "types are checked", kiv_last_error());

    /* A member that gives its own reason: *reason is kiv_last_error's text, null on success. */
    {
        const char* why = "unset";
        void* dib = kiv_createdib_alpha(img, 0);
        CHECK(kiv_attachdib_any(b, dib, &why) == 1 && !why && kiv_loadbmp_bytes(b, "BM", 2, &why) == 0 && kiv_bits(b) == 32 &&
                  why == kiv_last_error() && !strcmp(why, "loadbmp_bytes: not a BMP file"), "reasons", kiv_last_error());
        GlobalFree(dib);
    }

    /* Every row has its exported C function; the version matches the header. */
    for (op = 0; op < kiv_op_count(); ++op) {
        const kiv_opdesc* d = kiv_op_info(op);
        snprintf(name, sizeof name, "%s%s", d->flags & KIV_OP_FREE ? "" : "kiv_", d->name);
        CHECK(EXPORTED(name), "a table row without its C function", name);
    }
    snprintf(name, sizeof name, "%d.%d.%d", KIV_VERSION_MAJOR, KIV_VERSION_MINOR, KIV_VERSION_PATCH);
    CHECK(!strcmp(kiv_version(), name) && kiv_version_number() == KIV_VERSION_MAJOR * 10000 + KIV_VERSION_MINOR * 100 + KIV_VERSION_PATCH,
          "version", kiv_version());
    kiv_image_free(img), kiv_image_free(a), kiv_image_free(b);
    CHECK(kiv_image_new(-1, 5, 24) == NULL && !strcmp(kiv_last_error(), "create: width must be >= 1 (got -1)"), "image_new",
          kiv_last_error());
    printf("capi_test: %d cases on two depths, %d failures\n", (int)(sizeof cases / sizeof cases[0]), failures);
    return failures ? 1 : 0;
}
