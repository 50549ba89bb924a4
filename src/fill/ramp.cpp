// The ramp shared by shaded and gradient fills: a colour table spread across a rectangle.
#include <vector>

#include "core/parallel.h"
#include "core/toolkit.h"
#include "fill/blend.h"
#include "fill/fill_private.h"

namespace kivfill {

namespace {
// Below this width a row's three 256-entry tables cost more than blending pixel by pixel.
constexpr int kSolidTableMinWidth = 256;
}  // namespace

int ramp_fill(kiv& img, long long x, long long y, long long w, long long h, const tagRGBA* table, int last, int code,
              int op, int mode) {
    kivcore::Area box;
    if (!kivcore::clip_box(img, x, y, w, h, &box)) return 0;
    mode = normalise_mode(mode);
    op = clamp_opacity(op);
    const RampGeometry geo(x, y, w, h, last, code);
    const int cols = box.w();

    if (code == 6) {
        // One colour per row.
        kivcore::parallel_chunks(box.top, box.bottom, kivcore::row_work(cols, 2), [&](int b, int e) {
            std::vector<tagRGBA> run;
            for (int row = b; row < e; ++row) {
                const tagRGBA s = table[geo.row_part(row)];
                tagRGBA* p = kivcore::row_ptr(img, row) + box.left;
                if (cols >= kSolidTableMinWidth) {
                    SolidBlend(mode, s, op).apply(p, cols);
                } else {
                    run.assign(static_cast<std::size_t>(cols), s);
                    blend_row(mode, p, run.data(), cols, op);
                }
            }
        });
        return 1;
    }

    std::vector<int> column(static_cast<std::size_t>(cols));
    for (int j = 0; j < cols; ++j) column[j] = geo.column_part(box.left + j);

    if (is_colour_model_mode(mode)) {
        // The model of every table entry once, not once a pixel.
        std::vector<ModelSource> model(static_cast<std::size_t>(last) + 1);
        for (int i = 0; i <= last; ++i) model[i] = prepare_model_source(mode, table[i]);
        kivcore::parallel_for(box.top, box.bottom, kivcore::row_work(cols, 8), [&](int row) {
            const int rp = geo.uses_rows() ? geo.row_part(row) : 0;
            tagRGBA* p = kivcore::row_ptr(img, row) + box.left;
            for (int j = 0; j < cols; ++j) {
                const tagRGBA d = p[j];
                const tagRGBA c = blend_colour_model(mode, d, model[geo.index(column[j], rp)]);
                p[j] = tagRGBA{static_cast<BYTE>(mix_channel(d.r, c.r, op)),
                               static_cast<BYTE>(mix_channel(d.g, c.g, op)),
                               static_cast<BYTE>(mix_channel(d.b, c.b, op)), d.a};
            }
        });
        return 1;
    }

    if (code == 4) {
        // Every row sees the same colours: gather them once.
        std::vector<tagRGBA> run(static_cast<std::size_t>(cols));
        for (int j = 0; j < cols; ++j) run[j] = table[column[j]];
        kivcore::parallel_for(box.top, box.bottom, kivcore::row_work(cols, 2), [&](int row) {
            blend_row(mode, kivcore::row_ptr(img, row) + box.left, run.data(), cols, op);
        });
        return 1;
    }

    kivcore::parallel_chunks(box.top, box.bottom, kivcore::row_work(cols, 3), [&](int b, int e) {
        std::vector<tagRGBA> run(static_cast<std::size_t>(cols));
        for (int row = b; row < e; ++row) {
            const int rp = geo.row_part(row);
            for (int j = 0; j < cols; ++j) run[j] = table[(column[j] + rp) >> 1];
            blend_row(mode, kivcore::row_ptr(img, row) + box.left, run.data(), cols, op);
        }
    });
    return 1;
}

}  // namespace kivfill
