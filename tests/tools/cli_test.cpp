// The kiv program end to end: formats in and out, pipelines, bad input and exit codes.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "cli.h"
#include "image_io.h"
#include "ops.h"
#include "support/scratch_dir.h"
#include "support/test_images.h"

namespace fs = std::filesystem;
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
using kivtest::write_bytes;

kiv card() {
    kiv img;
    kivcli::make_test_card(img, 61, 37);  // odd sizes: BMP row padding matters
    return img;
}

}  // namespace

TEST(Cli, ListAndHelp) {
    CliResult r = cli({"--list"});
    EXPECT_EQ(0, r.code);
    for (const auto& op : kivcli::all_ops()) EXPECT_NE(std::string::npos, r.out.find(op.name)) << op.name;
    EXPECT_EQ(0, cli({"help", "crop"}).code);
    CliResult bad = cli({"help", "no_such_op"});
    EXPECT_EQ(2, bad.code);
    EXPECT_NE(std::string::npos, bad.err.find("unknown operation"));
    EXPECT_EQ(2, cli({}).code);
    EXPECT_EQ(0, cli({"--help"}).code);
}

TEST(Cli, ParsesArgumentKinds) {
    double v = 0;
    EXPECT_TRUE(kivcli::parse_arg("#FF8000", kivcli::ArgKind::Color, &v));
    EXPECT_EQ(0x0080FF, static_cast<long>(v));  // COLORREF: red in the low byte
    EXPECT_TRUE(kivcli::parse_arg("0x123456", kivcli::ArgKind::Color, &v));
    EXPECT_EQ(0x123456, static_cast<long>(v));
    EXPECT_FALSE(kivcli::parse_arg("#12345", kivcli::ArgKind::Color, &v));
    EXPECT_TRUE(kivcli::parse_arg("-2.5", kivcli::ArgKind::Real, &v));
    EXPECT_EQ(-2.5, v);
    EXPECT_FALSE(kivcli::parse_arg("nan", kivcli::ArgKind::Real, &v));
    EXPECT_FALSE(kivcli::parse_arg("1.5", kivcli::ArgKind::Int, &v));
    EXPECT_FALSE(kivcli::parse_arg("99999999999", kivcli::ArgKind::Int, &v));
    EXPECT_FALSE(kivcli::parse_arg("", kivcli::ArgKind::Int, &v));
    EXPECT_TRUE(kivcli::parse_value("lanczos3", kivcli::find_op("zoom")->args[2], &v) && v == 11);
}

TEST(Cli, FormatsRoundTrip) {
    Scratch s;
    kiv src = card();
    kivcli::write_file_atomic(s("in.png"), kivcli::encode_png(src));
    ASSERT_EQ(0, cli({s("in.png"), "-o", s("a.bmp")}).code);
    ASSERT_EQ(0, cli({s("a.bmp"), "-o", s("b.png")}).code);
    kiv back;
    kivcli::load_image(s("b.png"), back);
    ASSERT_EQ(src.width(), back.width());
    for (int i = 0; i < src.packets(); ++i) {
        ASSERT_EQ(src.m_pixels[i].r, back.m_pixels[i].r);
        ASSERT_EQ(src.m_pixels[i].b, back.m_pixels[i].b);
    }
    // Palettized images are written as 8/4/1-bit BMP and read back with their indices, 32-bit
    // images as V5 BMP with their alpha.
    for (int bits : {1, 4, 8, 32}) {
        kiv pal = kivtest::random_image(13, 7, bits, static_cast<std::uint64_t>(bits));
        std::string name = s("p" + std::to_string(bits) + ".bmp");
        kivcli::write_file_atomic(name, kivcli::encode_bmp(pal));
        kiv in;
        kivcli::load_image(name, in);
        EXPECT_EQ(bits, in.bits());
        EXPECT_TRUE(kivtest::images_equal(pal, in)) << bits;
    }
    EXPECT_EQ((std::vector<std::string>{"a.bmp", "b.png", "in.png", "p1.bmp", "p32.bmp", "p4.bmp", "p8.bmp"}),
              s.files());
}

TEST(Cli, BadCommandLinesExitWithUsageErrors) {
    Scratch s;
    kiv src = card();
    kivcli::write_file_atomic(s("in.png"), kivcli::encode_png(src));
    struct Case {
        std::vector<std::string> args;
        const char* says;
    } cases[] = {
        {{s("in.png")}, "no output"},
        {{s("in.png"), "-o"}, "-o needs"},
        {{s("in.png"), "frobnicate", "-o", s("o.png")}, "unknown operation"},
        {{s("in.png"), "rect", "1", "2", "-o", s("o.png")}, "missing argument"},
        {{s("in.png"), "rect", "1", "x", "3", "4", "-o", s("o.png")}, "expects integer"},
        {{s("in.png"), "-o", s("o.png"), "-o", s("p.png")}, "twice"},
        {{s("in.png"), "zoom", "10", "10", "99", "-o", s("o.png")}, "kiv: zoom: METHOD must be 0..13 (got 99)"},
        {{s("in.png"), "oilpaint", "101", "20", "-o", s("o.png")}, "RADIUS must be 1..100 (got 101)"},
        {{s("in.png"), "solidfill", "#FFFFFF", "255", "9", "-o", s("o.png")}, "MODE must be 0..8, 10..18 (got 9)"},
    };
    for (const Case& c : cases) {
        CliResult r = cli(c.args);
        EXPECT_EQ(2, r.code) << c.says;
        EXPECT_NE(std::string::npos, r.err.find(c.says)) << r.err;
        EXPECT_EQ(1u, std::count(r.err.begin(), r.err.end(), '\n')) << "one line: " << r.err;
    }
    EXPECT_EQ(std::vector<std::string>{"in.png"}, s.files());
}

TEST(Cli, UnreadableAndMalformedFilesFailCleanly) {
    Scratch s;
    kiv src = card();
    std::vector<unsigned char> png = kivcli::encode_png(src), bmp = kivcli::encode_bmp(src);
    write_bytes(s("garbage.png"), {1, 2, 3, 4, 5, 6, 7, 8});
    write_bytes(s("trunc.png"), std::vector<unsigned char>(png.begin(), png.begin() + static_cast<long>(png.size() / 2)));
    write_bytes(s("trunc.bmp"), std::vector<unsigned char>(bmp.begin(), bmp.begin() + 60));
    std::vector<unsigned char> lying = bmp;
    lying[14 + 8] = 0xFF;  // biHeight far beyond the data
    lying[14 + 9] = 0x7F;
    write_bytes(s("lying.bmp"), lying);
    write_bytes(s("empty.bmp"), {});
    for (const char* in : {"missing.png", "garbage.png", "trunc.png", "trunc.bmp", "lying.bmp", "empty.bmp"}) {
        CliResult r = cli({s(in), "-o", s("out.png")});
        EXPECT_EQ(1, r.code) << in;
        EXPECT_FALSE(r.err.empty()) << in;
        EXPECT_FALSE(fs::exists(s("out.png"))) << in;
    }
    EXPECT_NE(std::string::npos, cli({s("lying.bmp"), "-o", s("out.png")}).err.find("BMP file: pixel rows cut short"));
    // An output that cannot be written: no file, no temporary left behind.
    write_bytes(s("ok.png"), png);
    CliResult r = cli({s("ok.png"), "-o", s("no/such/dir/out.png")});
    EXPECT_EQ(1, r.code);
    CliResult r2 = cli({s("ok.png"), "-o", s("out.gif")});
    EXPECT_EQ(1, r2.code);
    EXPECT_NE(std::string::npos, r2.err.find("unknown format"));
    EXPECT_EQ((std::vector<std::string>{"empty.bmp", "garbage.png", "lying.bmp", "ok.png", "trunc.bmp", "trunc.png"}),
              s.files());
}

TEST(Cli, RectLimitsFollowingOperations) {
    Scratch s;
    kiv src = card();
    kivcli::write_file_atomic(s("in.png"), kivcli::encode_png(src));
    ASSERT_EQ(0, cli({s("in.png"), "rect", "5", "6", "20", "10", "crop", "-o", s("c.png")}).code);
    kiv out;
    kivcli::load_image(s("c.png"), out);
    EXPECT_EQ(20, out.width());
    EXPECT_EQ(10, out.height());
    EXPECT_EQ(src.pos(5, 6)->g, out.m_pixels[0].g);
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
    kiv src = card();
    kivcli::write_file_atomic(s("in.png"), kivcli::encode_png(src));
    CliResult r = cli({s("in.png"), "zoom", "40", "30", "10", "blur_gauss_iir", "1.5", "1", "bright_contrast", "20",
                       "30", "rect", "3", "4", "10", "8", "fillsolidrect", "#FF8000", "128", "mirror", "rect", "0",
                       "0", "0", "0", "colorbalance", "10", "20", "0", "0", "0", "0", "-30", "0", "5", "1",
                       "gradientfill", "#000000", "#FFFFFF", "#FF0000", "250", "6", "100", "7", "-o", s("out.png")});
    ASSERT_EQ(0, r.code) << r.err;

    kiv want;
    kivcli::load_image(s("in.png"), want);
    ASSERT_EQ(1, want.zoom(40, 30, 10, 0));
    ASSERT_EQ(1, want.blur_gauss_iir(nullptr, 1.5, 1.0));
    ASSERT_EQ(1, want.bright_contrast(nullptr, 20, 30));
    ASSERT_EQ(1, want.fillsolidrect(3, 4, 10, 8, 0x0080FF, 128));
    ASSERT_EQ(1, want.mirror(3, 4, 10, 8));
    tagKIV_COLORBALANCE cb{{10, 20, 0}, {0, 0, 0}, {-30, 0, 5}, 1};
    ASSERT_EQ(1, want.colorbalance(nullptr, &cb));
    tagGRADCOLORS stops[3] = {{0x000000, 0}, {0xFFFFFF, 250}, {0x0000FF, 1000}};
    ASSERT_EQ(1, want.gradientfill(nullptr, stops, 3, 6, 100, 7));

    kiv got;
    kivcli::load_image(s("out.png"), got);
    ASSERT_EQ(40, got.width());
    ASSERT_EQ(30, got.height());
    for (int i = 0; i < got.packets(); ++i) {
        const tagRGBA &g = got.m_pixels[i], &w = want.m_pixels[i];
        ASSERT_TRUE(g.r == w.r && g.g == w.g && g.b == w.b)
            << "pixel " << i % 40 << "," << i / 40 << ": " << kivtest::rgba_str(g) << " vs " << kivtest::rgba_str(w);
    }
}

// Every operation has help and demo arguments that parse, one per argument; with them, on
// images the gallery never shows, an empty image stays empty and whatever an operation
// accepts leaves a consistent image behind.
TEST(Cli, EveryOperationHasHelpAndCopesWithSmallPalettizedAndEmptyImages) {
    for (const auto& op : kivcli::all_ops()) {
        EXPECT_FALSE(op.summary.empty()) << op.name;
        if (op.demo == "-") continue;
        kivcli::OpCall call;
        call.rect = nullptr;
        std::istringstream words(op.demo);
        std::string w;
        for (std::size_t k = 0; words >> w; ++k) {
            double v = 0;
            ASSERT_LT(k, op.args.size()) << op.name;
            ASSERT_TRUE(kivcli::parse_arg(w, op.args[k].kind, &v)) << op.name << " " << w;
            call.args.push_back(v);
        }
        EXPECT_EQ(op.args.size(), call.args.size()) << op.name;
        kiv empty;
        op.run(empty, call);
        EXPECT_EQ(nullptr, empty.m_pixels) << op.name;
        tagRECT inside{1, 1, 4, 3};
        struct Case {
            int w, h, bits;
            tagRECT* rect;
        } cases[] = {{1, 1, 24, nullptr}, {7, 5, 8, nullptr}, {7, 5, 4, &inside}, {6, 4, 32, &inside}};
        for (const Case& c : cases) {
            kiv img = kivtest::random_image(c.w, c.h, c.bits, 7u);
            call.rect = c.rect;
            if (!op.run(img, call)) continue;
            ASSERT_NE(nullptr, img.m_pixels) << op.name;
            EXPECT_EQ(img.width() * img.height(), img.packets()) << op.name;
            EXPECT_TRUE(img.bits() >= 24 || (img.map() && img.colors() > 0)) << op.name << " bits " << c.bits;
        }
        call.rect = nullptr;
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
        {{"-2147483648", "-2147483648", "-2147483648", "-1"}, {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN}},
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
        kiv img = kivtest::random_image(5, 3, 24, 1);
        kivcli::run_pipeline(p, img, err);
        EXPECT_EQ(img.packets(), 15);
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
    kivcli::write_file_atomic(s("in.png"), kivcli::encode_png(src));
    struct Case {
        std::vector<std::string> op;
        int flags;
        std::function<int(kiv&)> member;
    } cases[] = {{{"zoom", "16", "16", "11"}, 1, [](kiv& k) { return k.zoom_rgba(16, 16, 11, 1); }},
                 {{"zoom", "20", "20", "10", "--linear"}, 3, [](kiv& k) { return k.zoom_rgba(20, 20, 10, 3); }},
                 {{"blur_gauss_iir", "3", "3"}, 1, [](kiv& k) { return k.blur_gauss_rgba(nullptr, 3, 3, 1); }}};
    for (const Case& c : cases) {
        std::vector<std::string> args = {s("in.png")};
        args.insert(args.end(), c.op.begin(), c.op.end());
        args.insert(args.end(), {"-o", s("out.png")});
        CliResult r = cli(args);
        ASSERT_EQ(0, r.code) << r.err;
        kiv got, want(src);
        kivcli::load_image(s("out.png"), got);
        ASSERT_EQ(1, c.member(want));
        EXPECT_EQ(got.m_bits, 32) << c.op[0];
        EXPECT_TRUE(kivtest::images_equal(got, want)) << c.op[0];
    }
}

// Ctrl-C during a long operation: exit code 130, no output file, no temporary left (the
// scratch directory checks that).
TEST(Cli, InterruptStopsWithoutWritingAnything) {
    Scratch s;
    kiv src;
    kivcli::make_test_card(src, 1200, 900);
    kivcli::write_file_atomic(s("in.png"), kivcli::encode_png(src));
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
