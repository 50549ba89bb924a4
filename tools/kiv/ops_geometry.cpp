// kiv program: the geometry family's operations (resampling, orientation, layout, compositing).
#include "ops.h"

namespace kivcli {

namespace {

// The members that take (x, y, w, h): the current rectangle, or all zeros (= whole image).
struct Box {
    int x = 0, y = 0, w = 0, h = 0;
    explicit Box(const tagRECT* r) {
        if (!r) return;
        x = static_cast<int>(r->left);
        y = static_cast<int>(r->top);
        w = static_cast<int>(r->right - r->left);
        h = static_cast<int>(r->bottom - r->top);
    }
};
const std::vector<Supplied> kBox = {{"x", {}}, {"y", {}}, {"w", {}}, {"h", {}}};

}  // namespace

void add_geometry_ops(OpTable& t) {
    t.add("crop", "-", [](kiv& im, const OpCall& c) { return im.crop(c.rect); });

    // Resampling.
    // Transparency and --linear take the weighted forms (see OpCall::flags).
    t.add("zoom", "320 240 11", [](kiv& im, const OpCall& c) {
        return c.flags ? im.zoom_rgba(c.i(0), c.i(1), c.i(2), c.flags) : im.zoom(c.i(0), c.i(1), c.i(2), 0);
    }, {{"mapped", {}}});
    t.add("zoom_rgba", "320 240 11 2", [](kiv& im, const OpCall& c) { return im.zoom_rgba(c.i(0), c.i(1), c.i(2), c.i(3)); });
    t.add("zoom_pixel", "120 90", [](kiv& im, const OpCall& c) { return im.zoom_pixel(c.i(0), c.i(1)); });
    t.add("zoom_near", "160 120", [](kiv& im, const OpCall& c) { return im.zoom_near(c.i(0), c.i(1)); });
    t.add("zoom_linear", "320 240", [](kiv& im, const OpCall& c) { return im.zoom_linear(c.i(0), c.i(1)); });
    t.add("zoom_inframe", "200 200", [](kiv& im, const OpCall& c) { return im.zoom_inframe(c.i(0), c.i(1)); });

    // Orientation: the boxed members work on the current rectangle.
    t.add("rotate", "1", [](kiv& im, const OpCall& c) {
        im.rotate(c.i(0));
        return 1;
    });
    t.add("rotate180", "", [](kiv& im, const OpCall& c) {
        Box b(c.rect);
        return im.rotate180(b.x, b.y, b.w, b.h);
    }, kBox);
    t.add("mirror", "", [](kiv& im, const OpCall& c) {
        Box b(c.rect);
        return im.mirror(b.x, b.y, b.w, b.h);
    }, kBox);
    t.add("flip", "", [](kiv& im, const OpCall& c) {
        Box b(c.rect);
        return im.flip(b.x, b.y, b.w, b.h);
    }, kBox);
    t.add("rotate_any", "30 #FFFFFF 1", [](kiv& im, const OpCall& c) {
        // A transparent image turns into a transparent surround (the colour is not used).
        return c.flags & KIV_FILTER_ALPHA ? im.rotate_any_rgba(c.d(0), c.i(2), c.flags) : im.rotate_any(c.d(0), c.c(1), c.i(2));
    });
    t.add("rotate_any_rgba", "30 1 2", [](kiv& im, const OpCall& c) { return im.rotate_any_rgba(c.d(0), c.i(1), c.i(2)); });

    // Layout.
    t.add("scroll", "120 60 1", [](kiv& im, const OpCall& c) { return im.scroll(c.i(0), c.i(1), c.i(2)); });
    t.add("tile", "3 2", [](kiv& im, const OpCall& c) { return im.tile(c.rect, c.i(0), c.i(1)); });
    t.add("tile_divide", "3", [](kiv& im, const OpCall& c) { return im.tile_divide(c.rect, c.i(0)); });

    // Compositing.  The second image is made from the current one (mirrored, flipped or
    // shrunk), so a pipeline needs no second input file.
    t.add("addlayer", "0 0 255 13 0", [](kiv& im, const OpCall& c) {
        kiv layer(im);
        layer.mirror(0, 0, 0, 0);
        return im.addlayer(&layer, c.i(0), c.i(1), c.i(2), c.i(3), c.i(4));
    });
    t.add("merge", "0 0 128", [](kiv& im, const OpCall& c) {
        kiv src(im);
        src.flip(0, 0, 0, 0);
        return im.merge(&src, c.rect, c.i(0), c.i(1), c.i(2));
    });
    t.add("fadepaste", "0 0 0 255 4", [](kiv& im, const OpCall& c) {
        kiv src(im);
        src.mirror(0, 0, 0, 0);
        return im.fadepaste(&src, c.i(0), c.i(1), c.i(2), c.i(3), c.i(4));
    });
    t.add("fadeinrect", "#000000 0 255 6",
          [](kiv& im, const OpCall& c) { return im.fadeinrect(c.rect, c.c(0), c.i(1), c.i(2), c.i(3)); });
    t.add("texturefill", "160 7", [](kiv& im, const OpCall& c) {
        kiv texture(im);
        int w = im.width() / 4, h = im.height() / 4;
        if (!texture.zoom_near(w < 1 ? 1 : w, h < 1 ? 1 : h)) return 0;
        return im.texturefill(c.rect, &texture, c.i(0), c.i(1));
    });
}

}  // namespace kivcli
