// Texture files and resources: texturize_by_file, texturize_by_resource, texture_save.
// Files are BMP files read and written through the library's own DIB code.
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "effect/effect.h"
#include "interchange/bmpfile.h"
#include "interchange/dibformat.h"

namespace kiveffect {
namespace {

// Textures are images; a file beyond this is not one we are meant to read.
constexpr std::size_t kMaxTextureFile = std::size_t(1) << 30;
constexpr std::size_t kFileHeader = 14;

bool read_whole_file(const char* path, std::vector<unsigned char>* out) {
    std::FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    unsigned char buf[65536];
    bool ok = true;
    for (;;) {
        const std::size_t n = std::fread(buf, 1, sizeof buf, f);
        if (n) {
            if (out->size() + n > kMaxTextureFile) {
                ok = false;
                break;
            }
            out->insert(out->end(), buf, buf + n);
        }
        if (n < sizeof buf) {
            ok = !std::ferror(f);
            break;
        }
    }
    std::fclose(f);
    return ok;
}

std::uint32_t le32(const unsigned char* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24;
}

// A BMP file whose pixels the DIB reader turns into colours: uncompressed 1, 4, 8 or 24
// bits, every size field consistent with the bytes present (the file helper alone would
// zero-fill a truncated file).
bool bmp_file_complete(const std::vector<unsigned char>& f) {
    if (f.size() < kFileHeader + kivdib::kHeaderBytes || f[0] != 'B' || f[1] != 'M') return false;
    const BITMAPINFOHEADER h = kivdib::read_header(f.data() + kFileHeader);
    if (h.biSize < kivdib::kHeaderBytes || h.biCompression != BI_RGB || h.biWidth < 1 || h.biHeight == 0) return false;
    if (h.biBitCount != 1 && h.biBitCount != 4 && h.biBitCount != 8 && h.biBitCount != 24) return false;
    if (h.biBitCount <= 8 && h.biClrUsed > (1u << h.biBitCount)) return false;
    const std::uint64_t head = std::uint64_t(h.biSize) + kivdib::dib_table_bytes(h);
    const std::uint64_t off = le32(f.data() + 10);
    const std::uint64_t height = h.biHeight < 0 ? 0 - static_cast<std::int64_t>(h.biHeight) : static_cast<std::uint64_t>(h.biHeight);
    const std::uint64_t stride = kivdib::dib_stride(h.biWidth, h.biBitCount);
    if (off < kFileHeader + head || off > f.size()) return false;
    return stride <= (f.size() - off) / height;  // every row present
}

void put32(unsigned char* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

// In BMP files and bitmap resources the colour table follows the info header whatever its
// size (V4: 108 bytes, V5: 124), while the DIB reader takes it from offset 40: a longer
// header is cut to its first 40 bytes, which mean the same in every version.
void shorten_info_header(std::vector<unsigned char>* f) {
    const std::uint32_t bi = le32(f->data() + kFileHeader);
    if (bi == kivdib::kHeaderBytes) return;
    const auto header = f->begin() + static_cast<std::ptrdiff_t>(kFileHeader);
    f->erase(header + static_cast<std::ptrdiff_t>(kivdib::kHeaderBytes), header + static_cast<std::ptrdiff_t>(bi));
    put32(f->data() + kFileHeader, static_cast<std::uint32_t>(kivdib::kHeaderBytes));
    put32(f->data() + 10, le32(f->data() + 10) - (bi - static_cast<std::uint32_t>(kivdib::kHeaderBytes)));
}

bool texture_from_file(const char* path, kiv* img) {
    if (!path || !*path) return false;
    std::vector<unsigned char> bytes;
    if (!read_whole_file(path, &bytes) || !bmp_file_complete(bytes)) return false;
    shorten_info_header(&bytes);
    HGLOBAL dib = kivdib::dib_from_bmp(bytes.data(), bytes.size());
    if (!dib) return false;
    const int ok = img->attachdib(dib);
    GlobalFree(dib);
    return ok != 0;
}

// Writes bytes to path through a temporary file in the same directory, renamed into place
// only when everything was written.
bool write_file_replacing(const char* path, const std::vector<unsigned char>& bytes) {
    // Unique per thread, so concurrent saves of the same name cannot share a temporary.
    const std::string tmp = std::string(path) + ".~kv" +
                            std::to_string(std::hash<std::thread::id>{}(std::this_thread::get_id()) % 1000000007u);
    std::FILE* f = std::fopen(tmp.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = std::fflush(f) == 0 && ok;
    ok = std::fclose(f) == 0 && ok;
#ifdef _WIN32
    ok = ok && MoveFileExA(tmp.c_str(), path, MOVEFILE_REPLACE_EXISTING) != 0;
#else
    ok = ok && std::rename(tmp.c_str(), path) == 0;
#endif
    if (!ok) std::remove(tmp.c_str());
    return ok;
}

}  // namespace

bool texture_from_packed_dib(const void* data, std::size_t size, kiv* img) {
    if (!data || size < kivdib::kHeaderBytes) return false;
    const auto* p = static_cast<const unsigned char*>(data);
    const BITMAPINFOHEADER h = kivdib::read_header(p);
    if (h.biSize < kivdib::kHeaderBytes || h.biSize > size) return false;
    // The block handed to the reader: the header cut to 40 bytes (see shorten_info_header),
    // then the table and rows. Everything the header claims must lie in it; checked here
    // because GlobalSize may report more than was asked for.
    const std::size_t n = size - (h.biSize - kivdib::kHeaderBytes);
    const std::uint64_t head = kivdib::kHeaderBytes + kivdib::dib_table_bytes(h);
    const std::uint64_t height =
        h.biHeight < 0 ? 0 - static_cast<std::int64_t>(h.biHeight) : static_cast<std::uint64_t>(h.biHeight);
    const std::uint64_t stride = kivdib::dib_stride(h.biWidth, h.biBitCount);
    if (height == 0 || head > n || stride > (n - head) / height) return false;
    HGLOBAL dib = GlobalAlloc(GMEM_MOVEABLE, n);
    if (!dib) return false;
    {
        const kivdib::LockedDib lock(dib);
        if (!lock.data()) {
            GlobalFree(dib);
            return false;
        }
        std::memcpy(lock.data(), p, kivdib::kHeaderBytes);
        put32(lock.data(), static_cast<std::uint32_t>(kivdib::kHeaderBytes));
        std::memcpy(lock.data() + kivdib::kHeaderBytes, p + h.biSize, n - kivdib::kHeaderBytes);
    }
    const int ok = img->attachdib(dib);
    GlobalFree(dib);
    return ok != 0;
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
    HRSRC res = FindResourceA(module, name, MAKEINTRESOURCEA(2));  // RT_BITMAP
    if (!res) return 0;
    HGLOBAL loaded = LoadResource(module, res);
    const void* data = loaded ? LockResource(loaded) : nullptr;
    const DWORD size = SizeofResource(module, res);
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
    HGLOBAL dib = static_cast<HGLOBAL>(part.createdib());
    if (!dib) return 0;
    std::vector<unsigned char> file;
    const bool ok = kivdib::bmp_from_dib(dib, &file);
    GlobalFree(dib);
    return ok && kiveffect::write_file_replacing(path, file) ? 1 : 0;
}
