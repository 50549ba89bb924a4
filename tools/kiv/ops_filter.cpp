// kiv program: the filter family's operations (blurs, kernels, edges, sharpening, motion
// blurs).  Each works on the current rectangle (or the whole image).
#include "ops.h"

namespace kivcli {

namespace {
const char* kWind = "direction the wind blows to: 0 right, 1 left, 2 down, 3 up";
}

void add_filter_ops(OpTable& t) {
    // Blurs.
    t.add("blur",
          {{"DX", ArgKind::Int, "horizontal span in pixels, >= 0"}, {"DY", ArgKind::Int, "vertical span in pixels, >= 0"}},
          "average four corner samples DX x DY apart", "8 8",
          [](kiv& im, const OpCall& c) { return im.blur(c.rect, c.i(0), c.i(1)); });
    t.add("blur_simple", {{"R", ArgKind::Int, "radius in pixels, >= 0"}}, "tent blur (alpha becomes 0)", "4",
          [](kiv& im, const OpCall& c) { return im.blur_simple(c.rect, c.i(0)); });
    t.add("blur_gauss_iir",
          {{"SX", ArgKind::Real, "horizontal standard deviation in pixels, > 0"},
           {"SY", ArgKind::Real, "vertical standard deviation in pixels, > 0"}},
          "Gaussian blur, recursive (cost independent of the radius)", "3 3",
          [](kiv& im, const OpCall& c) { return im.blur_gauss_iir(c.rect, c.d(0), c.d(1)); });
    t.add("blur_gauss_rle_plane",
          {{"SIGMA", ArgKind::Real, "standard deviation in pixels, 0 < SIGMA <= 10000"},
           {"PLANES", ArgKind::Int, "channels to blur: sum of 1 red, 2 green, 4 blue, 8 alpha"}},
          "Gaussian blur of chosen channels, sampled kernel", "4 5",
          [](kiv& im, const OpCall& c) { return im.blur_gauss_rle_plane(c.rect, c.d(0), static_cast<unsigned>(c.i(1))); });
    t.add("blur_gauss_rle", {{"SIGMA", ArgKind::Real, "standard deviation in pixels, 0 < SIGMA <= 10000"}},
          "Gaussian blur, sampled kernel (alpha kept)", "3",
          [](kiv& im, const OpCall& c) { return im.blur_gauss_rle(c.rect, c.d(0)); });
    t.add("blur_gauss_sel",
          {{"RADIUS", ArgKind::Real, "pixels at which the kernel falls to 1/255, at most 127"},
           {"THRESHOLD", ArgKind::Int, "largest difference 0..255 of a neighbour still averaged"}},
          "selective Gaussian: smooth only across small differences, keeping edges", "6 40",
          [](kiv& im, const OpCall& c) { return im.blur_gauss_sel(c.rect, c.d(0), c.i(1)); });

    // 3x3 kernels and edges.
    t.add("filter_3x3",
          {{"MODE", ArgKind::Int,
            "0 mean, 1 median, 3 sharpen, 4 soft blur, 5 emboss, 6 sharpen more, 7 maximum, 8 minimum, "
            "9 cross sharpen, 10 full sharpen, 11 Laplacian, 12 Sobel horizontal, 13 Sobel vertical, "
            "14 adaptive sharpen, 15 adaptive smooth"}},
          "one of the built-in 3x3 filters", "5",
          [](kiv& im, const OpCall& c) { return im.filter_3x3(c.rect, static_cast<unsigned>(c.i(0))); });
    t.add("filter_custom3x3",
          {{"K1", ArgKind::Int, "weight, top-left"},
           {"K2", ArgKind::Int, "weight, top"},
           {"K3", ArgKind::Int, "weight, top-right"},
           {"K4", ArgKind::Int, "weight, left"},
           {"K5", ArgKind::Int, "weight, centre"},
           {"K6", ArgKind::Int, "weight, right"},
           {"K7", ArgKind::Int, "weight, bottom-left"},
           {"K8", ArgKind::Int, "weight, bottom"},
           {"K9", ArgKind::Int, "weight, bottom-right"},
           {"DIVISOR", ArgKind::Int, "the weighted sum is divided by this (0 counts as 1)"}},
          "a 3x3 kernel of your own weights", "-2 -1 0 -1 1 1 0 1 2 1",
          [](kiv& im, const OpCall& c) {
              int k[9];
              for (int n = 0; n < 9; ++n) k[n] = c.i(static_cast<std::size_t>(n));
              return im.filter_custom3x3(c.rect, k, c.i(9));
          });
    t.add("filter_sharpen", {{"STRENGTH", ArgKind::Int, "1 (strongest) .. 40 (mildest); else 10"}},
          "3x3 sharpening of adjustable strength", "3",
          [](kiv& im, const OpCall& c) { return im.filter_sharpen(c.rect, c.i(0)); });
    t.add("filter_soften", {{"STRENGTH", ArgKind::Int, "1 (strongest) .. 40 (mildest); else 10"}},
          "3x3 softening of adjustable strength", "1",
          [](kiv& im, const OpCall& c) { return im.filter_soften(c.rect, c.i(0)); });
    t.add("edge", {{"STRENGTH", ArgKind::Real, "divides the gradient magnitude (x 10), >= 1; higher is fainter"}},
          "edge detection: gradient magnitude (alpha becomes 0)", "4",
          [](kiv& im, const OpCall& c) { return im.edge(c.rect, c.d(0)); });
    t.add("emboss",
          {{"AZIMUTH", ArgKind::Real, "light direction in degrees"},
           {"ELEVATION", ArgKind::Real, "light elevation in degrees"},
           {"DEPTH", ArgKind::Int, "relief depth, 1..65535"},
           {"MONO", ArgKind::Int, "1 grey relief, 0 keep the colours"}},
          "relief lit from a direction, heights from red (alpha becomes 0)", "30 45 20 1",
          [](kiv& im, const OpCall& c) {
              tagKIV_EMBOSS e{c.d(0), c.d(1), c.i(2), c.i(3)};
              return im.emboss(c.rect, &e);
          });
    t.add("raise_edge", {{"N", ArgKind::Int, "frame width in pixels, >= 0"}},
          "bevelled frame: top and left lightened, bottom and right darkened", "16",
          [](kiv& im, const OpCall& c) { return im.raise_edge(c.rect, c.i(0)); });

    // Sharpening.
    t.add("sharpen", {}, "plain 3x3 sharpening", "", [](kiv& im, const OpCall& c) { return im.sharpen(c.rect); });
    t.add("sharpen2", {{"STRENGTH", ArgKind::Int, "percent, 0..1000"}}, "3x3 sharpening in percent", "300",
          [](kiv& im, const OpCall& c) { return im.sharpen2(c.rect, c.i(0)); });
    t.add("unsharp_mask",
          {{"RADIUS", ArgKind::Real, "blur radius in pixels, 0 < RADIUS <= 1000"},
           {"AMOUNT", ArgKind::Int, "percent, 0..1000"},
           {"THRESHOLD", ArgKind::Int, "smallest difference 0..255 that is sharpened"}},
          "unsharp mask per channel", "3 200 0",
          [](kiv& im, const OpCall& c) { return im.unsharp_mask(c.rect, c.d(0), c.i(1), c.i(2)); });
    t.add("unsharp_mask2",
          {{"RADIUS", ArgKind::Real, "blur radius in pixels, 0 < RADIUS <= 1000"},
           {"AMOUNT", ArgKind::Int, "percent, 0..1000"},
           {"THRESHOLD", ArgKind::Int, "smallest difference 0..255 that is sharpened"}},
          "unsharp mask on lightness only (no colour fringes)", "3 200 0",
          [](kiv& im, const OpCall& c) { return im.unsharp_mask2(c.rect, c.d(0), c.i(1), c.i(2)); });
    t.add("enhance",
          {{"RADIUS", ArgKind::Int, "half the box side in pixels, 1..1000"}, {"AMOUNT", ArgKind::Int, "0..100"}},
          "local contrast enhancement", "8 80",
          [](kiv& im, const OpCall& c) { return im.enhance(c.rect, c.i(0), c.i(1)); });

    // Motion and directional blurs.
    t.add("mblur_linear",
          {{"ANGLE", ArgKind::Real, "degrees, 0 horizontal, 90 up"}, {"DISTANCE", ArgKind::Int, "pixels, 0..1000"}},
          "straight motion blur", "30 20",
          [](kiv& im, const OpCall& c) { return im.mblur_linear(c.rect, c.d(0), c.i(1)); });
    t.add("mblur_radial",
          {{"CX", ArgKind::Int, "centre column in pixels"},
           {"CY", ArgKind::Int, "centre row in pixels"},
           {"ANGLE", ArgKind::Real, "arc in degrees, 0..360"}},
          "spin blur about a centre", "240 180 15",
          [](kiv& im, const OpCall& c) { return im.mblur_radial(c.rect, c.i(0), c.i(1), c.d(2)); });
    t.add("mblur_round",
          {{"CX", ArgKind::Int, "centre column in pixels"},
           {"CY", ArgKind::Int, "centre row in pixels"},
           {"AMOUNT", ArgKind::Int, "arc length in pixels, 0..1000"}},
          "circular motion blur of the same length everywhere", "240 180 20",
          [](kiv& im, const OpCall& c) { return im.mblur_round(c.rect, c.i(0), c.i(1), c.i(2)); });
    t.add("mblur_zoom",
          {{"CX", ArgKind::Int, "centre column in pixels"},
           {"CY", ArgKind::Int, "centre row in pixels"},
           {"AMOUNT", ArgKind::Int, "percent of the distance to the centre, 0..100"}},
          "zoom blur toward a centre", "240 180 20",
          [](kiv& im, const OpCall& c) { return im.mblur_zoom(c.rect, c.i(0), c.i(1), c.i(2)); });
    t.add("sblur_wind", {{"DIRECTION", ArgKind::Int, kWind}, {"STRENGTH", ArgKind::Int, "streak length in pixels, 1..1000"}},
          "wind: bright pixels leave fading streaks", "0 30",
          [](kiv& im, const OpCall& c) { return im.sblur_wind(c.rect, c.i(0), c.i(1)); });
    t.add("sblur_blast", {{"DIRECTION", ArgKind::Int, kWind}, {"STRENGTH", ArgKind::Int, "streak length in pixels, 1..1000"}},
          "blast: a stronger wind", "0 30",
          [](kiv& im, const OpCall& c) { return im.sblur_blast(c.rect, c.i(0), c.i(1)); });
}

}  // namespace kivcli
