// Compositors: layers, merges, fading pastes and texture tiling through the blend modes.
#include <algorithm>
#include <cstring>
#include <vector>

#include "core/parallel.h"
#include "core/toolkit.h"
#include "core/watch.h"
#include "fill/blend.h"
#include "kiv.h"

using kivcore::Area;

namespace {

// Where a w x h block of the source starting at (sx, sy) lands at (x, y) of the target:
// the target box and the source corner of its first pixel. False when nothing overlaps.
struct Placement {
    Area dst;
    int sx, sy;
};
bool place(const kiv& dst, long long x, long long y, const Area& src_box, Placement* out) {
    if (!kivcore::clip_box(dst, x, y, src_box.w(), src_box.h(), &out->dst)) return false;
    out->sx = static_cast<int>(src_box.left + (out->dst.left - x));
    out->sy = static_cast<int>(src_box.top + (out->dst.top - y));
    return true;
}

bool usable(const kiv* img) { return img && img->m_pixels && img->m_width > 0 && img->m_height > 0; }

// The source pixels a target row reads. When source and target are one image the needed
// block is copied first, so rows written early never feed rows read later.
class SourceRows {
public:
    SourceRows(kiv& dst, kiv& src, const Area& block) : base_(src.m_pixels), stride_(src.m_width) {
        if (&src != &dst) return;
        const int w = block.w(), h = block.h();
        copy_.resize(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
        for (int r = 0; r < h; ++r)
            std::memcpy(copy_.data() + static_cast<std::size_t>(r) * w,
                        src.m_pixels + static_cast<std::size_t>(block.top + r) * stride_ + block.left,
                        static_cast<std::size_t>(w) * sizeof(tagRGBA));
        base_ = copy_.data();
        stride_ = w;
        left_ = block.left;
        top_ = block.top;
    }
    const tagRGBA* at(int x, int y) const {
        return base_ + static_cast<std::size_t>(y - top_) * static_cast<std::size_t>(stride_) + (x - left_);
    }

private:
    std::vector<tagRGBA> copy_;
    const tagRGBA* base_;
    int stride_;
    int left_ = 0, top_ = 0;
};

// Opacity ramp op0 -> op1 over 256 steps toward a direction; false for an unknown code.
struct FadeRamp {
    kivfill::RampGeometry geo;
    int op0, op1;
    int at(int column_part, int row_part) const { return op0 + (op1 - op0) * geo.index(column_part, row_part) / 255; }
};
bool make_fade(long long x, long long y, long long w, long long h, int op0, int op1, int dir, FadeRamp* out) {
    kivfill::RampDirection d;
    if (!kivfill::resolve_direction(dir, &d)) return false;
    op0 = kivfill::clamp_opacity(op0);
    op1 = kivfill::clamp_opacity(op1);
    if (d.reversed) std::swap(op0, op1);
    *out = FadeRamp{kivfill::RampGeometry(x, y, w, h, 255, d.code), op0, op1};
    return true;
}

}  // namespace

int kiv::addlayer(kiv* layer, int x, int y, int opacity, int mode, int usealpha) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        opacity = kivfill::clamp_opacity(opacity);
        if (!usable(this) || !usable(layer) || opacity == 0) return 0;
        Placement pl;
        if (!place(*this, x, y, Area{0, 0, layer->m_width, layer->m_height}, &pl)) return 0;
        // A palettized layer's fourth byte is a colour index, not an alpha.
        const bool weigh_alpha = usealpha && layer->m_bits >= 24;
        const SourceRows src(*this, *layer, Area{pl.sx, pl.sy, pl.sx + pl.dst.w(), pl.sy + pl.dst.h()});
        kivcore::raise_depth_24(*this);
        const int cols = pl.dst.w();
        kivcore::parallel_chunks(pl.dst.top, pl.dst.bottom, kivcore::row_work(cols, 4), [&](int b, int e) {
            std::vector<BYTE> weight(weigh_alpha ? static_cast<std::size_t>(cols) : 0);
            for (int row = b; row < e; ++row) {
                const tagRGBA* s = src.at(pl.sx, pl.sy + (row - pl.dst.top));
                tagRGBA* p = kivcore::row_ptr(*this, row) + pl.dst.left;
                if (!weigh_alpha) {
                    kivfill::blend_row(mode, p, s, cols, opacity);
                    continue;
                }
                for (int j = 0; j < cols; ++j) weight[j] = static_cast<BYTE>(s[j].a * opacity / 255);
                kivfill::blend_row_weighted(mode, p, s, weight.data(), cols);
            }
        });
        return 1;
    });
}

int kiv::merge(kiv* src, tagRECT* srcrect, int x, int y, int opacity) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        opacity = kivfill::clamp_opacity(opacity);
        if (!usable(this) || !usable(src) || opacity == 0) return 0;
        tagRECT r;
        if (!src->validaterect(srcrect, &r)) return 0;
        Placement pl;
        if (!place(*this, x, y, Area{r.left, r.top, r.right, r.bottom}, &pl)) return 0;
        const SourceRows rows(*this, *src, Area{pl.sx, pl.sy, pl.sx + pl.dst.w(), pl.sy + pl.dst.h()});
        kivcore::raise_depth_24(*this);
        const int cols = pl.dst.w();
        kivcore::parallel_for(pl.dst.top, pl.dst.bottom, kivcore::row_work(cols, 2), [&](int row) {
            kivfill::blend_row(kivfill::kNormal, kivcore::row_ptr(*this, row) + pl.dst.left,
                               rows.at(pl.sx, pl.sy + (row - pl.dst.top)), cols, opacity);
        });
        return 1;
    });
}

int kiv::fadepaste(kiv* src, int x, int y, int op0, int op1, int dir) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        if (!usable(this) || !usable(src)) return 0;
        FadeRamp fade{kivfill::RampGeometry(0, 0, 1, 1, 255, 6), 0, 0};
        if (!make_fade(x, y, src->m_width, src->m_height, op0, op1, dir, &fade)) return 0;
        if (fade.op0 == 0 && fade.op1 == 0) return 0;
        Placement pl;
        if (!place(*this, x, y, Area{0, 0, src->m_width, src->m_height}, &pl)) return 0;
        const SourceRows rows(*this, *src, Area{pl.sx, pl.sy, pl.sx + pl.dst.w(), pl.sy + pl.dst.h()});
        kivcore::raise_depth_24(*this);
        const int cols = pl.dst.w();
        std::vector<int> column(static_cast<std::size_t>(cols));
        for (int j = 0; j < cols; ++j) column[j] = fade.geo.uses_columns() ? fade.geo.column_part(pl.dst.left + j) : 0;
        kivcore::parallel_chunks(pl.dst.top, pl.dst.bottom, kivcore::row_work(cols, 4), [&](int b, int e) {
            std::vector<BYTE> weight(static_cast<std::size_t>(cols));
            for (int row = b; row < e; ++row) {
                const int rp = fade.geo.uses_rows() ? fade.geo.row_part(row) : 0;
                for (int j = 0; j < cols; ++j) weight[j] = static_cast<BYTE>(fade.at(column[j], rp));
                kivfill::blend_row_weighted(kivfill::kNormal, kivcore::row_ptr(*this, row) + pl.dst.left,
                                            rows.at(pl.sx, pl.sy + (row - pl.dst.top)), weight.data(), cols);
            }
        });
        return 1;
    });
}

int kiv::fadeinrect(tagRECT* rect, COLORREF color, int op0, int op1, int dir) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        if (!usable(this)) return 0;
        const kivcore::Box area = kivcore::box_of(*this, rect);
        FadeRamp fade{kivfill::RampGeometry(0, 0, 1, 1, 255, 6), 0, 0};
        if (!make_fade(area.x, area.y, area.w, area.h, op0, op1, dir, &fade)) return 0;
        if (fade.op0 == 0 && fade.op1 == 0) return 0;
        Area box;
        if (!kivcore::clip_box(*this, area.x, area.y, area.w, area.h, &box)) return 0;
        kivcore::raise_depth_24(*this);
        const int cols = box.w();
        const std::vector<tagRGBA> colour(static_cast<std::size_t>(cols), kivfill::unpack_colour(color));
        std::vector<int> column(static_cast<std::size_t>(cols));
        for (int j = 0; j < cols; ++j) column[j] = fade.geo.uses_columns() ? fade.geo.column_part(box.left + j) : 0;
        kivcore::parallel_chunks(box.top, box.bottom, kivcore::row_work(cols, 4), [&](int b, int e) {
            std::vector<BYTE> weight(static_cast<std::size_t>(cols));
            for (int row = b; row < e; ++row) {
                const int rp = fade.geo.uses_rows() ? fade.geo.row_part(row) : 0;
                for (int j = 0; j < cols; ++j) weight[j] = static_cast<BYTE>(fade.at(column[j], rp));
                kivfill::blend_row_weighted(kivfill::kNormal, kivcore::row_ptr(*this, row) + box.left, colour.data(),
                                            weight.data(), cols);
            }
        });
        return 1;
    });
}

int kiv::texturefill(tagRECT* rect, kiv* texture, int opacity, int mode) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        opacity = kivfill::clamp_opacity(opacity);
        if (!usable(this) || !usable(texture) || opacity == 0) return 0;
        const kivcore::Box area = kivcore::box_of(*this, rect);
        Area box;
        if (!kivcore::clip_box(*this, area.x, area.y, area.w, area.h, &box)) return 0;
        const int tw = texture->m_width, th = texture->m_height;
        const SourceRows tex(*this, *texture, Area{0, 0, tw, th});
        kivcore::raise_depth_24(*this);
        const int cols = box.w();
        // Tiles start at the rectangle's corner as given (before clipping).
        auto wrap = [](long long v, int n) { return static_cast<int>(((v % n) + n) % n); };
        const int tx0 = wrap(box.left - area.x, tw);
        kivcore::parallel_chunks(box.top, box.bottom, kivcore::row_work(cols, 2), [&](int b, int e) {
            std::vector<tagRGBA> run(static_cast<std::size_t>(cols));
            for (int row = b; row < e; ++row) {
                const tagRGBA* t = tex.at(0, wrap(row - area.y, th));
                for (int j = 0, tx = tx0; j < cols;) {
                    const int len = std::min(cols - j, tw - tx);
                    std::memcpy(run.data() + j, t + tx, static_cast<std::size_t>(len) * sizeof(tagRGBA));
                    j += len;
                    tx = 0;
                }
                kivfill::blend_row(mode, kivcore::row_ptr(*this, row) + box.left, run.data(), cols, opacity);
            }
        });
        return 1;
    });
}
