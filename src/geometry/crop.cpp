// Cropping an image to a rectangle of itself.
#include <cstring>

#include "kiv.h"

int kiv::crop(tagRECT* rect) {
    if (!m_pixels) return 0;
    tagRECT r;
    if (!validaterect(rect, &r)) return 0;
    kiv tmp;
    if (!tmp.create(r.right - r.left, r.bottom - r.top, m_bits)) return 0;
    // The map travels with the pixels (their fourth bytes index it); like copyto, a map kept
    // by an image raised to true colour travels too.
    if (m_map && m_colors > 0) {
        if (!tmp.m_map || tmp.m_colors < m_colors) {
            tmp.alloccmap(m_colors);
            if (!tmp.m_map) return 0;
        }
        std::memcpy(tmp.m_map, m_map, static_cast<std::size_t>(m_colors) * sizeof(tagRGBA));
        tmp.m_colors = m_colors;
    }
    tmp.blt(0, 0, tmp.m_width, tmp.m_height, this, r.left, r.top);
    const kivProgressProc progress = m_progressproc;  // the host's callback stays installed
    movefrom(&tmp);
    m_progressproc = progress;
    return 1;
}
