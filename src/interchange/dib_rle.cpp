// Run-length DIB rows (BI_RLE8, BI_RLE4): encoded runs, absolute stretches, end of line,
// deltas and end of bitmap. A pixel the data never reaches stays transparent.
#include <algorithm>
#include <memory>

#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "interchange/dib_codec.h"

namespace kivdib {
namespace {

struct FreePixels {
    void operator()(void* p) const { kivcore::free_pixels(p); }
};

// Decodes into a palettized image and a bit per pixel saying whether the data set it.
// Positions only move forward (runs and deltas right and up the lines, end of line to the
// next line), so no pixel is set twice and counting the set ones tells whether any is left.
class RleDecoder {
public:
    RleDecoder(const RleSource& s, kiv* img, unsigned char* set) : s_(s), img_(img), set_(set) {
        // RLE4 runs may end on the pad nibble of an odd-width row's last byte.
        limit_ = s.width + (s.depth == 4 && (s.width & 1) ? 1 : 0);
    }

    const char* run() {
        const unsigned char* d = s_.data;
        const std::size_t n = s_.size;
        std::size_t i = 0;
        while (i < n) {
            if (n - i < 2) return "run data cut short";
            const unsigned count = d[i], value = d[i + 1];
            i += 2;
            if (count) {  // an encoded run: one index at 8 bits, two alternating at 4
                if (!room(count)) return "run data overruns the image";
                for (unsigned k = 0; k < count; ++k) put(s_.depth == 8 ? value : (k & 1) ? value & 15 : value >> 4);
                continue;
            }
            if (value == 0) {  // end of line
                x_ = 0;
                ++line_;
            } else if (value == 1) {  // end of bitmap
                break;
            } else if (value == 2) {  // delta: right and up by the next two bytes
                if (n - i < 2) return "run data cut short";
                x_ += d[i];
                line_ += d[i + 1];
                i += 2;
            } else {  // an absolute stretch of `value` indices, padded to 16 bits
                const std::size_t bytes = s_.depth == 8 ? value : (value + 1) / 2;
                if (n - i < bytes) return "run data cut short";
                if (!room(value)) return "run data overruns the image";
                for (unsigned k = 0; k < value; ++k)
                    put(s_.depth == 8 ? d[i + k] : (k & 1) ? d[i + k / 2] & 15 : d[i + k / 2] >> 4);
                i += std::min(bytes + (bytes & 1), n - i);
            }
        }
        return nullptr;
    }

    std::uint64_t set_count() const { return set_count_; }
    unsigned top_index() const { return top_; }

private:
    bool room(unsigned count) const { return line_ < s_.height && x_ + count <= limit_; }
    void put(unsigned idx) {
        if (x_ < s_.width) {
            const std::int64_t row = s_.top_down ? line_ : s_.height - 1 - line_;
            const std::uint64_t at =
                static_cast<std::uint64_t>(row) * static_cast<std::uint64_t>(s_.width) + static_cast<std::uint64_t>(x_);
            const tagRGBA& c = s_.colours[idx];
            img_->m_pixels[at] = tagRGBA{c.r, c.g, c.b, static_cast<BYTE>(idx)};
            set_[at >> 3] = static_cast<unsigned char>(set_[at >> 3] | (1u << (at & 7)));
            ++set_count_;
            top_ = std::max(top_, idx);
        }
        ++x_;
    }

    const RleSource& s_;
    kiv* img_;
    unsigned char* set_;
    std::int64_t x_ = 0, line_ = 0, limit_ = 0;
    std::uint64_t set_count_ = 0;
    unsigned top_ = 0;
};

}  // namespace

const char* read_rle(const RleSource& s, kiv* out) {
    kiv img;
    if (!img.create(s.width, s.height, static_cast<int>(s.depth))) return "out of memory";
    const auto packets = static_cast<std::size_t>(img.m_packets);
    std::unique_ptr<unsigned char, FreePixels> set(
        static_cast<unsigned char*>(kivcore::alloc_pixels((packets + 7) / 8)));
    if (!set) return "out of memory";
    RleDecoder dec(s, &img, set.get());
    if (const char* why = dec.run()) return why;
    if (dec.set_count() == packets) {
        img.m_colors = std::max(s.table_colours, static_cast<int>(dec.top_index()) + 1);
        std::copy(s.colours, s.colours + img.m_colors, img.m_map);
        out->movefrom(&img);
        return nullptr;
    }
    // Some pixels were never set: a 32-bit image, those transparent and the rest opaque.
    if (!out->create(s.width, s.height, 32)) return "out of memory";
    const unsigned char* bits = set.get();
    const tagRGBA* from = img.m_pixels;
    tagRGBA* to = out->m_pixels;
    const auto w = static_cast<std::size_t>(s.width);
    kivcore::parallel_for(0, s.height, kivcore::row_work(s.width, 0.5), [&](int y) {
        for (std::size_t i = static_cast<std::size_t>(y) * w, end = i + w; i < end; ++i)
            if ((bits[i >> 3] >> (i & 7)) & 1) to[i] = tagRGBA{from[i].r, from[i].g, from[i].b, 255};
    });
    return nullptr;
}

}  // namespace kivdib
