// What the kiv program's codecs share: the layout a writer writes an image in, packing and
// unpacking pixels, orientation and colour profiles. Each format's reader and writer live in
// codec_<format>.cpp; codecs() in image_io.cpp lists those this build has.
#ifndef KIV_CLI_CODEC_H
#define KIV_CLI_CODEC_H

#include <cstddef>

#include "image_io.h"

namespace kivcli {

// How a writer stores an image: palettized images as indexed colour, or as grey when their
// map is the plain ramp of their depth (1, 2, 4 or 8; entry i = i * 255 / (2^bits - 1)); true colour as
// RGB, or RGBA when it carries alpha in its pixels.
enum class Layout { Indexed, Grey, Rgb, Rgba };
Layout layout_of(const Picture& pic);
// The bits a palettized image's indices are stored at: the least of 1, 2, 4 and 8 that holds
// its depth.
int index_bits(const kiv& img);

// Rows of the image packed as 3 (RGB) or 4 (RGBA) bytes a pixel; alpha 255 where the picture
// has none, the map's alpha for an indexed picture with Alpha::Map.
Bytes packed_pixels(const Picture& pic, int channels);
// Each pixel's colour-map index (its fourth byte), one byte a pixel.
Bytes pixel_indices(const kiv& img);
// The alpha of each colour-map entry (255 unless the picture keeps alpha in its map).
unsigned char map_alpha(const Picture& pic, int entry);

// pic becomes a true-colour image of w x h pixels from rgba (4 bytes a pixel, rows packed);
// alpha says whether the fourth bytes are transparency.
void set_true_colour(Picture& pic, int w, int h, const unsigned char* rgba, bool alpha);
// pic becomes palettized: n colours (n >= 1) of palette (red, green, blue, 3 bytes each) and
// one index byte a pixel; the depth is the least of 1, 4 and 8 that holds bits; indices at or
// beyond n take entry 0.
void set_indexed(Picture& pic, int w, int h, int bits, const unsigned char* palette, int n, const unsigned char* idx);
// pic becomes grey at depth bits (1, 4 or 8): values 0 .. 2^bits - 1, one byte a pixel, on the
// plain ramp.
void set_grey(Picture& pic, int w, int h, int bits, const unsigned char* values);
// A 16-bit sample reduced to 8 bits, rounded.
inline unsigned char to8(unsigned v) { return static_cast<unsigned char>((v * 255u + 32767u) / 65535u); }

// The EXIF orientation (1..8) a JPEG file's APP1 segment records, or 1.
int jpeg_exif_orientation(const unsigned char* data, std::size_t size);
// Turns and mirrors img so that an image stored with EXIF orientation o looks upright.
void apply_orientation(kiv& img, int o);
// Whether an ICC profile describes the colour space a writer is about to write (a grey image
// takes a grey profile, colour an RGB one): a mismatched profile is not written.
bool icc_fits(const Bytes& icc, bool grey);

Codec bmp_codec();
#ifdef KIV_HAVE_PNG
Codec png_codec();
#endif
#ifdef KIV_HAVE_JPEG
Codec jpeg_codec();
#endif
#ifdef KIV_HAVE_TIFF
Codec tiff_codec();
#endif
#ifdef KIV_HAVE_WEBP
Codec webp_codec();
#endif
#ifdef KIV_HAVE_GIF
Codec gif_codec();
#endif
// The built-in decoders and writers, for the formats no codec library was found for: PNG,
// JPEG and GIF read, PNG and JPEG written.
void add_builtin_codecs(std::vector<Codec>& list);

}  // namespace kivcli

#endif
