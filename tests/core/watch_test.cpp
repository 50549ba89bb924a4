// Progress with cancellation (kiv::set_progress): every long operation reports 0 .. 100
// rising, gives the same bytes watched as unwatched, and when cancelled after k reports
// returns 0 with the image exactly as before (size, depth, colour map, pixels).
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "kiv.h"
#include "support/checks.h"
#include "support/paths.h"
#include "support/test_images.h"

namespace {

using Image = kivtest::Snapshot;

struct Recorder {
    std::vector<int> done;
    int stop_at = -1;  // the report (by count) whose answer cancels
    static int fn(void* user, int done, int total) {
        auto* r = static_cast<Recorder*>(user);
        EXPECT_EQ(total, 100);
        r->done.push_back(done);
        return static_cast<int>(r->done.size()) - 1 == r->stop_at;
    }
};

struct Op {
    const char* name;
    int bits;
    std::function<int(kiv&)> run;
};

kiv g_tex = kivtest::random_image(9, 7, 24, 4);
tagKIV_NOISE g_noise{40, 1, 0, 7};
tagKIV_BUMPMAP g_bump{135.0, 45.0, 4, 0};
tagKIV_COLORCUT g_cut{6, {16, 16, 16}};
COLORREF g_shade[2] = {0x0000FF, 0xFF0000};

const std::vector<Op>& ops() {
    static const std::vector<Op> v = {
        {"zoom", 32, [](kiv& k) { return k.zoom(40, 30, 11, 0); }},
        {"zoom up", 8, [](kiv& k) { return k.zoom(130, 100, 10, 0); }},
        {"zoom_rgba", 32, [](kiv& k) { return k.zoom_rgba(40, 30, 11, 3); }},
        {"zoom_linear", 32, [](kiv& k) { return k.zoom_linear(150, 40); }},
        {"zoom_near", 8, [](kiv& k) { return k.zoom_near(150, 40); }},
        {"tile_divide", 32, [](kiv& k) { return k.tile_divide(nullptr, 3); }},
        {"rotate_any", 8, [](kiv& k) { return k.rotate_any(30.0, 0x123456, 1); }},
        {"rotate_any_rgba", 32, [](kiv& k) { return k.rotate_any_rgba(30.0, 1, 3); }},
        {"blur", 8, [](kiv& k) { return k.blur(nullptr, 6, 4); }},
        {"blur_simple", 32, [](kiv& k) { return k.blur_simple(nullptr, 5); }},
        {"blur_gauss_iir", 8, [](kiv& k) { return k.blur_gauss_iir(nullptr, 3.0, 2.0); }},
        {"blur_gauss_rle", 32, [](kiv& k) { return k.blur_gauss_rle(nullptr, 3.0); }},
        {"blur_gauss_sel", 32, [](kiv& k) { return k.blur_gauss_sel(nullptr, 5.0, 40); }},
        {"blur_gauss_rgba", 32, [](kiv& k) { return k.blur_gauss_rgba(nullptr, 3.0, 3.0, 3); }},
        {"sharpen", 32, [](kiv& k) { return k.sharpen(nullptr); }},
        {"sharpen2", 32, [](kiv& k) { return k.sharpen2(nullptr, 300); }},
        {"unsharp_mask", 32, [](kiv& k) { return k.unsharp_mask(nullptr, 2.0, 200, 0); }},
        {"unsharp_mask2", 32, [](kiv& k) { return k.unsharp_mask2(nullptr, 2.0, 200, 0); }},
        {"unsharp_mask_rgba", 32, [](kiv& k) { return k.unsharp_mask_rgba(nullptr, 2.0, 200, 0, 1); }},
        {"enhance", 32, [](kiv& k) { return k.enhance(nullptr, 4, 80); }},
        {"mblur_linear", 32, [](kiv& k) { return k.mblur_linear(nullptr, 30.0, 9); }},
        {"mblur_radial", 32, [](kiv& k) { return k.mblur_radial(nullptr, 40, 30, 20.0); }},
        {"mblur_round", 32, [](kiv& k) { return k.mblur_round(nullptr, 40, 30, 9); }},
        {"mblur_zoom", 32, [](kiv& k) { return k.mblur_zoom(nullptr, 40, 30, 30); }},
        {"sblur_wind", 32, [](kiv& k) { return k.sblur_wind(nullptr, 2, 9); }},
        {"sblur_blast", 32, [](kiv& k) { return k.sblur_blast(nullptr, 0, 9); }},
        {"oilpaint", 32, [](kiv& k) { return k.oilpaint(nullptr, 2, 16); }},
        {"pixelize", 32, [](kiv& k) { return k.pixelize(nullptr, 3); }},
        {"pyramid", 32, [](kiv& k) { return k.pyramid(nullptr, 6, 40); }},
        {"spread", 32, [](kiv& k) { return k.spread(nullptr, 5, 7); }},
        {"noise", 32, [](kiv& k) { return k.noise(nullptr, &g_noise); }},
        {"video", 32, [](kiv& k) { return k.video(nullptr, 30, 30); }},
        {"texturize", 32, [](kiv& k) { return k.texturize(nullptr, &g_tex, nullptr); }},
        {"bumpmap_merge", 32, [](kiv& k) { return k.bumpmap_merge(nullptr, &g_tex, &g_bump, 7, 200); }},
        {"quantize", 32, [](kiv& k) { return k.quantize(1, 64, nullptr), 1; }},
        {"quantize_wdp", 32, [](kiv& k) { return k.quantize_wdp(4, 1); }},
        {"equalize", 8, [](kiv& k) { return k.equalize(nullptr); }},
        {"autocolorenhance", 32, [](kiv& k) { return k.autocolorenhance(nullptr); }},
        {"hue_saturation", 32, [](kiv& k) { return k.hue_saturation(nullptr, 0, 30, 20, 10); }},
        {"colorcut", 8, [](kiv& k) { return k.colorcut(nullptr, &g_cut); }},
        {"shadefill", 32, [](kiv& k) { return k.shadefill(nullptr, g_shade, 2, 4, 200, 3); }},
    };
    return v;
}

}  // namespace

TEST(Watch, ReportsRiseToTheEndAndCancellingLeavesTheImageAsItWas) {
    for (int threads : {1, 2}) {
        const kivtest::ThreadCap cap(threads);
        for (const Op& op : ops()) {
            SCOPED_TRACE(std::string(op.name) + ", threads " + std::to_string(threads));
            const kiv src = kivtest::random_image(96, 80, op.bits, 11);
            kiv plain(src), watched(src);
            const int want = op.run(plain);
            Recorder all;
            watched.set_progress(Recorder::fn, &all);
            EXPECT_EQ(op.run(watched), want);
            EXPECT_TRUE(Image(watched) == Image(plain));
            ASSERT_GE(all.done.size(), threads == 1 ? 3u : 2u);
            EXPECT_LE(all.done.size(), 101u);
            EXPECT_EQ(all.done.front(), 0);
            EXPECT_EQ(all.done.back(), 100);
            for (std::size_t i = 1; i < all.done.size(); ++i) EXPECT_GT(all.done[i], all.done[i - 1]);
            // Cancel at the k-th report (the last, done = total, cannot cancel). With workers
            // the reports come as the calling thread sees the work, so a run may end first.
            const int n = static_cast<int>(all.done.size()) - 1;
            for (int k : {0, 1, n / 2, n - 1}) {
                kiv img(src);
                Recorder stop;
                stop.stop_at = k;
                img.set_progress(Recorder::fn, &stop);
                const int got = op.run(img);
                const bool cancelled = stop.done.size() == static_cast<std::size_t>(k) + 1 && stop.done.back() < 100;
                EXPECT_TRUE(cancelled || threads > 1) << "not cancelled at " << k;
                EXPECT_EQ(got, cancelled && op.name != std::string("quantize") ? 0 : want) << "cancelled at " << k;
                EXPECT_TRUE(Image(img) == Image(cancelled ? src : plain)) << "cancelled at " << k;
            }
        }
    }
}

TEST(Watch, TheOldProgressCallbackKeepsItsPattern) {
    static std::vector<int> codes;
    auto proc = [](int code, int value) { codes.push_back(code * 100000 + value); };
    std::vector<int> alone, both;
    for (auto* out : {&alone, &both}) {
        kiv img = kivtest::random_image(40, 33, 24, 2);
        img.m_progressproc = proc;
        Recorder r;
        if (out == &both) img.set_progress(Recorder::fn, &r);
        codes.clear();
        ASSERT_EQ(img.unsharp_mask(nullptr, 2.0, 150, 2), 1);
        *out = codes;
    }
    EXPECT_EQ(alone, both);
    EXPECT_EQ(alone.front(), (40 + 33) >> 3);
}

TEST(Watch, TheCallbackMayUseOtherImagesAndStaysWithItsObject) {
    struct Ctx {
        kiv other;
        int calls;
    } ctx{kivtest::random_image(20, 20, 24, 1), 0};
    const kivtest::ThreadCap cap(1);  // every report from this thread's own chunks: as many as the work has
    kiv img = kivtest::random_image(50, 40, 24, 3), plain(img), other_before(ctx.other);
    img.set_progress(
        [](void* u, int, int) {
            auto* c = static_cast<Ctx*>(u);
            ++c->calls;
            return c->other.blur_gauss_iir(nullptr, 1.0, 1.0) - 1;  // 0: go on
        },
        &ctx);
    ASSERT_EQ(img.blur_gauss_iir(nullptr, 2.0, 2.0), 1);
    ASSERT_EQ(plain.blur_gauss_iir(nullptr, 2.0, 2.0), 1);
    EXPECT_TRUE(Image(img) == Image(plain));
    EXPECT_GT(ctx.calls, 2);
    EXPECT_FALSE(Image(ctx.other) == Image(other_before));
    Recorder r;
    img.set_progress(Recorder::fn, &r);
    kiv copy(img);  // copies do not take the callback
    EXPECT_EQ(copy.blur_simple(nullptr, 2), 1);
    EXPECT_TRUE(r.done.empty());
}

TEST(Watch, LoopsTooSmallToSplitStopAtTheReportThatCancels) {
    // On all cores, work too small to share runs on the calling thread alone: it still
    // reports chunk by chunk, and a cancel stops it at the very report that asked.
    kiv::setthreads(0);
    for (const Op& op : ops()) {
        const std::string name = op.name;
        if (name != "video" && name != "noise" && name != "pyramid" && name != "rotate_any" && name != "zoom_rgba")
            continue;
        SCOPED_TRACE(name);
        const kiv src = kivtest::random_image(64, 48, op.bits, 5);
        for (int k : {1, 4}) {
            kiv img(src);
            Recorder stop;
            stop.stop_at = k;
            img.set_progress(Recorder::fn, &stop);
            EXPECT_EQ(op.run(img), 0);
            EXPECT_EQ(stop.done.size(), static_cast<std::size_t>(k) + 1);
            EXPECT_TRUE(Image(img) == Image(src));
        }
    }
}
