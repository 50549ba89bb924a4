// Fuzz target: the kiv program's file decoders (BMP through the library, PNG and JPEG) on
// the input bytes, then both encoders on whatever was decoded; nothing touches the disk.
#include <vector>

#include "fuzz_common.h"
#include "image_io.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<unsigned char> bytes(data, data + size);
    kiv img;
    try {
        kivcli::decode_image(bytes, img);
    } catch (const kivcli::CliError&) {
        kivfuzz::check_image(img, "refused decode");
        return 0;
    }
    kivfuzz::check_image(img, "decode");
    try {
        // Our BMP writer's output must decode to the same image.
        const std::vector<unsigned char> bmp = kivcli::encode_bmp(img);
        kiv back;
        kivcli::decode_image(bmp, back);
        if (back.m_width != img.m_width || back.m_height != img.m_height)
            kivfuzz::fail("encode_bmp", "round trip changed the size");
        if (img.m_packets <= (1 << 16)) kivcli::encode_png(img);
    } catch (const kivcli::CliError& e) {
        kivfuzz::fail("encode", e.what());
    }
    return 0;
}
