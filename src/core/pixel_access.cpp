// Pixel access: columns, rows, blocks and planes copied between an image and a buffer.
//
// Buffer element i always stands for the i-th pixel from (x, y) (blocks: row r at r * w').
// Pixels outside the image are skipped rather than read or written, so no argument can
// make these members touch memory outside the image or past the buffer's extent.
#include <algorithm>
#include <cstring>

#include "core/toolkit.h"
#include "kiv.h"

namespace {

using kivcore::row_ptr;

// Span of indices [lo, hi) within [0, n) for which start + i lies in [0, limit).
struct Span {
    long long lo, hi;
    bool empty() const { return hi <= lo; }
};

Span clip_span(long long start, long long n, long long limit) {
    Span s{std::max<long long>(0, -start), std::min<long long>(n, limit - start)};
    if (s.hi < s.lo) s.hi = s.lo;
    return s;
}

template <class Copy>
void each_col(kiv* img, int x, int y, int n, Copy copy) {
    if (!img->m_pixels || x < 0 || x >= img->m_width) return;
    Span s = clip_span(y, n, img->m_height);
    for (long long i = s.lo; i < s.hi; ++i)
        copy(static_cast<std::size_t>(i), img->m_pixels + (static_cast<std::size_t>(y + i) * img->m_width + x));
}

template <class Copy>
void each_row_pixel(kiv* img, int x, int y, int n, Copy copy) {
    if (!img->m_pixels || y < 0 || y >= img->m_height) return;
    Span s = clip_span(x, n, img->m_width);
    tagRGBA* row = row_ptr(*img, y);
    for (long long i = s.lo; i < s.hi; ++i) copy(static_cast<std::size_t>(i), row + (x + i));
}

// Clipped width of a block: min(w, width - x), as the packing of block buffers requires.
long long block_width(kiv* img, int x, int w) {
    return std::min<long long>(w, static_cast<long long>(img->m_width) - x);
}

template <class Copy>
void each_block_row(kiv* img, int x, int y, int w, int h, Copy copy) {
    if (!img->m_pixels) return;
    long long wc = block_width(img, x, w);
    if (wc < 1) return;
    Span rows = clip_span(y, h, img->m_height);
    Span cols = clip_span(x, wc, img->m_width);
    if (rows.empty() || cols.empty()) return;
    for (long long r = rows.lo; r < rows.hi; ++r) {
        tagRGBA* row = row_ptr(*img, static_cast<int>(y + r));
        copy(static_cast<std::size_t>(r * wc + cols.lo), row + (x + cols.lo), static_cast<std::size_t>(cols.hi - cols.lo));
    }
}

// Pixel i of a line to and from three bytes of buf (red, green, blue).
struct ToRgb {
    unsigned char* buf;
    void operator()(std::size_t i, const tagRGBA* p) const {
        buf[3 * i] = p->r;
        buf[3 * i + 1] = p->g;
        buf[3 * i + 2] = p->b;
    }
};
struct FromRgb {
    const unsigned char* buf;
    void operator()(std::size_t i, tagRGBA* p) const {
        p->r = buf[3 * i];
        p->g = buf[3 * i + 1];
        p->b = buf[3 * i + 2];
    }
};

}  // namespace

void kiv::getcol(tagRGBA* buf, int x, int y, int n) {
    if (buf) each_col(this, x, y, n, [&](std::size_t i, tagRGBA* p) { buf[i] = *p; });
}

void kiv::setcol(tagRGBA* buf, int x, int y, int n) {
    if (buf) each_col(this, x, y, n, [&](std::size_t i, tagRGBA* p) { *p = buf[i]; });
}

void kiv::getcol_rgb(unsigned char* buf, int x, int y, int n) {
    if (buf) each_col(this, x, y, n, ToRgb{buf});
}

void kiv::setcol_rgb(unsigned char* buf, int x, int y, int n) {
    if (buf) each_col(this, x, y, n, FromRgb{buf});
}

void kiv::getrow(tagRGBA* buf, int x, int y, int n) {
    // min(n, width - x) pixels; one block copy of the part inside the image.
    if (buf) getpacket(buf, x, y, n, 1);
}

void kiv::setrow(tagRGBA* buf, int x, int y, int n) {
    if (buf) setpacket(buf, x, y, n, 1);
}

void kiv::getrow_rgb(unsigned char* buf, int x, int y, int n) {
    if (buf) each_row_pixel(this, x, y, n, ToRgb{buf});
}

void kiv::setrow_rgb(unsigned char* buf, int x, int y, int n) {
    if (buf) each_row_pixel(this, x, y, n, FromRgb{buf});
}

void kiv::getpacket(tagRGBA* buf, int x, int y, int w, int h) {
    if (buf)
        each_block_row(this, x, y, w, h, [&](std::size_t at, tagRGBA* p, std::size_t n) {
            std::memcpy(buf + at, p, n * sizeof(tagRGBA));
        });
}

void kiv::setpacket(tagRGBA* buf, int x, int y, int w, int h) {
    if (buf)
        each_block_row(this, x, y, w, h, [&](std::size_t at, tagRGBA* p, std::size_t n) {
            std::memcpy(p, buf + at, n * sizeof(tagRGBA));
        });
}

void kiv::getplane(unsigned char* buf, int x, int y, int w, int h, int plane) {
    if (!buf || plane < 0 || plane > 3) return;
    each_block_row(this, x, y, w, h, [&](std::size_t at, tagRGBA* p, std::size_t n) {
        const unsigned char* s = reinterpret_cast<const unsigned char*>(p) + plane;
        for (std::size_t i = 0; i < n; ++i) buf[at + i] = s[4 * i];
    });
}

void kiv::setplane(unsigned char* buf, int x, int y, int w, int h, int plane) {
    if (!buf || plane < 0 || plane > 3) return;
    each_block_row(this, x, y, w, h, [&](std::size_t at, tagRGBA* p, std::size_t n) {
        unsigned char* d = reinterpret_cast<unsigned char*>(p) + plane;
        for (std::size_t i = 0; i < n; ++i) d[4 * i] = buf[at + i];
    });
}

void kiv::copyplane(int src, int dst) {
    if (src == dst || src < 0 || src > 3 || dst < 0 || dst > 3 || !m_pixels) return;
    unsigned char* p = reinterpret_cast<unsigned char*>(m_pixels);
    std::size_t n = static_cast<std::size_t>(m_packets);
    for (std::size_t i = 0; i < n; ++i) p[4 * i + dst] = p[4 * i + src];
}
