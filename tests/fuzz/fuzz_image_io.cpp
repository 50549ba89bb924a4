// Fuzz target: the kiv program's file decoders (every codec of this build) on the input
// bytes, then every encoder on whatever was decoded, whose output (when the format takes the
// image) must decode to the same size; nothing touches the disk.  Built once more per format
// with KIV_FUZZ_FORMAT set: the bytes then go straight to that format's reader, signature or
// not, so the fuzzer spends its time inside one codec.
#include <vector>

#include "fuzz_common.h"
#include "image_io.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<unsigned char> bytes(data, data + size);
    kivcli::Picture pic;
    try {
        // Headers may claim any size: the fuzzer's allocation cap is 64 MB.
        const kivcli::ReadOptions opt{true, 1u << 22};
#ifdef KIV_FUZZ_FORMAT
        const kivcli::Codec* only = kivcli::find_codec(KIV_FUZZ_FORMAT);
        if (!only || !only->decode) return 0;  // a build without this codec
        only->decode(bytes, pic, opt);
#else
        kivcli::decode_image(bytes, pic, opt);
#endif
    } catch (const kivcli::CliError&) {
        kivfuzz::check_image(pic.img, "refused decode");
        return 0;
    }
    kivfuzz::check_image(pic.img, "decode");
    if (pic.img.m_packets > (1 << 16)) return 0;
    for (const kivcli::Codec& c : kivcli::codecs()) {
        if (!c.encode) continue;
        kivcli::Bytes out;
        try {
            out = c.encode(pic, {});
        } catch (const kivcli::CliError&) {
            continue;  // a format's own limits (WebP's 16383 pixels a side...)
        }
        try {
            kivcli::Picture back;
            kivcli::decode_image(out, back);
            if (back.img.m_width != pic.img.m_width || back.img.m_height != pic.img.m_height)
                kivfuzz::fail(c.name, "round trip changed the size");
        } catch (const kivcli::CliError& e) {
            kivfuzz::fail(c.name, e.what());
        }
    }
    return 0;
}
