// The image object: lifecycle, copies, accessors, rectangle clipping, progress hooks.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "core/checked.h"
#include "core/mapstore.h"
#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "core/watch.h"
#include "kiv.h"

kiv::kiv() { clearparam(); }

kiv::kiv(int width, int height, int bits) {
    clearparam();
    create(width, height, bits);
}

kiv::kiv(const kiv& src) {
    clearparam();
    copyfrom(const_cast<kiv*>(&src));
}

kiv::~kiv() {
    destroy();
    kivcore::drop_hook(this);
}

kiv& kiv::operator=(const kiv& other) {
    // Shallow on purpose: hosts rely on sharing the buffers (and on nothing being freed).
    m_width = other.m_width;
    m_height = other.m_height;
    m_bits = other.m_bits;
    m_colors = other.m_colors;
    m_packets = other.m_packets;
    m_map = other.m_map;
    m_pixels = other.m_pixels;
    m_mapstore = other.m_mapstore;
    m_progressproc = other.m_progressproc;
    return *this;
}

void kiv::clearparam() {
    m_width = m_height = m_bits = m_colors = m_packets = 0;
    m_map = nullptr;
    m_pixels = nullptr;
    m_mapstore = nullptr;
    m_progressproc = nullptr;
}

// Shared front half of create and create_width_mapfile: validates, stores the geometry and
// makes the colour map. Returns the pixel count, or -1 (object left empty).
static int begin_create(kiv* img, int width, int height, int bits) {
    img->destroy();
    int packets = kivcore::checked_packets(width, height);
    if (packets < 0 || bits < 1 || bits > 32) return -1;
    img->m_width = width;
    img->m_height = height;
    img->m_bits = bits;
    img->m_packets = packets;
    if (bits < 24) img->alloccmap(1 << bits);
    return packets;
}

int kiv::create(int width, int height, int bits) {
    int packets = begin_create(this, width, height, bits);
    if (packets < 0) return 0;
    // Zero pages come lazily from the system, so a large image costs no fill pass.
    m_pixels = static_cast<tagRGBA*>(kivcore::alloc_pixels(static_cast<std::size_t>(packets) * sizeof(tagRGBA)));
    if (!m_pixels || (m_bits < 24 && !m_map)) {
        destroy();
        return 0;
    }
    return 1;
}

int kivcore::create_overwritten(kiv* img, int width, int height, int bits) {
    // A heap buffer of the same pixel count is kept: every byte is written next, and that
    // spares the page faults of a fresh one.
    tagRGBA* keep = nullptr;
    if (img->m_pixels && !img->m_mapstore && img->m_packets == kivcore::checked_packets(width, height)) {
        keep = img->m_pixels;
        img->m_pixels = nullptr;
    }
    const int packets = begin_create(img, width, height, bits);
    if (packets < 0) {
        kivcore::free_pixels(keep);
        return 0;
    }
    img->m_pixels = keep ? keep
                         : static_cast<tagRGBA*>(
                               kivcore::alloc_pixels_unzeroed(static_cast<std::size_t>(packets) * sizeof(tagRGBA)));
    if (!img->m_pixels || (img->m_bits < 24 && !img->m_map)) {
        img->destroy();
        return 0;
    }
    return 1;
}

int kiv::create_width_mapfile(int width, int height, int bits) {
    int packets = begin_create(this, width, height, bits);
    if (packets < 0) return 0;
    if (m_bits < 24 && !m_map) {
        destroy();
        return 0;
    }
    auto* store = new (std::nothrow) kivMapStore();
    if (store) {
        void* view = store->open(static_cast<std::size_t>(packets) * sizeof(tagRGBA));
        if (view) {
            m_mapstore = store;
            m_pixels = static_cast<tagRGBA*>(view);
            return 1;
        }
        delete store;
    }
    m_pixels = static_cast<tagRGBA*>(kivcore::alloc_pixels(static_cast<std::size_t>(packets) * sizeof(tagRGBA)));
    if (!m_pixels) {
        destroy();
        return 0;
    }
    return 1;
}

void kiv::destroy() {
    std::free(m_map);
    if (m_mapstore)
        delete m_mapstore;  // closes the view and deletes the file
    else
        kivcore::free_pixels(m_pixels);
    clearparam();
}

// memcpy of a whole pixel buffer, spread over the pool in 1 MiB pieces: one core cannot
// saturate memory bandwidth on its own.
static void copy_pixels(tagRGBA* d, const tagRGBA* s, std::size_t n) {
    constexpr std::size_t kPiece = (1u << 20) / sizeof(tagRGBA);
    const std::size_t pieces = (n + kPiece - 1) / kPiece;
    if (pieces < 2) {
        std::memcpy(d, s, n * sizeof(tagRGBA));
        return;
    }
    kivcore::parallel_for(0, static_cast<int>(pieces), kivcore::row_work(static_cast<long long>(kPiece), 0.25), [&](int i) {
        std::size_t b = static_cast<std::size_t>(i) * kPiece;
        std::memcpy(d + b, s + b, std::min(kPiece, n - b) * sizeof(tagRGBA));
    });
}

// create() for a copy destination: a heap destination of the same pixel count keeps its
// buffer (every byte is overwritten next), which spares the page faults of a fresh one.
static int create_for_copy(kiv* d, kiv* s) {
    if (d->m_pixels && !d->m_mapstore && d->m_packets == s->m_packets) {
        tagRGBA* keep = d->m_pixels;
        d->m_pixels = nullptr;
        d->destroy();
        d->m_width = s->m_width;
        d->m_height = s->m_height;
        d->m_bits = s->m_bits;
        d->m_packets = s->m_packets;
        d->m_pixels = keep;
        if (d->m_bits < 24) {
            d->alloccmap(1 << d->m_bits);
            if (!d->m_map) {
                d->destroy();
                return 0;
            }
        }
        return 1;
    }
    return d->create(s->m_width, s->m_height, s->m_bits);
}

// Deep copy S -> D. D always ends up a heap image. When S carries a map (also at 24 bits,
// where operations that raised a palettized image keep it), D gets a map of S's entries.
static int deep_copy(kiv* d, kiv* s) {
    if (!d || !s) return 0;
    const kivcore::Quiet quiet;  // a copy is no progress of the operation that makes it
    if (d == s) return 1;
    if (!s->m_pixels) {
        d->destroy();
        return 0;
    }
    if (!create_for_copy(d, s)) return 0;
    if (s->m_map && s->m_colors > 0) {
        int have = d->m_map ? d->m_colors : 0;
        if (have < s->m_colors) {
            d->alloccmap(s->m_colors);
            if (!d->m_map) {
                d->destroy();
                return 0;
            }
        }
        std::memcpy(d->m_map, s->m_map, static_cast<std::size_t>(s->m_colors) * sizeof(tagRGBA));
    }
    d->m_colors = s->m_colors;
    if (!d->m_map && d->m_colors > 0) d->m_colors = 0;  // never claim entries that do not exist
    copy_pixels(d->m_pixels, s->m_pixels, static_cast<std::size_t>(s->m_packets));
    return 1;
}

int kiv::copyto(kiv* dst) { return deep_copy(dst, this); }
int kiv::copyfrom(kiv* src) { return deep_copy(this, src); }

int kiv::movefrom(kiv* src) {
    if (!src) return 0;
    if (src == this) return 1;
    destroy();
    m_width = src->m_width;
    m_height = src->m_height;
    m_bits = src->m_bits;
    m_colors = src->m_colors;
    m_map = src->m_map;
    m_packets = src->m_packets;
    m_pixels = src->m_pixels;
    m_mapstore = src->m_mapstore;
    src->clearparam();
    return 1;
}

int kiv::width() { return m_width; }
int kiv::height() { return m_height; }
int kiv::bits() { return m_bits; }
int kiv::colors() { return m_colors; }
int kiv::packets() { return m_packets; }
tagRGBA* kiv::map() { return m_map; }
tagRGBA* kiv::pixels() { return m_pixels; }

tagRGBA* kiv::pos(int x, int y) {
    // Pointer arithmetic in integers: the result may lie outside the buffer by contract,
    // and forming such a pointer by arithmetic on m_pixels would be undefined.
    std::intptr_t off = (static_cast<std::intptr_t>(y) * m_width + x) * static_cast<std::intptr_t>(sizeof(tagRGBA));
    return reinterpret_cast<tagRGBA*>(reinterpret_cast<std::intptr_t>(m_pixels) + off);
}

int kiv::validaterect(tagRECT* in, tagRECT* out) {
    tagRECT local;
    if (!out) out = &local;
    if (!in || in->right <= in->left || in->bottom <= in->top) {
        out->left = 0;
        out->top = 0;
        out->right = m_width;
        out->bottom = m_height;
        return 1;
    }
    out->left = std::max<LONG>(in->left, 0);
    out->top = std::max<LONG>(in->top, 0);
    out->right = std::min<LONG>(in->right, m_width);
    out->bottom = std::min<LONG>(in->bottom, m_height);
    return (out->left < out->right && out->top < out->bottom) ? 1 : 0;
}

void kiv::progress_init(int steps) {
    if (m_progressproc) m_progressproc(0, steps);
}
void kiv::progress_continue() {
    if (m_progressproc) m_progressproc(1, 0);
}
void kiv::progress_term() {
    if (m_progressproc) m_progressproc(2, 0);
}
void kiv::progress_reset() {
    if (m_progressproc) m_progressproc(3, 0);
}
