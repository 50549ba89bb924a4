// Texture files and resources: texturize_by_file, texturize_by_resource, texture_save.
// Textures are read by the full DIB and BMP reader and written through the BMP packer.
#include <cstddef>
#include <vector>

#include "effect/effect.h"
#include "interchange/bmpfile.h"
#include "platform/files.h"
#include "platform/global_memory.h"
#include "platform/resources.h"

int kiv::texturize_by_file(tagRECT* rect, const char* path, tagKIV_TEXTURE* param) {
    kiveffect::Area a;
    if (!kiveffect::normalise(this, rect, &a)) return 0;
    kiv texture;
    if (!texture.loadbmp(path, nullptr)) return 0;
    return texturize(rect, &texture, param);
}

#ifdef _WIN32
int kiv::texturize_by_resource(tagRECT* rect, HMODULE module, const char* name, tagKIV_TEXTURE* param) {
    kiveffect::Area a;
    if (!name || !kiveffect::normalise(this, rect, &a)) return 0;
    std::size_t size = 0;
    const void* data = kivplat::find_resource(module, name, kivplat::kBitmapResource, &size);
    kiv texture;  // any form of packed DIB, through the full reader
    if (!data || !texture.attachdib_any_bytes(data, size, nullptr)) return 0;
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
