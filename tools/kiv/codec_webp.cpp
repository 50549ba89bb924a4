// WebP through libwebp: lossy at --quality, or lossless (--lossless: exact colours, also under
// transparent pixels); alpha both ways; the first frame of an animation; an ICC profile
// carried both ways.
#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cstring>

#include "codec.h"

namespace kivcli {

namespace {

bool sniff(const unsigned char* d, std::size_t n) { return n >= 12 && std::memcmp(d, "RIFF", 4) == 0 && std::memcmp(d + 8, "WEBP", 4) == 0; }

struct Demux {
    WebPDemuxer* d;
    ~Demux() { WebPDemuxDelete(d); }
};

void decode(const Bytes& data, Picture& pic, const ReadOptions& opt) {
    WebPData in{data.data(), data.size()};
    Demux dm{WebPDemux(&in)};
    WebPIterator frame;
    if (!dm.d || !WebPDemuxGetFrame(dm.d, 1, &frame)) throw CliError("WebP: malformed file");
    const int cw = static_cast<int>(WebPDemuxGetI(dm.d, WEBP_FF_CANVAS_WIDTH));
    const int ch = static_cast<int>(WebPDemuxGetI(dm.d, WEBP_FF_CANVAS_HEIGHT));
    if (static_cast<std::uint64_t>(cw) * ch > opt.max_pixels) {
        WebPDemuxReleaseIterator(&frame);
        throw CliError("WebP: image too large");
    }
    int w = 0, h = 0;
    uint8_t* px = WebPDecodeRGBA(frame.fragment.bytes, frame.fragment.size, &w, &h);
    const bool alpha = frame.has_alpha != 0;
    const int fx = frame.x_offset, fy = frame.y_offset;
    WebPDemuxReleaseIterator(&frame);
    if (!px) throw CliError("WebP: cannot decode the image data");
    // A first frame smaller than the canvas sits on a transparent one.
    const bool placed = w != cw || h != ch;
    Bytes rgba(static_cast<std::size_t>(cw) * ch * 4, 0);
    for (int y = 0; fx < cw && y < h && fy + y < ch; ++y)
        std::memcpy(rgba.data() + (static_cast<std::size_t>(fy + y) * cw + fx) * 4, px + static_cast<std::size_t>(y) * w * 4,
                    static_cast<std::size_t>(std::min(w, cw - fx)) * 4);
    WebPFree(px);
    set_true_colour(pic, cw, ch, rgba.data(), alpha || placed);
    WebPChunkIterator icc;
    if (WebPDemuxGetChunk(dm.d, "ICCP", 1, &icc)) {
        pic.icc.assign(icc.chunk.bytes, icc.chunk.bytes + icc.chunk.size);
        WebPDemuxReleaseChunkIterator(&icc);
    }
}

struct Encoding {
    WebPPicture pic;
    WebPMemoryWriter out;
    WebPMux* mux = nullptr;
    WebPData assembled{nullptr, 0};
    Encoding() {
        WebPPictureInit(&pic);
        WebPMemoryWriterInit(&out);
    }
    ~Encoding() {
        WebPPictureFree(&pic);
        WebPMemoryWriterClear(&out);
        WebPMuxDelete(mux);
        WebPDataClear(&assembled);
    }
};

Bytes encode(Picture& p, const WriteOptions& opt) {
    const kiv& img = p.img;
    if (img.m_width > WEBP_MAX_DIMENSION || img.m_height > WEBP_MAX_DIMENSION)
        throw CliError("WebP holds at most " + std::to_string(WEBP_MAX_DIMENSION) + " pixels a side");
    const Layout layout = layout_of(p);
    const bool alpha = layout == Layout::Rgba || (layout == Layout::Indexed && p.alpha == Alpha::Map);
    WebPConfig config;
    if (!WebPConfigInit(&config)) throw CliError("WebP: library version mismatch");
    config.quality = static_cast<float>(opt.quality);
    config.lossless = opt.lossless ? 1 : 0;
    config.exact = opt.lossless ? 1 : 0;
    Encoding e;
    e.pic.width = img.m_width;
    e.pic.height = img.m_height;
    e.pic.use_argb = 1;
    const Bytes px = packed_pixels(p, alpha ? 4 : 3);
    const bool imported = alpha ? WebPPictureImportRGBA(&e.pic, px.data(), img.m_width * 4)
                                : WebPPictureImportRGB(&e.pic, px.data(), img.m_width * 3);
    e.pic.writer = WebPMemoryWrite;
    e.pic.custom_ptr = &e.out;
    if (!imported || !WebPEncode(&config, &e.pic)) throw CliError("WebP: cannot encode the image (error " + std::to_string(e.pic.error_code) + ")");
    if (p.icc.empty() || !icc_fits(p.icc, false)) return Bytes(e.out.mem, e.out.mem + e.out.size);
    // The profile goes in a chunk of the extended format beside the bitstream.
    e.mux = WebPMuxNew();
    WebPData image{e.out.mem, e.out.size}, profile{p.icc.data(), p.icc.size()};
    if (!e.mux || WebPMuxSetImage(e.mux, &image, 0) != WEBP_MUX_OK || WebPMuxSetChunk(e.mux, "ICCP", &profile, 0) != WEBP_MUX_OK ||
        WebPMuxAssemble(e.mux, &e.assembled) != WEBP_MUX_OK)
        throw CliError("WebP: cannot add the colour profile");
    return Bytes(e.assembled.bytes, e.assembled.bytes + e.assembled.size);
}

}  // namespace

Codec webp_codec() { return Codec{"webp", ".webp", "libwebp", sniff, decode, encode}; }

}  // namespace kivcli
