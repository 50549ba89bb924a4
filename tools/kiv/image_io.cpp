// Image files for the kiv program.
#include "image_io.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "stb_image.h"
#include "stb_image_write.h"

namespace kivcli {

namespace fs = std::filesystem;

std::vector<unsigned char> read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw CliError("cannot open '" + path + "'");
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) throw CliError("cannot read '" + path + "'");
    return bytes;
}

void write_file_atomic(const std::string& path, const std::vector<unsigned char>& bytes) {
    fs::path target(path);
    std::random_device rd;
    fs::path tmp = target;
    tmp += ".tmp" + std::to_string(rd() % 1000000u);
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        if (!out) throw CliError("cannot write '" + path + "'");
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        out.close();
        if (!out) {
            std::error_code ec;
            fs::remove(tmp, ec);
            throw CliError("cannot write '" + path + "'");
        }
    }
    std::error_code ec;
    fs::rename(tmp, target, ec);
    if (ec) {
        fs::remove(tmp, ec);
        throw CliError("cannot write '" + path + "'");
    }
}

namespace {

std::uint32_t le32(const unsigned char* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// Bytes of the colour table as the library's DIB code places it: biClrUsed entries at any
// depth, or a full table when that is 0 at 8 bits or fewer.
std::size_t colour_table_bytes(std::uint32_t bits, std::uint32_t used) {
    if (used) return 4u * static_cast<std::size_t>(used);
    return bits <= 8 ? 4u * (std::size_t{1} << bits) : 0;
}

void decode_bmp(const std::vector<unsigned char>& bytes, kiv& img) {
    // A BMP file is a 14-byte file header and a packed DIB whose colour table follows the
    // info header (40 bytes or longer) and whose rows start at bfOffBits. The library's DIB
    // reader takes the table from byte 40 and the rows from right after the table, so the
    // DIB is re-packed as a 40-byte header, the table and the rows. Sizes are checked here
    // only as far as the re-packing needs; the reader checks the rest against the block.
    if (bytes.size() < 14 + 40) throw CliError("truncated BMP file");
    const unsigned char* dib = bytes.data() + 14;
    const std::size_t avail = bytes.size() - 14;
    const std::uint32_t bi_size = le32(dib);
    const std::uint32_t bits = dib[14] | (dib[15] << 8);
    const std::uint32_t off = le32(bytes.data() + 10);
    if (bi_size < 40 || bi_size > avail) throw CliError("malformed BMP header");
    const std::size_t table = std::min(colour_table_bytes(bits, le32(dib + 32)), avail - bi_size);
    const std::size_t rows_from = off >= 14 && off - 14 <= avail ? off - 14 : bi_size + table;
    std::vector<unsigned char> packed(dib, dib + 40);
    packed[0] = 40;
    packed[1] = packed[2] = packed[3] = 0;
    packed.insert(packed.end(), dib + bi_size, dib + bi_size + table);
    packed.insert(packed.end(), dib + rows_from, dib + avail);
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, packed.size());
    if (!h) throw CliError("out of memory");
    void* p = GlobalLock(h);
    std::memcpy(p, packed.data(), packed.size());
    GlobalUnlock(h);
    int ok = img.attachdib(h);
    GlobalFree(h);
    if (!ok) throw CliError("unsupported or malformed BMP file");
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
    HGLOBAL h = img.createdib();
    if (!h) throw CliError("cannot encode the image as BMP");
    const unsigned char* dib = static_cast<const unsigned char*>(GlobalLock(h));
    std::uint32_t bits = dib[14] | (dib[15] << 8);
    std::uint32_t used = le32(dib + 32);
    std::size_t table = colour_table_bytes(bits, used);
    std::size_t stride = ((static_cast<std::size_t>(img.m_width) * bits + 31) / 32) * 4;
    // The library's DIBs carry slack rows past the image: the file takes only the image.
    std::size_t dib_size = 40 + table + stride * static_cast<std::size_t>(img.m_height);
    dib_size = std::min<std::size_t>(dib_size, GlobalSize(h));
    std::vector<unsigned char> out(14 + dib_size);
    std::uint32_t file_size = static_cast<std::uint32_t>(out.size());
    std::uint32_t off = static_cast<std::uint32_t>(14 + 40 + table);
    out[0] = 'B';
    out[1] = 'M';
    for (int i = 0; i < 4; ++i) {
        out[2 + i] = static_cast<unsigned char>(file_size >> (8 * i));
        out[10 + i] = static_cast<unsigned char>(off >> (8 * i));
    }
    std::memcpy(out.data() + 14, dib, dib_size);
    GlobalUnlock(h);
    GlobalFree(h);
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
    std::string ext = fs::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ext == ".bmp")
        write_file_atomic(path, encode_bmp(img));
    else if (ext == ".png")
        write_file_atomic(path, encode_png(img));
    else
        throw CliError("output '" + path + "': unknown format (use .bmp or .png)");
}

}  // namespace kivcli
