// The free kivQuantize* functions: a new DIB equal to the member route, the input untouched
// (refusals are rows of the bad-input table).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;

namespace {

std::vector<unsigned char> block_bytes(void* h) {
    std::vector<unsigned char> v(GlobalSize(h));
    void* p = GlobalLock(h);
    if (p) std::memcpy(v.data(), p, v.size());
    GlobalUnlock(h);
    return v;
}

struct Dib {
    void* h;
    explicit Dib(void* handle) : h(handle) {}
    ~Dib() {
        if (h) GlobalFree(h);
    }
};

std::vector<unsigned char> palette_block(const std::vector<tagSYSCOL>& cols) {
    std::vector<unsigned char> b(sizeof(tagLOGPALETTE) + sizeof(PALETTEENTRY) * (cols.size() + 1), 0);
    tagLOGPALETTE* lp = reinterpret_cast<tagLOGPALETTE*>(b.data());
    lp->palVersion = 0x300;
    lp->palNumEntries = static_cast<WORD>(cols.size());
    for (std::size_t i = 0; i < cols.size(); ++i) lp->palPalEntry[i] = PALETTEENTRY{cols[i].r, cols[i].g, cols[i].b, 0};
    return b;
}

}  // namespace

TEST(QuantizeDib, NewDibEqualsTheMemberRouteAndInputIsUntouched) {
    std::vector<unsigned char> pal = palette_block({{10, 20, 30}, {200, 100, 0}, {255, 255, 255}, {0, 0, 0}});
    tagLOGPALETTE* lp = reinterpret_cast<tagLOGPALETTE*>(pal.data());
    struct Case {
        const char* name;
        std::function<void*(void*)> free_fn;
        std::function<void(kiv&)> member;
    } cases[] = {
        {"Quantize 0/77", [](void* d) { return kivQuantize(d, 0, 77); }, [](kiv& k) { k.quantize(0, 77, nullptr); }},
        {"Quantize 1/16", [](void* d) { return kivQuantize(d, 1, 16); }, [](kiv& k) { k.quantize(1, 16, nullptr); }},
        {"Wcp 3", [&](void* d) { return kivQuantizeWcp(d, 3, lp); }, [&](kiv& k) { k.quantize(3, 0, lp); }},
        {"Wdp 4/6", [](void* d) { return kivQuantizeWdp(d, 4, 6); }, [](kiv& k) { k.quantize_wdp(4, 6); }},
        {"Wdp 9", [](void* d) { return kivQuantizeWdp(d, 0, 9); }, [](kiv&) {}},
        {"Win256", [](void* d) { return kivQuantizeWin256(d, 0); }, [](kiv& k) { k.quantize_wdp(0, 1); }},
        {"Win16", [](void* d) { return kivQuantizeWin16(d, 2); }, [](kiv& k) { k.quantize_wdp(2, 0); }},
    };
    for (int bits : {24, 8}) {
        kiv src = kivtest::random_image(21, 13, bits, 5 + bits);
        Dib in(src.createdib());
        ASSERT_NE(nullptr, in.h);
        const std::vector<unsigned char> before = block_bytes(in.h);
        for (const Case& c : cases) {
            Dib out(c.free_fn(in.h));
            ASSERT_NE(nullptr, out.h) << c.name;
            EXPECT_NE(in.h, out.h) << c.name;
            EXPECT_EQ(before, block_bytes(in.h)) << c.name << ": the input DIB changed";
            kiv want(in.h), got(out.h);
            c.member(want);
            ASSERT_NE(nullptr, got.m_pixels) << c.name;
            EXPECT_EQ(want.m_bits, got.m_bits) << c.name;
            EXPECT_EQ(want.m_colors, got.m_colors) << c.name;
            EXPECT_TRUE(images_equal(want, got)) << c.name;
            for (int i = 0; i < want.m_colors && i < got.m_colors; ++i)
                EXPECT_TRUE(kivtest::same_rgba(want.m_map[i], got.m_map[i])) << c.name << " entry " << i;
        }
    }
}
