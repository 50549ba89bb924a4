// Colour-space conversions: RGB to and from HSV, HLS, YCbCr, YIQ, CMY and CIE L*a*b*, each
// held in bytes 0..2 of a pixel.  See kiv.h (KIV_CS_*) for the byte scaling of each space.
#include "palette/colorspace.h"

#include <algorithm>

#include "core/color_models.h"
#include "core/parallel.h"
#include "core/watch.h"
#include "kiv.h"

namespace kivpal {
namespace {

// Round half up and clamp to a byte: floor(v + 0.5) for the values that matter.
inline BYTE to_byte(double v) {
    v += 0.5;
    if (v <= 0.0) return 0;
    if (v >= 255.0) return 255;
    return static_cast<BYTE>(static_cast<int>(v));
}

// ---- HSV: the library's model, each of h, s, v (0..1) times 255 ------------------------

void rgb_to_hsv(tagRGBA& p) {
    const kivcore::Hsv o = kivcore::rgb_to_hsv(p.r, p.g, p.b);
    p.r = to_byte(o.h * 255.0);
    p.g = to_byte(o.s * 255.0);
    p.b = to_byte(o.v * 255.0);
}

void hsv_to_rgb(tagRGBA& p) {
    // The model truncates its channels; taking v at the centre of its byte (v + 0.5) makes
    // that truncation round, so greys and pure colours come back exactly.
    const kivcore::Hsv in{p.r / 255.0, p.g / 255.0, (p.b + 0.5) / 255.0};
    int r, g, b;
    kivcore::hsv_to_rgb(in, &r, &g, &b);
    p.r = static_cast<BYTE>(r);
    p.g = static_cast<BYTE>(g);
    p.b = static_cast<BYTE>(b);
}

// ---- HLS: the library's integer model, already on 0..255 --------------------------------

void rgb_to_hls(tagRGBA& p) {
    const kivcore::Hls o = kivcore::rgb_to_hls(p.r, p.g, p.b);
    p.r = static_cast<BYTE>(o.h);
    p.g = static_cast<BYTE>(o.l);
    p.b = static_cast<BYTE>(o.s);
}

void hls_to_rgb(tagRGBA& p) {
    int r, g, b;
    kivcore::hls_to_rgb(p.r, p.g, p.b, &r, &g, &b);
    p.r = static_cast<BYTE>(r);  // the model keeps 0..255 for byte inputs
    p.g = static_cast<BYTE>(g);
    p.b = static_cast<BYTE>(b);
}

// ---- YCbCr: ITU-R BT.601, full range (JFIF) ---------------------------------------------

void rgb_to_ycbcr(tagRGBA& p) {
    const double r = p.r, g = p.g, b = p.b;
    const double y = 0.299 * r + 0.587 * g + 0.114 * b;
    const double cb = 128.0 - 0.168736 * r - 0.331264 * g + 0.5 * b;
    const double cr = 128.0 + 0.5 * r - 0.418688 * g - 0.081312 * b;
    p.r = to_byte(y);
    p.g = to_byte(cb);
    p.b = to_byte(cr);
}

void ycbcr_to_rgb(tagRGBA& p) {
    const double y = p.r, cb = p.g - 128.0, cr = p.b - 128.0;
    const double r = y + 1.402 * cr;
    const double g = y - 0.344136 * cb - 0.714136 * cr;
    const double b = y + 1.772 * cb;
    p.r = to_byte(r);
    p.g = to_byte(g);
    p.b = to_byte(b);
}

// ---- YIQ (FCC NTSC): I and Q scaled from their 8-bit ranges onto +-127 around 128 ---------
// (128 is grey, exactly, so greys survive a round trip.)

constexpr double kIRange = 0.5959;  // largest |I| per unit of RGB
constexpr double kQRange = 0.5227;  // largest |Q| per unit of RGB
constexpr double kIScale = 127.0 / (kIRange * 255.0);
constexpr double kQScale = 127.0 / (kQRange * 255.0);

void rgb_to_yiq(tagRGBA& p) {
    const double r = p.r, g = p.g, b = p.b;
    const double y = 0.299 * r + 0.587 * g + 0.114 * b;
    const double i = 0.5959 * r - 0.2746 * g - 0.3213 * b;
    const double q = 0.2115 * r - 0.5227 * g + 0.3112 * b;
    p.r = to_byte(y);
    p.g = to_byte(128.0 + i * kIScale);
    p.b = to_byte(128.0 + q * kQScale);
}

void yiq_to_rgb(tagRGBA& p) {
    const double y = p.r, i = (p.g - 128.0) / kIScale, q = (p.b - 128.0) / kQScale;
    // The exact inverse of the forward matrix.
    const double r = y + 0.9560502263958942 * i + 0.6207549413271235 * q;
    const double g = y - 0.27205234368892417 * i - 0.6472057134551777 * q;
    const double b = y - 1.1067043153243326 * i + 1.7044212836963109 * q;
    p.r = to_byte(r);
    p.g = to_byte(g);
    p.b = to_byte(b);
}

// ---- CMY ----------------------------------------------------------------------------------

void invert(tagRGBA& p) {
    p.r = static_cast<BYTE>(255 - p.r);
    p.g = static_cast<BYTE>(255 - p.g);
    p.b = static_cast<BYTE>(255 - p.b);
}

// ---- CIE L*a*b*, sRGB primaries, D65 -------------------------------------------------------

// sRGB byte -> linear light, the IEC 61966-2-1 curve, as exact double literals so that no
// pow() of any platform is involved.
const double kSrgbToLinear[256] = {
    0.0, 0.0003035269835488375, 0.000607053967097675, 0.0009105809506465125,
    0.00121410793419535, 0.0015176349177441874, 0.001821161901293025, 0.0021246888848418626,
    0.0024282158683907, 0.0027317428519395373, 0.003035269835488375, 0.003346535763899161,
    0.003676507324047436, 0.004024717018496307, 0.004391442037410293, 0.004776953480693729,
    0.005181516702338386, 0.005605391624202723, 0.006048833022857054, 0.006512090792594475,
    0.006995410187265387, 0.007499032043226175, 0.008023192985384994, 0.008568125618069307,
    0.009134058702220787, 0.00972121732023785, 0.010329823029626936, 0.010960094006488246,
    0.011612245179743885, 0.012286488356915872, 0.012983032342173012, 0.013702083047289686,
    0.014443843596092545, 0.01520851442291271, 0.01599629336550963, 0.016807375752887384,
    0.017641954488384078, 0.018500220128379697, 0.019382360956935723, 0.0202885630566524,
    0.021219010376003555, 0.02217388479338738, 0.02315336617811041, 0.024157632448504756,
    0.02518685962736163, 0.026241221894849898, 0.027320891639074894, 0.028426039504420793,
    0.0295568344378088, 0.030713443732993635, 0.03189603307301153, 0.033104766570885055,
    0.03433980680868217, 0.03560131487502034, 0.03688945040110004, 0.0382043715953465,
    0.03954623527673284, 0.04091519690685319, 0.042311410620809675, 0.043735029256973465,
    0.04518620438567554, 0.046665086336880095, 0.04817182422688942, 0.04970656598412723,
    0.05126945837404324, 0.052860647023180246, 0.05448027644244237, 0.05612849004960009,
    0.05780543019106723, 0.0595112381629812, 0.06124605423161761, 0.06301001765316767,
    0.06480326669290577, 0.06662593864377289, 0.06847816984440017, 0.07036009569659588,
    0.07227185068231748, 0.07421356838014963, 0.07618538148130785, 0.07818742180518633,
    0.08021982031446832, 0.0822827071298148, 0.08437621154414882, 0.08650046203654976,
    0.08865558628577294, 0.09084171118340768, 0.09305896284668745, 0.0953074666309647,
    0.09758734714186246, 0.09989872824711389, 0.10224173308810132, 0.10461648409110419,
    0.10702310297826761, 0.10946171077829933, 0.1119324278369056, 0.11443537382697373,
    0.11697066775851084, 0.11953842798834562, 0.12213877222960187, 0.12477181756095049,
    0.12743768043564743, 0.1301364766903643, 0.13286832155381798, 0.13563332965520566,
    0.13843161503245183, 0.14126329114027164, 0.14412847085805777, 0.14702726649759498,
    0.14995978981060856, 0.15292615199615017, 0.1559264637078274, 0.1589608350608804,
    0.162029375639111, 0.1651321945016676, 0.16826940018969075, 0.1714411007328226,
    0.17464740365558504, 0.17788841598362912, 0.18116424424986022, 0.184474994500441,
    0.18782077230067787, 0.19120168274079138, 0.1946178304415758, 0.19806931955994886,
    0.20155625379439707, 0.20507873639031693, 0.20863687014525575, 0.21223075741405523,
    0.21586050011389926, 0.2195261997292692, 0.2232279573168085, 0.22696587351009836,
    0.23074004852434915, 0.23455058216100522, 0.238397573812271, 0.24228112246555486,
    0.24620132670783548, 0.25015828472995344, 0.25415209433082675, 0.2581828529215958,
    0.26225065752969623, 0.26635560480286247, 0.2704977910130658, 0.27467731206038465,
    0.2788942634768104, 0.2831487404299921, 0.2874408377269175, 0.29177064981753587,
    0.2961382707983211, 0.3005437944157765, 0.3049873140698863, 0.30946892281750854,
    0.31398871337571754, 0.31854677812509186, 0.32314320911295075, 0.3277780980565422,
    0.33245153634617935, 0.33716361504833037, 0.3419144249086609, 0.3467040563550296,
    0.35153259950043936, 0.3564001441459435, 0.3613067797835095, 0.3662525955988395,
    0.3712376804741491, 0.3762621229909065, 0.38132601143253014, 0.386429433787049,
    0.39157247774972326, 0.39675523072562685, 0.4019777798321958, 0.4072402119017367,
    0.41254261348390375, 0.4178850708481375, 0.4232676699860717, 0.4286904966139066,
    0.43415363617474895, 0.4396571738409188, 0.44520119451622786, 0.45078578283822346,
    0.45641102318040466, 0.4620769996544071, 0.467783796112159, 0.47353149614800955,
    0.4793201831008268, 0.4851499400560704, 0.4910208498478356, 0.4969329950608704,
    0.5028864580325687, 0.5088813208549338, 0.5149176653765214, 0.5209955732043543,
    0.5271151257058131, 0.5332764040105052, 0.5394794890121072, 0.5457244613701866,
    0.5520114015120001, 0.5583403896342679, 0.5647115057049292, 0.5711248294648731,
    0.5775804404296506, 0.5840784178911641, 0.5906188409193369, 0.5972017883637634,
    0.6038273388553378, 0.6104955708078648, 0.6172065624196511, 0.6239603916750761,
    0.6307571363461468, 0.6375968739940326, 0.6444796819705821, 0.6514056374198242,
    0.6583748172794485, 0.665387298282272, 0.6724431569576875, 0.6795424696330938,
    0.6866853124353135, 0.6938717612919899, 0.7011018919329731, 0.7083757798916868,
    0.7156935005064807, 0.7230551289219693, 0.7304607400903537, 0.7379104087727308,
    0.7454042095403874, 0.7529422167760779, 0.7605245046752924, 0.768151147247507,
    0.7758222183174236, 0.7835377915261935, 0.7912979403326302, 0.799102738014409,
    0.8069522576692516, 0.8148465722161012, 0.8227857543962835, 0.8307698767746546,
    0.83879901174074, 0.846873231509858, 0.8549926081242338, 0.8631572134541023,
    0.8713671191987972, 0.8796223968878317, 0.8879231178819663, 0.8962693533742664,
    0.9046611743911496, 0.9130986517934192, 0.9215818562772946, 0.9301108583754237,
    0.938685728457888, 0.9473065367331999, 0.9559733532492861, 0.9646862478944651,
    0.9734452903984125, 0.9822505503331171, 0.9911020971138298, 1.0,
};

// Decoding back: the byte whose linear value is nearest, found among the midpoints between
// neighbouring table entries (exact in linear light, no pow()).
struct LinearToSrgb {
    double mid[255];
    LinearToSrgb() {
        for (int i = 0; i < 255; ++i) mid[i] = (kSrgbToLinear[i] + kSrgbToLinear[i + 1]) * 0.5;
    }
    BYTE operator()(double v) const {
        return static_cast<BYTE>(std::upper_bound(mid, mid + 255, v) - mid);
    }
};
const LinearToSrgb kLinearToSrgb;

// sRGB (D65) to XYZ and back; the white point is the matrix's row sums.
constexpr double kM[3][3] = {{0.4124564, 0.3575761, 0.1804375},
                             {0.2126729, 0.7151522, 0.0721750},
                             {0.0193339, 0.1191920, 0.9503041}};
constexpr double kMInv[3][3] = {{3.2404548360214083, -1.5371388501025751, -0.4985315468684809},
                                {-0.9692663898756537, 1.8760109288424913, 0.041556082346673524},
                                {0.05564341960421366, -0.20402585426769815, 1.0572251624579287}};
constexpr double kXn = 0.4124564 + 0.3575761 + 0.1804375;
constexpr double kYn = 0.2126729 + 0.7151522 + 0.0721750;
constexpr double kZn = 0.0193339 + 0.1191920 + 0.9503041;

constexpr double kDelta = 6.0 / 29.0;
constexpr double kDelta3 = kDelta * kDelta * kDelta;
constexpr double kSlope = 3.0 * kDelta * kDelta;  // of the linear part near black

inline double lab_f(double t) { return t > kDelta3 ? cube_root(t) : t / kSlope + 4.0 / 29.0; }
inline double lab_finv(double f) { return f > kDelta ? f * f * f : kSlope * (f - 4.0 / 29.0); }

void rgb_to_lab(tagRGBA& p) {
    const double r = kSrgbToLinear[p.r], g = kSrgbToLinear[p.g], b = kSrgbToLinear[p.b];
    const double x = kM[0][0] * r + kM[0][1] * g + kM[0][2] * b;
    const double y = kM[1][0] * r + kM[1][1] * g + kM[1][2] * b;
    const double z = kM[2][0] * r + kM[2][1] * g + kM[2][2] * b;
    const double fx = lab_f(x / kXn), fy = lab_f(y / kYn), fz = lab_f(z / kZn);
    p.r = to_byte((116.0 * fy - 16.0) * 2.55);
    p.g = to_byte(500.0 * (fx - fy) + 128.0);
    p.b = to_byte(200.0 * (fy - fz) + 128.0);
}

void lab_to_rgb(tagRGBA& p) {
    const double l = p.r / 2.55, a = p.g - 128.0, bb = p.b - 128.0;
    const double fy = (l + 16.0) / 116.0;
    const double fx = fy + a / 500.0;
    const double fz = fy - bb / 200.0;
    const double x = kXn * lab_finv(fx), y = kYn * lab_finv(fy), z = kZn * lab_finv(fz);
    const double r = kMInv[0][0] * x + kMInv[0][1] * y + kMInv[0][2] * z;
    const double g = kMInv[1][0] * x + kMInv[1][1] * y + kMInv[1][2] * z;
    const double b = kMInv[2][0] * x + kMInv[2][1] * y + kMInv[2][2] * z;
    p.r = kLinearToSrgb(r);
    p.g = kLinearToSrgb(g);
    p.b = kLinearToSrgb(b);
}

using PixelFn = void (*)(tagRGBA&);

template <PixelFn F>
void run(tagRGBA* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) F(p[i]);
}

}  // namespace

double cube_root(double t) {
    if (t <= 0.0) return 0.0;
    // From above the root (0.5 + 0.5t >= cbrt(t) on 0..2) Newton's steps fall monotonically;
    // ten of them reach the nearest doubles from the farthest start in range.
    double y = 0.5 + 0.5 * t;
    for (int i = 0; i < 10; ++i) y = (2.0 * y + t / (y * y)) / 3.0;
    return y;
}

bool colorspace_known(int colorspace) { return colorspace >= KIV_CS_RGB && colorspace <= KIV_CS_LAB; }

namespace {

// Each space's row conversions, to it and back, by code; RGB is the identity.
using RowFn = void (*)(tagRGBA*, std::size_t);
struct Conversion {
    RowFn to, from;
};
constexpr Conversion kConversions[] = {
    {nullptr, nullptr},                      // KIV_CS_RGB
    {run<rgb_to_hsv>, run<hsv_to_rgb>},      // KIV_CS_HSV
    {run<rgb_to_hls>, run<hls_to_rgb>},      // KIV_CS_HLS
    {run<rgb_to_ycbcr>, run<ycbcr_to_rgb>},  // KIV_CS_YCBCR
    {run<rgb_to_yiq>, run<yiq_to_rgb>},      // KIV_CS_YIQ
    {run<invert>, run<invert>},              // KIV_CS_CMY
    {run<rgb_to_lab>, run<lab_to_rgb>},      // KIV_CS_LAB
};
static_assert(sizeof kConversions / sizeof kConversions[0] == KIV_CS_LAB + 1, "one entry per colour-space code");

}  // namespace

void rgb_to_space(tagRGBA* p, std::size_t n, int colorspace) {
    if (colorspace_known(colorspace) && kConversions[colorspace].to) kConversions[colorspace].to(p, n);
}

void space_to_rgb(tagRGBA* p, std::size_t n, int colorspace) {
    if (colorspace_known(colorspace) && kConversions[colorspace].from) kConversions[colorspace].from(p, n);
}

}  // namespace kivpal

namespace {

// Shared body of the two members: validate, raise a palettized image to true colour, convert
// the rectangle's rows in parallel.
int convert_rect(kiv* img, tagRECT* rect, int colorspace, bool forward) {
    if (!img->m_pixels || !kivpal::colorspace_known(colorspace)) return 0;
    tagRECT r;
    if (!img->validaterect(rect, &r)) return 0;
    // Converting only the rectangle needs per-pixel colours: the image leaves the palette
    // (its map stays, as with every operation that raises the depth).
    if (img->m_bits < 24) img->m_bits = 24;
    tagRGBA* px = img->m_pixels;
    const auto w = static_cast<std::size_t>(img->m_width);
    const auto n = static_cast<std::size_t>(r.right - r.left);
    kivcore::parallel_for(r.top, r.bottom, kivcore::row_work(static_cast<long long>(n), 8), [&](int y) {
        tagRGBA* row = px + static_cast<std::size_t>(y) * w + static_cast<std::size_t>(r.left);
        if (forward)
            kivpal::rgb_to_space(row, n, colorspace);
        else
            kivpal::space_to_rgb(row, n, colorspace);
    });
    return 1;
}

}  // namespace

int kiv::convert_colorspace(tagRECT* rect, int colorspace) {
    return kivcore::watched(*this, kivcore::Keep::kCopy,
                            [&]() -> int { return convert_rect(this, rect, colorspace, true); });
}
int kiv::convert_rgb(tagRECT* rect, int colorspace) {
    return kivcore::watched(*this, kivcore::Keep::kCopy,
                            [&]() -> int { return convert_rect(this, rect, colorspace, false); });
}
