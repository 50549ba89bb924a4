// The rows of the operation table, family by family: each operation's arguments with their
// units, ranges (and what a value outside becomes), defaults and help, and its invoker.  A new
// operation adds one op(...) entry here; the tests then ask for the rest: its C function
// (src/capi/kivc.cpp, include/kivc.h), its export (src/capi/kivlib.def) and docs/reference.md
// (target `reference`), and they walk its ranges.
#include "core/optable.h"

namespace kivops {

namespace {

// ---- Describing arguments --------------------------------------------------------------
struct A {
    kiv_argdesc d{};
    A(const char* name, int type, const char* unit, const char* help) {
        d.name = name;
        d.type = type;
        d.unit = unit;
        d.help = help;
        d.range = "";
    }
    // Bounds; a value past one is refused unless `out` says otherwise (CLAMPED takes the bound).
    A& min(double lo, int out = KIV_OUT_REFUSED) {
        d.flags |= KIV_ARG_LO;
        d.lo = d.below_value = lo;
        d.below = out;
        return *this;
    }
    A& max(double hi, int out = KIV_OUT_REFUSED) {
        d.flags |= KIV_ARG_HI;
        d.hi = d.above_value = hi;
        d.above = out;
        return *this;
    }
    A& range(double lo, double hi, int out = KIV_OUT_REFUSED) { return min(lo, out).max(hi, out); }
    A& gt(double lo) {
        d.flags |= KIV_ARG_LO_OPEN;
        return min(lo);
    }
    A& replaced(double v) {  // both sides (and unlisted choices) become v
        d.below = d.above = KIV_OUT_REPLACED;
        d.below_value = d.above_value = v;
        return *this;
    }
    A& flag(int f) {
        d.flags |= f;
        return *this;
    }
    A& finite() { return flag(KIV_ARG_FINITE); }
    A& field() { return flag(KIV_ARG_FIELD); }
    A& def(double v) {
        d.def = v;
        return flag(KIV_ARG_DEFAULT);
    }
    template <int N>
    A& choices(const kiv_choice (&c)[N], int out = KIV_OUT_REFUSED) {
        d.choices = c;
        d.nchoices = N;
        return range(c[0].value, c[N - 1].value, out);
    }
};

A Int(const char* n, const char* unit, const char* help) { return A(n, KIV_T_INT, unit, help); }
A Uint(const char* n, const char* unit, const char* help) { return A(n, KIV_T_UINT, unit, help); }
A Real(const char* n, const char* unit, const char* help) { return A(n, KIV_T_REAL, unit, help); }
A Color(const char* n, const char* help) { return A(n, KIV_T_COLOR, "", help); }
A Str(const char* n, const char* help) { return A(n, KIV_T_STRING, "", help); }
A Image(const char* n, const char* help) { return A(n, KIV_T_IMAGE, "", help); }
A Dib(const char* n = "dib") { return A(n, KIV_T_DIB, "", "a packed DIB in movable global memory; only read"); }
A Pal(const char* n, const char* help) { return A(n, KIV_T_PALETTE, "", help); }
A Array(const char* n, int type, const char* help) { return A(n, type, "entries", help); }
// Nonzero counts as yes: a value outside 0..1 acts as 1.
A Bool(const char* n, const char* help) { return A(n, KIV_T_BOOL, "", help).range(0, 1).replaced(1); }
template <int N>
A Choice(const char* n, const kiv_choice (&c)[N], const char* help, int out = KIV_OUT_REFUSED) {
    return A(n, KIV_T_CHOICE, "", help).choices(c, out);
}
A Rect(const char* n = "rect", const char* help = "the part to work on; null or empty: the whole image") {
    return A(n, KIV_T_RECT, "", help).flag(KIV_ARG_NULL).def(0);
}
A Size(const char* n, const char* help) { return Int(n, "pixels", help).min(1); }
A Size(const char* n, const char* help, int out) { return Int(n, "pixels", help).min(1, out); }
// Opacity of fills and compositors: 0 draws nothing (refused), above 255 counts as 255.
A Opacity(const char* n) { return Int(n, "", "opacity; 255 replaces the pixels").min(1).max(255, KIV_OUT_CLAMPED); }
// Opacities of the fades: clamped to 0..255 on both sides.
A Fade(const char* n, const char* help) { return Int(n, "", help).range(0, 255, KIV_OUT_CLAMPED); }

constexpr kiv_choice kZoom[] = {{0, "box"},      {1, "triangle"},    {2, "hermite"},  {3, "hanning"},   {4, "hamming"},
                                {5, "blackman"}, {6, "gaussian"},    {7, "quadratic"}, {8, "bspline"},  {9, "catmull_rom"},
                                {10, "mitchell"}, {11, "lanczos3"}, {12, "bessel"},   {13, "sinc"}};
constexpr kiv_choice kBlend[] = {{0, "normal"},      {1, "darken"},     {2, "lighten"},     {3, "hue"},
                                 {4, "saturation"},  {5, "color"},      {6, "value"},       {7, "multiply"},
                                 {8, "screen"},      {10, "overlay"},   {11, "hard_light"}, {12, "soft_light"},
                                 {13, "difference"}, {14, "exclusion"}, {15, "dodge"},      {16, "burn"},
                                 {17, "add"},        {18, "subtract"}};
constexpr kiv_choice kDirs[] = {{0, "top_left"}, {1, "top"},         {2, "top_right"}, {3, "left"},
                                {4, "right"},    {5, "bottom_left"}, {6, "bottom"},    {7, "bottom_right"}};
constexpr kiv_choice kSpaces[] = {{0, "rgb"}, {1, "hsv"}, {2, "hls"}, {3, "ycbcr"}, {4, "yiq"}, {5, "cmy"}, {6, "lab"}};
constexpr kiv_choice kQuantModes[] = {
    {0, "nearest"}, {1, "floyd_steinberg"}, {2, "exact"}, {3, "floyd_steinberg_limited"}, {4, "ordered"}};
constexpr kiv_choice kFixed[] = {{0, "vga16"},     {1, "system256"},    {2, "web_ramps"}, {3, "web216"}, {4, "hue_wheel"},
                                 {5, "pastel_wheel"}, {6, "heat"},      {7, "cold"},      {8, "warm"}};
constexpr kiv_choice k3x3[] = {{0, "mean"},          {1, "median"},         {3, "sharpen"},     {4, "soft_blur"},
                               {5, "emboss"},        {6, "sharpen_more"},   {7, "maximum"},     {8, "minimum"},
                               {9, "cross_sharpen"}, {10, "full_sharpen"},  {11, "laplacian"},  {12, "sobel_h"},
                               {13, "sobel_v"},      {14, "adaptive_sharpen"}, {15, "adaptive_smooth"}};
constexpr kiv_choice kWind[] = {{0, "right"}, {1, "left"}, {2, "down"}, {3, "up"}};
constexpr kiv_choice kHues[] = {{0, "all"},  {1, "reds"},  {2, "yellows"}, {3, "greens"},
                                {4, "cyans"}, {5, "blues"}, {6, "magentas"}};
constexpr kiv_choice kPlanes[] = {{0, "red"}, {1, "green"}, {2, "blue"}, {3, "alpha"}};
constexpr kiv_choice kTurn[] = {{0, "clockwise"}, {1, "counter_clockwise"}};
constexpr kiv_choice kSampling[] = {{0, "nearest"}, {1, "bilinear"}};
constexpr kiv_choice kNoise[] = {{0, "uniform"}, {1, "gaussian"}};

// The flags of the weighted members (KIV_FILTER_ALPHA, KIV_FILTER_LINEAR).
A Flags() {
    return Int("flags", "bits",
               "1: the fourth byte is straight alpha (colour weighted by it); 2: filter in linear light")
        .range(0, 3)
        .def(0);
}
#define KIV_PALETTIZED_ALPHA "flag 1 on a palettized image (its fourth byte is a colour index)"

A Mode() { return Choice("mode", kBlend, "blend mode; any other value is normal", KIV_OUT_REPLACED).replaced(0); }
A QuantMode() { return Choice("mode", kQuantModes, "how pixels are mapped to the palette"); }
A Space() { return Choice("colorspace", kSpaces, "colour space"); }
// Directions of the fills: refused after a palettized image has been raised to 24 bits.
A FillDir() { return Choice("dir", kDirs, "side or corner the ramp runs toward (unused by a single stop)", KIV_OUT_DEPTH); }
A Az(double def) { return Real("azimuth", "degrees", "light direction, counter-clockwise from the right").finite().field().def(def); }
A El(double def) { return Real("elevation", "degrees", "light elevation above the image plane").finite().field().def(def); }
A Premultiplied() {
    return Int("premultiplied", "", "1: colours multiplied by alpha (AlphaBlend); 0: straight alpha (CF_DIBV5)")
        .range(0, 1)
        .def(0);
}
A Depth(double def) { return Int("depth", "", "relief depth").range(1, 1530).field().def(def); }

// ---- Invokers ---------------------------------------------------------------------------
#define RUN(...) [](kiv* m, const Args& a) -> Result { (void)m, (void)a; return ret(__VA_ARGS__); }
// A member that says why it refused (through `why`): its reason becomes the call's.
#define REASONED(...)                                                       \
    [](kiv* m, const Args& a) -> Result {                                   \
        const char* why = nullptr;                                          \
        const int r = __VA_ARGS__;                                          \
        return r ? ret(r) : Result{0, nullptr, why ? why : "refused"};      \
    }
#define DO(...) [](kiv* m, const Args& a) -> Result { (void)m, (void)a; __VA_ARGS__; return Result{}; }

struct Rows {
    std::vector<Row>& v;
    const char* family = "";
    struct Ref {
        Row& r;
        Ref& refuses(const char* s) {
            r.desc.refuses = s;
            return *this;
        }
        Ref& record(const char* s, int flags = 0) {
            r.desc.record = s;
            r.desc.flags |= flags;
            return *this;
        }
        Ref& flags(int f) {
            r.desc.flags |= f;
            return *this;
        }
    };
    Ref op(const char* name, int result, const char* summary, std::initializer_list<A> args, Invoke f) {
        return op(name, result, summary, std::vector<A>(args), f);
    }
    Ref op(const char* name, int result, const char* summary, const std::vector<A>& args, Invoke f) {
        Row r{};
        r.desc = kiv_opdesc{name, family, summary, "", "", nullptr, 0, result, 0};
        for (const A& a : args) r.args.push_back(a.d);
        r.call = f;
        v.push_back(std::move(r));
        return Ref{v.back()};
    }
};

constexpr int V = KIV_T_VOID, I = KIV_T_INT;

void image_and_palette(Rows& t) {
    t.family = "image";
    const char* emptied = "more than 2^31 - 1 pixels (the image is left empty)";
    for (bool mapped : {false, true})
        t.op(mapped ? "create_width_mapfile" : "create", I,
             mapped ? "a fresh zero-filled image whose pixels live in a mapped temporary file (or the heap)"
                    : "a fresh zero-filled image; depths below 24 get a zeroed map of 1 << bits entries",
             {Size("width", "image width", KIV_OUT_EMPTIED), Size("height", "image height", KIV_OUT_EMPTIED),
              Int("bits", "bits", "nominal depth").range(1, 32, KIV_OUT_EMPTIED)},
             mapped ? Invoke(RUN(m->create_width_mapfile(a.i(0), a.i(1), a.i(2)))) : Invoke(RUN(m->create(a.i(0), a.i(1), a.i(2)))))
            .refuses(emptied);
    t.op("destroy", V, "release the pixels and the colour map: the image becomes empty", {}, DO(m->destroy()));
    t.op("copyto", I, "make dst a deep copy of this image", {Image("dst", "the image that becomes the copy")},
         RUN(m->copyto(a.img(0))))
        .refuses("an empty source (dst is emptied)");
    t.op("copyfrom", I, "become a deep copy of src", {Image("src", "the image copied")}, RUN(m->copyfrom(a.img(0))))
        .refuses("an empty source (this image is emptied)");
    t.op("movefrom", I, "take src's contents, leaving src empty", {Image("src", "the image emptied")},
         RUN(m->movefrom(a.img(0))));
    t.op("copyplane", V, "copy one byte of every pixel into another",
         {Choice("src", kPlanes, "byte read"), Choice("dst", kPlanes, "byte written")}, DO(m->copyplane(a.i(0), a.i(1))));

    t.family = "palette";
    t.op("alloccmap", V, "free the colour map and set colors to n; n > 0 allocates n zeroed entries",
         {Int("n", "entries", "new colour count")}, DO(m->alloccmap(a.i(0))));
    t.op("increasecolor", V, "raise the depth so that the image can hold n colours (4, 8 or 24 bits)",
         {Int("n", "colours", "colours to hold")}, DO(m->increasecolor(a.i(0))));
    t.op("createlogpalette", KIV_T_PALETTE, "a new logical palette of the colour map (free with free_gradtable)", {},
         RUN(m->createlogpalette()))
        .refuses("no colour map");
    t.op("validate_rgb", V, "refresh every pixel's colour from the colour map through its index", {},
         DO(m->validate_rgb()));
    t.op("grayscale", V, "make the whole image 8-bit grey with a 256-level grey map", {}, DO(m->grayscale()));
    t.op("countcolors", KIV_T_ULONG, "the number of distinct colours (indexes below 9 bits)", {},
         RUN(m->countcolors()));
    t.op("convert_colorspace", I, "store the rectangle in another colour space (channels in bytes 0..2)",
         {Rect(), Space()}, RUN(m->convert_colorspace(a.rect(0), a.i(1))));
    t.op("convert_rgb", I, "convert the rectangle from a colour space back to RGB", {Rect(), Space()},
         RUN(m->convert_rgb(a.rect(0), a.i(1))));

    t.family = "interchange";
    t.op("attachdib", I, "read a packed DIB into a heap image", {Dib()}, RUN(m->attachdib(a.dib(0))))
        .refuses("a DIB that cannot be read");
    t.op("attachdib_width_mapfile", I, "read a packed DIB into an image in a mapped temporary file", {Dib()},
         RUN(m->attachdib_width_mapfile(a.dib(0))))
        .refuses("a DIB that cannot be read");
    t.op("attachdib32", I, "a 24-bit image from width x height 4-byte pixels, the buffer's rows bottom-up",
         {Size("width", "image width", KIV_OUT_EMPTIED), Size("height", "image height", KIV_OUT_EMPTIED),
          Array("src", KIV_T_BYTES, "width x height x 4 bytes")},
         [](kiv* m, const Args& a) -> Result {
             const long long w = a.i(0), h = a.i(1);
             if (w > 0 && h > 0 && a.n(2) / 4 / w < h) return Result{0, nullptr, "src must hold width x height x 4 bytes"};
             return ret(m->attachdib32(a.i(0), a.i(1), a.ptr<void>(2, KIV_T_BYTES)));
         })
        .refuses("more than 2^31 - 1 pixels (the image is left empty)");
    t.op("createdib", KIV_T_DIB, "a new packed DIB of the image (free with GlobalFree)", {}, RUN(m->createdib()));
    t.op("blt_dib", V, "copy the w x h block at (sx, sy) of a packed DIB to (x, y), clipped",
         {Int("x", "pixels", "target column"), Int("y", "pixels", "target row"), Int("w", "pixels", "block width"),
          Int("h", "pixels", "block height"), Dib(), Int("sx", "pixels", "source column"), Int("sy", "pixels", "source row")},
         DO(m->blt(a.i(0), a.i(1), a.i(2), a.i(3), a.dib(4), a.i(5), a.i(6))));
    // The full reader and the alpha writer: the reason the member gives becomes the call's.
    const char* unreadable = "data the full reader refuses (its reason becomes the error)";
    t.op("attachdib_any", I, "read a packed DIB of any form: every header, depth 1..64, RLE, bit fields, top-down",
         {Dib()}, REASONED(m->attachdib_any(a.dib(0), &why)))
        .refuses(unreadable);
    t.op("attachdib_any_bytes", I, "read a packed DIB of any form from bytes",
         {A("data", KIV_T_BYTES, "bytes", "a packed DIB: header, masks, colour table, rows")},
         REASONED(m->attachdib_any_bytes(a.ptr<void>(0, KIV_T_BYTES), static_cast<size_t>(a.n(0)), &why)))
        .refuses(unreadable);
    t.op("loadbmp", I, "read a BMP file of any form", {Str("path", "the BMP file read")}, REASONED(m->loadbmp(a.str(0), &why)))
        .refuses("a missing or unreadable file, data the full reader refuses (its reason becomes the error)");
    t.op("loadbmp_bytes", I, "read a BMP file of any form from its bytes",
         {A("data", KIV_T_BYTES, "bytes", "the bytes of a BMP file")},
         REASONED(m->loadbmp_bytes(a.ptr<void>(0, KIV_T_BYTES), static_cast<size_t>(a.n(0)), &why)))
        .refuses(unreadable);
    t.op("createdib_alpha", KIV_T_DIB, "a new 32-bit V5 DIB with alpha (free with GlobalFree)", {Premultiplied()},
         RUN(m->createdib_alpha(a.i(0))))
        .refuses("an empty image");
    t.op("savebmp_alpha", I, "write the image as a 32-bit V5 BMP file with alpha",
         {Str("path", "the file written (replaced only on success)"), Premultiplied()},
         REASONED(m->savebmp_alpha(a.str(0), a.i(1), &why)))
        .refuses("an empty image, a failed write");
    t.op("kivCrop", KIV_T_DIB, "a new packed DIB of the part of a packed DIB inside rect", {Dib(), Rect()},
         RUN(kivCrop(a.dib(0), a.rect(1))))
        .flags(KIV_OP_FREE)
        .refuses("a DIB that cannot be read, an empty clipped rectangle");
}

void quantize(Rows& t) {
    t.family = "quantize";
    const char* refuses = "an empty image, a palette of 0 or more than 256 entries";
    t.op("quantize", V, "reduce to a palette of at most 256 colours, chosen from the image or given",
         {QuantMode(), Int("colors", "colours", "palette size when pal is null").range(1, 256).flag(KIV_ARG_IF_NULL),
          Pal("pal", "the palette to use; null: choose one from the image").flag(KIV_ARG_NULL).def(0)},
         DO(m->quantize(a.i(0), a.i(1), a.pal(2))))
        .refuses(refuses);
    t.op("quantize_wpal", V, "reduce to a palette of the given colours",
         {QuantMode(), Array("cols", KIV_T_SYSCOLS, "the palette").range(1, 256)},
         DO(m->quantize_wpal(a.i(0), a.ptr<const tagSYSCOL>(1, KIV_T_SYSCOLS), a.n(1))))
        .refuses("an empty image");
    t.op("quantize_wdp", I, "reduce to one of nine fixed palettes",
         {QuantMode(), Choice("which", kFixed, "the fixed palette")}, RUN(m->quantize_wdp(a.i(0), a.i(1))));
    const char* dib_refuses = "a DIB that cannot be read, too little memory";
    t.op("kivQuantize", KIV_T_DIB, "a new packed DIB quantized to a palette chosen from the DIB",
         {Dib(), QuantMode(), Int("colors", "colours", "palette size").range(1, 256)},
         RUN(kivQuantize(a.dib(0), a.i(1), a.i(2))))
        .flags(KIV_OP_FREE)
        .refuses(dib_refuses);
    t.op("kivQuantizeWcp", KIV_T_DIB, "a new packed DIB quantized to a given palette",
         {Dib(), QuantMode(), Pal("pal", "the palette, 1..256 entries")}, RUN(kivQuantizeWcp(a.dib(0), a.i(1), a.pal(2))))
        .flags(KIV_OP_FREE)
        .refuses("a DIB that cannot be read, a palette of 0 or more than 256 entries");
    t.op("kivQuantizeWdp", KIV_T_DIB, "a new packed DIB quantized to one of nine fixed palettes",
         {Dib(), QuantMode(), Choice("which", kFixed, "the fixed palette; another value: the DIB as read", KIV_OUT_UNCHANGED)},
         RUN(kivQuantizeWdp(a.dib(0), a.i(1), a.i(2))))
        .flags(KIV_OP_FREE)
        .refuses(dib_refuses);
    t.op("kivQuantizeWin256", KIV_T_DIB, "a new packed DIB quantized to the 256-colour system palette",
         {Dib(), QuantMode()}, RUN(kivQuantizeWin256(a.dib(0), a.i(1))))
        .flags(KIV_OP_FREE)
        .refuses(dib_refuses);
    t.op("kivQuantizeWin16", KIV_T_DIB, "a new packed DIB quantized to the 16 VGA colours", {Dib(), QuantMode()},
         RUN(kivQuantizeWin16(a.dib(0), a.i(1))))
        .flags(KIV_OP_FREE)
        .refuses(dib_refuses);
}

void fill(Rows& t) {
    t.family = "fill";
    const char* outside = "a box outside the image (after raising the depth)";
    // The rectangle forms and the (x, y, w, h) forms of each fill.
    auto box = [](std::initializer_list<A> rest, bool xywh) {
        std::vector<A> v;
        if (xywh) {
            v = {Int("x", "pixels", "left edge"), Int("y", "pixels", "top edge"), Size("w", "box width"),
                 Size("h", "box height")};
        } else {
            v = {Rect("r", "the box to fill; null or empty: the whole image")};
        }
        v.insert(v.end(), rest);
        return v;
    };
    auto add = [&](const char* name, const char* xywh_name, const char* summary, std::initializer_list<A> rest,
                   Invoke rect, Invoke xywh) {
        t.op(name, I, summary, box(rest, false), rect).refuses(outside);
        t.op(xywh_name, I, summary, box(rest, true), xywh).refuses(outside);
    };
    A colour = Color("color", "fill colour");
    A colours = Array("colors", KIV_T_COLORS, "the shade's colours, first at the side opposite dir").range(1, 16);
    A stops = Array("stops", KIV_T_STOPS, "colour stops, positions 0..1000 ascending").min(1);
    add("solidfill", "solidfill_xywh", "blend a colour over a box", {colour, Opacity("op"), Mode()},
        RUN(m->solidfill(a.rect(0), a.c(1), a.i(2), a.i(3))),
        RUN(m->solidfill(a.i(0), a.i(1), a.i(2), a.i(3), a.c(4), a.i(5), a.i(6))));
    add("fillsolidrect", "fillsolidrect_xywh", "paint a colour over a box (normal mode)", {colour, Opacity("op")},
        RUN(m->fillsolidrect(a.rect(0), a.c(1), a.i(2))), RUN(m->fillsolidrect(a.i(0), a.i(1), a.i(2), a.i(3), a.c(4), a.i(5))));
    add("shadefill", "shadefill_xywh", "blend a linear shade of 1..16 colours over a box", {colours, FillDir(), Opacity("op"), Mode()},
        RUN(m->shadefill(a.rect(0), a.ptr<COLORREF>(1, KIV_T_COLORS), a.n(1), a.i(2), a.i(3), a.i(4))),
        RUN(m->shadefill(a.i(0), a.i(1), a.i(2), a.i(3), a.ptr<COLORREF>(4, KIV_T_COLORS), a.n(4), a.i(5), a.i(6), a.i(7))));
    add("fillshaderect", "fillshaderect_xywh", "paint a linear shade of 1..16 colours over a box (normal mode)", {colours, FillDir(), Opacity("op")},
        RUN(m->fillshaderect(a.rect(0), a.ptr<COLORREF>(1, KIV_T_COLORS), a.n(1), a.i(2), a.i(3))),
        RUN(m->fillshaderect(a.i(0), a.i(1), a.i(2), a.i(3), a.ptr<COLORREF>(4, KIV_T_COLORS), a.n(4), a.i(5), a.i(6))));
    add("gradientfill", "gradientfill_xywh", "blend a gradient of colour stops over a box", {stops, FillDir(), Opacity("op"), Mode()},
        RUN(m->gradientfill(a.rect(0), a.ptr<tagGRADCOLORS>(1, KIV_T_STOPS), a.n(1), a.i(2), a.i(3), a.i(4))),
        RUN(m->gradientfill(a.i(0), a.i(1), a.i(2), a.i(3), a.ptr<tagGRADCOLORS>(4, KIV_T_STOPS), a.n(4), a.i(5), a.i(6), a.i(7))));
    add("fillgradientrect", "fillgradientrect_xywh", "paint a gradient of colour stops over a box (normal mode)", {stops, FillDir(), Opacity("op")},
        RUN(m->fillgradientrect(a.rect(0), a.ptr<tagGRADCOLORS>(1, KIV_T_STOPS), a.n(1), a.i(2), a.i(3))),
        RUN(m->fillgradientrect(a.i(0), a.i(1), a.i(2), a.i(3), a.ptr<tagGRADCOLORS>(4, KIV_T_STOPS), a.n(4), a.i(5), a.i(6))));
    t.op("make_gradtable", KIV_T_PALETTE, "a gradient rendered into a logical palette (free with free_gradtable)",
         {stops, Int("size", "entries", "palette entries").range(0, 65535)},
         RUN(kiv::make_gradtable(a.ptr<tagGRADCOLORS>(0, KIV_T_STOPS), a.n(0), a.i(1))))
        .flags(KIV_OP_STATIC)
        .refuses("too little memory");
    t.op("free_gradtable", V, "release a palette of make_gradtable or createlogpalette",
         {Pal("t", "the palette; null is ignored").flag(KIV_ARG_NULL)}, DO(kiv::free_gradtable(a.pal(0))))
        .flags(KIV_OP_STATIC);
    t.op("settoalpha", I, "every byte of each pixel becomes its lightness, (min + max) / 2", {}, RUN(m->settoalpha()));
    t.op("addborder", I, "grow the image by coloured borders (negative widths trim)",
         {Int("left", "pixels", "left border"), Int("right", "pixels", "right border"), Int("top", "pixels", "top border"),
          Int("bottom", "pixels", "bottom border"), Color("color", "border colour")},
         RUN(m->addborder(a.i(0), a.i(1), a.i(2), a.i(3), a.c(4))))
        .refuses("a result with no pixels or too large");
}

void geometry(Rows& t) {
    t.family = "geometry";
    t.op("blt", V, "copy the w x h block at (sx, sy) of src to (x, y), all four bytes, clipped",
         {Int("x", "pixels", "target column"), Int("y", "pixels", "target row"), Int("w", "pixels", "block width"),
          Int("h", "pixels", "block height"), Image("src", "the source (may be this image)"),
          Int("sx", "pixels", "source column"), Int("sy", "pixels", "source row")},
         DO(m->blt(a.i(0), a.i(1), a.i(2), a.i(3), a.img(4), a.i(5), a.i(6))));
    t.op("crop", I, "keep only the part inside rect", {Rect()}, RUN(m->crop(a.rect(0))));
    t.op("zoom", I, "resample to w x h with one of 14 filters (24-bit result; shrinking both sides also sharpens)",
         {Size("w", "new width"), Size("h", "new height"), Choice("method", kZoom, "the filter"),
          Bool("mapped", "nonzero: the result's pixels in a mapped temporary file").def(0)},
         RUN(m->zoom(a.i(0), a.i(1), a.i(2), a.i(3))))
        .refuses("the same size, too little memory");
    t.op("zoom_rgba", I, "resample as zoom (no sharpening), colour weighted by alpha and/or in linear light",
         {Size("w", "new width"), Size("h", "new height"), Choice("method", kZoom, "the filter"), Flags()},
         RUN(m->zoom_rgba(a.i(0), a.i(1), a.i(2), a.i(3))))
        .refuses("the same size, too little memory, " KIV_PALETTIZED_ALPHA);
    t.op("zoom_pixel", I, "resize to w x h by replicating pixels (keeps depth and map)",
         {Size("w", "new width"), Size("h", "new height")}, RUN(m->zoom_pixel(a.i(0), a.i(1))));
    t.op("zoom_near", I, "resize to w x h taking the nearest pixel (keeps depth and map)",
         {Size("w", "new width"), Size("h", "new height")}, RUN(m->zoom_near(a.i(0), a.i(1))));
    t.op("zoom_linear", I, "resize to w x h by bilinear interpolation (24-bit result)",
         {Size("w", "new width"), Size("h", "new height")}, RUN(m->zoom_linear(a.i(0), a.i(1))));
    t.op("zoom_inframe", I, "shrink to fit a w x h frame keeping the aspect ratio; no change when it fits",
         {Size("w", "frame width"), Size("h", "frame height")}, RUN(m->zoom_inframe(a.i(0), a.i(1))))
        .refuses("a frame that leaves less than one pixel");
    t.op("rotate", V, "quarter turn of the whole image",
         {Choice("dir", kTurn, "the turn; any nonzero value is counter-clockwise", KIV_OUT_REPLACED).replaced(1)},
         DO(m->rotate(a.i(0))));
    const char* box = "nothing of the box inside the image";
    struct Flip {
        const char* name;
        const char* summary;
        Invoke f;
    };
    for (const Flip& f : {Flip{"rotate180", "half turn of a box in place", RUN(m->rotate180(a.i(0), a.i(1), a.i(2), a.i(3)))},
                          Flip{"mirror", "reverse left and right in a box", RUN(m->mirror(a.i(0), a.i(1), a.i(2), a.i(3)))},
                          Flip{"flip", "reverse top and bottom in a box", RUN(m->flip(a.i(0), a.i(1), a.i(2), a.i(3)))}})
        t.op(f.name, I, f.summary,
             {Int("x", "pixels", "left edge"), Int("y", "pixels", "top edge"),
              Int("w", "pixels", "box width; w or h below 1: the whole image"), Int("h", "pixels", "box height")},
             f.f)
            .refuses(box);
    t.op("scroll", I, "shift the whole image, wrapping or leaving white strips",
         {Int("dx", "pixels", "columns to the right"), Int("dy", "pixels", "rows down"),
          Bool("wrap", "nonzero: what leaves one edge comes in at the other")},
         RUN(m->scroll(a.i(0), a.i(1), a.i(2))));
    t.op("tile", I, "the image becomes nx x ny copies of its part inside rect",
         {Rect(), Int("nx", "copies", "copies across").min(1), Int("ny", "copies", "copies down").min(1)},
         RUN(m->tile(a.rect(0), a.i(1), a.i(2))))
        .refuses("a result too large");
    t.op("tile_divide", I, "shrink the part inside rect n times and repeat it n x n times",
         {Rect(), Int("n", "copies", "copies per side").min(2)}, RUN(m->tile_divide(a.rect(0), a.i(1))))
        .refuses("a part narrower or lower than n pixels");
    t.op("rotate_any", I, "turn by any angle into an image just large enough to hold it",
         {Real("degrees", "degrees", "angle, counter-clockwise").finite(), Color("background", "colour of the uncovered corners"),
          Choice("method", kSampling, "sampling")},
         RUN(m->rotate_any(a.d(0), a.c(1), a.i(2))))
        .refuses("a result too large");
    t.op("rotate_any_rgba", I,
         "turn by any angle into a transparent surround, colour weighted by alpha and/or in linear light",
         {Real("degrees", "degrees", "angle, counter-clockwise").finite(), Choice("method", kSampling, "sampling"),
          Flags()},
         RUN(m->rotate_any_rgba(a.d(0), a.i(1), a.i(2))))
        .refuses("a result too large, " KIV_PALETTIZED_ALPHA);

    const char* nothing = "nothing to draw (no overlap, an empty source)";
    t.op("addlayer", I, "draw layer at (x, y) through a blend mode",
         {Image("layer", "the layer (may be this image)"), Int("x", "pixels", "left edge of the layer"),
          Int("y", "pixels", "top edge of the layer"), Opacity("opacity"), Mode(),
          Bool("usealpha", "nonzero: weigh each pixel by the layer's alpha as well")},
         RUN(m->addlayer(a.img(0), a.i(1), a.i(2), a.i(3), a.i(4), a.i(5))))
        .refuses(nothing);
    t.op("merge", I, "mix the part of src inside srcrect in at (x, y)",
         {Image("src", "the source (may be this image)"), Rect("srcrect", "the part of src; null or empty: all of it"),
          Int("x", "pixels", "left edge"), Int("y", "pixels", "top edge"), Opacity("opacity")},
         RUN(m->merge(a.img(0), a.rect(1), a.i(2), a.i(3), a.i(4))))
        .refuses(nothing);
    t.op("fadepaste", I, "paste src at (x, y) with an opacity fading from op0 to op1 toward dir",
         {Image("src", "the source (may be this image)"), Int("x", "pixels", "left edge"), Int("y", "pixels", "top edge"),
          Fade("op0", "opacity at the side opposite dir"), Fade("op1", "opacity at the side dir names"),
          Choice("dir", kDirs, "side or corner the fade runs toward")},
         RUN(m->fadepaste(a.img(0), a.i(1), a.i(2), a.i(3), a.i(4), a.i(5))))
        .refuses("both opacities 0, no overlap, an empty source");
    t.op("fadeinrect", I, "fade the rectangle toward a colour, the opacity ramping from op0 to op1",
         {Rect(), Color("color", "colour faded toward"), Fade("op0", "opacity at the side opposite dir"),
          Fade("op1", "opacity at the side dir names"), Choice("dir", kDirs, "side or corner the fade runs toward")},
         RUN(m->fadeinrect(a.rect(0), a.c(1), a.i(2), a.i(3), a.i(4))))
        .refuses("both opacities 0");
    t.op("texturefill", I, "tile texture over the rectangle through a blend mode",
         {Rect(), Image("texture", "the tile (may be this image)"), Opacity("opacity"), Mode()},
         RUN(m->texturefill(a.rect(0), a.img(1), a.i(2), a.i(3))))
        .refuses("an empty texture");
}

void adjust(Rows& t) {
    t.family = "adjust";
    t.op("bright_contrast", I, "change brightness and contrast",
         {Rect(), Int("brightness", "levels", "0 unchanged").range(-127, 127, KIV_OUT_CLAMPED),
          Int("contrast", "", "0 unchanged; 127 a step at mid-grey").range(-127, 127, KIV_OUT_CLAMPED)},
         RUN(m->bright_contrast(a.rect(0), a.i(1), a.i(2))));
    t.op("gamma_rgb", I, "gamma per channel, then a master gamma",
         {Rect(), Real("red", "", "gamma of red; 1 neutral, above 1 brightens"), Real("green", "", "gamma of green"),
          Real("blue", "", "gamma of blue"), Real("master", "", "gamma applied after the three")},
         RUN(m->gamma_rgb(a.rect(0), a.d(1), a.d(2), a.d(3), a.d(4))));
    t.op("gamma", I, "gamma correction", {Rect(), Real("g", "", "gamma; 1 neutral, above 1 brightens")},
         RUN(m->gamma(a.rect(0), a.d(1))));
    t.op("adjust_rgb", I, "change each channel by a percentage (+100 doubles, -100 gives 0)",
         {Rect(), Int("red", "percent", "change of red"), Int("green", "percent", "change of green"),
          Int("blue", "percent", "change of blue")},
         RUN(m->adjust_rgb(a.rect(0), a.i(1), a.i(2), a.i(3))));
    t.op("modulate", I, "shift hue, scale saturation and shift lightness in the HLS model",
         {Rect(), Int("hue", "1/255 turn", "hue shift"), Int("saturation", "1/128", "saturation change (128 doubles)"),
          Int("lightness", "levels", "lightness shift")},
         RUN(m->modulate(a.rect(0), a.i(1), a.i(2), a.i(3))));
    t.op("hue_saturation", I, "change hue, saturation and lightness of all colours or one sixth of the hue circle",
         {Rect(), Choice("range", kHues, "the colours changed"),
          Int("hue", "degrees", "hue shift").range(-180, 180, KIV_OUT_CLAMPED),
          Int("saturation", "percent", "saturation change").range(-100, 100, KIV_OUT_CLAMPED),
          Int("lightness", "percent", "lightness change").range(-100, 100, KIV_OUT_CLAMPED)},
         RUN(m->hue_saturation(a.rect(0), a.i(1), a.i(2), a.i(3), a.i(4))));
    t.op("negative", V, "complement red, green and blue (palettized: the colour map only)", {Rect()},
         DO(m->negative(a.rect(0))));
    t.op("invertrect", V, "complement red, green and blue (palettized: map and pixels)", {Rect()},
         DO(m->invertrect(a.rect(0))));
    t.op("invertrect_xywh", V, "complement red, green and blue of a box (palettized: map and pixels)",
         {Int("x", "pixels", "left edge"), Int("y", "pixels", "top edge"),
          Int("w", "pixels", "box width").min(1, KIV_OUT_UNCHANGED), Int("h", "pixels", "box height").min(1, KIV_OUT_UNCHANGED)},
         DO(m->invertrect(a.i(0), a.i(1), a.i(2), a.i(3))));
    t.op("desaturate", I, "grey at each pixel's lightness", {Rect()}, RUN(m->desaturate(a.rect(0))));
    t.op("posterize", I, "reduce each channel to evenly spaced levels",
         {Rect(), Int("levels", "levels", "levels per channel").min(2, KIV_OUT_CLAMPED)}, RUN(m->posterize(a.rect(0), a.i(1))));
    t.op("colorify", I, "tint: the luminance scaled into a colour (24-bit result)",
         {Rect(), Color("color", "tint colour")}, RUN(m->colorify(a.rect(0), a.c(1))));
    auto shift = [](const char* n) { return Int(n, "", "shift").range(-100, 100, KIV_OUT_CLAMPED).field(); };
    t.op("colorbalance", I, "shift the colour balance of shadows, midtones and highlights",
         {Rect(), shift("red_shadows"), shift("red_midtones"), shift("red_highlights"), shift("green_shadows"),
          shift("green_midtones"), shift("green_highlights"), shift("blue_shadows"), shift("blue_midtones"),
          shift("blue_highlights"), Bool("preserve", "nonzero: keep each pixel's lightness").field()},
         RUN([&] {
             tagKIV_COLORBALANCE cb{{a.i(1), a.i(2), a.i(3)}, {a.i(4), a.i(5), a.i(6)}, {a.i(7), a.i(8), a.i(9)}, a.i(10)};
             return m->colorbalance(a.rect(0), &cb);
         }()))
        .record("tagKIV_COLORBALANCE");
    t.op("colorcut", I, "quantize the channels of a colour space in fixed steps (24-bit result)",
         {Rect(), Space().field(), Int("step0", "", "step of the first channel; 0 leaves it alone").field(),
          Int("step1", "", "step of the second channel").field(), Int("step2", "", "step of the third channel").field()},
         RUN([&] {
             tagKIV_COLORCUT cc{a.i(1), {a.i(2), a.i(3), a.i(4)}};
             return m->colorcut(a.rect(0), &cc);
         }()))
        .record("tagKIV_COLORCUT");
    t.op("autocontrast", I, "stretch each channel to 0..255 by its own minimum and maximum", {Rect()},
         RUN(m->autocontrast(a.rect(0))));
    t.op("equalize", I, "equalize the whole image's luminance histogram", {Rect()}, RUN(m->equalize(a.rect(0))));
    t.op("normalize", I, "stretch luminance between the 1% and 99% points of the whole image", {Rect()},
         RUN(m->normalize(a.rect(0))))
        .refuses("a single luminance level (the image is destroyed)");
    t.op("autocolorenhance", I, "stretch the value of each colour's chromatic part to the full range", {Rect()},
         RUN(m->autocolorenhance(a.rect(0))));
}

void filter(Rows& t) {
    t.family = "filter";
    t.op("sharpen", I, "plain 3x3 sharpening", {Rect()}, RUN(m->sharpen(a.rect(0))));
    t.op("blur", I, "mean of four corner samples dx x dy apart",
         {Rect(), Int("dx", "pixels", "horizontal span").min(0, KIV_OUT_CLAMPED),
          Int("dy", "pixels", "vertical span").min(0, KIV_OUT_CLAMPED)},
         RUN(m->blur(a.rect(0), a.i(1), a.i(2))))
        .refuses("both spans below 1");
    t.op("blur_simple", I, "tent blur (alpha becomes 0)", {Rect(), Int("r", "pixels", "radius").range(0, 1000000)},
         RUN(m->blur_simple(a.rect(0), a.i(1))));
    A sigma = Real("sx", "pixels", "horizontal standard deviation").gt(0).finite();
    t.op("blur_gauss_iir", I, "recursive Gaussian blur, cost independent of the radius",
         {Rect(), sigma, Real("sy", "pixels", "vertical standard deviation").gt(0).finite()},
         RUN(m->blur_gauss_iir(a.rect(0), a.d(1), a.d(2))))
        .refuses("a sigma whose filter coefficients are not finite (below about 1e-308, some beyond 1.5e8)");
    A rle = Real("sigma", "pixels", "standard deviation").gt(0).max(10000);
    const char* tiny = "a sigma below about 1.5e-162";
    t.op("blur_gauss_rle_plane", I, "sampled Gaussian blur of chosen channels",
         {Rect(), rle, Uint("planes", "bits", "channels: bit 0 red, 1 green, 2 blue, 3 alpha")},
         RUN(m->blur_gauss_rle_plane(a.rect(0), a.d(1), a.u(2))))
        .refuses(tiny);
    t.op("blur_gauss_rgba", I, "recursive Gaussian blur, colour weighted by alpha and/or in linear light",
         {Rect(), sigma, Real("sy", "pixels", "vertical standard deviation").gt(0).finite(), Flags()},
         RUN(m->blur_gauss_rgba(a.rect(0), a.d(1), a.d(2), a.i(3))))
        .refuses("a sigma whose filter coefficients are not finite, " KIV_PALETTIZED_ALPHA);
    t.op("blur_gauss_rle", I, "sampled Gaussian blur (alpha kept)", {Rect(), rle}, RUN(m->blur_gauss_rle(a.rect(0), a.d(1))))
        .refuses(tiny);
    t.op("blur_gauss_sel", I, "selective Gaussian: averages only neighbours within threshold",
         {Rect(), Real("radius", "pixels", "where the kernel falls to 1/255; <= 0 changes nothing").max(127),
          Int("threshold", "levels", "largest difference averaged; negative changes nothing")},
         RUN(m->blur_gauss_sel(a.rect(0), a.d(1), a.i(2))));
    t.op("filter_3x3", I, "one of the built-in 3x3 filters",
         {Rect(), A("mode", KIV_T_UINT, "", "the filter").choices(k3x3, KIV_OUT_DEPTH)},
         RUN(m->filter_3x3(a.rect(0), a.u(1))));
    t.op("filter_custom3x3", I, "a 3x3 kernel of your own weights, clamp(sum / divisor)",
         {Rect(), Array("kernel", KIV_T_INTS, "nine weights, row-major").range(9, 9),
          Int("divisor", "", "divides the weighted sum; 0 counts as 1")},
         RUN(m->filter_custom3x3(a.rect(0), a.ptr<int>(1, KIV_T_INTS), a.i(2))));
    A strength = Int("strength", "", "1 strongest .. 40 mildest; another value counts as 10").range(1, 40).replaced(10);
    t.op("filter_sharpen", I, "3x3 sharpening of adjustable strength", {Rect(), strength},
         RUN(m->filter_sharpen(a.rect(0), a.i(1))));
    t.op("filter_soften", I, "3x3 softening of adjustable strength", {Rect(), strength},
         RUN(m->filter_soften(a.rect(0), a.i(1))));
    t.op("edge", I, "edge detection: gradient magnitude (alpha becomes 0)",
         {Rect(), Real("strength", "", "divides the magnitude (x 10); higher is fainter").min(1, KIV_OUT_CLAMPED)},
         RUN(m->edge(a.rect(0), a.d(1))));
    t.op("emboss", I, "relief lit from a direction (alpha becomes 0)",
         {Rect(), Az(30), El(45),
          Int("depth", "", "relief depth; only its low 16 bits count, and they must not be 0").field().def(20),
          Bool("mono", "nonzero: grey shade; 0: the colours scaled by the shade").field().def(1)},
         RUN([&] {
             tagKIV_EMBOSS p{a.d(1), a.d(2), a.i(3), a.i(4)};
             return m->emboss(a.rect(0), &p);
         }()))
        .record("tagKIV_EMBOSS", KIV_OP_NULL_RECORD)
        .refuses("a depth whose low 16 bits are 0");
    t.op("raise_edge", I, "bevelled frame: top and left lightened, bottom and right darkened",
         {Rect(), Int("n", "pixels", "frame width").min(0)}, RUN(m->raise_edge(a.rect(0), a.i(1))))
        .refuses("a rectangle narrower or lower than 2n");
    t.op("sharpen2", I, "adjustable 3x3 sharpening", {Rect(), Int("strength", "percent", "0 no change").range(0, 1000)},
         RUN(m->sharpen2(a.rect(0), a.i(1))));
    for (bool light : {false, true})
        t.op(light ? "unsharp_mask2" : "unsharp_mask", I,
             light ? "unsharp mask on lightness only (no colour fringes)" : "unsharp mask per channel",
             {Rect(), Real("radius", "pixels", "blur sigma").gt(0).max(1000),
              Int("amount", "percent", "strength").range(0, 1000),
              Int("threshold", "levels", "smallest difference sharpened").range(0, 255)},
             light ? Invoke(RUN(m->unsharp_mask2(a.rect(0), a.d(1), a.i(2), a.i(3))))
                   : Invoke(RUN(m->unsharp_mask(a.rect(0), a.d(1), a.i(2), a.i(3)))));
    t.op("unsharp_mask_rgba", I, "unsharp mask, colour weighted by alpha and/or in linear light",
         {Rect(), Real("radius", "pixels", "blur sigma").gt(0).max(1000),
          Int("amount", "percent", "strength").range(0, 1000),
          Int("threshold", "levels", "smallest difference sharpened").range(0, 255), Flags()},
         RUN(m->unsharp_mask_rgba(a.rect(0), a.d(1), a.i(2), a.i(3), a.i(4))))
        .refuses(KIV_PALETTIZED_ALPHA);
    t.op("enhance", I, "local contrast enhancement",
         {Rect(), Int("radius", "pixels", "half the box side").range(1, 1000), Int("amount", "", "strength").range(0, 100)},
         RUN(m->enhance(a.rect(0), a.i(1), a.i(2))));
    t.op("mblur_linear", I, "straight motion blur",
         {Rect(), Real("angle", "degrees", "0 horizontal, 90 up").finite(), Int("distance", "pixels", "length").range(0, 1000)},
         RUN(m->mblur_linear(a.rect(0), a.d(1), a.i(2))));
    const char* centre = "a centre more than 4 x (width + height) + 1024 pixels outside the image";
    A cx = Int("cx", "pixels", "centre column"), cy = Int("cy", "pixels", "centre row");
    t.op("mblur_radial", I, "spin blur about a centre",
         {Rect(), cx, cy, Real("angle", "degrees", "arc").range(0, 360)}, RUN(m->mblur_radial(a.rect(0), a.i(1), a.i(2), a.d(3))))
        .refuses(centre);
    t.op("mblur_round", I, "circular motion blur of the same length everywhere",
         {Rect(), cx, cy, Int("amount", "pixels", "arc length").range(0, 1000)},
         RUN(m->mblur_round(a.rect(0), a.i(1), a.i(2), a.i(3))))
        .refuses(centre);
    t.op("mblur_zoom", I, "zoom blur toward a centre",
         {Rect(), cx, cy, Int("amount", "percent", "part of the distance to the centre").range(0, 100)},
         RUN(m->mblur_zoom(a.rect(0), a.i(1), a.i(2), a.i(3))))
        .refuses(centre);
    A wind = Choice("direction", kWind, "where the wind blows to");
    A streak = Int("strength", "pixels", "streak length").range(1, 1000);
    t.op("sblur_wind", I, "wind: bright pixels leave fading streaks", {Rect(), wind, streak},
         RUN(m->sblur_wind(a.rect(0), a.i(1), a.i(2))));
    t.op("sblur_blast", I, "blast: a stronger wind", {Rect(), wind, streak}, RUN(m->sblur_blast(a.rect(0), a.i(1), a.i(2))));
}

void effect(Rows& t) {
    t.family = "effect";
    t.op("oilpaint", I, "oil paint: the mean colour of each neighbourhood's most frequent intensity",
         {Rect(), Int("radius", "pixels", "brush radius").range(1, 100), Int("levels", "levels", "intensity buckets").range(2, 256)},
         RUN(m->oilpaint(a.rect(0), a.i(1), a.i(2))));
    t.op("pixelize", I, "mosaic of square cells of their mean colour", {Rect(), Int("size", "pixels", "cell size").min(1)},
         RUN(m->pixelize(a.rect(0), a.i(1))));
    t.op("pyramid", I, "square tiles shaded as pyramids lit from the top left",
         {Rect(), Int("size", "pixels", "cell size").min(2), Int("depth", "levels", "face shading").range(0, 255)},
         RUN(m->pyramid(a.rect(0), a.i(1), a.i(2))));
    t.op("spread", I, "diffuse: every pixel swapped with a random neighbour",
         {Rect(), Int("distance", "pixels", "largest swap distance").range(0, 10000), Uint("seed", "", "random seed")},
         RUN(m->spread(a.rect(0), a.i(1), a.u(2))));
    t.op("video", I, "video display look: dark scan lines and an aperture-grille mask",
         {Rect(), Int("darken", "percent", "darkening of odd rows").range(0, 100),
          Int("stripes", "percent", "stripe mask strength; 0 none").range(0, 100)},
         RUN(m->video(a.rect(0), a.i(1), a.i(2))));
    t.op("noise", I, "add seeded uniform or Gaussian noise",
         {Rect(), Int("amount", "levels", "uniform range +-amount; Gaussian deviation amount / 2").range(0, 255).field(),
          Choice("gaussian", kNoise, "distribution").field(), Bool("mono", "nonzero: grey noise").field(),
          Uint("seed", "", "random seed").field()},
         RUN([&] {
             tagKIV_NOISE p{a.i(1), a.i(2), a.i(3), a.u(4)};
             return m->noise(a.rect(0), &p);
         }()))
        .record("tagKIV_NOISE");
    const char* flat = "an empty texture, an elevation giving a flat shade of 0";
    t.op("texturize", I, "relief of a tiled texture's intensity", {Rect(), Image("texture", "the texture (may be this image)"), Az(135), El(45), Depth(4)},
         RUN([&] {
             tagKIV_TEXTURE p{a.d(2), a.d(3), a.i(4)};
             return m->texturize(a.rect(0), a.img(1), &p);
         }()))
        .record("tagKIV_TEXTURE", KIV_OP_NULL_RECORD)
        .refuses(flat);
    t.op("texturize_by_file", I, "texturize with a texture read from a BMP file",
         {Rect(), Str("path", "the BMP file (any form loadbmp reads)"), Az(135), El(45), Depth(4)},
         RUN([&] {
             tagKIV_TEXTURE p{a.d(2), a.d(3), a.i(4)};
             return m->texturize_by_file(a.rect(0), a.str(1), &p);
         }()))
        .record("tagKIV_TEXTURE", KIV_OP_NULL_RECORD)
        .refuses("a missing, unreadable or malformed file, an elevation giving a flat shade of 0");
    t.op("texture_save", I, "write the rectangle as a 24-bit BMP file for texturize_by_file",
         {Rect(), Str("path", "the file written (replaced only on success)")}, RUN(m->texture_save(a.rect(0), a.str(1))))
        .refuses("an empty path, a write failure");
    A invert = Bool("invert", "nonzero: dark parts stand high").field().def(0);
    t.op("bumpmap", I, "light the image by a height field and multiply by the shade",
         {Rect(), Image("map", "the height field (may be this image)"), Az(135), El(45), Depth(4), invert},
         RUN([&] {
             tagKIV_BUMPMAP p{a.d(2), a.d(3), a.i(4), a.i(5)};
             return m->bumpmap(a.rect(0), a.img(1), &p);
         }()))
        .record("tagKIV_BUMPMAP", KIV_OP_NULL_RECORD)
        .refuses("an empty map");
    t.op("bumpmap_merge", I, "blend the bump-mapped rectangle over the original",
         {Rect(), Image("map", "the height field (may be this image)"), Az(135), El(45), Depth(4), invert, Mode(),
          Opacity("opacity")},
         RUN([&] {
             tagKIV_BUMPMAP p{a.d(2), a.d(3), a.i(4), a.i(5)};
             return m->bumpmap_merge(a.rect(0), a.img(1), &p, a.i(6), a.i(7));
         }()))
        .record("tagKIV_BUMPMAP", KIV_OP_NULL_RECORD)
        .refuses("an empty map");
}

}  // namespace

void add_rows(std::vector<Row>& rows) {
    Rows t{rows};
    image_and_palette(t);
    quantize(t);
    fill(t);
    geometry(t);
    adjust(t);
    filter(t);
    effect(t);
}

}  // namespace kivops
