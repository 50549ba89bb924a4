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

const char* kMethods = "0 box, 1 triangle, 2 Hermite, 3 Hanning, 4 Hamming, 5 Blackman, 6 Gaussian, "
                       "7 quadratic, 8 B-spline, 9 Catmull-Rom, 10 Mitchell, 11 Lanczos 3, 12 Bessel, 13 sinc";
const char* kModes = "blend mode 0..18: 0 normal, 1 darken, 2 lighten, 3 hue, 4 saturation, 5 colour, 6 value, "
                     "7 multiply, 8 screen, 10 overlay, 11 hard light, 12 soft light, 13 difference, "
                     "14 exclusion, 15 dodge, 16 burn, 17 add, 18 subtract";
const char* kDirs = "direction the fade runs toward: 0 top-left, 1 top, 2 top-right, 3 left, 4 right, "
                    "5 bottom-left, 6 bottom, 7 bottom-right";

}  // namespace

void add_geometry_ops(OpTable& t) {
    t.add("crop", {}, "keep only the current rectangle (set it with `rect`)", "-",
          [](kiv& im, const OpCall& c) { return im.crop(c.rect); });

    // Resampling.
    t.add("zoom",
          {{"W", ArgKind::Int, "new width in pixels, >= 1"},
           {"H", ArgKind::Int, "new height in pixels, >= 1"},
           {"METHOD", ArgKind::Int, kMethods}},
          "resample to W x H with a chosen filter (24-bit result; shrinking both sides also sharpens)",
          "320 240 11", [](kiv& im, const OpCall& c) { return im.zoom(c.i(0), c.i(1), c.i(2), 0); });
    t.add("zoom_pixel",
          {{"W", ArgKind::Int, "new width in pixels, >= 1"}, {"H", ArgKind::Int, "new height in pixels, >= 1"}},
          "resize to W x H by replicating pixels (keeps depth and palette)", "120 90",
          [](kiv& im, const OpCall& c) { return im.zoom_pixel(c.i(0), c.i(1)); });
    t.add("zoom_near",
          {{"W", ArgKind::Int, "new width in pixels, >= 1"}, {"H", ArgKind::Int, "new height in pixels, >= 1"}},
          "resize to W x H taking the nearest pixel (keeps depth and palette)", "160 120",
          [](kiv& im, const OpCall& c) { return im.zoom_near(c.i(0), c.i(1)); });
    t.add("zoom_linear",
          {{"W", ArgKind::Int, "new width in pixels, >= 1"}, {"H", ArgKind::Int, "new height in pixels, >= 1"}},
          "resize to W x H by bilinear interpolation (24-bit result)", "320 240",
          [](kiv& im, const OpCall& c) { return im.zoom_linear(c.i(0), c.i(1)); });
    t.add("zoom_inframe",
          {{"W", ArgKind::Int, "frame width in pixels"}, {"H", ArgKind::Int, "frame height in pixels"}},
          "shrink (bilinear) to fit a W x H frame, keeping the aspect ratio; no change if it fits", "200 200",
          [](kiv& im, const OpCall& c) { return im.zoom_inframe(c.i(0), c.i(1)); });

    // Orientation.
    t.add("rotate", {{"DIR", ArgKind::Int, "1 counter-clockwise, 0 clockwise"}},
          "quarter turn of the whole image", "1", [](kiv& im, const OpCall& c) {
              im.rotate(c.i(0));
              return 1;
          });
    t.add("rotate180", {}, "half turn of the current rectangle (or the whole image)", "",
          [](kiv& im, const OpCall& c) {
              Box b(c.rect);
              return im.rotate180(b.x, b.y, b.w, b.h);
          });
    t.add("mirror", {}, "reverse left and right in the current rectangle (or the whole image)", "",
          [](kiv& im, const OpCall& c) {
              Box b(c.rect);
              return im.mirror(b.x, b.y, b.w, b.h);
          });
    t.add("flip", {}, "reverse top and bottom in the current rectangle (or the whole image)", "",
          [](kiv& im, const OpCall& c) {
              Box b(c.rect);
              return im.flip(b.x, b.y, b.w, b.h);
          });
    t.add("rotate_any",
          {{"DEGREES", ArgKind::Real, "angle in degrees, positive counter-clockwise"},
           {"BACKGROUND", ArgKind::Color, "colour of the uncovered corners"},
           {"METHOD", ArgKind::Int, "0 nearest pixel, 1 bilinear"}},
          "turn by any angle into an image large enough to hold it", "30 #FFFFFF 1",
          [](kiv& im, const OpCall& c) { return im.rotate_any(c.d(0), c.c(1), c.i(2)); });

    // Layout.
    t.add("scroll",
          {{"DX", ArgKind::Int, "columns to shift, positive to the right"},
           {"DY", ArgKind::Int, "rows to shift, positive down"},
           {"WRAP", ArgKind::Int, "1 wrap around the edges, 0 leave white strips"}},
          "shift the whole image", "120 60 1",
          [](kiv& im, const OpCall& c) { return im.scroll(c.i(0), c.i(1), c.i(2)); });
    t.add("tile",
          {{"NX", ArgKind::Int, "copies across, >= 1"}, {"NY", ArgKind::Int, "copies down, >= 1"}},
          "repeat the current rectangle (or the whole image) NX x NY times into a larger image", "3 2",
          [](kiv& im, const OpCall& c) { return im.tile(c.rect, c.i(0), c.i(1)); });
    t.add("tile_divide", {{"N", ArgKind::Int, "copies per side, >= 2"}},
          "shrink the current rectangle (or the whole image) N times and repeat it N x N at the same size", "3",
          [](kiv& im, const OpCall& c) { return im.tile_divide(c.rect, c.i(0)); });

    // Compositing.  The second image is made from the current one (mirrored, flipped or
    // shrunk), so a pipeline needs no second input file.
    t.add("addlayer",
          {{"X", ArgKind::Int, "left edge of the layer in pixels"},
           {"Y", ArgKind::Int, "top edge of the layer in pixels"},
           {"OPACITY", ArgKind::Int, "0..255"},
           {"MODE", ArgKind::Int, kModes},
           {"USEALPHA", ArgKind::Int, "1 weigh by the layer's alpha as well, 0 ignore it"}},
          "blend a left-right mirrored copy of the image over it at (X, Y)", "0 0 255 13 0",
          [](kiv& im, const OpCall& c) {
              kiv layer(im);
              layer.mirror(0, 0, 0, 0);
              return im.addlayer(&layer, c.i(0), c.i(1), c.i(2), c.i(3), c.i(4));
          });
    t.add("merge",
          {{"X", ArgKind::Int, "left edge of the pasted part in pixels"},
           {"Y", ArgKind::Int, "top edge of the pasted part in pixels"},
           {"OPACITY", ArgKind::Int, "0..255"}},
          "mix the current rectangle (or all) of an upside-down copy of the image in at (X, Y)", "0 0 128",
          [](kiv& im, const OpCall& c) {
              kiv src(im);
              src.flip(0, 0, 0, 0);
              return im.merge(&src, c.rect, c.i(0), c.i(1), c.i(2));
          });
    t.add("fadepaste",
          {{"X", ArgKind::Int, "left edge of the pasted image in pixels"},
           {"Y", ArgKind::Int, "top edge of the pasted image in pixels"},
           {"OP0", ArgKind::Int, "opacity 0..255 at the side opposite DIR"},
           {"OP1", ArgKind::Int, "opacity 0..255 at the side DIR names"},
           {"DIR", ArgKind::Int, kDirs}},
          "paste a left-right mirrored copy of the image at (X, Y) with an opacity fading from OP0 to OP1",
          "0 0 0 255 4", [](kiv& im, const OpCall& c) {
              kiv src(im);
              src.mirror(0, 0, 0, 0);
              return im.fadepaste(&src, c.i(0), c.i(1), c.i(2), c.i(3), c.i(4));
          });
    t.add("fadeinrect",
          {{"COLOR", ArgKind::Color, "colour to fade toward"},
           {"OP0", ArgKind::Int, "opacity 0..255 at the side opposite DIR"},
           {"OP1", ArgKind::Int, "opacity 0..255 at the side DIR names"},
           {"DIR", ArgKind::Int, kDirs}},
          "fade the current rectangle (or the whole image) toward a colour", "#000000 0 255 6",
          [](kiv& im, const OpCall& c) { return im.fadeinrect(c.rect, c.c(0), c.i(1), c.i(2), c.i(3)); });
    t.add("texturefill",
          {{"OPACITY", ArgKind::Int, "0..255"}, {"MODE", ArgKind::Int, kModes}},
          "tile a quarter-size copy of the image over the current rectangle (or the whole image)", "160 7",
          [](kiv& im, const OpCall& c) {
              kiv texture(im);
              int w = im.width() / 4, h = im.height() / 4;
              if (!texture.zoom_near(w < 1 ? 1 : w, h < 1 ? 1 : h)) return 0;
              return im.texturefill(c.rect, &texture, c.i(0), c.i(1));
          });
}

}  // namespace kivcli
