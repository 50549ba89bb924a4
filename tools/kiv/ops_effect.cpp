// kiv program: the effect family's operations.
#include "ops.h"

namespace kivcli {

namespace {

// A canvas-like texture for texturize: softened grey noise, 64 x 64, of roughness GRAIN.
int texturize_with_canvas(kiv& im, const OpCall& c) {
    kiv tex(64, 64, 24);
    if (!tex.m_pixels) return 0;
    for (int i = 0; i < tex.m_packets; ++i) tex.m_pixels[i] = tagRGBA{128, 128, 128, 0};
    tagKIV_NOISE grain{c.i(0), 1, 1, 1u};
    if (!tex.noise(nullptr, &grain) || !tex.blur_gauss_iir(nullptr, 0.8, 0.8)) return 0;
    tagKIV_TEXTURE p{c.d(1), c.d(2), c.i(3)};
    return im.texturize(c.rect, &tex, &p);
}

}  // namespace

void add_effect_ops(OpTable& t) {
    t.add("oilpaint", "3 20", [](kiv& im, const OpCall& c) { return im.oilpaint(c.rect, c.i(0), c.i(1)); });
    t.add("pixelize", "12", [](kiv& im, const OpCall& c) { return im.pixelize(c.rect, c.i(0)); });
    t.add("pyramid", "24 60", [](kiv& im, const OpCall& c) { return im.pyramid(c.rect, c.i(0), c.i(1)); });
    t.add("spread", "4 1",
          [](kiv& im, const OpCall& c) { return im.spread(c.rect, c.i(0), static_cast<unsigned>(c.i(1))); });
    t.add("video", "40 30", [](kiv& im, const OpCall& c) { return im.video(c.rect, c.i(0), c.i(1)); });
    t.add("noise", "40 1 0 7", [](kiv& im, const OpCall& c) {
        tagKIV_NOISE p{c.i(0), c.i(1), c.i(2), static_cast<unsigned>(c.i(3))};
        return im.noise(c.rect, &p);
    });
    // The program's own texture stands in for the second image; its grain is noise's amount.
    const kiv_opdesc* noise = kiv_op_info(kiv_op_find("noise"));
    ArgSpec grain{"GRAIN", ArgKind::Int, "roughness of the program's 64x64 canvas texture (0..255)", &noise->args[1]};
    t.add("texturize", "60 135 45 8", texturize_with_canvas, {{"texture", {grain}}});
    t.add("texturize_by_file", "texture.bmp 135 45 6", [](kiv& im, const OpCall& c) {
        tagKIV_TEXTURE p{c.d(1), c.d(2), c.i(3)};
        return im.texturize_by_file(c.rect, c.s(0), &p);
    });
    t.add("texture_save", "-", [](kiv& im, const OpCall& c) { return im.texture_save(c.rect, c.s(0)); });
    // The image is its own height field.
    const std::vector<Supplied> self_map = {{"map", {}}};
    t.add("bumpmap", "135 45 4 0", [](kiv& im, const OpCall& c) {
        kiv map(im);
        tagKIV_BUMPMAP p{c.d(0), c.d(1), c.i(2), c.i(3)};
        return im.bumpmap(c.rect, &map, &p);
    }, self_map);
    t.add("bumpmap_merge", "135 30 12 0 11 255", [](kiv& im, const OpCall& c) {
        kiv map(im);
        tagKIV_BUMPMAP p{c.d(0), c.d(1), c.i(2), c.i(3)};
        return im.bumpmap_merge(c.rect, &map, &p, c.i(4), c.i(5));
    }, self_map);
}

}  // namespace kivcli
