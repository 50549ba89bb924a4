// Video display look: darkened scan lines and an RGB aperture-grille mask.
#include "core/parallel.h"
#include "core/watch.h"
#include "effect/effect.h"

int kiv::video(tagRECT* rect, int darken, int stripes) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kiveffect;
        Area a;
        if (!clip_rect(*this, rect, &a) || darken < 0 || darken > 100 || stripes < 0 || stripes > 100) return 0;
        raise_depth_24(*this);
        // keep[line][masked]: scale of a channel on an even (0) or odd (1) row, passed by the
        // mask (0) or masked out (1).
        BYTE lut[2][2][256];
        for (int v = 0; v < 256; ++v)
            for (int line = 0; line < 2; ++line)
                for (int masked = 0; masked < 2; ++masked) {
                    int c = line ? v * (100 - darken) / 100 : v;
                    if (masked) c = c * (100 - stripes) / 100;
                    lut[line][masked][v] = static_cast<BYTE>(c);
                }
        const int mask = stripes > 0 ? 1 : 0;
        kivcore::parallel_for(a.top, a.bottom, kivcore::row_work(a.w(), 1), [&](int y) {
            const auto& L = lut[y & 1];
            tagRGBA* q = row_ptr(*this, y);
            int phase = a.left % 3;  // image column x % 3 picks the primary kept
            for (int x = a.left; x < a.right; ++x) {
                q[x].r = L[mask & (phase != 0)][q[x].r];
                q[x].g = L[mask & (phase != 1)][q[x].g];
                q[x].b = L[mask & (phase != 2)][q[x].b];
                if (++phase == 3) phase = 0;
            }
        });
        return 1;
    });
}
