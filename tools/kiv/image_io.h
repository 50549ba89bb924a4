// Image files for the kiv program: the picture a file holds (pixels, alpha, colour profile)
// and the codecs that read and write each format.
#ifndef KIV_CLI_IMAGE_IO_H
#define KIV_CLI_IMAGE_IO_H

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "kiv.h"

namespace kivcli {

// One-line, user-facing failure.
struct CliError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using Bytes = std::vector<unsigned char>;

// Where an image's transparency lives, if it has any.
enum class Alpha {
    None,    // opaque: the pixels' fourth byte means nothing (or is a colour-map index)
    Pixels,  // the fourth byte of each pixel (bits >= 24), 0 transparent .. 255 opaque
    Map      // a palettized image whose colour map holds each entry's alpha in its fourth byte
};

// An image as read from a file or about to be written to one. Holds a kiv, so it is neither
// copied nor moved.
struct Picture {
    kiv img;
    Alpha alpha = Alpha::None;
    Bytes icc;               // the embedded colour profile, or empty
    std::string format;      // the codec that read it ("png")
    int file_bits = 8;       // bits per sample in the file
    Picture() = default;
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
};

struct ReadOptions {
    bool autorotate = true;  // apply a JPEG's EXIF orientation
    // Larger images are refused before their pixels are allocated (a header may claim any
    // size); the library's own limit by default.
    std::uint64_t max_pixels = INT32_MAX;
};
struct WriteOptions {
    int quality = 90;        // JPEG and lossy WebP, 1..100
    bool lossless = false;   // WebP
    // Says what the writer had to change (alpha dropped, colours reduced), for -v.
    std::function<void(const std::string&)> note;
};

// A format: how to recognise it and, where this build can, read and write it.
struct Codec {
    const char* name;         // "png"
    const char* extensions;   // ".png", or several: ".jpg .jpeg .jpe"
    const char* library;      // what does the work ("libpng 1.6.39")
    bool (*sniff)(const unsigned char* data, std::size_t size);
    void (*decode)(const Bytes& data, Picture& pic, const ReadOptions& opt);  // null: not read
    Bytes (*encode)(Picture& pic, const WriteOptions& opt);                   // null: not written
};
const std::vector<Codec>& codecs();
// The codec of a format name or extension ("png", "jpg", ".tif"); null when none.
const Codec* find_codec(const std::string& name);
// The codec whose signature the data carries; null when none.
const Codec* sniff_codec(const Bytes& data);
// "png: read write (libpng 1.6.39)" lines for kiv --formats.
std::string formats_text();

// Whole files and the standard streams ("-"), with the system's reason on failure.
Bytes read_input(const std::string& path);
// Writes through a temporary beside the file (beside the final target of a symbolic link) and
// renames it into place, so a failure never leaves a half-written file under the final name.
void write_output(const std::string& path, const Bytes& bytes);

// Decodes data in whatever format it is in (format, when not empty, names the one expected).
void decode_image(const Bytes& data, Picture& pic, const ReadOptions& opt = {}, const std::string& format = "");
void load_image(const std::string& path, Picture& pic, const ReadOptions& opt = {}, const std::string& format = "");
// A second image for an operation (a layer, a texture): opaque ones get alpha 255, so an
// operation that weighs by alpha takes them as opaque.
void load_second_image(const std::string& path, kiv& img);
// Encodes pic in the format named by format, or else by the path's extension.
Bytes encode_image(Picture& pic, const std::string& path, const std::string& format, const WriteOptions& opt);
void save_image(const std::string& path, Picture& pic, const std::string& format = "", const WriteOptions& opt = {});

// The colours of a GIMP palette file (.gpl) or of an image (its colour map, or its distinct
// colours when they are at most 256).
std::vector<tagSYSCOL> load_palette(const std::string& path);

}  // namespace kivcli

#endif
