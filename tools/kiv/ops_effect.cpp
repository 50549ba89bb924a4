// kiv program: the effect family's operations.
#include "ops.h"

namespace kivcli {

namespace {
using K = ArgKind;

// A canvas-like texture for texturize: softened grey noise, 64 x 64.
int texturize_with_canvas(kiv& im, const OpCall& c) {
    kiv tex(64, 64, 24);
    if (!tex.m_pixels) return 0;
    for (int i = 0; i < tex.m_packets; ++i) tex.m_pixels[i] = tagRGBA{128, 128, 128, 0};
    tagKIV_NOISE grain{c.i(3), 1, 1, 1u};
    if (!tex.noise(nullptr, &grain) || !tex.blur_gauss_iir(nullptr, 0.8, 0.8)) return 0;
    tagKIV_TEXTURE p{c.d(0), c.d(1), c.i(2)};
    return im.texturize(c.rect, &tex, &p);
}
}  // namespace

void add_effect_ops(OpTable& t) {
    t.add("oilpaint",
          {{"radius", K::Int, "brush radius in pixels, 1..100"}, {"levels", K::Int, "intensity buckets, 2..256"}},
          "oil paint: each pixel takes the mean colour of its neighbourhood's most frequent intensity", "3 20",
          [](kiv& im, const OpCall& c) { return im.oilpaint(c.rect, c.i(0), c.i(1)); });
    t.add("pixelize", {{"size", K::Int, "cell size in pixels, 1 or more"}}, "mosaic of square cells of their mean colour",
          "12", [](kiv& im, const OpCall& c) { return im.pixelize(c.rect, c.i(0)); });
    t.add("pyramid",
          {{"size", K::Int, "cell size in pixels, 2 or more"}, {"depth", K::Int, "face shading 0..255"}},
          "square tiles shaded as pyramids lit from the top left", "24 60",
          [](kiv& im, const OpCall& c) { return im.pyramid(c.rect, c.i(0), c.i(1)); });
    t.add("spread",
          {{"distance", K::Int, "largest swap distance in pixels, 0..10000"}, {"seed", K::Int, "random seed"}},
          "diffuse: every pixel swapped with a random neighbour", "4 1",
          [](kiv& im, const OpCall& c) { return im.spread(c.rect, c.i(0), static_cast<unsigned>(c.i(1))); });
    t.add("video",
          {{"darken", K::Int, "scan-line darkening of odd rows, percent 0..100"},
           {"stripes", K::Int, "RGB stripe mask strength, percent 0..100 (0: none)"}},
          "video display look: dark scan lines and an aperture-grille mask", "40 30",
          [](kiv& im, const OpCall& c) { return im.video(c.rect, c.i(0), c.i(1)); });
    t.add("noise",
          {{"amount", K::Int, "0..255: uniform range +-amount, Gaussian deviation amount/2"},
           {"gaussian", K::Int, "0 uniform, 1 Gaussian"},
           {"mono", K::Int, "1: grey noise, 0: per channel"},
           {"seed", K::Int, "random seed"}},
          "add seeded uniform or Gaussian noise", "40 1 0 7", [](kiv& im, const OpCall& c) {
              tagKIV_NOISE p{c.i(0), c.i(1), c.i(2), static_cast<unsigned>(c.i(3))};
              return im.noise(c.rect, &p);
          });
    t.add("texturize",
          {{"azimuth", K::Real, "light direction, degrees counter-clockwise from the right"},
           {"elevation", K::Real, "light elevation, degrees"},
           {"depth", K::Int, "relief depth 1..1530"},
           {"grain", K::Int, "roughness of the built-in canvas texture, 0..255"}},
          "relief of a tiled canvas texture (the program's own 64x64 texture)", "135 45 8 60", texturize_with_canvas);
    t.add("bumpmap",
          {{"azimuth", K::Real, "light direction, degrees counter-clockwise from the right"},
           {"elevation", K::Real, "light elevation, degrees"},
           {"depth", K::Int, "relief depth 1..1530"},
           {"invert", K::Int, "1: dark parts stand high"}},
          "light the image by its own intensity as a height field", "135 45 4 0", [](kiv& im, const OpCall& c) {
              kiv map(im);
              tagKIV_BUMPMAP p{c.d(0), c.d(1), c.i(2), c.i(3)};
              return im.bumpmap(c.rect, &map, &p);
          });
    t.add("bumpmap_merge",
          {{"azimuth", K::Real, "light direction, degrees counter-clockwise from the right"},
           {"elevation", K::Real, "light elevation, degrees"},
           {"depth", K::Int, "relief depth 1..1530"},
           {"invert", K::Int, "1: dark parts stand high"},
           {"mode", K::Int, "blend mode 0..18 of the fills"},
           {"opacity", K::Int, "0..255"}},
          "blend the image's own bump map over it", "135 45 4 0 11 160", [](kiv& im, const OpCall& c) {
              kiv map(im);
              tagKIV_BUMPMAP p{c.d(0), c.d(1), c.i(2), c.i(3)};
              return im.bumpmap_merge(c.rect, &map, &p, c.i(4), c.i(5));
          });
}

}  // namespace kivcli
