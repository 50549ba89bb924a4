// Lit reliefs: texturize (a tiled texture's relief modulates brightness) and bumpmap,
// bumpmap_merge (a height field lit as emboss lights it).
#include <algorithm>
#include <cmath>
#include <vector>

#include "core/parallel.h"
#include "core/watch.h"
#include "effect/effect.h"
#include "fill/blend.h"

namespace kiveffect {

bool make_light(double azimuth, double elevation, int depth, kivcore::ReliefLight* out) {
    if (!std::isfinite(azimuth) || !std::isfinite(elevation) || depth < 1 || depth > 1530) return false;
    *out = kivcore::relief_light(azimuth, elevation, static_cast<unsigned>(depth));
    return true;
}

void shade_block(const kivcore::ReliefLight& L, const std::vector<int>& heights, int w, int h,
                 std::vector<BYTE>* shade) {
    const std::size_t pw = static_cast<std::size_t>(w) + 2;
    shade->assign(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), 0);
    kivcore::parallel_for(0, h, kivcore::row_work(w, 4), [&](int j) {
        const int* r0 = heights.data() + static_cast<std::size_t>(j) * pw;
        const int* r1 = r0 + pw;
        const int* r2 = r1 + pw;
        BYTE* o = shade->data() + static_cast<std::size_t>(j) * static_cast<std::size_t>(w);
        for (int i = 0; i < w; ++i) {
            const int Nx = (r0[i] + r1[i] + r2[i]) - (r0[i + 2] + r1[i + 2] + r2[i + 2]);
            const int Ny = (r2[i] + r2[i + 1] + r2[i + 2]) - (r0[i] + r0[i + 1] + r0[i + 2]);
            o[i] = static_cast<BYTE>(L.shade(Nx, Ny));
        }
    });
}

namespace {

bool usable(kiv* img) { return img && img->m_pixels && img->m_width > 0 && img->m_height > 0; }

int wrap(long long v, int n) { return static_cast<int>(((v % n) + n) % n); }

// The bump-mapped rectangle: each pixel's colour times its shade / 255, alpha kept.
bool bump_area(kiv* img, tagRECT* rect, kiv* map, tagKIV_BUMPMAP* param, Area* a, std::vector<tagRGBA>* out) {
    if (!clip_rect(*img, rect, a) || !usable(map)) return false;
    const tagKIV_BUMPMAP p = param ? *param : tagKIV_BUMPMAP{135.0, 45.0, 4, 0};
    kivcore::ReliefLight light;
    if (!make_light(p.azimuth, p.elevation, p.depth, &light)) return false;
    const int w = a->w(), h = a->h(), mw = map->m_width, mh = map->m_height;
    const int left = a->left, top = a->top;
    // Heights are read before anything is written, so map may be the image itself.
    kivcore::Stages stages({1, 2, 1});
    const std::vector<int> heights = height_plane(
        map, w, h, p.invert != 0, [&](int i) { return kivcore::clamp_index(left + i, mw); },
        [&](int j) { return kivcore::clamp_index(top + j, mh); });
    stages.next();
    std::vector<BYTE> shade;
    shade_block(light, heights, w, h, &shade);
    out->resize(shade.size());
    stages.next();
    kivcore::parallel_for(0, h, kivcore::row_work(w, 2), [&](int j) {
        const tagRGBA* s = row_ptr(*img, top + j) + left;
        const BYTE* sh = shade.data() + static_cast<std::size_t>(j) * w;
        tagRGBA* o = out->data() + static_cast<std::size_t>(j) * w;
        for (int i = 0; i < w; ++i) {
            const int k = sh[i];
            o[i] = tagRGBA{static_cast<BYTE>(s[i].r * k / 255), static_cast<BYTE>(s[i].g * k / 255),
                           static_cast<BYTE>(s[i].b * k / 255), s[i].a};
        }
    });
    return true;
}

}  // namespace
}  // namespace kiveffect

int kiv::texturize(tagRECT* rect, kiv* texture, tagKIV_TEXTURE* param) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kiveffect;
        Area a;
        if (!clip_rect(*this, rect, &a) || !usable(texture)) return 0;
        const tagKIV_TEXTURE p = param ? *param : tagKIV_TEXTURE{135.0, 45.0, 4};
        kivcore::ReliefLight light;
        if (!make_light(p.azimuth, p.elevation, p.depth, &light)) return 0;
        const int flat = light.flat;
        if (flat < 1) return 0;
        // Tiles start at the rectangle's corner as given (null or empty: the image's corner).
        const bool given = rect && rect->right > rect->left && rect->bottom > rect->top;
        const long long ox = given ? rect->left : 0, oy = given ? rect->top : 0;
        const int tw = texture->m_width, th = texture->m_height;
        // One period of the tiling at most: shade column i stands for texture column u0 + i.
        const int sw = std::min(a.w(), tw), sh = std::min(a.h(), th);
        const int u0 = wrap(a.left - ox, tw), v0 = wrap(a.top - oy, th);
        const std::vector<int> heights = height_plane(
            texture, sw, sh, false, [&](int i) { return wrap(static_cast<long long>(u0) + i, tw); },
            [&](int j) { return wrap(static_cast<long long>(v0) + j, th); });
        std::vector<BYTE> shade;
        shade_block(light, heights, sw, sh, &shade);
        // Gain in 1/256 steps: a flat texture gives exactly 256, the identity.
        std::vector<int> gain(shade.size());
        for (std::size_t k = 0; k < shade.size(); ++k) gain[k] = shade[k] * 256 / flat;
        raise_depth_24(*this);
        const int w = a.w();
        kivcore::parallel_for(a.top, a.bottom, kivcore::row_work(w, 2), [&](int y) {
            tagRGBA* q = row_ptr(*this, y) + a.left;
            const int* g = gain.data() + static_cast<std::size_t>((y - a.top) % sh) * sw;
            for (int i = 0, k = 0; i < w; ++i) {
                const int f = g[k];
                q[i].r = static_cast<BYTE>(std::min(255, (q[i].r * f) >> 8));
                q[i].g = static_cast<BYTE>(std::min(255, (q[i].g * f) >> 8));
                q[i].b = static_cast<BYTE>(std::min(255, (q[i].b * f) >> 8));
                if (++k == sw) k = 0;
            }
        });
        return 1;
    });
}

int kiv::bumpmap(tagRECT* rect, kiv* map, tagKIV_BUMPMAP* param) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        kiveffect::Area a;
        std::vector<tagRGBA> out;
        if (!kiveffect::bump_area(this, rect, map, param, &a, &out)) return 0;
        kiveffect::raise_depth_24(*this);
        setpacket(out.data(), a.left, a.top, a.w(), a.h());
        return 1;
    });
}

int kiv::bumpmap_merge(tagRECT* rect, kiv* map, tagKIV_BUMPMAP* param, int mode, int opacity) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        opacity = kivfill::clamp_opacity(opacity);
        if (opacity == 0) return 0;
        kiveffect::Area a;
        std::vector<tagRGBA> out;
        kivcore::Stages stages({4, 1});
        if (!kiveffect::bump_area(this, rect, map, param, &a, &out)) return 0;
        stages.next();
        kiveffect::raise_depth_24(*this);
        const int w = a.w();
        kivcore::parallel_for(a.top, a.bottom, kivcore::row_work(w, 2), [&](int y) {
            kivfill::blend_row(mode, kiveffect::row_ptr(*this, y) + a.left,
                               out.data() + static_cast<std::size_t>(y - a.top) * w, w, opacity);
        });
        return 1;
    });
}
