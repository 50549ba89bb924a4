// Several host threads, each running operations on its own image at the same time, while
// every operation also spreads its rows over the shared pool: each thread's bytes must equal
// those of the same operation run alone on one thread.  Built into the ThreadSanitizer run.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/image_check.h"
#include "support/test_images.h"

namespace {

struct Op {
    const char* name;
    std::function<int(kiv&)> run;  // result of the call; the image is compared afterwards
};

std::vector<Op> operations() {
    static COLORREF shade[3] = {0x0000FF, 0x00FF00, 0xFF8000};
    static tagGRADCOLORS stops[3] = {{0x102030, 0}, {0xFFFFFF, 400}, {0x0000FF, 1000}};
    std::vector<Op> ops = {
        {"zoom lanczos", [](kiv& i) { return i.zoom(57, 19, 11, 0); }},
        {"zoom mitchell shrink", [](kiv& i) { return i.zoom(20, 13, 10, 0); }},
        {"zoom_linear", [](kiv& i) { return i.zoom_linear(50, 40); }},
        {"rotate_any", [](kiv& i) { return i.rotate_any(33.0, 0x00FF00, 1); }},
        {"blur", [](kiv& i) { return i.blur(nullptr, 3, 5); }},
        {"blur_simple", [](kiv& i) { return i.blur_simple(nullptr, 4); }},
        {"blur_gauss_iir", [](kiv& i) { return i.blur_gauss_iir(nullptr, 2.5, 1.5); }},
        {"blur_gauss_rle", [](kiv& i) { return i.blur_gauss_rle(nullptr, 2.0); }},
        {"blur_gauss_sel", [](kiv& i) { return i.blur_gauss_sel(nullptr, 4.0, 40); }},
        {"unsharp_mask", [](kiv& i) { return i.unsharp_mask(nullptr, 2.0, 150, 3); }},
        {"mblur_linear", [](kiv& i) { return i.mblur_linear(nullptr, 30.0, 6); }},
        {"bright_contrast", [](kiv& i) { return i.bright_contrast(nullptr, 20, -30); }},
        {"hue_saturation", [](kiv& i) { return i.hue_saturation(nullptr, 0, 40, 20, -10); }},
        {"gamma", [](kiv& i) { return i.gamma(nullptr, 1.8); }},
        {"equalize", [](kiv& i) { return i.equalize(nullptr); }},
        {"oilpaint", [](kiv& i) { return i.oilpaint(nullptr, 2, 16); }},
        {"pixelize", [](kiv& i) { return i.pixelize(nullptr, 4); }},
        {"spread", [](kiv& i) { return i.spread(nullptr, 3, 99); }},
        {"noise", [](kiv& i) {
             tagKIV_NOISE n{40, 1, 0, 7};
             return i.noise(nullptr, &n);
         }},
        {"emboss", [](kiv& i) { return i.emboss(nullptr, nullptr); }},
        {"texturize self", [](kiv& i) { return i.texturize(nullptr, &i, nullptr); }},
        {"shadefill", [](kiv& i) { return i.shadefill(nullptr, shade, 3, 7, 180, 12); }},
        {"gradientfill", [](kiv& i) { return i.gradientfill(nullptr, stops, 3, 4, 200, 0); }},
        {"solidfill", [](kiv& i) { return i.solidfill(3, 2, 20, 9, 0x80FF20, 128, 7); }},
        {"quantize_wdp", [](kiv& i) { return i.quantize_wdp(1, 2); }},
    };
    for (unsigned mode : {0u, 1u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 14u, 15u})
        ops.push_back({"filter_3x3", [mode](kiv& i) { return i.filter_3x3(nullptr, mode); }});
    for (int mode = 0; mode <= 4; ++mode) {
        ops.push_back({"quantize", [mode](kiv& i) {
                           i.quantize(mode, 23, nullptr);
                           return 1;
                       }});
    }
    return ops;
}

// Each thread's own image: odd sizes, different content per thread.
kiv source(int thread) { return kivtest::random_image(37 + 2 * thread, 23 + thread, 24, 1000 + static_cast<unsigned>(thread)); }

TEST(Concurrency, ThreadsOnTheirOwnImagesMatchOneThreadAlone) {
    constexpr int kThreads = 4;
    const std::vector<Op> ops = operations();
    const int saved = kiv::getthreads();

    // References: every operation on every thread's image, one thread, one call at a time.
    kiv::setthreads(1);
    std::vector<std::vector<kiv>> want(kThreads);
    std::vector<std::vector<int>> want_rc(kThreads);
    for (int t = 0; t < kThreads; ++t)
        for (const Op& op : ops) {
            want[t].push_back(source(t));
            want_rc[t].push_back(op.run(want[t].back()));
        }

    // All threads at once, each also using the pool.
    kiv::setthreads(0);
    std::vector<std::vector<kiv>> got(kThreads);
    std::vector<std::vector<int>> got_rc(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (const Op& op : ops) {
                got[t].push_back(source(t));
                got_rc[t].push_back(op.run(got[t].back()));
            }
        });
    for (std::thread& th : threads) th.join();
    kiv::setthreads(saved);

    for (int t = 0; t < kThreads; ++t)
        for (std::size_t k = 0; k < ops.size(); ++k) {
            SCOPED_TRACE(std::string(ops[k].name) + " (#" + std::to_string(k) + ") on thread " + std::to_string(t));
            kiv& a = got[t][k];
            kiv& b = want[t][k];
            EXPECT_EQ(got_rc[t][k], want_rc[t][k]);
            EXPECT_EQ(kivtest::image_violation(a), "");
            EXPECT_EQ(a.m_bits, b.m_bits);
            ASSERT_EQ(a.m_colors, b.m_colors);
            EXPECT_TRUE(kivtest::images_equal(a, b));
            for (int c = 0; c < a.m_colors; ++c) EXPECT_TRUE(kivtest::same_rgba(a.m_map[c], b.m_map[c])) << "map entry " << c;
        }
}

}  // namespace
