// Image files for the kiv program.
#include "image_io.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "interchange/bmpfile.h"
#include "platform/files.h"
#include "platform/global_memory.h"
#include "stb_image.h"
#include "stb_image_write.h"

namespace kivcli {

std::vector<unsigned char> read_file(const std::string& path) {
    std::vector<unsigned char> bytes;
    if (!kivplat::read_file(path.c_str(), SIZE_MAX, &bytes)) throw CliError("cannot read '" + path + "'");
    return bytes;
}

void write_file_atomic(const std::string& path, const std::vector<unsigned char>& bytes) {
    if (!kivplat::replace_file(path.c_str(), bytes.data(), bytes.size())) throw CliError("cannot write '" + path + "'");
}

namespace {

// Every form of BMP file, through the library's full reader (a 32-bit file keeps its alpha).
void decode_bmp(const std::vector<unsigned char>& bytes, kiv& img) {
    const char* why = nullptr;
    if (!img.loadbmp_bytes(bytes.data(), bytes.size(), &why))
        throw CliError(std::string("unreadable BMP file: ") + why);
}

void decode_stb(const std::vector<unsigned char>& bytes, kiv& img) {
    if (bytes.size() > static_cast<std::size_t>(INT32_MAX)) throw CliError("file too large");
    int w = 0, h = 0, channels = 0;
    unsigned char* data =
        stbi_load_from_memory(bytes.data(), static_cast<int>(bytes.size()), &w, &h, &channels, 4);
    if (!data) throw CliError(std::string("cannot decode image: ") + stbi_failure_reason());
    bool alpha = channels == 2 || channels == 4;
    if (!img.create(w, h, alpha ? 32 : 24)) {
        stbi_image_free(data);
        throw CliError("image too large");
    }
    std::memcpy(img.m_pixels, data, static_cast<std::size_t>(w) * h * 4);
    if (!alpha)
        for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i].a = 0;
    stbi_image_free(data);
}

}  // namespace

void decode_image(const std::vector<unsigned char>& bytes, kiv& img) {
    static const unsigned char png_sig[] = {0x89, 'P', 'N', 'G'};
    if (bytes.size() >= 2 && bytes[0] == 'B' && bytes[1] == 'M') return decode_bmp(bytes, img);
    bool png = bytes.size() >= 4 && std::memcmp(bytes.data(), png_sig, 4) == 0;
    bool jpeg = bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
    if (png || jpeg) return decode_stb(bytes, img);
    throw CliError("unrecognised image format (expected BMP, PNG or JPEG)");
}

void load_image(const std::string& path, kiv& img) {
    try {
        decode_image(read_file(path), img);
    } catch (const CliError& e) {
        throw CliError(path + ": " + e.what());
    }
}

std::vector<unsigned char> encode_bmp(kiv& img) {
    // An image with alpha as a 32-bit V5 file whose bit fields keep it.
    void* dib = img.m_bits == 32 ? img.createdib_alpha(0) : img.createdib();
    std::vector<unsigned char> out;
    const bool ok = dib && kivdib::bmp_from_dib(dib, &out);
    kivplat::global_free(dib);
    if (!ok) throw CliError("cannot encode the image as BMP");
    return out;
}

std::vector<unsigned char> encode_png(kiv& img) {
    if (!img.m_pixels) throw CliError("no image to write");
    const bool alpha = img.m_bits == 32;
    const int comp = alpha ? 4 : 3;
    std::vector<unsigned char> px(static_cast<std::size_t>(img.m_packets) * comp);
    for (int i = 0; i < img.m_packets; ++i) {
        const tagRGBA& p = img.m_pixels[i];
        unsigned char* d = px.data() + static_cast<std::size_t>(i) * comp;
        d[0] = p.r;
        d[1] = p.g;
        d[2] = p.b;
        if (alpha) d[3] = p.a;
    }
    std::vector<unsigned char> out;
    auto sink = [](void* ctx, void* data, int size) {
        auto* v = static_cast<std::vector<unsigned char>*>(ctx);
        v->insert(v->end(), static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + size);
    };
    if (!stbi_write_png_to_func(sink, &out, img.m_width, img.m_height, comp, px.data(), img.m_width * comp))
        throw CliError("cannot encode the image as PNG");
    return out;
}

void save_image(const std::string& path, kiv& img) {
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ext == ".bmp")
        write_file_atomic(path, encode_bmp(img));
    else if (ext == ".png")
        write_file_atomic(path, encode_png(img));
    else
        throw CliError("output '" + path + "': unknown format (use .bmp or .png)");
}

}  // namespace kivcli
