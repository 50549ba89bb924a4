// Side-by-side timings of kivlib and other image libraries (OpenCV, libvips, Pillow,
// libimagequant) on the same photo-like pixels; prints and writes a Markdown report.
//
// Every row runs the libraries in turn (kivlib, OpenCV, vips, Pillow, libimagequant, then a
// memcpy of the image), repetition after repetition, so load drifting on a shared machine hits
// them alike; a warm-up call of each comes first and the medians are reported.  One sample is
// the mean of as many calls as last about two milliseconds together, so 64 x 64 calls of a few
// microseconds are measured as steadily as 4096 x 4096 ones.
//
// What is timed: the operation on an image that already holds the source pixels.  kivlib's
// image is created once and the source copied into it before each call (untimed; it is
// re-created, also untimed, when an operation changed its size or depth).  OpenCV reads the
// shared source buffer and writes into a reused output Mat.  vips wraps the same buffer and
// runs the pipeline into a new memory image (vips' own allocation included).  Pillow works on
// an Image loaded once from the same bytes and returns a new Image (its allocation included).
#include "bench_common.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef KIVB_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#endif
#ifdef KIVB_HAVE_VIPS
#include <vips/vips.h>
#endif
#ifdef KIVB_HAVE_LIQ
extern "C" {
#include <libimagequant.h>
}
#endif
#ifdef KIVB_HAVE_OMP
#include <omp.h>  // libimagequant's threads come from OpenMP
#endif

namespace {

enum Lib { KIV, OCV, VIPS, PIL, LIQ, MEMCPY, NLIB };
const char* const kLibName[NLIB] = {"kivlib", "OpenCV", "vips", "Pillow", "libimagequant", "memcpy"};
constexpr int kPeerFirst = OCV, kPeerEnd = MEMCPY;

using Clock = std::chrono::steady_clock;
// Keeps reads made only to warm the cache from being optimised away.
volatile unsigned g_sink = 0;
double ms_since(Clock::time_point t0) {
    return std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
}

double median(std::vector<double> v) {
    if (v.empty()) return NAN;
    std::sort(v.begin(), v.end());
    std::size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

// The source pixels in every form a library takes, all converted once from the same image.
struct Source {
    int w = 0, h = 0;
    std::vector<tagRGBA> rgba;       // kivlib's layout; libimagequant reads it too (alpha 255)
    std::vector<tagRGBA> alpha;      // the same colours with alpha running 0..255 along each row
    std::vector<unsigned char> rgb;  // packed RGB, top row first: OpenCV, vips, Pillow
    void* dib = nullptr;             // 24-bit packed DIB of the same pixels (kivlib's DIB row)
    std::string rawpath;             // rgb written out for Pillow
    std::size_t bytes4() const { return rgba.size() * sizeof(tagRGBA); }
};

double psnr_rgb(const unsigned char* a, const unsigned char* b, std::size_t n, int stride_a, int stride_b) {
    double sq = 0;
    for (std::size_t i = 0; i < n; ++i)
        for (int c = 0; c < 3; ++c) {
            double d = static_cast<double>(a[i * stride_a + c]) - b[i * stride_b + c];
            sq += d * d;
        }
    double mse = sq / (3.0 * static_cast<double>(n));
    return mse == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

// ---- Pillow through a python3 child process ------------------------------------------------
class Pillow {
public:
    bool start(const std::string& python, const std::string& script) {
        int in[2], out[2];
        if (pipe(in) || pipe(out)) return false;
        pid_ = fork();
        if (pid_ < 0) return false;
        if (pid_ == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            close(in[0]); close(in[1]); close(out[0]); close(out[1]);
            execlp(python.c_str(), python.c_str(), script.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        to_ = fdopen(in[1], "w");
        from_ = fdopen(out[0], "r");
        std::string v = call("version");
        ok_ = v.find("\"pillow\"") != std::string::npos;
        if (ok_) version_ = field_str(v, "pillow");
        else note_ = v.empty() ? "python3 did not answer" : v;
        return ok_;
    }
    ~Pillow() {
        if (to_) { std::fputs("quit\n", to_); std::fclose(to_); }
        if (from_) std::fclose(from_);
        if (pid_ > 0) waitpid(pid_, nullptr, 0);
    }
    bool ok() const { return ok_; }
    const std::string& version() const { return version_; }
    const std::string& note() const { return note_; }
    std::string call(const std::string& line) {
        if (!to_ || !from_) return {};
        std::fprintf(to_, "%s\n", line.c_str());
        std::fflush(to_);
        char buf[4096];
        if (!std::fgets(buf, sizeof buf, from_)) { ok_ = false; return {}; }
        return buf;
    }
    static double field(const std::string& json, const char* key) {
        std::string k = std::string("\"") + key + "\":";
        std::size_t p = json.find(k);
        return p == std::string::npos ? NAN : std::strtod(json.c_str() + p + k.size(), nullptr);
    }
    static std::string field_str(const std::string& json, const char* key) {
        std::string k = std::string("\"") + key + "\": \"";
        std::size_t p = json.find(k);
        if (p == std::string::npos) return {};
        p += k.size();
        return json.substr(p, json.find('"', p) - p);
    }

private:
    pid_t pid_ = -1;
    FILE* to_ = nullptr;
    FILE* from_ = nullptr;
    bool ok_ = false;
    std::string version_, note_;
};

// ---- One table row -------------------------------------------------------------------------
// Runs k calls and returns the mean of their timed milliseconds (NaN: a call failed).
using Job = std::function<double(int k)>;
// One call: returns its timed milliseconds (NaN: failed).
using Call = std::function<double()>;

// k calls in a row, each timed on its own, so that whatever readies the next call (kivlib's
// copy of the source into its image) stays outside the timed region; every library's calls
// are bracketed by the clock alike, so its cost is charged equally.
Job each(Call one) {
    return [one](int k) {
        double sum = 0;
        for (int i = 0; i < k; ++i) {
            const double ms = one();
            if (std::isnan(ms)) return ms;
            sum += ms;
        }
        return sum / k;
    };
}

struct Row {
    std::string op, note;
    std::array<Job, NLIB> job;
    std::array<double, NLIB> ms{};
    std::array<double, NLIB> psnr{};  // quantizers only (NaN elsewhere)
    bool quality = false;
    bool skipped = false;  // left out by --only
};

struct Table {
    int size = 0, threads = 0;
    std::vector<Row> rows;
    std::vector<double> memcpy_samples;  // from every row, pooled
    double memcpy_ms() const { return median(memcpy_samples); }
};

// One sample of a library times as many calls as last about this long together (at least one).
constexpr double kSampleMs = 2.0;
constexpr double kMaxCalls = 20000;

struct Config {
    bool quick = false;
    int reps_large = 3;      // counted repetitions (samples) at 4096
    int reps_mid = 5;        // at 1024
    int reps_small = 7;      // at 256 and 64
    int threads = -1;  // -1: all cores, then one
    std::string out = "bench/results.md";
    std::string script = "bench/peers_pillow.py";
    std::string python = "/usr/bin/python3";
    std::string only;  // run only the rows whose operation contains this text
    bool fastest = false;  // report each library's fastest sample instead of the median
};

class Driver {
public:
    explicit Driver(Config c) : cfg_(std::move(c)) {}
    int run();

private:
    void make_source(Source& s, int size);
    void build_rows(Table& t, Source& s);
    void measure(Table& t, int reps);
    std::string report(const std::vector<Table>& tables, double minutes, const std::string& load0) const;

    // kivlib: the source copied into the image (untimed), then op timed.
    Job kiv_job(Source& s, std::function<bool(kiv&)> op, double* psnr = nullptr, bool with_alpha = false);

    Config cfg_;
    Pillow pil_;
    kiv img_;
    std::vector<unsigned char> cpy_dst_;
#ifdef KIVB_HAVE_OPENCV
    cv::Mat cdst_;
#endif
#ifdef KIVB_HAVE_VIPS
    VipsImage* vin_ = nullptr;
    VipsImage* vin_alpha_ = nullptr;  // Source::alpha as sRGB with alpha
#endif
};

Job Driver::kiv_job(Source& s, std::function<bool(kiv&)> op, double* psnr, bool with_alpha) {
    return each([this, &s, op, psnr, with_alpha]() {
        const int bits = with_alpha ? 32 : 24;
        if (img_.m_width != s.w || img_.m_height != s.h || img_.m_bits != bits || !img_.m_pixels)
            img_.create(s.w, s.h, bits);
        std::memcpy(img_.m_pixels, with_alpha ? s.alpha.data() : s.rgba.data(), s.bytes4());
        auto t0 = Clock::now();
        const bool ok = op(img_);
        double t = ms_since(t0);
        if (!ok) {  // a refused call would time nothing: leave the cell empty, say so
            std::fprintf(stderr, "kivlib refused the call\n");
            return static_cast<double>(NAN);
        }
        if (psnr)
            *psnr = psnr_rgb(reinterpret_cast<unsigned char*>(s.rgba.data()),
                             reinterpret_cast<unsigned char*>(img_.m_pixels), s.rgba.size(), 4, 4);
        return t;
    });
}

void Driver::make_source(Source& s, int size) {
    s.w = s.h = size;
    kiv img(size, size, 24);
    kivbench::fill_photo(img);
    s.rgba.assign(img.m_pixels, img.m_pixels + img.m_packets);
    s.alpha = s.rgba;
    for (std::size_t i = 0; i < s.alpha.size(); ++i) s.alpha[i].a = static_cast<BYTE>(i % static_cast<std::size_t>(size) * 256 / static_cast<std::size_t>(size));
    s.rgb.resize(s.rgba.size() * 3);
    for (std::size_t i = 0; i < s.rgba.size(); ++i) {
        s.rgb[3 * i] = s.rgba[i].r;
        s.rgb[3 * i + 1] = s.rgba[i].g;
        s.rgb[3 * i + 2] = s.rgba[i].b;
    }
    s.dib = img.createdib();
    s.rawpath = (std::filesystem::temp_directory_path() /
                 ("kiv_compare_" + std::to_string(getpid()) + "_" + std::to_string(size) + ".rgb")).string();
    std::ofstream(s.rawpath, std::ios::binary).write(reinterpret_cast<const char*>(s.rgb.data()),
                                                     static_cast<std::streamsize>(s.rgb.size()));
    cpy_dst_.assign(s.bytes4(), 0);
}

#ifdef KIVB_HAVE_VIPS
// Runs a vips pipeline from the wrapped source into a new memory image.  build() makes the
// output in t[0] using the other slots of t for intermediates; all are released with base.
Job vips_job(VipsImage*& in, std::function<int(VipsImage* in, VipsImage** t)> build) {
    return each([&in, build]() {
        auto t0 = Clock::now();
        VipsImage* base = vips_image_new();
        VipsImage** t = reinterpret_cast<VipsImage**>(vips_object_local_array(VIPS_OBJECT(base), 12));
        double ms = NAN;
        if (!build(in, t)) {
            std::size_t len = 0;
            void* p = vips_image_write_to_memory(t[0], &len);
            if (p) ms = ms_since(t0);
            g_free(p);
        }
        g_object_unref(base);
        if (std::isnan(ms)) {
            std::cerr << "vips: " << vips_error_buffer();
            vips_error_clear();
        }
        return ms;
    });
}

VipsImage* vips_mask(int n, const double* v, double scale) {
    VipsImage* m = vips_image_new_matrix_from_array(n == 9 ? 3 : n, n == 9 ? 3 : 1, v, n);
    vips_image_set_double(m, "scale", scale);
    return m;
}

int vips_lut(VipsImage* in, VipsImage** t, const std::function<int(int)>& f) {
    unsigned char table[256];
    for (int i = 0; i < 256; ++i) table[i] = static_cast<unsigned char>(f(i));
    t[1] = vips_image_new_from_memory_copy(table, 256, 256, 1, 1, VIPS_FORMAT_UCHAR);
    return vips_maplut(in, &t[0], t[1], nullptr);
}
#endif

// Tables shared by every library's gamma and brightness/contrast rows (peers build theirs per
// call, as kivlib does).
int gamma_entry(int i) {
    return std::min(255, static_cast<int>(std::lround(255.0 * std::pow(i / 255.0, 1.0 / 2.2))));
}
int bc_entry(int i) {
    double f = (259.0 * (30 + 255)) / (255.0 * (259 - 30));
    return std::clamp(static_cast<int>(f * (i + 20 - 128) + 128), 0, 255);
}

void Driver::build_rows(Table& t, Source& s) {
    const int n = s.w;
    t.rows.reserve(64);  // jobs keep pointers into their rows: no reallocation below
    auto row = [&](std::string op, std::string note) -> Row& {
        if (t.rows.size() == t.rows.capacity()) std::abort();
        t.rows.push_back(Row{});
        Row& r = t.rows.back();
        r.op = std::move(op);
        r.note = std::move(note);
        r.ms.fill(NAN);
        r.psnr.fill(NAN);
        r.job[MEMCPY] = each([this, &s]() {
            auto t0 = Clock::now();
            std::memcpy(cpy_dst_.data(), s.rgba.data(), s.bytes4());
            benchmark::DoNotOptimize(cpy_dst_.data());
            return ms_since(t0);
        });
        return r;
    };
    auto pil = [&](Row& r, std::string op) {
        if (!pil_.ok()) return;
        r.job[PIL] = [this, op, &r](int k) {  // Pillow runs and times the k calls itself
            std::string reply = pil_.call("run " + op + " " + std::to_string(k));
            if (reply.find("error") != std::string::npos || reply.empty()) {
                std::cerr << "Pillow " << op << ": " << reply;
                return static_cast<double>(NAN);
            }
            double q = Pillow::field(reply, "psnr");
            if (!std::isnan(q)) r.psnr[PIL] = q;
            return Pillow::field(reply, "ms");
        };
    };
#ifdef KIVB_HAVE_OPENCV
    cv::Mat csrc(s.h, s.w, CV_8UC3, s.rgb.data());
    cv::Mat& cdst = cdst_;
    auto ocv = [&](Row& r, std::function<void(const cv::Mat&, cv::Mat&)> f) {
        r.job[OCV] = each([csrc, &cdst, f]() {
            auto t0 = Clock::now();
            f(csrc, cdst);
            return ms_since(t0);
        });
    };
#else
    auto ocv = [](Row&, auto) {};
#endif
#ifdef KIVB_HAVE_VIPS
    auto vip = [&](Row& r, std::function<int(VipsImage*, VipsImage**)> f) { r.job[VIPS] = vips_job(vin_, f); };
#else
    auto vip = [](Row&, auto) {};
#endif

    // ---- blurs
    for (double sigma : {2.0, 10.0}) {
        std::string sg = sigma == 2.0 ? "2" : "10";
        for (int rle = 0; rle < 2; ++rle) {
            Row& r = row("Gaussian blur sigma " + sg + (rle ? " (blur_gauss_rle)" : " (blur_gauss_iir)"),
                         std::string(rle ? "kivlib: sampled kernel to 1/255 (+-3.33 sigma)" : "kivlib: recursive, constant cost") +
                             "; OpenCV: 8-bit fixed point, ksize 6 sigma + 1; vips: min_ampl 1/255, integer; Pillow: 3 extended box passes");
            r.job[KIV] = kiv_job(s, rle ? std::function<bool(kiv&)>([sigma](kiv& k) { return k.blur_gauss_rle(nullptr, sigma) == 1; })
                                        : std::function<bool(kiv&)>([sigma](kiv& k) { return k.blur_gauss_iir(nullptr, sigma, sigma) == 1; }));
            ocv(r, [sigma](const cv::Mat& a, cv::Mat& b) { cv::GaussianBlur(a, b, cv::Size(), sigma, sigma, cv::BORDER_REPLICATE); });
            vip(r, [sigma](VipsImage* in, VipsImage** o) { return vips_gaussblur(in, &o[0], sigma, "min_ampl", 1.0 / 255, nullptr); });
            pil(r, "gauss:" + sg);
        }
    }
    {
        Row& r = row("box blur radius 5 (blur_simple)",
                     "kivlib: tent (weights 6..1), the peers a flat 11x11 box (separable where the library allows)");
        r.job[KIV] = kiv_job(s, [](kiv& k) { return k.blur_simple(nullptr, 5) == 1; });
        ocv(r, [](const cv::Mat& a, cv::Mat& b) { cv::blur(a, b, cv::Size(11, 11)); });
        vip(r, [](VipsImage* in, VipsImage** o) {
            double ones[11];
            std::fill(ones, ones + 11, 1.0);
            o[2] = vips_mask(11, ones, 11);
            return vips_convsep(in, &o[0], o[2], "precision", VIPS_PRECISION_INTEGER, nullptr);
        });
        pil(r, "box:5");
    }
    {
        Row& r = row("3x3 mean (filter_3x3 0)", "vips: conv 3x3 integer; Pillow: BoxBlur(1)");
        r.job[KIV] = kiv_job(s, [](kiv& k) { return k.filter_3x3(nullptr, 0) == 1; });
        ocv(r, [](const cv::Mat& a, cv::Mat& b) { cv::blur(a, b, cv::Size(3, 3)); });
        vip(r, [](VipsImage* in, VipsImage** o) {
            const double ones[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
            o[2] = vips_mask(9, ones, 9);
            return vips_conv(in, &o[0], o[2], "precision", VIPS_PRECISION_INTEGER, nullptr);
        });
        pil(r, "mean3");
    }
    {
        Row& r = row("median 3x3 (filter_3x3 1)", "");
        r.job[KIV] = kiv_job(s, [](kiv& k) { return k.filter_3x3(nullptr, 1) == 1; });
        ocv(r, [](const cv::Mat& a, cv::Mat& b) { cv::medianBlur(a, b, 3); });
        vip(r, [](VipsImage* in, VipsImage** o) { return vips_median(in, &o[0], 3, nullptr); });
        pil(r, "median3");
    }
    {
        Row& r = row("sharpen 3x3 (sharpen)", "same kernel everywhere (-1s, centre 18, /10); OpenCV: filter2D with a float kernel");
        r.job[KIV] = kiv_job(s, [](kiv& k) { return k.sharpen(nullptr) == 1; });
        ocv(r, [](const cv::Mat& a, cv::Mat& b) {
            cv::Mat k = (cv::Mat_<float>(3, 3) << -1, -1, -1, -1, 18, -1, -1, -1, -1) / 10.0f;
            cv::filter2D(a, b, -1, k);
        });
        vip(r, [](VipsImage* in, VipsImage** o) {
            const double k[9] = {-1, -1, -1, -1, 18, -1, -1, -1, -1};
            o[2] = vips_mask(9, k, 10);
            return vips_conv(in, &o[0], o[2], "precision", VIPS_PRECISION_INTEGER, nullptr);
        });
        pil(r, "sharpen3");
    }
    {
        Row& r = row("edges (edge)",
                     "kivlib: Sobel magnitude, integer sqrt; OpenCV: Sobel x, y to float + magnitude + convert; "
                     "vips: sobel; Pillow: FIND_EDGES (a Laplacian kernel, less work)");
        r.job[KIV] = kiv_job(s, [](kiv& k) { return k.edge(nullptr, 10.0) == 1; });
        ocv(r, [](const cv::Mat& a, cv::Mat& b) {
            cv::Mat gx, gy, mag;
            cv::Sobel(a, gx, CV_32F, 1, 0);
            cv::Sobel(a, gy, CV_32F, 0, 1);
            cv::magnitude(gx, gy, mag);
            mag.convertTo(b, CV_8U);
        });
        vip(r, [](VipsImage* in, VipsImage** o) { return vips_sobel(in, &o[0], nullptr); });
        pil(r, "edges");
    }

    // ---- resampling: shrink the 4096 source, enlarge the 1024 one
    {
        // Shrink the 4096 and 256 sources, enlarge the 1024 and 64 ones.
        const bool down = n == 4096 || n == 256;
        const int to = down ? n / 4 : n * 4;
        struct M {
            const char* name;
            int method;  // zoom's filter, -1: zoom_near
            int cv;
#ifdef KIVB_HAVE_VIPS
            VipsKernel vk;
#endif
            const char* pil;
        };
        const M ms[] = {
            {"Lanczos 3", 11, 4 /*INTER_LANCZOS4*/,
#ifdef KIVB_HAVE_VIPS
             VIPS_KERNEL_LANCZOS3,
#endif
             "lanczos"},
            {"Mitchell", 10, 2 /*INTER_CUBIC*/,
#ifdef KIVB_HAVE_VIPS
             VIPS_KERNEL_MITCHELL,
#endif
             "mitchell"},
            {"bilinear", 1, 1 /*INTER_LINEAR*/,
#ifdef KIVB_HAVE_VIPS
             VIPS_KERNEL_LINEAR,
#endif
             "bilinear"},
            {"nearest", -1, 0 /*INTER_NEAREST*/,
#ifdef KIVB_HAVE_VIPS
             VIPS_KERNEL_NEAREST,
#endif
             "nearest"},
        };
        for (const M& m : ms) {
            std::string note;
            if (m.method < 0) note = "kivlib: zoom_near";
            else if (down) note = "kivlib: zoom " + std::to_string(m.method) + ", full support scaled by 4, then sharpen (shrinking both sides); "
                                  "OpenCV: fixed taps, no antialiasing; vips: resize gap 0 (pure reduce)";
            else note = "kivlib: zoom " + std::to_string(m.method) + "; vips enlarges through affine (bicubic for Mitchell and Lanczos)";
            if (m.method == 10) note += "; OpenCV/Pillow: their bicubic (not Mitchell)";
            Row& r = row("resize " + std::to_string(n) + " -> " + std::to_string(to) + " " + m.name, note);
            const int method = m.method;
            r.job[KIV] = kiv_job(s, [to, method](kiv& k) {
                return (method < 0 ? k.zoom_near(to, to) : k.zoom(to, to, method, 0)) == 1;
            });
            const int interp = m.cv;
            ocv(r, [to, interp](const cv::Mat& a, cv::Mat& b) { cv::resize(a, b, cv::Size(to, to), 0, 0, interp); });
#ifdef KIVB_HAVE_VIPS
            const VipsKernel vk = m.vk;
            const double scale = static_cast<double>(to) / n;
            vip(r, [vk, scale](VipsImage* in, VipsImage** o) { return vips_resize(in, &o[0], scale, "kernel", vk, "gap", 0.0, nullptr); });
#endif
            pil(r, "resize:" + std::to_string(to) + ":" + std::to_string(to) + ":" + m.pil);
        }
        // Colour weighted by alpha, and linear light: vips' thumbnail premultiplies an image
        // with alpha (and with linear set works in linear light), Pillow's resize of RGBA
        // premultiplies too (it has no linear light).
        for (const int flags : {KIV_FILTER_ALPHA, KIV_FILTER_LINEAR}) {
            const bool alpha = flags == KIV_FILTER_ALPHA;
            Row& r = row("resize " + std::to_string(n) + " -> " + std::to_string(to) + " Lanczos 3, " +
                             (alpha ? "RGBA weighted by alpha (zoom_rgba 1)" : "linear light (zoom_rgba 2)"),
                         std::string("kivlib: zoom_rgba, no sharpening") +
                             (alpha ? "; vips: thumbnail of RGBA; Pillow: resize of RGBA" : "; vips: thumbnail, linear"));
            r.job[KIV] = kiv_job(s, [to, flags](kiv& k) { return k.zoom_rgba(to, to, 11, flags) == 1; }, nullptr, alpha);
#ifdef KIVB_HAVE_VIPS
            VipsImage*& in = alpha ? vin_alpha_ : vin_;
            const bool linear = !alpha;
            r.job[VIPS] = vips_job(in, [to, linear](VipsImage* v, VipsImage** o) {
                return vips_thumbnail_image(v, &o[0], to, "height", to, "size", VIPS_SIZE_FORCE, "linear", linear, nullptr);
            });
#endif
            if (alpha) pil(r, "resize_rgba:" + std::to_string(to) + ":" + std::to_string(to) + ":lanczos");
        }
    }

    // ---- orientation
    {
        Row& r = row("rotate 90 clockwise (rotate 0)", "");
        r.job[KIV] = kiv_job(s, [](kiv& k) { k.rotate(0); return k.m_pixels != nullptr; });
        ocv(r, [](const cv::Mat& a, cv::Mat& b) { cv::rotate(a, b, cv::ROTATE_90_CLOCKWISE); });
        vip(r, [](VipsImage* in, VipsImage** o) { return vips_rot(in, &o[0], VIPS_ANGLE_D90, nullptr); });
        pil(r, "rot90");
    }
    {
        Row& r = row("flip top-bottom (flip)", "kivlib in place, the peers into a new image");
        r.job[KIV] = kiv_job(s, [](kiv& k) { return k.flip(0, 0, 0, 0) == 1; });
        ocv(r, [](const cv::Mat& a, cv::Mat& b) { cv::flip(a, b, 0); });
        vip(r, [](VipsImage* in, VipsImage** o) { return vips_flip(in, &o[0], VIPS_DIRECTION_VERTICAL, nullptr); });
        pil(r, "flip");
    }
    {
        Row& r = row("mirror left-right (mirror)", "kivlib in place, the peers into a new image");
        r.job[KIV] = kiv_job(s, [](kiv& k) { return k.mirror(0, 0, 0, 0) == 1; });
        ocv(r, [](const cv::Mat& a, cv::Mat& b) { cv::flip(a, b, 1); });
        vip(r, [](VipsImage* in, VipsImage** o) { return vips_flip(in, &o[0], VIPS_DIRECTION_HORIZONTAL, nullptr); });
        pil(r, "mirror");
    }

    // ---- tone tables
    struct Lut {
        const char* op;
        std::function<bool(kiv&)> k;
        int (*entry)(int);
        const char* pil;
    };
    const Lut luts[] = {
        {"gamma 2.2 (gamma)", [](kiv& k) { return k.gamma(nullptr, 2.2) == 1; }, gamma_entry, "gamma:2.2"},
        {"brightness/contrast (bright_contrast 20, 30)", [](kiv& k) { return k.bright_contrast(nullptr, 20, 30) == 1; }, bc_entry, "bc:20:30"},
    };
    for (const Lut& l : luts) {
        Row& r = row(l.op, "the peers build a 256-entry table per call and apply it (cv::LUT, vips maplut, Pillow point)");
        r.job[KIV] = kiv_job(s, l.k);
        auto entry = l.entry;
        ocv(r, [entry](const cv::Mat& a, cv::Mat& b) {
            cv::Mat table(1, 256, CV_8U);
            for (int i = 0; i < 256; ++i) table.at<unsigned char>(i) = static_cast<unsigned char>(entry(i));
            cv::LUT(a, table, b);
        });
        vip(r, [entry](VipsImage* in, VipsImage** o) { return vips_lut(in, o, entry); });
        pil(r, l.pil);
    }
    {
        Row& r = row("histogram equalization (equalize)",
                     "kivlib and OpenCV: one table from the luma histogram for all channels (OpenCV: cvtColor gray + "
                     "calcHist + LUT); vips hist_equal and Pillow ImageOps.equalize: each channel separately");
        r.job[KIV] = kiv_job(s, [](kiv& k) { return k.equalize(nullptr) == 1; });
        ocv(r, [](const cv::Mat& a, cv::Mat& b) {
            cv::Mat gray, hist;
            cv::cvtColor(a, gray, cv::COLOR_RGB2GRAY);
            const int bins = 256;
            const float range[] = {0, 256};
            const float* ranges = range;
            cv::calcHist(&gray, 1, nullptr, cv::Mat(), hist, 1, &bins, &ranges);
            cv::Mat table(1, 256, CV_8U);
            double total = static_cast<double>(gray.total()), cum = 0;
            for (int i = 0; i < 256; ++i) {
                cum += hist.at<float>(i);
                table.at<unsigned char>(i) = cv::saturate_cast<unsigned char>(255.0 * cum / total);
            }
            cv::LUT(a, table, b);
        });
        vip(r, [](VipsImage* in, VipsImage** o) { return vips_hist_equal(in, &o[0], nullptr); });
        pil(r, "equalize");
    }

    // ---- palette quantization: 256 colours, with PSNR against the original
    for (int mode = 0; mode < 2; ++mode) {
        Row& r = row(std::string("quantize 256 colours, ") + (mode ? "Floyd-Steinberg (quantize 1)" : "no dither (quantize 0)"),
                     std::string("libimagequant: speed 10 (its fastest; the default 4 is about 30x slower here), dithering level ") + (mode ? "1.0" : "0") +
                         "; Pillow: MEDIANCUT" + (mode ? ", then a Floyd-Steinberg remap to that palette" : ""));
        r.quality = true;
        r.job[KIV] = kiv_job(s, [mode](kiv& k) { k.quantize(mode, 256, nullptr); return k.m_bits == 8; }, &r.psnr[KIV]);
#ifdef KIVB_HAVE_LIQ
        r.job[LIQ] = each([&s, mode, &r]() {
            std::vector<unsigned char> idx(static_cast<std::size_t>(s.w) * s.h);
            auto t0 = Clock::now();
            liq_attr* a = liq_attr_create();
            liq_set_max_colors(a, 256);
            liq_set_speed(a, 10);
            liq_image* im = liq_image_create_rgba(a, s.rgba.data(), s.w, s.h, 0);
            liq_result* res = nullptr;
            double ms = NAN;
            if (liq_image_quantize(im, a, &res) == LIQ_OK) {
                liq_set_dithering_level(res, mode ? 1.0f : 0.0f);
                if (liq_write_remapped_image(res, im, idx.data(), idx.size()) == LIQ_OK) {
                    ms = ms_since(t0);
                    const liq_palette* pal = liq_get_palette(res);
                    std::vector<unsigned char> out(idx.size() * 3);
                    for (std::size_t i = 0; i < idx.size(); ++i) {
                        const liq_color& c = pal->entries[idx[i]];
                        out[3 * i] = c.r, out[3 * i + 1] = c.g, out[3 * i + 2] = c.b;
                    }
                    r.psnr[LIQ] = psnr_rgb(s.rgb.data(), out.data(), idx.size(), 3, 3);
                }
                liq_result_destroy(res);
            }
            liq_image_destroy(im);
            liq_attr_destroy(a);
            return ms;
        });
#endif
        pil(r, "quant:" + std::to_string(mode));
    }

    // ---- DIB in and out
    {
        Row& r = row("DIB in + out (attachdib + createdib, 24 bits)",
                     "kivlib: packed bottom-up BGR DIB to RGBA and back, new DIB block; OpenCV: cvtColor BGR->RGBA->BGR, "
                     "no row flip; vips: from memory, band reorder + alpha, and back, no row flip; Pillow: frombytes "
                     "bottom-up BGR, convert RGBA, tobytes bottom-up BGR");
        void* dib = s.dib;
        r.job[KIV] = each([this, dib]() {
            // The DIB read once first: every other job starts from an input just written or
            // read (OpenCV reads these very bytes right after this job), so this one does too.
            const auto* bytes = static_cast<const unsigned char*>(GlobalLock(dib));
            unsigned sum = 0;
            for (SIZE_T i = 0, n = GlobalSize(dib); i < n; i += 64) sum += bytes[i];
            GlobalUnlock(dib);
            g_sink = g_sink + sum;
            auto t0 = Clock::now();
            const int ok = img_.attachdib(dib);
            void* out = img_.createdib();
            double ms = ms_since(t0);
            if (!ok || !out) ms = NAN;
            GlobalFree(out);
            return ms;
        });
#ifdef KIVB_HAVE_OPENCV
        {
            // The DIB's rows as they lie in memory: BGR, bottom-up (not flipped here).
            unsigned char* bits = static_cast<unsigned char*>(GlobalLock(dib)) + sizeof(BITMAPINFOHEADER);
            GlobalUnlock(dib);
            cv::Mat bgr(s.h, s.w, CV_8UC3, bits);
            r.job[OCV] = each([bgr, this, rgba = cv::Mat()]() mutable {
                auto t0 = Clock::now();
                cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
                cv::cvtColor(rgba, cdst_, cv::COLOR_RGBA2BGR);
                return ms_since(t0);
            });
        }
#endif
#ifdef KIVB_HAVE_VIPS
        {
            unsigned char* bits = static_cast<unsigned char*>(GlobalLock(dib)) + sizeof(BITMAPINFOHEADER);
            GlobalUnlock(dib);
            const int w = s.w, h = s.h;
            r.job[VIPS] = each([bits, w, h]() {
                auto t0 = Clock::now();
                double ms = NAN;
                VipsImage* base = vips_image_new();
                VipsImage** t = reinterpret_cast<VipsImage**>(vips_object_local_array(VIPS_OBJECT(base), 8));
                t[0] = vips_image_new_from_memory(bits, static_cast<std::size_t>(w) * h * 3, w, h, 3, VIPS_FORMAT_UCHAR);
                // BGR -> RGB by a band flip, then an opaque alpha band.
                if (t[0] && !vips_extract_band(t[0], &t[1], 2, nullptr) && !vips_extract_band(t[0], &t[2], 1, nullptr) &&
                    !vips_extract_band(t[0], &t[3], 0, nullptr)) {
                    VipsImage* bands[3] = {t[1], t[2], t[3]};
                    std::size_t len = 0;
                    if (!vips_bandjoin(bands, &t[4], 3, nullptr) && !vips_bandjoin_const1(t[4], &t[5], 255, nullptr)) {
                        void* rgba = vips_image_write_to_memory(t[5], &len);
                        if (rgba) {
                            VipsImage* back = vips_image_new_from_memory(rgba, len, w, h, 4, VIPS_FORMAT_UCHAR);
                            VipsImage *b2 = nullptr, *b1 = nullptr, *b0 = nullptr, *j = nullptr;
                            if (back && !vips_extract_band(back, &b2, 2, nullptr) && !vips_extract_band(back, &b1, 1, nullptr) &&
                                !vips_extract_band(back, &b0, 0, nullptr)) {
                                VipsImage* bb[3] = {b2, b1, b0};
                                if (!vips_bandjoin(bb, &j, 3, nullptr)) {
                                    void* out = vips_image_write_to_memory(j, &len);
                                    if (out) ms = ms_since(t0);
                                    g_free(out);
                                }
                            }
                            for (VipsImage* p : {j, b0, b1, b2, back})
                                if (p) g_object_unref(p);
                            g_free(rgba);
                        }
                    }
                }
                g_object_unref(base);
                return ms;
            });
        }
#endif
        pil(r, "dib");
    }

    // ---- a thumbnail pipeline, from the 4096 source only
    if (n == 4096) {
        const int th = 256;
        Row& r = row("thumbnail 4096 -> 256 (Lanczos 3, sharpen, 256 colours, DIB out)",
                     "kivlib: zoom 11, sharpen, quantize 0 (median cut, no dither), createdib (8 bits); Pillow: resize "
                     "LANCZOS, the sharpen kernel, quantize MEDIANCUT, bottom-up index rows and palette; libimagequant "
                     "column: vips resize (lanczos3, gap 0) and conv, then libimagequant (speed 10, no dither), bottom-up "
                     "index rows and palette; OpenCV has no quantizer");
        r.job[KIV] = each([this, &s, th]() {
            if (img_.m_width != s.w || img_.m_height != s.h || img_.m_bits != 24 || !img_.m_pixels)
                img_.create(s.w, s.h, 24);
            std::memcpy(img_.m_pixels, s.rgba.data(), s.bytes4());
            auto t0 = Clock::now();
            void* dib = nullptr;
            if (img_.zoom(th, th, 11, 0) == 1 && img_.sharpen(nullptr) == 1) {
                img_.quantize(0, 256, nullptr);
                if (img_.m_bits == 8) dib = img_.createdib();
            }
            double ms = dib ? ms_since(t0) : NAN;
            GlobalFree(dib);
            return ms;
        });
#if defined(KIVB_HAVE_VIPS) && defined(KIVB_HAVE_LIQ)
        r.job[LIQ] = each([this, th, n]() {
            auto t0 = Clock::now();
            double ms = NAN;
            VipsImage* base = vips_image_new();
            VipsImage** t = reinterpret_cast<VipsImage**>(vips_object_local_array(VIPS_OBJECT(base), 4));
            const double k[9] = {-1, -1, -1, -1, 18, -1, -1, -1, -1};
            t[2] = vips_mask(9, k, 10);
            std::size_t len = 0;
            void* rgba = nullptr;
            if (!vips_resize(vin_, &t[0], static_cast<double>(th) / n, "kernel", VIPS_KERNEL_LANCZOS3, "gap", 0.0, nullptr) &&
                !vips_conv(t[0], &t[1], t[2], "precision", VIPS_PRECISION_INTEGER, nullptr) &&
                !vips_bandjoin_const1(t[1], &t[3], 255, nullptr) && t[3]->BandFmt == VIPS_FORMAT_UCHAR)
                rgba = vips_image_write_to_memory(t[3], &len);
            if (rgba && len == static_cast<std::size_t>(th) * th * 4) {
                liq_attr* a = liq_attr_create();
                liq_set_max_colors(a, 256);
                liq_set_speed(a, 10);
                liq_image* im = liq_image_create_rgba(a, rgba, th, th, 0);
                liq_result* res = nullptr;
                std::vector<unsigned char> idx(static_cast<std::size_t>(th) * th);
                if (liq_image_quantize(im, a, &res) == LIQ_OK) {
                    liq_set_dithering_level(res, 0.0f);
                    if (liq_write_remapped_image(res, im, idx.data(), idx.size()) == LIQ_OK) {
                        // The 8-bit block: palette, then the rows bottom-up (256 bytes: no padding).
                        const liq_palette* pal = liq_get_palette(res);
                        std::vector<unsigned char> block(1024 + idx.size());
                        for (unsigned i = 0; i < pal->count; ++i) {
                            block[4 * i] = pal->entries[i].b, block[4 * i + 1] = pal->entries[i].g;
                            block[4 * i + 2] = pal->entries[i].r;
                        }
                        for (int y = 0; y < th; ++y)
                            std::memcpy(&block[1024 + static_cast<std::size_t>(th - 1 - y) * th], &idx[static_cast<std::size_t>(y) * th], th);
                        benchmark::DoNotOptimize(block.data());
                        ms = ms_since(t0);
                    }
                    liq_result_destroy(res);
                }
                liq_image_destroy(im);
                liq_attr_destroy(a);
            }
            g_free(rgba);
            g_object_unref(base);
            if (std::isnan(ms)) {
                std::cerr << "vips + libimagequant thumbnail failed: " << vips_error_buffer();
                vips_error_clear();
            }
            return ms;
        });
#endif
        pil(r, "thumb:" + std::to_string(th));
    }
}

void Driver::measure(Table& t, int reps) {
    std::vector<std::array<std::vector<double>, NLIB>> samples(t.rows.size());
    for (std::size_t i = 0; i < t.rows.size(); ++i) {
        Row& r = t.rows[i];
        if (!cfg_.only.empty() && r.op.find(cfg_.only) == std::string::npos) {
            r.skipped = true;
            continue;
        }
        // Warm-up and calibration: one call of each library (two when the first is short, the
        // second then timed warm) sets how many calls one sample of that library takes, so that
        // a sample lasts about kSampleMs however small the image. The quantizers at 4096 take
        // seconds a call: their one call is the only warm-up, so a run stays in minutes.
        std::array<int, NLIB> calls;
        calls.fill(1);
        for (int lib = 0; lib < NLIB; ++lib) {
            if (!r.job[lib]) continue;
            double ms = r.job[lib](1);
            if (!(ms >= kSampleMs)) ms = r.job[lib](1);
            if (ms > 0 && ms < kSampleMs)
                calls[lib] = static_cast<int>(std::min(kMaxCalls, std::ceil(kSampleMs / ms)));
        }
        for (int rep = 0; rep < reps; ++rep)
            for (int lib = 0; lib < NLIB; ++lib) {
                if (!r.job[lib]) continue;
                double ms = r.job[lib](calls[lib]);
                if (!std::isnan(ms)) samples[i][lib].push_back(ms);
            }
        for (int lib = 0; lib < NLIB; ++lib)
            r.ms[lib] = cfg_.fastest && !samples[i][lib].empty()
                            ? *std::min_element(samples[i][lib].begin(), samples[i][lib].end())
                            : median(samples[i][lib]);
        t.memcpy_samples.insert(t.memcpy_samples.end(), samples[i][MEMCPY].begin(), samples[i][MEMCPY].end());
        std::fprintf(stderr, "  %-52s kivlib %9.4g ms  OpenCV %9.4g  vips %9.4g  Pillow %9.4g  memcpy %7.3g\n", r.op.c_str(), r.ms[KIV],
                     r.ms[OCV], r.ms[VIPS], r.ms[PIL], r.ms[MEMCPY]);
    }
}

std::string fmt(double v, int prec = 2) {
    if (std::isnan(v)) return "—";
    char b[32];
    std::snprintf(b, sizeof b, "%.*f", v >= 100 ? 0 : v >= 10 ? 1 : prec, v);
    return b;
}

// Milliseconds: three significant digits below 1 ms (64 x 64 calls take microseconds).
std::string fmt_ms(double v) {
    if (!(v > 0) || v >= 1) return fmt(v);
    return fmt(v, std::min(6, 2 - static_cast<int>(std::floor(std::log10(v)))));
}

std::string read_first(const char* path, const char* key) {
    std::ifstream f(path);
    std::string line;
    while (std::getline(f, line))
        if (!key || line.rfind(key, 0) == 0) {
            if (!key) return line;
            std::size_t p = line.find(':');
            return p == std::string::npos ? line : line.substr(p + 2);
        }
    return "?";
}

std::string Driver::report(const std::vector<Table>& tables, double minutes, const std::string& load0) const {
    std::ostringstream o;
    char date[64];
    std::time_t now = std::time(nullptr);
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M %Z", std::localtime(&now));
    o << "# kivlib side by side\n\n"
      << "Written by `scripts/bench" << (cfg_.quick ? " --quick" : "") << "` (bench/peers/compare.cpp). "
      << "Times are " << (cfg_.fastest ? "the fastest samples" : "medians")
      << " in milliseconds of the wall clock; lower is better.\n\n"
      << "- Date: " << date << "; run took " << fmt(minutes, 1) << " min\n"
      << "- Machine: " << read_first("/proc/cpuinfo", "model name") << ", " << std::thread::hardware_concurrency()
      << " logical cores\n"
      << "- Load average (1, 5, 15 min) at the start: " << load0 << "; at the end: " << read_first("/proc/loadavg", nullptr)
      << " (the machine is shared, so figures are noisy)\n"
#if defined(__clang__)
      << "- Compiler: clang " << __clang_version__ << ", Release\n"
#elif defined(__GNUC__)
      << "- Compiler: g++ " << __VERSION__ << ", Release\n"
#endif
      << "- Libraries: kivlib " << KIVB_VERSION
#ifdef KIVB_HAVE_OPENCV
      << "; OpenCV " << CV_VERSION
#else
      << "; OpenCV not found (column empty)"
#endif
#ifdef KIVB_HAVE_VIPS
      << "; libvips " << vips_version_string()
#else
      << "; libvips not found (column empty)"
#endif
      << (pil_.ok() ? "; Pillow " + pil_.version() : "; Pillow not available (" + pil_.note() + ")")
#ifdef KIVB_HAVE_LIQ
      << "; libimagequant " << liq_version() / 10000 << "." << liq_version() / 100 % 100 << "." << liq_version() % 100
#else
      << "; libimagequant not found (column empty)"
#endif
      << "\n\n"
      << "How it is measured: one deterministic photo-like image (bench/bench_common.h) per size, converted once "
         "into each library's input (kivlib RGBA, packed RGB for OpenCV, vips and Pillow, the RGBA buffer for "
         "libimagequant, a 24-bit DIB for the DIB row). Each row first calls every library once or twice (warm-up), "
         "which also sets how many calls one of its samples takes: enough to last about " << fmt(kSampleMs, 0)
      << " ms together (one call where a call is longer). Then each repetition takes one sample of kivlib, OpenCV, vips, "
         "Pillow, libimagequant and a memcpy in turn; " << cfg_.reps_large << " samples at 4096, " << cfg_.reps_mid
      << " at 1024 and " << cfg_.reps_small << " at 256 and 64, and the " << (cfg_.fastest ? "fastest" : "median")
      << " is reported. A sample is the mean of its "
         "calls, each call timed on its own (the clock read before and after it, for every library alike), so what "
         "readies the next call stays outside the timed region. "
         "kivlib's image is created once and the source copied into it before every call, outside the timed "
         "region (re-created, untimed, when an operation changed its size or depth). The peers read the same source "
         "buffer each time: OpenCV writes into a reused Mat, vips runs from the wrapped buffer into a new memory "
         "image (operation cache off), Pillow returns a new Image (run in a python3 child process, timed there with "
         "time.perf_counter). kivlib works on 4-byte pixels (alpha kept or set as each operation says), the peers on "
         "3-channel RGB. Pillow is single-threaded; libimagequant uses OpenMP, capped like the others when OpenMP is found at build time. The memcpy column "
         "copies width x height x 4 bytes (the kivlib image; for the resize rows the source), pooled over all rows of the table. "
         "Ratios: above 1 means kivlib is slower.\n\n"
         "Not compared: kivlib's filter_3x3 has a median (mode 1), so the median row is present; OpenCV and vips "
         "have no palette quantizer, so those cells are empty.\n";

    std::vector<std::string> losses;
    for (const Table& t : tables) {
        const double mc = t.memcpy_ms();
        o << "\n## " << t.size << " x " << t.size << ", "
          << (t.threads == 0 ? "all cores (" + std::to_string(std::thread::hardware_concurrency()) + " threads)"
                             : std::to_string(t.threads) + (t.threads == 1 ? " thread" : " threads"))
          << "\n\nmemcpy of the image ("
          << (t.size >= 1024 ? std::to_string(static_cast<std::size_t>(t.size) * t.size * 4 >> 20) + " MiB"
                             : std::to_string(static_cast<std::size_t>(t.size) * t.size * 4 >> 10) + " KiB")
          << "): "
          << fmt_ms(mc) << " ms\n\n"
          << "| operation | kivlib ms | OpenCV ms | vips ms | Pillow ms | libimagequant ms | kivlib / fastest peer | kivlib / memcpy | PSNR dB (kivlib / liq / Pillow) | note |\n"
          << "|---|---:|---:|---:|---:|---:|---:|---:|---|---|\n";
        for (const Row& r : t.rows) {
            if (r.skipped) continue;
            double best = NAN;
            int bestlib = -1;
            for (int lib = kPeerFirst; lib < kPeerEnd; ++lib)
                if (!std::isnan(r.ms[lib]) && (std::isnan(best) || r.ms[lib] < best)) best = r.ms[lib], bestlib = lib;
            const double ratio = r.ms[KIV] / best;
            o << "| " << r.op << " | " << fmt_ms(r.ms[KIV]);
            for (int lib = kPeerFirst; lib < kPeerEnd; ++lib) o << " | " << fmt_ms(r.ms[lib]);
            o << " | " << (ratio > 1 ? "**" + fmt(ratio) + "**" : fmt(ratio)) << " | " << fmt(r.ms[KIV] / mc, 1) << " | ";
            if (r.quality) o << fmt(r.psnr[KIV]) << " / " << fmt(r.psnr[LIQ]) << " / " << fmt(r.psnr[PIL]);
            o << " | " << r.note << " |\n";
            if (ratio > 1 && bestlib >= 0) {
                std::ostringstream l;
                l << fmt(ratio) << "x  " << t.size << " " << (t.threads == 0 ? "all cores" : std::to_string(t.threads) + " thr")
                  << ": " << r.op << " (" << fmt_ms(r.ms[KIV]) << " ms vs " << kLibName[bestlib] << " " << fmt_ms(best) << " ms)";
                losses.push_back(l.str());
            }
        }
    }
    std::sort(losses.begin(), losses.end(), [](const std::string& a, const std::string& b) {
        return std::strtod(a.c_str(), nullptr) > std::strtod(b.c_str(), nullptr);
    });
    o << "\n## Where kivlib is slower than the fastest peer\n\n";
    if (losses.empty()) o << "Nowhere in this run.\n";
    for (const std::string& l : losses) o << "- " << l << "\n";
    return o.str();
}

int Driver::run() {
    const auto t_start = Clock::now();
    const std::string load0 = read_first("/proc/loadavg", nullptr);
#ifdef KIVB_HAVE_VIPS
    vips_cache_set_max(0);  // repeated identical calls must not come back from the cache
#endif
    if (!pil_.start(cfg_.python, cfg_.script))
        std::fprintf(stderr, "Pillow column skipped: %s\n", pil_.note().c_str());

    const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    std::vector<int> thread_runs;
    if (cfg_.threads >= 0) thread_runs = {cfg_.threads};
    else thread_runs = {0, 1};
    std::vector<int> sizes = cfg_.quick ? std::vector<int>{1024, 256, 64} : std::vector<int>{4096, 1024, 256, 64};

    std::vector<Table> tables;
    for (int size : sizes) {
        Source s;
        make_source(s, size);
        if (pil_.ok()) pil_.call("load " + s.rawpath + " " + std::to_string(size) + " " + std::to_string(size));
#ifdef KIVB_HAVE_VIPS
        vin_ = vips_image_new_from_memory(s.rgb.data(), s.rgb.size(), s.w, s.h, 3, VIPS_FORMAT_UCHAR);
        vin_alpha_ = vips_image_new_from_memory(s.alpha.data(), s.bytes4(), s.w, s.h, 4, VIPS_FORMAT_UCHAR);
#endif
        for (int threads : thread_runs) {
            const int n = threads == 0 ? cores : threads;
            kiv::setthreads(threads);
#ifdef KIVB_HAVE_OMP
            omp_set_num_threads(n);
#endif
#ifdef KIVB_HAVE_OPENCV
            cv::setNumThreads(n);  // 0 would mean "no threading" to OpenCV
#endif
#ifdef KIVB_HAVE_VIPS
            vips_concurrency_set(n);
#endif
            std::fprintf(stderr, "== %d x %d, %d thread%s\n", size, size, n, n == 1 ? "" : "s");
            Table t;
            t.size = size;
            t.threads = threads;
            build_rows(t, s);
            measure(t, size >= 4096 ? cfg_.reps_large : size >= 1024 ? cfg_.reps_mid : cfg_.reps_small);
            tables.push_back(std::move(t));
        }
#ifdef KIVB_HAVE_VIPS
        g_object_unref(vin_);
        g_object_unref(vin_alpha_);
        vin_ = vin_alpha_ = nullptr;
#endif
        img_.destroy();
        GlobalFree(s.dib);
        std::filesystem::remove(s.rawpath);
    }

    const std::string md = report(tables, ms_since(t_start) / 60000.0, load0);
    std::cout << md;
    std::ofstream f(cfg_.out);
    f << md;
    if (!f) {
        std::fprintf(stderr, "cannot write %s\n", cfg_.out.c_str());
        return 1;
    }
    std::fprintf(stderr, "written: %s\n", cfg_.out.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Config c;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto next = [&]() -> std::string {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "%s needs a value\n", a.c_str());
                std::exit(2);
            }
            return argv[++i];
        };
        if (a == "--quick") c.quick = true, c.reps_mid = c.reps_small = 3;
        else if (a == "--threads") c.threads = std::max(0, std::atoi(next().c_str()));
        else if (a == "--out") c.out = next();
        else if (a == "--pillow") c.script = next();
        else if (a == "--python") c.python = next();
        else if (a == "--only") c.only = next();
        else if (a == "--fastest") c.fastest = true;
        else if (a == "--reps") c.reps_large = c.reps_mid = c.reps_small = std::max(1, std::atoi(next().c_str()));
        else {
            std::fprintf(stderr,
                         "usage: kiv_compare [--quick] [--threads N] [--out FILE] [--pillow peers_pillow.py] [--python python3]\n"
                         "                   [--only TEXT]  (rows whose operation contains TEXT)\n"
                         "                   [--reps N]  (samples a row and library at every size)\n"
                         "                   [--fastest]  (each library's fastest sample, not the median: on a loaded\n"
                         "                                 machine, where load only ever adds time)\n");
            return 2;
        }
    }
    signal(SIGPIPE, SIG_IGN);  // a Pillow child that died must not take the driver with it
#ifdef KIVB_HAVE_VIPS
    if (VIPS_INIT(argv[0])) {
        std::fprintf(stderr, "vips failed to start\n");
        return 1;
    }
#endif
    int rc = Driver(c).run();
#ifdef KIVB_HAVE_VIPS
    vips_shutdown();
#endif
    return rc;
}
