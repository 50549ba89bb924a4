// `kiv demo`: a test card made in code, every operation run on it, and an HTML gallery.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cli.h"
#include "image_io.h"
#include "ops.h"
#include "platform/files.h"
#include "progress.h"

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#endif
#include "stb_easy_font.h"
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

namespace kivcli {

namespace fs = std::filesystem;

namespace {

BYTE clamp8(double v) { return static_cast<BYTE>(v < 0 ? 0 : v > 255 ? 255 : v); }

void put(kiv& img, int x, int y, int r, int g, int b) {
    if (x < 0 || y < 0 || x >= img.m_width || y >= img.m_height) return;
    img.m_pixels[static_cast<std::size_t>(y) * img.m_width + x] = tagRGBA{clamp8(r), clamp8(g), clamp8(b), 255};
}

// Text at (x0, y0), clipped at column `right` (the edge of its cell).
void text(kiv& img, int x0, int y0, int right, const char* s, int scale, int r, int g, int b) {
    static float buf[4 * 4 * 600];  // easy_font emits 4 vertices of 16 bytes per quad
    int quads = stb_easy_font_print(0, 0, const_cast<char*>(s), nullptr, buf, sizeof buf);
    for (int q = 0; q < quads; ++q) {
        const float* v = buf + q * 16;  // x, y, z, colour per vertex
        int xa = static_cast<int>(v[0]), ya = static_cast<int>(v[1]);
        int xb = static_cast<int>(v[8]), yb = static_cast<int>(v[9]);
        for (int y = ya * scale; y < yb * scale; ++y)
            for (int x = xa * scale; x < xb * scale && x0 + x < right; ++x) put(img, x0 + x, y0 + y, r, g, b);
    }
}

}  // namespace

void make_test_card(kiv& img, int W, int H) {
    img.create(W, H, 24);
    const double pi = 3.14159265358979323846;
    const int cw = W / 3, ch = H / 2;
    std::uint32_t seed = 12345;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            int cell = (y < ch ? 0 : 3) + (x < cw ? 0 : x < 2 * cw ? 1 : 2);
            double fx = static_cast<double>(x % cw) / cw, fy = static_cast<double>(y % ch) / ch;
            switch (cell) {
                case 0: {  // colour wheel: hue by angle, saturation by radius
                    double dx = fx - 0.5, dy = fy - 0.5, rad = std::sqrt(dx * dx + dy * dy) * 2.2;
                    if (rad > 1.0) {
                        put(img, x, y, 128, 128, 128);
                        break;
                    }
                    double hue = (std::atan2(dy, dx) / pi + 1.0) * 3.0;  // 0..6
                    int i = static_cast<int>(hue) % 6;
                    double f = hue - std::floor(hue), s = rad;
                    double p = 1 - s, q = 1 - s * f, t = 1 - s * (1 - f);
                    double rgb[6][3] = {{1, t, p}, {q, 1, p}, {p, 1, t}, {p, q, 1}, {t, p, 1}, {1, p, q}};
                    put(img, x, y, static_cast<int>(rgb[i][0] * 255), static_cast<int>(rgb[i][1] * 255),
                        static_cast<int>(rgb[i][2] * 255));
                    break;
                }
                case 1: {  // ramps: grey, red, green, blue bands
                    int band = static_cast<int>(fy * 4), v = static_cast<int>(fx * 255);
                    put(img, x, y, band == 0 || band == 1 ? v : 0, band == 0 || band == 2 ? v : 0,
                        band == 0 || band == 3 ? v : 0);
                    break;
                }
                case 2: {  // fine lines: stripes, a chequerboard and rings
                    int lx = x % cw, ly = y % ch, v;
                    if (ly < ch / 3)
                        v = (lx / (1 + ly / 12)) % 2 ? 255 : 0;
                    else if (ly < 2 * ch / 3)
                        v = ((lx / 4) + (ly / 4)) % 2 ? 230 : 20;
                    else {
                        double d = std::hypot(lx - cw / 2.0, ly - 5.0 * ch / 6.0);
                        v = static_cast<int>(128 + 127 * std::cos(d * d / 40.0));
                    }
                    put(img, x, y, v, v, v);
                    break;
                }
                case 3: {  // smooth, photo-like: soft coloured blobs over a sky gradient
                    double r = 70 + 120 * fy, g = 120 + 80 * fy, b = 200 - 60 * fy;
                    double blobs[3][5] = {{0.3, 0.6, 0.18, 220, 1}, {0.7, 0.4, 0.22, 160, 2}, {0.5, 0.85, 0.25, 90, 0}};
                    for (auto& bl : blobs) {
                        double d2 = (fx - bl[0]) * (fx - bl[0]) + (fy - bl[1]) * (fy - bl[1]);
                        double k = std::exp(-d2 / (bl[2] * bl[2]));
                        (bl[4] == 0 ? r : bl[4] == 1 ? g : b) += bl[3] * k;
                        r -= 30 * k;
                    }
                    put(img, x, y, static_cast<int>(r), static_cast<int>(g), static_cast<int>(b));
                    break;
                }
                case 4:  // background for the text
                    put(img, x, y, 245, 240, 225);
                    break;
                default: {  // noise over a diagonal gradient
                    seed = seed * 1664525u + 1013904223u;
                    int n = static_cast<int>(seed >> 25) - 64;
                    int base = static_cast<int>((fx + fy) * 100);
                    put(img, x, y, base + n + 40, base + n / 2 + 20, 200 - base + n);
                    break;
                }
            }
        }
    // Each line fits the cell (cw - 12 pixels at 6 pixels a character and scale); clipped anyway.
    const int right = 2 * cw - 6;
    text(img, cw + 6, ch + 8, right, "kivlib", 3, 20, 20, 60);
    text(img, cw + 6, ch + 40, right, "The quick brown fox", 1, 0, 0, 0);
    text(img, cw + 6, ch + 54, right, "jumps over the lazy dog.", 1, 0, 0, 0);
    text(img, cw + 6, ch + 72, right, "0123456789", 2, 140, 20, 20);
    text(img, cw + 6, ch + 96, right, "ABCDEFGHIJ", 2, 20, 100, 20);
    text(img, cw + 6, ch + 120, right, "nopqrstuvw", 2, 20, 20, 160);
    text(img, cw + 6, ch + 144, right, "!?#%&*+=<>", 2, 100, 20, 120);
}

namespace {

// Files the operations that read one take in the gallery, made beside it.
void write_inputs(const fs::path& dir, kiv& card) {
    Picture layer;
    layer.img.copyfrom(&card);
    layer.img.mirror(0, 0, 0, 0);
    save_image((dir / "layer.png").string(), layer);
    Picture tile;
    tile.img.copyfrom(&card);
    tile.img.zoom_near(card.m_width / 4, card.m_height / 4);
    save_image((dir / "tile.png").string(), tile);
    // A canvas-like texture: softened grey noise.
    Picture tex;
    tex.img.create(64, 64, 24);
    for (int i = 0; i < tex.img.m_packets; ++i) tex.img.m_pixels[i] = tagRGBA{128, 128, 128, 0};
    tagKIV_NOISE grain{60, 1, 1, 1u};
    tex.img.noise(nullptr, &grain);
    tex.img.blur_gauss_iir(nullptr, 0.8, 0.8);
    save_image((dir / "texture.bmp").string(), tex);
    static const char gpl[] =
        "GIMP Palette\nName: kiv demo\nColumns: 4\n#\n"
        "  0   0   0 black\n255 255 255 white\n200  40  40 red\n 40 160  60 green\n 40  80 200 blue\n"
        "240 200  40 yellow\n120  70  40 brown\n140 140 150 grey\n";
    write_output((dir / "palette.gpl").string(), Bytes(gpl, gpl + sizeof gpl - 1));
}

// What an operation needs to show what it does: a rectangle (negative against invertrect,
// desaturate against grayscale), or a washed-out card for the histogram corrections, which
// leave a card already at full range as it is.
struct Setup {
    const char* op;
    tagRECT rect;
    bool washed;
};
constexpr Setup kSetups[] = {{"invertrect", {120, 90, 360, 270}, false},   {"desaturate", {0, 0, 240, 360}, false},
                             {"autocontrast", {0, 0, 0, 0}, true},         {"normalize", {0, 0, 0, 0}, true},
                             {"equalize", {0, 0, 0, 0}, true},             {"autocolorenhance", {0, 0, 0, 0}, true}};

// The arguments of an operation's demo, file names found in dir.
bool demo_call(const OpSpec& op, const fs::path& dir, OpCall* call) {
    std::istringstream words(op.demo);
    std::string w;
    for (std::size_t k = 0; words >> w; ++k) {
        double v = 0;
        if (k >= op.args.size() || !parse_value(w, op.args[k], &v)) return false;
        const bool file = op.args[k].kind == ArgKind::Image || op.args[k].kind == ArgKind::Path;
        call->args.push_back(v);
        call->text.push_back(file ? (dir / w).string() : w);
        call->images.push_back(nullptr);
        if (op.args[k].kind == ArgKind::Image) {
            call->images.back() = std::make_shared<kiv>();
            load_second_image(call->text.back(), *call->images.back());
        }
    }
    return call->args.size() == op.args.size();
}

}  // namespace

int run_demo(const std::string& dir, std::ostream& out, std::ostream& err) {
    std::string why;
    if (!kivplat::make_directories(dir, &why)) {
        err << "kiv: cannot create '" << dir << "': " << why << "\n";
        return kExitFailed;
    }
    Picture card, washed;
    make_test_card(card.img, 480, 360);
    washed.img.copyfrom(&card.img);
    washed.img.bright_contrast(nullptr, 10, -80);
    std::ostringstream html;
    html << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>kivlib demo</title>\n<style>"
            "body{font-family:sans-serif;background:#222;color:#eee;margin:20px}"
            "h1{font-weight:normal}.grid{display:flex;flex-wrap:wrap;gap:14px}"
            ".op{background:#333;padding:8px;border-radius:6px}"
            ".op img{width:240px;display:block;image-rendering:auto;"
            "background:repeating-conic-gradient(#999 0 25%,#666 0 50%) 0 0/16px 16px}.pair{display:flex;gap:4px}"
            ".name{font-weight:bold;font-family:monospace}.meta{font-size:12px;color:#aaa;max-width:484px}"
            ".fail{color:#f88}</style></head><body>\n"
            "<h1>kivlib demo gallery</h1>\n<p>Every operation of the library on the built-in test card "
            "(480&times;360), left before, right after; a chequerboard shows through transparency.</p>\n"
            "<div class=\"grid\">\n";
    const fs::path d(dir);
    Progress progress(kivplat::is_terminal(stderr));
    try {
        save_image((d / "card.png").string(), card);
        save_image((d / "washed.png").string(), washed);
        write_inputs(d, card.img);
        int n = 0, failed = 0;
        for (const OpSpec& op : all_ops()) {
            if (op.demo == "-") continue;
            OpCall call;
            if (!demo_call(op, d, &call)) {
                err << "kiv: demo arguments of " << op.name << " do not parse\n";
                return kExitFailed;
            }
            const Setup* setup = nullptr;
            for (const Setup& u : kSetups)
                if (op.name == u.op) setup = &u;
            tagRECT rect = setup ? setup->rect : tagRECT{0, 0, 0, 0};
            call.rect = rect.right > rect.left ? &rect : nullptr;
            const bool wash = setup && setup->washed;
            Picture pic;
            pic.img.copyfrom(wash ? &washed.img : &card.img);
            progress.begin(op.name);
            auto t0 = std::chrono::steady_clock::now();
            int ok = op.run(pic.img, call);
            double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
            progress.end();
            if (op.alpha == AlphaEffect::Sets) pic.alpha = Alpha::Pixels;
            char file[128];
            std::snprintf(file, sizeof file, "%03d_%s.png", ++n, op.name.c_str());
            if (ok && pic.img.m_pixels) save_image((d / file).string(), pic);
            char timing[64];
            std::snprintf(timing, sizeof timing, "%.2f ms", ms);
            std::string args = op.demo.empty() ? "(no arguments)" : op.demo;
            if (call.rect)
                args = "rect " + std::to_string(rect.left) + " " + std::to_string(rect.top) + " " + std::to_string(rect.right - rect.left) +
                       " " + std::to_string(rect.bottom - rect.top) + (op.demo.empty() ? "" : ", then " + op.demo);
            html << "<div class=\"op\"><div class=\"name\">" << op.name << "</div><div class=\"meta\">" << args
                 << (wash ? " &middot; on a washed-out card" : "") << " &middot; " << timing << "</div>";
            if (ok && pic.img.m_pixels)
                html << "<div class=\"pair\"><img src=\"" << (wash ? "washed.png" : "card.png") << "\" alt=\"before\"><img src=\""
                     << file << "\" alt=\"" << op.name << "\"></div>";
            else {
                html << "<div class=\"fail\">refused</div>";
                ++failed;
            }
            html << "</div>\n";
        }
        html << "</div>\n</body></html>\n";
        std::string s = html.str();
        write_output((d / "index.html").string(), Bytes(s.begin(), s.end()));
        out << (d / "index.html").string() << "\n";
        if (failed) {
            err << "kiv: " << failed << " operations refused their demo arguments\n";
            return kExitFailed;
        }
    } catch (const CliError& e) {
        err << "kiv: " << e.what() << "\n";
        return kExitFailed;
    }
    return kExitOk;
}

}  // namespace kivcli
