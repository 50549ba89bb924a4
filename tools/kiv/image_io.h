// Reading and writing image files for the kiv program: BMP through the library's own DIB
// code (read by its full reader), PNG and JPEG through the stb decoder, PNG output through the stb writer.
#ifndef KIV_CLI_IMAGE_IO_H
#define KIV_CLI_IMAGE_IO_H

#include <stdexcept>
#include <string>
#include <vector>

#include "kiv.h"

namespace kivcli {

// One-line, user-facing failure.
struct CliError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::vector<unsigned char> read_file(const std::string& path);
// Writes through a temporary name in the same directory and renames it into place, so a
// failure never leaves a half-written file under the final name.
void write_file_atomic(const std::string& path, const std::vector<unsigned char>& bytes);

// Decodes BMP, PNG or JPEG bytes (recognised by their signature) into img.
void decode_image(const std::vector<unsigned char>& bytes, kiv& img);
void load_image(const std::string& path, kiv& img);

// Encodes img as a BMP file at the image's depth (palettized images as 8/4/1-bit BMP, 32-bit
// images as a V5 BMP with alpha).
std::vector<unsigned char> encode_bmp(kiv& img);
// Encodes img as PNG: RGBA for 32-bit images, RGB otherwise.
std::vector<unsigned char> encode_png(kiv& img);
// By the output name's extension (.bmp or .png).
void save_image(const std::string& path, kiv& img);

}  // namespace kivcli

#endif
