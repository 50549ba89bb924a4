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
    // Resizing to the size the image has is nothing to do (a batch resizes some files that
    // are already right); the library member refuses it. Transparency and --linear take the
    // weighted form (see OpCall::flags).
    t.add("zoom", "320 240 11", [](kiv& im, const OpCall& c) {
        if (im.m_pixels && c.i(0) == im.m_width && c.i(1) == im.m_height) return kUnchanged;
        return c.flags ? im.zoom_rgba(c.i(0), c.i(1), c.i(2), c.flags) : im.zoom(c.i(0), c.i(1), c.i(2), 0);
    }, {{"mapped", {}}});
    t.add("zoom_rgba", "320 240 11 2", [](kiv& im, const OpCall& c) { return im.zoom_rgba(c.i(0), c.i(1), c.i(2), c.i(3)); });
    t.add("zoom_pixel", "120 90", [](kiv& im, const OpCall& c) { return im.zoom_pixel(c.i(0), c.i(1)); });
    t.add("zoom_near", "160 120", [](kiv& im, const OpCall& c) { return im.zoom_near(c.i(0), c.i(1)); });
    t.add("zoom_linear", "320 240", [](kiv& im, const OpCall& c) { return im.zoom_linear(c.i(0), c.i(1)); });
    t.add("zoom_inframe", "200 200", [](kiv& im, const OpCall& c) {
        if (im.m_pixels && c.i(0) >= im.m_width && c.i(1) >= im.m_height) return kUnchanged;
        return im.zoom_inframe(c.i(0), c.i(1));
    });

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
    t.add("rotate_any", "30 white 1", [](kiv& im, const OpCall& c) {
        // A transparent image turns into a transparent surround (the colour is not used).
        return c.flags & KIV_FILTER_ALPHA ? im.rotate_any_rgba(c.d(0), c.i(2), c.flags) : im.rotate_any(c.d(0), c.c(1), c.i(2));
    });
    t.add("rotate_any_rgba", "30 1 2", [](kiv& im, const OpCall& c) { return im.rotate_any_rgba(c.d(0), c.i(1), c.i(2)); });

    // Layout.
    t.add("scroll", "120 60 1", [](kiv& im, const OpCall& c) { return im.scroll(c.i(0), c.i(1), c.i(2)); });
    t.add("tile", "3 2", [](kiv& im, const OpCall& c) { return im.tile(c.rect, c.i(0), c.i(1)); });
    t.add("tile_divide", "3", [](kiv& im, const OpCall& c) { return im.tile_divide(c.rect, c.i(0)); });

    // Compositing: the second image comes from a file.
    t.add("blt", "40 30 200 150 layer.png 0 0", [](kiv& im, const OpCall& c) {
        im.blt(c.i(0), c.i(1), c.i(2), c.i(3), c.img(4), c.i(5), c.i(6));
        return im.m_pixels ? 1 : 0;
    });
    t.add("addlayer", "layer.png 0 0 255 13 0",
          [](kiv& im, const OpCall& c) { return im.addlayer(c.img(0), c.i(1), c.i(2), c.i(3), c.i(4), c.i(5)); });
    t.add("merge", "layer.png 0 0 128", [](kiv& im, const OpCall& c) { return im.merge(c.img(0), c.rect, c.i(1), c.i(2), c.i(3)); });
    t.add("fadepaste", "layer.png 0 0 0 255 4",
          [](kiv& im, const OpCall& c) { return im.fadepaste(c.img(0), c.i(1), c.i(2), c.i(3), c.i(4), c.i(5)); });
    t.add("fadeinrect", "black 0 255 6",
          [](kiv& im, const OpCall& c) { return im.fadeinrect(c.rect, c.c(0), c.i(1), c.i(2), c.i(3)); });
    t.add("texturefill", "tile.png 160 7", [](kiv& im, const OpCall& c) { return im.texturefill(c.rect, c.img(0), c.i(1), c.i(2)); });
}

}  // namespace kivcli
