// The nine fixed palettes and the ordered-dither threshold matrix.  Built once, on first
// use (thread-safe static initialisation), from integer arithmetic only.
#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "quantize/quantize.h"

namespace kivquant {

namespace {

struct Table {
    int n = 0;
    tagSYSCOL c[kMaxEntries];
    void add(int r, int g, int b) { c[n++] = tagSYSCOL{static_cast<BYTE>(r), static_cast<BYTE>(g), static_cast<BYTE>(b)}; }
};

// 0: the sixteen VGA colours.
void vga16(Table& t) {
    static const int v[16][3] = {{0, 0, 0},     {128, 0, 0},   {0, 128, 0},   {128, 128, 0},
                                 {0, 0, 128},   {128, 0, 128}, {0, 128, 128}, {192, 192, 192},
                                 {128, 128, 128}, {255, 0, 0}, {0, 255, 0},   {255, 255, 0},
                                 {0, 0, 255},   {255, 0, 255}, {0, 255, 255}, {255, 255, 255}};
    for (const auto& e : v) t.add(e[0], e[1], e[2]);
}

// 1: the 20 static system colours at both ends, a 7 x 9 x 4 colour grid between them.
void system256(Table& t) {
    static const int low[10][3] = {{0, 0, 0},     {128, 0, 0},   {0, 128, 0},     {128, 128, 0},   {0, 0, 128},
                                   {128, 0, 128}, {0, 128, 128}, {128, 128, 128}, {192, 220, 192}, {166, 202, 240}};
    static const int high[10][3] = {{255, 251, 240}, {160, 160, 164}, {128, 128, 128}, {255, 0, 0},   {0, 255, 0},
                                    {255, 255, 0},   {0, 0, 255},     {255, 0, 255},   {0, 255, 255}, {255, 255, 255}};
    static const int gr[7] = {0, 42, 85, 127, 170, 212, 255};
    static const int gg[9] = {0, 31, 63, 95, 127, 159, 191, 223, 255};
    static const int gb[4] = {0, 85, 170, 255};
    static const int extra[6][3] = {{204, 204, 255}, {255, 204, 255}, {51, 255, 255},
                                    {102, 255, 255}, {153, 255, 255}, {204, 255, 255}};
    for (const auto& e : low) t.add(e[0], e[1], e[2]);
    constexpr int kGrid = 7 * 9 * 4, kStart = 1 * 36 + 2 * 4 + 2;  // (42, 63, 170)
    for (int k = 0; k < 236 - 6; ++k) {
        const int i = (kStart + k) % kGrid;
        t.add(gr[i / 36], gg[(i / 4) % 9], gb[i % 4]);
    }
    for (const auto& e : extra) t.add(e[0], e[1], e[2]);
    for (const auto& e : high) t.add(e[0], e[1], e[2]);
}

// 2: the web-safe cube descending without black, then red, green, blue and grey ramps of
// the in-between levels, black last.
void cube_and_ramps(Table& t) {
    for (int r = 255; r >= 0; r -= 51)
        for (int g = 255; g >= 0; g -= 51)
            for (int b = 255; b >= 0; b -= 51)
                if (r | g | b) t.add(r, g, b);
    static const int lv[10] = {238, 221, 187, 170, 136, 119, 85, 68, 34, 17};
    for (int v : lv) t.add(v, 0, 0);
    for (int v : lv) t.add(0, v, 0);
    for (int v : lv) t.add(0, 0, v);
    for (int v : lv) t.add(v, v, v);
    t.add(0, 0, 0);
}

// 3: the web-safe cube ascending.
void cube216(Table& t) {
    for (int r = 0; r <= 255; r += 51)
        for (int g = 0; g <= 255; g += 51)
            for (int b = 0; b <= 255; b += 51) t.add(r, g, b);
}

// 4: hue wheel magenta -> blue -> cyan -> green -> yellow -> red, one channel at a time in
// steps of 5 (51 steps a leg, 5 legs, 256 entries).
void hue_wheel(Table& t) {
    int c[3] = {255, 0, 255};
    t.add(c[0], c[1], c[2]);
    static const int legs[5][2] = {{0, -5}, {1, 5}, {2, -5}, {0, 5}, {1, -5}};  // channel, step
    for (const auto& leg : legs)
        for (int s = 0; s < 51; ++s) {
            c[leg[0]] += leg[1];
            t.add(c[0], c[1], c[2]);
        }
}

// 5: pastel wheel over 128..255 from (128,255,128) round to (128,255,255):
// -> yellow (red rises) -> red (green falls) -> magenta (blue rises) -> blue (red falls)
// -> cyan (green rises); 51 steps a leg spread evenly over the 127 levels.
void pastel(Table& t) {
    int c[3] = {128, 255, 128};
    t.add(c[0], c[1], c[2]);
    static const int legs[5][2] = {{0, 1}, {1, -1}, {2, 1}, {0, -1}, {1, 1}};
    for (const auto& leg : legs) {
        const int from = c[leg[0]];
        for (int s = 1; s <= 51; ++s) {
            c[leg[0]] = from + leg[1] * ((127 * s + 25) / 51);
            t.add(c[0], c[1], c[2]);
        }
    }
}

// 6: heat ramp black -> red -> yellow -> white.
void heat(Table& t) {
    for (int k = 0; k < 256; ++k) {
        if (k <= 85)
            t.add(3 * k, 0, 0);
        else if (k <= 170)
            t.add(255, 3 * (k - 85), 0);
        else
            t.add(255, 255, 3 * (k - 170));
    }
}

// 7: cold ramp black -> blue -> cyan -> white.
void cold(Table& t) {
    auto f = [](int j) { return std::min(255, 3 * j + j / 28); };
    for (int k = 0; k < 256; ++k) {
        if (k <= 84)
            t.add(0, 0, f(k));
        else if (k == 85)
            t.add(0, 0, 255);
        else if (k <= 170)
            t.add(0, f(k - 85), 255);
        else
            t.add(3 * (k - 170), 255, 255);
    }
}

// 8: warm ramp from (255,255,128) to black: 101 distinct steps (the blue falls, then the
// green, then the red), each shown by two or three consecutive entries.
void warm(Table& t) {
    for (int k = 0; k < 256; ++k) {
        const int j = k * 100 / 255;  // 0..100, every step taken
        if (j <= 25)
            t.add(255, 255, 128 - 128 * j / 25);
        else if (j <= 60)
            t.add(255, 255 - 255 * (j - 25) / 35, 0);
        else
            t.add(255 - 255 * (j - 60) / 40, 0, 0);
    }
}

struct Palettes {
    Table t[9];
    Palettes() {
        vga16(t[0]);
        system256(t[1]);
        cube_and_ramps(t[2]);
        cube216(t[3]);
        hue_wheel(t[4]);
        pastel(t[5]);
        heat(t[6]);
        cold(t[7]);
        warm(t[8]);
    }
};

// 128 x 128 thresholds 0..63, each exactly 256 times: the cells ranked by a 2-D
// low-discrepancy sequence (the fractional part of x a1 + y a2 with the plastic-number
// constants, in 32-bit fixed point so that every platform ranks alike), rank / 256.  The
// irrational slopes leave no period shorter than 128 either way.  The first row is then made
// to start with the agreed values by swapping each with a cell of equal value elsewhere.
struct Thresholds {
    std::uint8_t m[128 * 128];
    Thresholds() {
        constexpr std::uint32_t a1 = 3242174889u, a2 = 2447445414u;  // 0.75487766..., 0.56984029... x 2^32
        std::vector<std::uint64_t> order(128 * 128);
        for (std::uint32_t i = 0; i < 128 * 128; ++i) {
            const std::uint32_t x = i >> 7, y = i & 127;
            const std::uint32_t t = a1 * x + a2 * y;  // wraps: the fractional part
            order[i] = static_cast<std::uint64_t>(t) << 14 | i;
        }
        std::sort(order.begin(), order.end());
        for (std::uint32_t rank = 0; rank < 128 * 128; ++rank) m[order[rank] & 0x3FFF] = static_cast<std::uint8_t>(rank >> 8);
        static const std::uint8_t head[16] = {0, 41, 23, 5, 17, 39, 7, 15, 62, 23, 40, 51, 31, 47, 9, 32};
        for (int k = 0; k < 16; ++k) {
            if (m[k] == head[k]) continue;
            // Take the value from the middle of the matrix, far from the first row.
            for (int j = 64 * 128;; j = (j + 1) % (128 * 128)) {
                if (j >= 16 && m[j] == head[k]) {
                    std::swap(m[k], m[j]);
                    break;
                }
            }
        }
    }
};

}  // namespace

const tagSYSCOL* fixed_palette(int which, int* n) {
    static const Palettes all;
    if (which < 0 || which > 8) {
        if (n) *n = 0;
        return nullptr;
    }
    if (n) *n = all.t[which].n;
    return all.t[which].c;
}

const std::uint8_t* threshold_matrix() {
    static const Thresholds t;
    return t.m;
}

}  // namespace kivquant
