// Texture files and resources: texturize_by_file, texturize_by_resource, texture_save.
// Files are BMP files, read and written through the library's BMP packer.
#include <cstddef>
#include <vector>

#include "effect/effect.h"
#include "interchange/bmpfile.h"
#include "interchange/dibformat.h"
#include "platform/files.h"
#include "platform/global_memory.h"
#include "platform/resources.h"

namespace kiveffect {
namespace {

// Textures are images; a file beyond this is not one we are meant to read.
constexpr std::size_t kMaxTextureFile = std::size_t(1) << 30;

// What a texture file must be beyond a well-formed BMP file: uncompressed 1, 4, 8 or 24 bits
// (the depths the DIB reader turns into colours), a colour table the depth can index, and at
// least one pixel.
bool texture_header(const BITMAPINFOHEADER& h) {
    return h.biCompression == BI_RGB && h.biWidth >= 1 && h.biHeight != 0 &&
           (h.biBitCount == 1 || h.biBitCount == 4 || h.biBitCount == 8 || h.biBitCount == 24) &&
           (h.biBitCount > 8 || h.biClrUsed <= (1u << h.biBitCount));
}

// Reads a packed DIB into img and frees it.
bool attach_and_free(void* dib, kiv* img) {
    const int ok = img->attachdib(dib);
    kivplat::global_free(dib);
    return ok != 0;
}

bool texture_from_file(const char* path, kiv* img) {
    std::vector<unsigned char> bytes;
    if (!path || !*path || !kivplat::read_file(path, kMaxTextureFile, &bytes)) return false;
    if (bytes.size() < kivdib::kFileHeader + kivdib::kHeaderBytes ||
        !texture_header(kivdib::read_header(bytes.data() + kivdib::kFileHeader)))
        return false;
    void* dib = kivdib::dib_from_bmp(bytes.data(), bytes.size());
    return dib && attach_and_free(dib, img);
}

}  // namespace

bool texture_from_packed_dib(const void* data, std::size_t size, kiv* img) {
    void* dib = kivdib::dib_from_packed(static_cast<const unsigned char*>(data), size);
    return dib && attach_and_free(dib, img);
}

}  // namespace kiveffect

int kiv::texturize_by_file(tagRECT* rect, const char* path, tagKIV_TEXTURE* param) {
    kiveffect::Area a;
    if (!kiveffect::normalise(this, rect, &a)) return 0;
    kiv texture;
    if (!kiveffect::texture_from_file(path, &texture)) return 0;
    return texturize(rect, &texture, param);
}

#ifdef _WIN32
int kiv::texturize_by_resource(tagRECT* rect, HMODULE module, const char* name, tagKIV_TEXTURE* param) {
    kiveffect::Area a;
    if (!name || !kiveffect::normalise(this, rect, &a)) return 0;
    std::size_t size = 0;
    const void* data = kivplat::find_resource(module, name, kivplat::kBitmapResource, &size);
    kiv texture;
    if (!data || !kiveffect::texture_from_packed_dib(data, size, &texture)) return 0;
    return texturize(rect, &texture, param);
}
#endif

int kiv::texture_save(tagRECT* rect, const char* path) {
    kiveffect::Area a;
    if (!path || !*path || !kiveffect::normalise(this, rect, &a)) return 0;
    kiv part(a.w(), a.h(), 24);
    if (!part.m_pixels) return 0;
    part.blt(0, 0, a.w(), a.h(), this, a.left, a.top);
    void* dib = part.createdib();
    if (!dib) return 0;
    std::vector<unsigned char> file;
    const bool ok = kivdib::bmp_from_dib(dib, &file);
    kivplat::global_free(dib);
    return ok && kivplat::replace_file(path, file.data(), file.size()) ? 1 : 0;
}
