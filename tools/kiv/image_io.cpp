// Image files for the kiv program: the codec table, files and streams, palettes.
#include "image_io.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <sstream>

#include "codec.h"
#include "platform/files.h"

namespace kivcli {

namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The extension of path with its dot, in lower case ("" when none).
std::string extension_of(const std::string& path) {
    const std::size_t slash = path.find_last_of("/\\"), dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    return lower(path.substr(dot));
}

// Every format some build of the program has, by its extensions, so a format this build lacks
// reads as missing rather than unknown.
struct Known {
    const char* name;
    const char* extensions;
};
constexpr Known kKnown[] = {{"png", ".png"}, {"jpeg", ".jpg .jpeg .jpe"}, {"bmp", ".bmp .dib"},
                            {"tiff", ".tif .tiff"}, {"webp", ".webp"}, {"gif", ".gif"}};

// The name of a known format by its name or extension ("" when none).
std::string known_format(const std::string& want) {
    for (const Known& k : kKnown) {
        std::istringstream exts(k.extensions);
        for (std::string e; exts >> e;)
            if (want == k.name || want == e || "." + want == e) return k.name;
    }
    return "";
}

std::vector<Codec> build_codecs() {
    std::vector<Codec> list;
#ifdef KIV_HAVE_PNG
    list.push_back(png_codec());
#endif
#ifdef KIV_HAVE_JPEG
    list.push_back(jpeg_codec());
#endif
    list.push_back(bmp_codec());
#ifdef KIV_HAVE_TIFF
    list.push_back(tiff_codec());
#endif
#ifdef KIV_HAVE_WEBP
    list.push_back(webp_codec());
#endif
#ifdef KIV_HAVE_GIF
    list.push_back(gif_codec());
#endif
    add_builtin_codecs(list);
    return list;
}

}  // namespace

const std::vector<Codec>& codecs() {
    static const std::vector<Codec> list = build_codecs();
    return list;
}

const Codec* find_codec(const std::string& name) {
    std::string want = lower(name);
    if (want.empty()) return nullptr;
    if (want[0] != '.') want.insert(0, 1, '.');
    for (const Codec& c : codecs()) {
        std::istringstream exts(c.extensions);
        for (std::string e; exts >> e;)
            if (e == want || want.compare(1, std::string::npos, c.name) == 0) return &c;
    }
    return nullptr;
}

const Codec* sniff_codec(const Bytes& data) {
    for (const Codec& c : codecs())
        if (c.sniff(data.data(), data.size())) return &c;
    return nullptr;
}

std::string formats_text() {
    std::string s;
    for (const Codec& c : codecs()) {
        char line[160];
        std::snprintf(line, sizeof line, "%-5s %-5s %-6s %-18s %s\n", c.name, c.decode ? "read" : "", c.encode ? "write" : "",
                      c.extensions, c.library);
        s += line;
    }
    for (const Known& k : kKnown) {
        if (find_codec(k.name)) continue;
        char line[80];
        std::snprintf(line, sizeof line, "%-5s %-5s %-6s %-18s %s\n", k.name, "", "", "", "not in this build");
        s += line;
    }
    return s;
}

Bytes read_input(const std::string& path) {
    Bytes bytes;
    std::string why;
    const bool ok = path == "-" ? kivplat::read_stdin(&bytes, &why) : kivplat::read_file(path.c_str(), SIZE_MAX, &bytes, &why);
    if (!ok) throw CliError("cannot read '" + path + "': " + why);
    return bytes;
}

void write_output(const std::string& path, const Bytes& bytes) {
    std::string why;
    if (path == "-") {
        if (kivplat::is_terminal(stdout)) throw CliError("not writing image data to a terminal (redirect standard output, or -o FILE)");
        if (!kivplat::write_stdout(bytes.data(), bytes.size(), &why)) throw CliError("cannot write to standard output: " + why);
        return;
    }
    // Through a symbolic link the new file replaces the link's target, so the link stays.
    const std::string target = kivplat::link_target(path, &why);
    if (target.empty() || !kivplat::replace_file(target.c_str(), bytes.data(), bytes.size(), &why))
        throw CliError("cannot write '" + path + "': " + why);
}

void decode_image(const Bytes& data, Picture& pic, const ReadOptions& opt, const std::string& format) {
    const Codec* c = sniff_codec(data);
    if (!c) {
        std::string known;
        for (const Codec& k : codecs())
            if (k.decode) known += (known.empty() ? "" : ", ") + std::string(k.name);
        throw CliError(data.empty() ? "empty file" : "unrecognised image format (this build reads " + known + ")");
    }
    if (!format.empty() && find_codec(format) != c) throw CliError("the data is " + std::string(c->name) + ", not " + format);
    if (!c->decode) throw CliError(std::string("this build cannot read ") + c->name + " (see kiv --formats)");
    pic.icc.clear();
    pic.file_bits = 8;
    pic.format = c->name;
    c->decode(data, pic, opt);
}

void load_image(const std::string& path, Picture& pic, const ReadOptions& opt, const std::string& format) {
    Bytes data = read_input(path);
    try {
        decode_image(data, pic, opt, format);
    } catch (const CliError& e) {
        throw CliError((path == "-" ? std::string("standard input") : path) + ": " + e.what());
    }
}

void load_second_image(const std::string& path, kiv& img) {
    Picture pic;
    load_image(path, pic);
    if (pic.alpha != Alpha::Pixels && pic.img.m_bits > 8)
        for (int i = 0; i < pic.img.m_packets; ++i) pic.img.m_pixels[i].a = 255;
    img.movefrom(&pic.img);
}

Bytes encode_image(Picture& pic, const std::string& path, const std::string& format, const WriteOptions& opt) {
    if (!pic.img.m_pixels) throw CliError("no image to write");
    const std::string ext = extension_of(path);
    const Codec* c = find_codec(format.empty() ? ext : format);
    if (!c) {
        std::string known;
        for (const Codec& k : codecs())
            if (k.encode) known += (known.empty() ? "" : ", ") + std::string(k.name);
        if (format.empty() && path == "-") throw CliError("writing to standard output needs --format (" + known + ")");
        if (const std::string missing = known_format(lower(format.empty() ? ext : format)); !missing.empty())
            throw CliError("output '" + path + "': this build has no " + missing + " (it writes " + known + "; see kiv --formats)");
        throw CliError("output '" + path + "': unknown format " + (format.empty() ? "'" + ext + "'" : "'" + format + "'") +
                       " (this build writes " + known + ")");
    }
    if (!c->encode) throw CliError(std::string("this build cannot write ") + c->name + " (see kiv --formats)");
    return c->encode(pic, opt);
}

void save_image(const std::string& path, Picture& pic, const std::string& format, const WriteOptions& opt) {
    write_output(path, encode_image(pic, path, format, opt));
}

std::vector<tagSYSCOL> load_palette(const std::string& path) {
    Bytes data = read_input(path);
    std::vector<tagSYSCOL> cols;
    static const char gpl[] = "GIMP Palette";
    if (data.size() >= 12 && std::memcmp(data.data(), gpl, 12) == 0) {
        // Lines "R G B [name]"; the header's Name:, Columns: and # comments are skipped.
        std::istringstream in(std::string(data.begin(), data.end()));
        std::string line;
        std::getline(in, line);
        while (std::getline(in, line)) {
            int r, g, b;
            char tail;
            if (std::sscanf(line.c_str(), " %d %d %d%c", &r, &g, &b, &tail) < 3) continue;
            if (r < 0 || r > 255 || g < 0 || g > 255 || b < 0 || b > 255)
                throw CliError(path + ": colour out of range 0..255: " + line);
            cols.push_back(tagSYSCOL{static_cast<BYTE>(r), static_cast<BYTE>(g), static_cast<BYTE>(b)});
        }
    } else {
        Picture pic;
        try {
            decode_image(data, pic);
        } catch (const CliError& e) {
            throw CliError(path + ": not a GIMP palette, and " + e.what());
        }
        const kiv& img = pic.img;
        if (img.m_bits <= 8 && img.m_map) {
            for (int k = 0; k < img.m_colors; ++k) cols.push_back(tagSYSCOL{img.m_map[k].r, img.m_map[k].g, img.m_map[k].b});
        } else {
            std::vector<std::uint32_t> seen;
            for (int i = 0; i < img.m_packets; ++i) {
                const tagRGBA& p = img.m_pixels[i];
                seen.push_back(static_cast<std::uint32_t>(p.r) << 16 | p.g << 8 | p.b);
            }
            std::sort(seen.begin(), seen.end());
            seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
            if (seen.size() > 256)
                throw CliError(path + ": has " + std::to_string(seen.size()) + " colours; a palette holds at most 256");
            for (std::uint32_t v : seen) cols.push_back(tagSYSCOL{static_cast<BYTE>(v >> 16), static_cast<BYTE>(v >> 8), static_cast<BYTE>(v)});
        }
    }
    if (cols.empty() || cols.size() > 256)
        throw CliError(path + ": a palette needs 1 to 256 colours (found " + std::to_string(cols.size()) + ")");
    return cols;
}

}  // namespace kivcli
