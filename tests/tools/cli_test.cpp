// The kiv program end to end: formats in and out, pipelines, alpha, bad input and exit codes.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "cli.h"
#include "codec.h"
#include "image_io.h"
#include "ops.h"
#include "support/scratch_dir.h"
#include "support/test_images.h"

namespace fs = std::filesystem;
using kivcli::Alpha;
using kivcli::Picture;
using kivcli::run_cli;

namespace {

struct CliResult {
    int code;
    std::string out, err;
};

CliResult cli(std::vector<std::string> args) {
    std::ostringstream out, err;
    int code = run_cli(args, out, err);
    return CliResult{code, out.str(), err.str()};
}

struct Scratch : kivtest::ScratchDir {
    Scratch() : kivtest::ScratchDir("kivcli_") {}
};
using kivtest::read_bytes;
using kivtest::write_bytes;

kiv card() {
    kiv img;
    kivcli::make_test_card(img, 61, 37);  // odd sizes: BMP row padding matters
    return img;
}

void save(kiv img, const std::string& path, Alpha alpha = Alpha::None, kivcli::Bytes icc = {}) {
    Picture p;
    p.img.movefrom(&img);
    p.alpha = alpha;
    p.icc = icc;
    kivcli::save_image(path, p);
}

struct Loaded : Picture {
    explicit Loaded(const std::string& path, bool autorotate = true) { kivcli::load_image(path, *this, {autorotate}); }
};

// Whether the format is served by the built-in stb codecs (builds without the system's codec
// libraries), which read and write true colour only; false when this build lacks the format.
bool builtin(const char* format) {
    const kivcli::Codec* c = kivcli::find_codec(format);
    return c && std::string(c->library).rfind("stb", 0) == 0;
}
std::string writable(const std::string& name) {
    const kivcli::Codec* c = kivcli::find_codec(name.substr(name.rfind('.')));
    return c && c->encode ? name : name.substr(0, name.rfind('.')) + ".png";
}

// Whether a and b agree in red, green and blue (and in the fourth byte when all4).
::testing::AssertionResult same_pixels(const kiv& a, const kiv& b, bool all4) {
    if (a.m_width != b.m_width || a.m_height != b.m_height) return ::testing::AssertionFailure() << "sizes differ";
    for (int i = 0; i < a.m_packets; ++i) {
        tagRGBA p = a.m_pixels[i], q = b.m_pixels[i];
        if (!all4) p.a = q.a = 0;
        if (!kivtest::same_rgba(p, q)) return ::testing::AssertionFailure() << "pixel " << i << kivtest::rgba_str(p) << kivtest::rgba_str(q);
    }
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(Cli, ListHelpVersionAndFormats) {
    CliResult r = cli({"--list"});
    EXPECT_EQ(0, r.code);
    for (const auto& op : kivcli::all_ops()) EXPECT_NE(std::string::npos, r.out.find(op.name)) << op.name;
    for (const char* op : {"crop", "rect"}) EXPECT_EQ(0, cli({"help", op}).code) << op;
    EXPECT_NE(std::string::npos, cli({"help", "fillsolidrect"}).out.find("fillsolidrect '#2040C0' 96"));
    CliResult bad = cli({"help", "no_such_op"});
    EXPECT_EQ(2, bad.code);
    EXPECT_NE(std::string::npos, bad.err.find("unknown operation"));
    EXPECT_EQ(2, cli({}).code);
    EXPECT_EQ(0, cli({"--help"}).code);
    EXPECT_EQ("kiv " + std::string(kiv_version()) + " (kivlib)\n", cli({"--version"}).out);
    const std::string formats = cli({"--formats"}).out;
    for (const char* f : {"png ", "jpeg ", "bmp "}) EXPECT_NE(std::string::npos, formats.find(f)) << f;
    // A format this build lacks is listed as missing, one this build has is not.
    const std::string tiff = formats.substr(formats.find("tiff "), formats.find('\n', formats.find("tiff ")) - formats.find("tiff "));
    EXPECT_EQ(!kivcli::find_codec("tiff"), tiff.find("not in this build") != std::string::npos) << tiff;
    EXPECT_NE(std::string::npos, cli({"--manpage"}).out.find(".SH OPERATIONS"));
}

TEST(Cli, ParsesArgumentKindsAndEveryColourForm) {
    double v = 0;
    for (const char* c : {"#FF8000", "FF8000", "ff8000", "0xFF8000", "#f80", "darkorange", "DarkOrange"}) {
        ASSERT_TRUE(kivcli::parse_arg(c, kivcli::ArgKind::Color, &v)) << c;
        EXPECT_EQ(std::string(c).find_first_of("kK") != std::string::npos ? 0x008CFF : std::string(c) == "#f80" ? 0x0088FF : 0x0080FF,
                  static_cast<long>(v)) << c;  // COLORREF: red in the low byte
    }
    for (const char* c : {"#12345", "FF80", "0x1234567", "nosuchcolour", "-1", "#GGGGGG"})
        EXPECT_FALSE(kivcli::parse_arg(c, kivcli::ArgKind::Color, &v)) << c;
    EXPECT_TRUE(kivcli::parse_arg("-2.5", kivcli::ArgKind::Real, &v));
    EXPECT_EQ(-2.5, v);
    EXPECT_FALSE(kivcli::parse_arg("nan", kivcli::ArgKind::Real, &v));
    for (const char* i : {"1.5", "99999999999", "", "0x10"}) EXPECT_FALSE(kivcli::parse_arg(i, kivcli::ArgKind::Int, &v)) << i;
    EXPECT_TRUE(kivcli::parse_value("lanczos3", kivcli::find_op("zoom")->args[2], &v) && v == 11);
}

// Every format this build writes, on true colour, alpha, palettized and grey images: the same
// pixels back where the format is lossless, the depth and map kept where it holds them.
TEST(Cli, FormatsRoundTrip) {
    Scratch s;
    kiv grey = card();
    grey.grayscale();
    struct Image {
        const char* name;
        kiv img;
        Alpha alpha;
    } images[] = {{"rgb", card(), Alpha::None},
                  {"rgba", kivtest::random_image(13, 7, 32, 1), Alpha::Pixels},
                  {"p1", kivtest::random_image(13, 7, 1, 2), Alpha::None},
                  {"p4", kivtest::random_image(13, 7, 4, 3), Alpha::None},
                  {"p8", kivtest::random_image(13, 7, 8, 4), Alpha::None},
                  {"grey", grey, Alpha::None}};
    for (Image& im : images) {
        // The source as a file that holds it whole: BMP for palettized images.
        const std::string src = s(std::string(im.name) + (im.img.m_bits <= 8 ? ".bmp" : ".png"));
        save(im.img, src, im.alpha);
        for (const kivcli::Codec& c : kivcli::codecs()) {
            if (!c.encode || !c.decode) continue;
            const std::string fmt = c.name, out = s(std::string(im.name) + "_out." + fmt);
            ASSERT_EQ(0, cli({src, "--lossless", "--quality", "95", "-o", out, "--format", fmt}).code) << fmt;
            Loaded back(out);
            const std::string what = std::string(im.name) + " as " + fmt;
            const bool lossy = fmt == "jpeg" || (fmt == "gif" && im.img.m_bits > 8);
            const bool keeps_alpha = fmt == "png" || fmt == "tiff" || fmt == "webp" || fmt == "gif" || fmt == "bmp";
            const bool keeps_map = fmt == "bmp" || ((fmt == "png" || fmt == "tiff" || fmt == "gif") && !builtin(c.name));
            if (im.alpha == Alpha::Pixels) EXPECT_EQ(keeps_alpha ? Alpha::Pixels : Alpha::None, back.alpha) << what;
            if (im.img.m_bits <= 8 && keeps_map) EXPECT_EQ(im.img.m_bits, back.img.m_bits) << what;
            if (!lossy) {
                EXPECT_TRUE(same_pixels(im.img, back.img, (im.alpha == Alpha::Pixels && keeps_alpha) || (im.img.m_bits <= 8 && keeps_map))) << what;
                continue;
            }
            ASSERT_EQ(im.img.m_packets, back.img.m_packets) << what;
            if (std::string(im.name) != "rgb") continue;  // noise does not survive a lossy format
            double err = 0;
            for (int i = 0; i < back.img.m_packets; ++i) err += std::abs(back.img.m_pixels[i].g - im.img.m_pixels[i].g);
            EXPECT_LT(err / back.img.m_packets, 8) << what;
        }
    }
    // A grey image stays grey in the formats that hold grey.
    for (const char* fmt : {"png", "tiff", "jpeg"}) {
        if (!kivcli::find_codec(fmt) || builtin(fmt)) continue;
        ASSERT_EQ(0, cli({s("grey.bmp"), "-o", s("g." + std::string(fmt))}).code);
        Loaded g(s("g." + std::string(fmt)));
        EXPECT_EQ(kivcli::Layout::Grey, kivcli::layout_of(g)) << fmt;
    }
}

// 16-bit samples are rounded to 8 bits: a hand-made 16-bit RGB PNG (stored deflate blocks).
TEST(Cli, SixteenBitInputsRoundToEightBits) {
    auto crc = [](const unsigned char* p, std::size_t n) {
        unsigned long c = 0xFFFFFFFFul;
        for (std::size_t i = 0; i < n; ++i) {
            c ^= p[i];
            for (int k = 0; k < 8; ++k) c = (c >> 1) ^ ((c & 1) ? 0xEDB88320ul : 0);
        }
        return c ^ 0xFFFFFFFFul;
    };
    const unsigned short v[6] = {0x0000, 0x0080, 0x8080, 0x807F, 0xFF7F, 0xFFFF};  // two pixels
    std::vector<unsigned char> raw(13, 0);  // filter byte, then the samples, big-endian
    for (int i = 0; i < 6; ++i) raw[1 + 2 * i] = static_cast<unsigned char>(v[i] >> 8), raw[2 + 2 * i] = static_cast<unsigned char>(v[i]);
    unsigned long a = 1, b = 0;
    for (unsigned char c : raw) a = (a + c) % 65521, b = (b + a) % 65521;
    std::vector<unsigned char> z{0x78, 0x01, 1, static_cast<unsigned char>(raw.size()), 0, static_cast<unsigned char>(~raw.size()), 0xFF};
    z.insert(z.end(), raw.begin(), raw.end());
    for (int k = 24; k >= 0; k -= 8) z.push_back(static_cast<unsigned char>(((b << 16) | a) >> k));
    kivcli::Bytes png{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    auto chunk = [&](const char* type, std::vector<unsigned char> data) {
        for (int k = 24; k >= 0; k -= 8) png.push_back(static_cast<unsigned char>(data.size() >> k));
        data.insert(data.begin(), type, type + 4);
        png.insert(png.end(), data.begin(), data.end());
        const unsigned long c = crc(data.data(), data.size());
        for (int k = 24; k >= 0; k -= 8) png.push_back(static_cast<unsigned char>(c >> k));
    };
    chunk("IHDR", {0, 0, 0, 2, 0, 0, 0, 1, 16, 2, 0, 0, 0});
    chunk("IDAT", z);
    chunk("IEND", {});
    Picture p;
    kivcli::decode_image(png, p);
    ASSERT_EQ(2, p.img.width());
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(std::lround(v[i] * 255.0 / 65535.0), (&p.img.m_pixels[i / 3].r)[i % 3]) << i;
}

TEST(Cli, JpegExifOrientationSixTurnsClockwise) {
    Scratch s;
    save(card(), s("in.png"));
    ASSERT_EQ(0, cli({s("in.png"), "-o", s("plain.jpg")}).code);
    kivcli::Bytes jpg = read_bytes(s("plain.jpg"));
    // APP1: "Exif\0\0", a little-endian TIFF header, one IFD entry: orientation (0x0112) = 6.
    const unsigned char app1[] = {0xFF, 0xE1, 0, 34, 'E', 'x', 'i', 'f', 0, 0, 'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0,
                                  0x12, 0x01, 3, 0, 1, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0};
    jpg.insert(jpg.begin() + 2, std::begin(app1), std::end(app1));
    write_bytes(s("six.jpg"), jpg);
    Loaded stored(s("six.jpg"), false), upright(s("six.jpg"));
    EXPECT_EQ(61, stored.img.width());
    stored.img.rotate(0);
    EXPECT_TRUE(kivtest::images_equal(stored.img, upright.img));
    ASSERT_EQ(0, cli({s("six.jpg"), "--no-autorotate", "-o", s("kept.png")}).code);
    EXPECT_EQ(61, Loaded(s("kept.png")).img.width());
}

TEST(Cli, IccProfileIsCarriedWhereBothFormatsHoldOne) {
    if (builtin("png")) GTEST_SKIP() << "the built-in codecs carry no profile";
    Scratch s;
    // A valid header, no tags, then noise (a profile must not compress to almost nothing).
    kivcli::Bytes icc(400, 0);
    for (std::size_t i = 132; i < icc.size(); ++i) icc[i] = static_cast<unsigned char>(i * 7919 >> 3);
    const unsigned char head[] = {0, 0, 1, 144, 'k', 'i', 'v', ' ', 2, 0x10, 0, 0, 'm', 'n', 't', 'r', 'R', 'G', 'B', ' ', 'X', 'Y', 'Z', ' '};
    std::copy(std::begin(head), std::end(head), icc.begin());
    std::copy_n("acsp", 4, icc.begin() + 36);
    const unsigned char d50[] = {0, 0, 0xF6, 0xD6, 0, 1, 0, 0, 0, 0, 0xD3, 0x2D};
    std::copy(std::begin(d50), std::end(d50), icc.begin() + 68);
    save(card(), s("in.png"), Alpha::None, icc);
    ASSERT_EQ(icc, Loaded(s("in.png")).icc);
    for (const char* out : {"o.tif", "o.jpg", "o.webp", "o.png"}) {
        if (writable(out) != out) continue;
        ASSERT_EQ(0, cli({s("in.png"), "negative", "-o", s(out)}).code) << out;
        EXPECT_EQ(icc, Loaded(s(out)).icc) << out;
    }
}

// Alpha goes through the operations that keep the alpha byte (zoom weighting by it); one that
// defines it away gives an opaque output and says so under -v; settoalpha makes it.
TEST(Cli, AlphaKeptThroughOperationsAndDroppedWhereDefinedAway) {
    Scratch s;
    kiv rgba = kivtest::random_image(24, 16, 32, 9);
    save(rgba, s("a.png"), Alpha::Pixels);
    save(card(), s("opaque.png"));
    struct Case {
        std::vector<std::string> ops;
        const char* out;
        bool alpha;
    } cases[] = {{{"negative"}, "n.png", true}, {{"blur_gauss_iir", "1", "1"}, "b.tif", true}, {{"rotate", "1"}, "r.webp", true},
                 {{"zoom", "30", "20", "11"}, "z.png", true}, {{"zoom_linear", "30", "20"}, "l.png", false},
                 {{"blur_simple", "2"}, "s.png", false},
                 {{"quantize", "0", "16"}, "q.png", false}};
    for (const Case& c : cases) {
        std::vector<std::string> args{s("a.png"), "-v", "--lossless"};
        args.insert(args.end(), c.ops.begin(), c.ops.end());
        args.insert(args.end(), {"-o", s(writable(c.out))});
        CliResult r = cli(args);
        ASSERT_EQ(0, r.code) << r.err;
        Loaded back(s(writable(c.out)));
        EXPECT_EQ(c.alpha ? Alpha::Pixels : Alpha::None, back.alpha) << c.out;
        EXPECT_EQ(!c.alpha, r.err.find("the output is opaque") != std::string::npos) << r.err;
        if (c.ops[0] == "negative")
            for (int i = 0; i < rgba.packets(); ++i) ASSERT_EQ(rgba.m_pixels[i].a, back.img.m_pixels[i].a) << i;
    }
    ASSERT_EQ(0, cli({s("opaque.png"), "settoalpha", "-o", s("t.png")}).code);
    EXPECT_EQ(Alpha::Pixels, Loaded(s("t.png")).alpha);
}

// A quantized image writes as an indexed PNG; a palette with alpha in its map as an indexed PNG
// with a tRNS chunk, read back with the same alpha.
TEST(Cli, IndexedPngAfterQuantizeAndTransparentPalette) {
    if (builtin("png")) GTEST_SKIP() << "the built-in PNG writer writes true colour";
    Scratch s;
    save(card(), s("in.png"));
    ASSERT_EQ(0, cli({s("in.png"), "quantize", "0", "16", "-o", s("q.png")}).code);
    kivcli::Bytes q = read_bytes(s("q.png"));
    EXPECT_EQ(3, q[25]);  // IHDR colour type: palette
    Loaded back(s("q.png"));
    EXPECT_LE(back.img.bits(), 8);
    EXPECT_LE(back.img.countcolors(), 16u);
    Picture p;
    p.img.copyfrom(&back.img);
    p.alpha = Alpha::Map;
    for (int k = 0; k < p.img.m_colors; ++k) p.img.m_map[k].a = static_cast<BYTE>(k * 17);
    kivcli::Bytes png = kivcli::encode_image(p, "t.png", "", {});
    EXPECT_EQ(3, png[25]);
    ASSERT_NE(std::string::npos, std::string(png.begin(), png.end()).find("tRNS"));
    Picture t;
    kivcli::decode_image(png, t);
    ASSERT_EQ(Alpha::Pixels, t.alpha);
    for (int i = 0; i < t.img.m_packets; ++i) ASSERT_EQ(back.img.m_pixels[i].a * 17, t.img.m_pixels[i].a) << i;
}

TEST(Cli, BadCommandLinesExitWithUsageErrors) {
    Scratch s;
    save(card(), s("in.png"));
    struct Case {
        std::vector<std::string> args;
        const char* says;
    } cases[] = {
        {{s("in.png")}, "no output"},
        {{s("in.png"), "-o"}, "-o needs"},
        {{s("in.png"), "frobnicate", "-o", s("o.png")}, "unknown operation"},
        {{s("in.png"), "--frobnicate", "-o", s("o.png")}, "unknown option"},
        {{s("in.png"), "rect", "1", "2", "-o", s("o.png")}, "missing argument"},
        {{s("in.png"), "rect", "1", "x", "3", "4", "-o", s("o.png")}, "expects integer"},
        {{s("in.png"), "rect", "10", "10", "-5", "10", "-o", s("o.png")}, "W and H must be >= 1"},
        {{s("in.png"), "-o", s("o.png"), "-o", s("p.png")}, "twice"},
        {{s("in.png"), "zoom", "10", "10", "99", "-o", s("o.png")}, "kiv: zoom: METHOD must be 0..13 (got 99)"},
        {{s("in.png"), "zoom", "0", "100", "11", "-o", s("o.png")}, "W must be >= 1 (got 0)"},
        {{s("in.png"), "oilpaint", "101", "20", "-o", s("o.png")}, "RADIUS must be 1..100 (got 101)"},
        {{s("in.png"), "quantize", "1", "300", "-o", s("o.png")}, "COLORS must be 1..256 (got 300)"},
        {{s("in.png"), "solidfill", "white", "255", "99", "-o", s("o.png")}, "MODE must be 0..8, 10..18 (got 99)"},
        {{s("in.png"), "gradientfill", "red", "lime", "blue", "2000", "1", "1", "0", "-o", s("o.png")}, "POS must be 0..1000 (got 2000)"},
        {{s("in.png"), "colorify", "bogus", "-o", s("o.png")}, "#RRGGBB, RRGGBB, #RGB, 0xRRGGBB or a CSS colour name"},
        {{s("in.png"), "--quality", "0", "-o", s("o.png")}, "--quality must be 1..100"},
        {{s("in.png"), "--format", "xyz", "-o", s("o.png")}, "writes no format 'xyz'"},
        {{s("in.png"), "--format", "", "-o", s("o.png")}, "writes no format ''"},
        {{"batch", s("*.png"), "negative"}, "no output directory"},
    };
    for (const Case& c : cases) {
        CliResult r = cli(c.args);
        EXPECT_EQ(2, r.code) << c.says;
        EXPECT_NE(std::string::npos, r.err.find(c.says)) << r.err;
        EXPECT_EQ(1u, std::count(r.err.begin(), r.err.end(), '\n')) << "one line: " << r.err;
    }
    EXPECT_EQ(std::vector<std::string>{"in.png"}, s.files());
}

TEST(Cli, UnreadableMalformedAndUnwritableFilesFailCleanly) {
    Scratch s;
    save(card(), s("ok.png"));
    kivcli::Bytes png = read_bytes(s("ok.png"));
    save(card(), s("ok.bmp"));
    kivcli::Bytes bmp = read_bytes(s("ok.bmp"));
    write_bytes(s("garbage.png"), {1, 2, 3, 4, 5, 6, 7, 8});
    write_bytes(s("trunc.png"), kivcli::Bytes(png.begin(), png.begin() + static_cast<long>(png.size() / 2)));
    write_bytes(s("trunc.bmp"), kivcli::Bytes(bmp.begin(), bmp.begin() + 60));
    kivcli::Bytes lying = bmp;
    lying[14 + 8] = 0xFF;  // biHeight far beyond the data
    lying[14 + 9] = 0x7F;
    write_bytes(s("lying.bmp"), lying);
    write_bytes(s("empty.bmp"), {});
    for (const char* in : {"missing.png", "garbage.png", "trunc.png", "trunc.bmp", "lying.bmp", "empty.bmp"}) {
        CliResult r = cli({s(in), "-o", s("out.png")});
        EXPECT_EQ(1, r.code) << in;
        EXPECT_EQ(1u, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
        EXPECT_FALSE(fs::exists(s("out.png"))) << in;
    }
    EXPECT_NE(std::string::npos, cli({s("lying.bmp"), "-o", s("out.png")}).err.find("BMP file: pixel rows cut short"));
    // Outputs that cannot be written give the system's reason; no file, no temporary left.
    CliResult r = cli({s("ok.png"), "-o", s("no/such/dir/out.png")});
    EXPECT_EQ(1, r.code);
    EXPECT_EQ(0u, r.err.find("kiv: cannot write '" + s("no/such/dir/out.png") + "': ")) << r.err;
    EXPECT_GT(r.err.size(), r.err.find("': ") + 4);
    EXPECT_NE(std::string::npos, cli({s("ok.png"), "-o", s("out.xyz")}).err.find("unknown format"));
    if (!kivcli::find_codec("tiff")) EXPECT_NE(std::string::npos, cli({s("ok.png"), "-o", s("out.tif")}).err.find("this build has no tiff"));
    EXPECT_EQ((std::vector<std::string>{"empty.bmp", "garbage.png", "lying.bmp", "ok.bmp", "ok.png", "trunc.bmp", "trunc.png"}), s.files());
}

// Regressions from daily use: a resize to the size the image has, a write through a symbolic
// link, second images from files, and info.
TEST(Cli, ResizeToOwnSizeSymlinksSecondInputsAndInfo) {
    Scratch s;
    kiv src = card();
    save(src, s("in.png"));
    ASSERT_EQ(0, cli({s("in.png"), "zoom", "61", "37", "11", "-o", s("same.png")}).code);
    EXPECT_TRUE(same_pixels(Loaded(s("in.png")).img, Loaded(s("same.png")).img, true));
#ifndef _WIN32
    fs::create_symlink("target.png", s("link.png"));
    ASSERT_EQ(0, cli({s("in.png"), "-o", s("link.png")}).code);
    EXPECT_TRUE(fs::is_symlink(s("link.png")));
    EXPECT_EQ(read_bytes(s("in.png")), read_bytes(s("target.png")));
#endif
    // addlayer with a layer file gives what the member gives with that layer.
    kiv layer = kivtest::random_image(20, 10, 24, 5);
    save(layer, s("layer.bmp"));
    ASSERT_EQ(0, cli({s("in.png"), "addlayer", s("layer.bmp"), "3", "4", "200", "multiply", "0", "-o", s("l.png")}).code);
    kiv want = src;
    ASSERT_EQ(1, want.addlayer(&layer, 3, 4, 200, 7, 0));
    EXPECT_TRUE(same_pixels(want, Loaded(s("l.png")).img, false));
    // quantize_wpal takes its colours from a GIMP palette.
    write_bytes(s("p.gpl"), {'G', 'I', 'M', 'P', ' ', 'P', 'a', 'l', 'e', 't', 't', 'e', '\n', '#', '\n', '1', ' ', '2', ' ', '3', '\n', '2', '5', '0', ' ', '9', ' ', '9', '\n'});
    ASSERT_EQ(0, cli({s("in.png"), "quantize_wpal", "0", s("p.gpl"), "-o", s("w.png")}).code);
    Loaded w(s("w.png"));
    for (int i = 0; i < w.img.m_packets; ++i) ASSERT_TRUE(w.img.m_pixels[i].r == 1 || w.img.m_pixels[i].r == 250) << i;
    CliResult info = cli({"info", s("w.png"), s("missing.png")});
    EXPECT_EQ(1, info.code);
    EXPECT_EQ(s("w.png") + ": 61 x 37, png, " + (builtin("png") ? "RGB 24" : "indexed 1") + "-bit, 2 colours in use, no alpha\n", info.out);
}

TEST(Cli, BatchGoesOnPastACorruptFile) {
    Scratch s;
    fs::create_directory(s("in"));
    for (int k = 0; k < 3; ++k) save(kivtest::random_image(9 + k, 5, 24, k), s("in/" + std::to_string(k) + ".png"));
    write_bytes(s("in/bad.png"), {0x89, 'P', 'N', 'G', 1, 2});
    CliResult r = cli({"batch", "-j", "2", s("in/*.png"), "--out", s("out"), "mirror", "-q"});
    EXPECT_EQ(1, r.code);
    EXPECT_EQ(2u, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;  // the failure and the summary
    EXPECT_NE(std::string::npos, r.err.find("bad.png: ")) << r.err;
    for (int k = 0; k < 3; ++k) {
        kiv want = kivtest::random_image(9 + k, 5, 24, k);
        want.mirror(0, 0, 0, 0);
        EXPECT_TRUE(same_pixels(want, Loaded(s("out/" + std::to_string(k) + ".png")).img, false)) << k;
    }
    EXPECT_EQ(3u, std::distance(fs::directory_iterator(s("out")), fs::directory_iterator()));
    EXPECT_EQ(0, cli({"batch", s("in/0.png"), "--out", s("out2"), "--format", "bmp", "flip"}).code);
    EXPECT_TRUE(fs::exists(s("out2/0.bmp")));
}

TEST(Cli, RectLimitsFollowingOperations) {
    Scratch s;
    kiv src = card();
    save(src, s("in.png"));
    ASSERT_EQ(0, cli({s("in.png"), "rect", "5", "6", "20", "10", "crop", "-o", s("c.png")}).code);
    Loaded out(s("c.png"));
    EXPECT_EQ(20, out.img.width());
    EXPECT_EQ(10, out.img.height());
    EXPECT_EQ(src.pos(5, 6)->g, out.img.m_pixels[0].g);
}

TEST(Cli, DemoWritesAGalleryWhoseImagesExist) {
    Scratch s;
    CliResult r = cli({"demo", "--out", s("demo")});
    ASSERT_EQ(0, r.code) << r.err;
    std::ifstream in(s("demo/index.html"));
    std::string html((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    int images = 0;
    for (std::size_t at = html.find("src=\""); at != std::string::npos; at = html.find("src=\"", at + 1)) {
        std::size_t end = html.find('"', at + 5);
        std::string file = html.substr(at + 5, end - at - 5);
        EXPECT_TRUE(fs::exists(s("demo/" + file))) << file;
        ++images;
    }
    int shown = 0;
    for (const auto& op : kivcli::all_ops()) shown += op.demo != "-";
    EXPECT_EQ(2 * shown, images);  // a before and an after per operation
}

// A pipeline through the program gives the same bytes as the same members called directly.
TEST(Cli, PipelineMatchesTheLibraryCalledDirectly) {
    Scratch s;
    save(card(), s("in.png"));
    CliResult r = cli({s("in.png"), "zoom", "40", "30", "10", "blur_gauss_iir", "1.5", "1", "bright_contrast", "20",
                       "30", "rect", "3", "4", "10", "8", "fillsolidrect", "#FF8000", "128", "mirror", "rect", "0",
                       "0", "0", "0", "colorbalance", "10", "20", "0", "0", "0", "0", "-30", "0", "5", "1",
                       "gradientfill", "black", "FFFFFF", "#F00", "250", "6", "100", "7", "-o", s("out.png")});
    ASSERT_EQ(0, r.code) << r.err;

    kiv want = Loaded(s("in.png")).img;
    ASSERT_EQ(1, want.zoom(40, 30, 10, 0));
    ASSERT_EQ(1, want.blur_gauss_iir(nullptr, 1.5, 1.0));
    ASSERT_EQ(1, want.bright_contrast(nullptr, 20, 30));
    ASSERT_EQ(1, want.fillsolidrect(3, 4, 10, 8, 0x0080FF, 128));
    ASSERT_EQ(1, want.mirror(3, 4, 10, 8));
    tagKIV_COLORBALANCE cb{{10, 20, 0}, {0, 0, 0}, {-30, 0, 5}, 1};
    ASSERT_EQ(1, want.colorbalance(nullptr, &cb));
    tagGRADCOLORS stops[3] = {{0x000000, 0}, {0xFFFFFF, 250}, {0x0000FF, 1000}};
    ASSERT_EQ(1, want.gradientfill(nullptr, stops, 3, 6, 100, 7));
    EXPECT_TRUE(same_pixels(want, Loaded(s("out.png")).img, false));
}

// Every operation has help and demo arguments that parse and lie in range, one per argument;
// with them, on images the gallery never shows, an empty image stays empty, whatever an
// operation accepts leaves a consistent image behind, and one that keeps the alpha byte (by
// the program's list) keeps it wherever the image keeps its size.
TEST(Cli, EveryOperationHasHelpAndCopesWithSmallPalettizedAndEmptyImages) {
    Scratch s;
    save(kivtest::random_image(8, 8, 24, 3), s("texture.bmp"));
    write_bytes(s("palette.gpl"), {'G', 'I', 'M', 'P', ' ', 'P', 'a', 'l', 'e', 't', 't', 'e', '\n', '9', ' ', '8', ' ', '7', '\n'});
    for (const auto& op : kivcli::all_ops()) {
        EXPECT_FALSE(op.summary.empty()) << op.name;
        if (op.demo == "-") continue;
        kivcli::OpCall call;
        std::istringstream words(op.demo);
        std::string w;
        for (std::size_t k = 0; words >> w; ++k) {
            double v = 0;
            ASSERT_LT(k, op.args.size()) << op.name;
            ASSERT_TRUE(kivcli::parse_value(w, op.args[k], &v) && kivcli::out_of_range(w, op.args[k], v).empty()) << op.name << " " << w;
            call.args.push_back(v);
            call.text.push_back(s(w));
            call.images.push_back(op.args[k].kind == kivcli::ArgKind::Image ? std::make_shared<kiv>(kivtest::random_image(3, 2, 24, 4)) : nullptr);
        }
        EXPECT_EQ(op.args.size(), call.args.size()) << op.name;
        kiv empty;
        op.run(empty, call);
        EXPECT_EQ(nullptr, empty.m_pixels) << op.name;
        tagRECT inside{1, 1, 4, 3};
        struct Case {
            int w, h, bits;
            tagRECT* rect;
        } cases[] = {{1, 1, 24, nullptr}, {7, 5, 8, nullptr}, {7, 5, 4, &inside}, {6, 4, 32, &inside}, {6, 4, 32, nullptr}};
        for (const Case& c : cases) {
            kiv img = kivtest::random_image(c.w, c.h, c.bits, 7u);
            for (int i = 0; c.bits == 32 && i < img.m_packets; ++i) img.m_pixels[i].a = 200;
            call.rect = c.rect;
            if (!op.run(img, call)) continue;
            ASSERT_NE(nullptr, img.m_pixels) << op.name;
            EXPECT_EQ(img.width() * img.height(), img.packets()) << op.name;
            EXPECT_TRUE(img.bits() >= 24 || (img.map() && img.colors() > 0)) << op.name << " bits " << c.bits;
            if (c.bits == 32 && op.alpha == kivcli::AlphaEffect::Keeps && img.m_bits > 8 && img.m_width == c.w && img.m_height == c.h)
                for (int i = 0; i < img.m_packets; ++i) ASSERT_EQ(200, img.m_pixels[i].a) << op.name << " drops alpha";
        }
    }
}

// `rect X Y W H` whose far edge passes the int range saturates there (the sum used to be
// converted to int out of range).
TEST(Cli, RectEdgesSaturateAtTheIntRange) {
    struct Case {
        std::vector<std::string> xywh;
        tagRECT want;
    } cases[] = {
        {{"2147483647", "0", "2147483647", "1"}, {INT32_MAX, 0, INT32_MAX, 1}},
        {{"-2147483648", "-2147483648", "1", "1"}, {INT32_MIN, INT32_MIN, INT32_MIN + 1, INT32_MIN + 1}},
        {{"1", "2", "3", "4"}, {1, 2, 4, 6}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args{"in.bmp", "rect"};
        args.insert(args.end(), c.xywh.begin(), c.xywh.end());
        args.insert(args.end(), {"flip", "-o", "out.png"});
        kivcli::Pipeline p;
        std::ostringstream err;
        ASSERT_EQ(kivcli::parse_pipeline(args, &p, err), kivcli::kExitOk) << err.str();
        ASSERT_EQ(p.steps.size(), 2u);
        const tagRECT& r = p.steps[0].rect;
        EXPECT_EQ(r.left, c.want.left);
        EXPECT_EQ(r.top, c.want.top);
        EXPECT_EQ(r.right, c.want.right);
        EXPECT_EQ(r.bottom, c.want.bottom);
        // Running it on an image must refuse or clip, never touch memory outside.
        Picture pic;
        pic.img.movefrom(&*std::make_unique<kiv>(kivtest::random_image(5, 3, 24, 1)));
        kivcli::run_pipeline(p, pic, err);
        EXPECT_EQ(pic.img.packets(), 15);
    }
}

// Transparent inputs are resampled and blurred with colour weighted by alpha (and keep their
// alpha), --linear works in linear light, and each matches its library member.
TEST(Cli, TransparencyAndLinearLightTakeTheWeightedMembers) {
    Scratch s;
    kiv src(64, 64, 32);
    for (int i = 0; i < src.m_packets; ++i) {
        const int x = i % 64 - 32, y = i / 64 - 32;
        src.m_pixels[i] = x * x + y * y < 400 ? tagRGBA{255, 0, 0, 255} : tagRGBA{0, 255, 0, 0};
    }
    save(src, s("in.png"), Alpha::Pixels);
    struct Case {
        std::vector<std::string> op;
        std::function<int(kiv&)> member;
    } cases[] = {{{"zoom", "16", "16", "11"}, [](kiv& k) { return k.zoom_rgba(16, 16, 11, 1); }},
                 {{"zoom", "20", "20", "10", "--linear"}, [](kiv& k) { return k.zoom_rgba(20, 20, 10, 3); }},
                 {{"blur_gauss_iir", "3", "3"}, [](kiv& k) { return k.blur_gauss_rgba(nullptr, 3, 3, 1); }}};
    for (const Case& c : cases) {
        std::vector<std::string> args = {s("in.png")};
        args.insert(args.end(), c.op.begin(), c.op.end());
        args.insert(args.end(), {"-o", s("out.png")});
        CliResult r = cli(args);
        ASSERT_EQ(0, r.code) << r.err;
        kiv want(src);
        ASSERT_EQ(1, c.member(want));
        Loaded got(s("out.png"));
        EXPECT_EQ(Alpha::Pixels, got.alpha) << c.op[0];
        EXPECT_TRUE(kivtest::images_equal(got.img, want)) << c.op[0];
    }
}

// Ctrl-C during a long operation: exit code 130, no output file, no temporary left (the
// scratch directory checks that).
TEST(Cli, InterruptStopsWithoutWritingAnything) {
    Scratch s;
    kiv src;
    kivcli::make_test_card(src, 1200, 900);
    save(src, s("in.png"));
    std::thread ctrl_c([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        std::raise(SIGINT);
    });
    CliResult r = cli({s("in.png"), "blur_gauss_sel", "60", "255", "blur_gauss_sel", "60", "255", "-o", s("out.png")});
    ctrl_c.join();
    EXPECT_EQ(130, r.code) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("interrupted"));
    EXPECT_FALSE(fs::exists(s("out.png")));
}
