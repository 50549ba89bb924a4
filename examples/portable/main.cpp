// A portable console host: builds an image, runs a few operations, prints what it got.
#include <cstdio>

#include <kiv.h>

int main() {
    kiv img(320, 200, 24);
    if (!img.pixels()) return 1;
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x) *img.pos(x, y) = tagRGBA{BYTE(x), BYTE(y), BYTE(x ^ y), 0};
    tagRECT half{0, 0, 160, 100};
    kiv part(img);
    if (!part.crop(&half)) return 1;
    kiv grey(part);
    grey.grayscale();
    std::printf("image %dx%d, crop %dx%d, grey depth %d, %lu colours\n", img.width(), img.height(), part.width(),
                part.height(), grey.bits(), static_cast<unsigned long>(grey.countcolors()));
    return grey.bits() == 8 ? 0 : 1;
}
