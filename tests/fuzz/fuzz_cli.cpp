// Fuzz target: the kiv program's command line.  The input is the argument vector, one
// argument a line.  Pipelines are parsed and then run in memory on a small test card
// (their INPUT and OUTPUT names are never opened); `demo`, which writes files, is skipped, and
// so are the operations that read or write a file named on the command line.
#include <sstream>
#include <string>
#include <vector>

#include "cli.h"
#include "fuzz_common.h"

namespace {

// Steps stop once the image has grown past this: the target is the argument handling and
// the operations' refusals, not the time an operation takes on a large image.
constexpr int kMaxPackets = 1 << 16;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> args(1);
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == '\n')
            args.emplace_back();
        else
            args.back() += static_cast<char>(data[i]);
    }
    if (args.size() == 1 && args[0].empty()) args.clear();
    if (!args.empty() && args[0] == "demo") return 0;

    std::ostringstream out, err;
    if (args.empty() || args[0] == "-h" || args[0] == "--help" || args[0] == "--list" || args[0] == "help" ||
        args[0] == "--version" || args[0] == "--formats" || args[0] == "--manpage") {
        const int code = kivcli::run_cli(args, out, err);
        if (code != kivcli::kExitOk && code != kivcli::kExitUsage) kivfuzz::fail("run_cli", "unexpected exit code");
        return 0;
    }

    kivcli::Pipeline p;
    const int code = kivcli::parse_pipeline(args, &p, err);
    if (code != kivcli::kExitOk) {
        if (code != kivcli::kExitUsage || err.str().empty()) kivfuzz::fail("parse_pipeline", "refusal without a message");
        return 0;
    }
    // The input name's length picks the depth, so palettized images are reached too.
    static const int kBits[] = {24, 8, 32, 1, 4};
    kivcli::Picture pic;
    kiv& img = pic.img;
    kivcli::make_test_card(img, 23, 17);
    const int bits = kBits[p.input.size() % 5];
    if (bits < 24) img.quantize(0, 1 << bits, nullptr);
    img.m_bits = img.m_bits < 24 ? img.m_bits : bits;
    kivfuzz::check_image(img, "test card");

    // One step at a time, carrying the current rectangle, so the size can be watched.
    const kivcli::Step* rect = nullptr;
    for (const kivcli::Step& s : p.steps) {
        if (!s.op) {
            rect = &s;
            continue;
        }
        if (img.m_packets > kMaxPackets) break;
        bool files = false;
        for (const kivcli::ArgSpec& a : s.op->args) files = files || a.kind == kivcli::ArgKind::Image || a.kind == kivcli::ArgKind::Path;
        if (files) continue;
        kivcli::Pipeline one;
        if (rect) one.steps.push_back(*rect);
        one.steps.push_back(s);
        try {
            const int rc = kivcli::run_pipeline(one, pic, err);
            if (rc != kivcli::kExitOk && rc != kivcli::kExitFailed) kivfuzz::fail("run_pipeline", "unexpected exit code");
        } catch (const kivcli::CliError&) {
        } catch (const std::bad_alloc&) {
            // Scratch allocations report exhaustion this way, as the program expects.
        }
        kivfuzz::check_image(img, s.op->name.c_str());
        if (!img.m_pixels) break;
    }
    return 0;
}
