// Fuzz target: the input is a texture file (a BMP file as texturize_by_file reads it),
// written to a temporary file that is removed again on every path.
#include <unistd.h>

#include <vector>

#include "fuzz_common.h"

namespace {

// A temporary file holding the input; removed with the object.
struct TempFile {
    char path[4096];
    bool ok = false;
    TempFile(const std::uint8_t* data, std::size_t size) {
        const char* dir = std::getenv("TMPDIR");
        std::snprintf(path, sizeof path, "%s/kivfuzz_texture_XXXXXX", dir && *dir ? dir : "/tmp");
        const int fd = ::mkstemp(path);
        if (fd < 0) return;
        ok = ::write(fd, data, size) == static_cast<ssize_t>(size);
        ::close(fd);
    }
    ~TempFile() { ::unlink(path); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TempFile file(data, size);
    if (!file.ok) return 0;
    const std::size_t tail = size < 8 ? size : 8;
    kivfuzz::Params prm{data + size - tail, tail};
    const int flags = prm.u8();
    tagKIV_TEXTURE light{prm.s16() * 1.5, prm.s16() / 7.0, prm.s16()};
    tagRECT rect{prm.u8() % 20 - 4, 0, 19, 13};

    kiv img(17, 11, (flags & 1) ? 8 : 24);
    for (int i = 0; i < img.m_packets; ++i)
        img.m_pixels[i] = tagRGBA{static_cast<BYTE>(i * 7), static_cast<BYTE>(i * 13), static_cast<BYTE>(i * 29),
                                  static_cast<BYTE>(i)};
    const kiv before(img);
    const int ok = img.texturize_by_file((flags & 2) ? &rect : nullptr, file.path, (flags & 4) ? &light : nullptr);
    kivfuzz::check_image(img, "texturize_by_file");
    if (!ok) {
        if (img.m_bits != before.m_bits || img.m_packets != before.m_packets ||
            std::memcmp(img.m_pixels, before.m_pixels, sizeof(tagRGBA) * static_cast<std::size_t>(img.m_packets)))
            kivfuzz::fail("texturize_by_file", "refused but changed the image");
    }
    return 0;
}
