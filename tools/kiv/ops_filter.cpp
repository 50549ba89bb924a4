// kiv program: the filter family's operations (blurs, kernels, edges, sharpening, motion
// blurs).  Each works on the current rectangle (or the whole image).
#include "ops.h"

namespace kivcli {

void add_filter_ops(OpTable& t) {
    // Blurs.
    t.add("blur", "8 8", [](kiv& im, const OpCall& c) { return im.blur(c.rect, c.i(0), c.i(1)); });
    t.add("blur_simple", "4", [](kiv& im, const OpCall& c) { return im.blur_simple(c.rect, c.i(0)); });
    // Transparency and --linear take the weighted forms (see OpCall::flags).
    t.add("blur_gauss_iir", "3 3", [](kiv& im, const OpCall& c) {
        return c.flags ? im.blur_gauss_rgba(c.rect, c.d(0), c.d(1), c.flags) : im.blur_gauss_iir(c.rect, c.d(0), c.d(1));
    });
    t.add("blur_gauss_rgba", "3 3 2", [](kiv& im, const OpCall& c) { return im.blur_gauss_rgba(c.rect, c.d(0), c.d(1), c.i(2)); });
    t.add("blur_gauss_rle_plane", "4 5", [](kiv& im, const OpCall& c) {
        return im.blur_gauss_rle_plane(c.rect, c.d(0), static_cast<unsigned>(c.i(1)));
    });
    t.add("blur_gauss_rle", "3", [](kiv& im, const OpCall& c) { return im.blur_gauss_rle(c.rect, c.d(0)); });
    t.add("blur_gauss_sel", "6 40", [](kiv& im, const OpCall& c) { return im.blur_gauss_sel(c.rect, c.d(0), c.i(1)); });

    // 3x3 kernels and edges.
    t.add("filter_3x3", "5", [](kiv& im, const OpCall& c) { return im.filter_3x3(c.rect, static_cast<unsigned>(c.i(0))); });
    const char* cells[9] = {"top-left", "top", "top-right", "left", "centre", "right", "bottom-left", "bottom", "bottom-right"};
    Supplied kernel{"kernel", {}};
    for (int k = 0; k < 9; ++k)
        kernel.instead.push_back({std::string{'K', static_cast<char>('1' + k)}, ArgKind::Int, std::string("weight, ") + cells[k]});
    t.add("filter_custom3x3", "-2 -1 0 -1 1 1 0 1 2 1", [](kiv& im, const OpCall& c) {
        int k[9];
        for (int n = 0; n < 9; ++n) k[n] = c.i(static_cast<std::size_t>(n));
        return im.filter_custom3x3(c.rect, k, c.i(9));
    }, {kernel});
    t.add("filter_sharpen", "3", [](kiv& im, const OpCall& c) { return im.filter_sharpen(c.rect, c.i(0)); });
    t.add("filter_soften", "1", [](kiv& im, const OpCall& c) { return im.filter_soften(c.rect, c.i(0)); });
    t.add("edge", "4", [](kiv& im, const OpCall& c) { return im.edge(c.rect, c.d(0)); });
    t.add("emboss", "30 45 20 1", [](kiv& im, const OpCall& c) {
        tagKIV_EMBOSS e{c.d(0), c.d(1), c.i(2), c.i(3)};
        return im.emboss(c.rect, &e);
    });
    t.add("raise_edge", "16", [](kiv& im, const OpCall& c) { return im.raise_edge(c.rect, c.i(0)); });

    // Sharpening.
    t.add("sharpen", "", [](kiv& im, const OpCall& c) { return im.sharpen(c.rect); });
    t.add("sharpen2", "300", [](kiv& im, const OpCall& c) { return im.sharpen2(c.rect, c.i(0)); });
    t.add("unsharp_mask", "3 200 0", [](kiv& im, const OpCall& c) {
        return c.flags ? im.unsharp_mask_rgba(c.rect, c.d(0), c.i(1), c.i(2), c.flags)
                       : im.unsharp_mask(c.rect, c.d(0), c.i(1), c.i(2));
    });
    t.add("unsharp_mask_rgba", "3 200 0 2",
          [](kiv& im, const OpCall& c) { return im.unsharp_mask_rgba(c.rect, c.d(0), c.i(1), c.i(2), c.i(3)); });
    t.add("unsharp_mask2", "3 200 0",
          [](kiv& im, const OpCall& c) { return im.unsharp_mask2(c.rect, c.d(0), c.i(1), c.i(2)); });
    t.add("enhance", "8 80", [](kiv& im, const OpCall& c) { return im.enhance(c.rect, c.i(0), c.i(1)); });

    // Motion and directional blurs.
    t.add("mblur_linear", "30 20", [](kiv& im, const OpCall& c) { return im.mblur_linear(c.rect, c.d(0), c.i(1)); });
    t.add("mblur_radial", "240 180 15",
          [](kiv& im, const OpCall& c) { return im.mblur_radial(c.rect, c.i(0), c.i(1), c.d(2)); });
    t.add("mblur_round", "240 180 20", [](kiv& im, const OpCall& c) { return im.mblur_round(c.rect, c.i(0), c.i(1), c.i(2)); });
    t.add("mblur_zoom", "240 180 20", [](kiv& im, const OpCall& c) { return im.mblur_zoom(c.rect, c.i(0), c.i(1), c.i(2)); });
    t.add("sblur_wind", "0 30", [](kiv& im, const OpCall& c) { return im.sblur_wind(c.rect, c.i(0), c.i(1)); });
    t.add("sblur_blast", "0 30", [](kiv& im, const OpCall& c) { return im.sblur_blast(c.rect, c.i(0), c.i(1)); });
}

}  // namespace kivcli
