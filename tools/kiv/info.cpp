// kiv info: what an image file holds.
#include "cli.h"
#include "codec.h"
#include "image_io.h"

namespace kivcli {

int run_info(const std::vector<std::string>& files, std::ostream& out, std::ostream& err) {
    int code = kExitOk;
    for (const std::string& f : files) {
        Picture pic;
        try {
            load_image(f, pic, ReadOptions{false});
        } catch (const CliError& e) {
            err << "kiv: " << e.what() << "\n";
            code = kExitFailed;
            continue;
        }
        kiv& img = pic.img;
        static const char* const layouts[] = {"indexed", "grey", "RGB", "RGBA"};
        const Layout layout = layout_of(pic);
        out << f << ": " << img.m_width << " x " << img.m_height << ", " << pic.format << ", "
            << layouts[static_cast<int>(layout)] << " " << img.m_bits << "-bit";
        if (pic.file_bits > 8) out << " (" << pic.file_bits << " bits a sample in the file)";
        out << ", " << img.countcolors() << " colours in use, "
            << (pic.alpha == Alpha::None ? "no alpha" : pic.alpha == Alpha::Map ? "alpha in the palette" : "alpha");
        if (!pic.icc.empty()) out << ", ICC profile (" << pic.icc.size() << " bytes)";
        out << "\n";
    }
    return code;
}

}  // namespace kivcli
