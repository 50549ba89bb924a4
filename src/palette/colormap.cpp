// Colour maps of palettized images.
#include <cstdlib>

#include "kiv.h"

void kiv::alloccmap(int n) {
    std::free(m_map);
    m_map = nullptr;
    m_colors = n;
    if (n > 0) {
        m_map = static_cast<tagRGBA*>(std::calloc(static_cast<std::size_t>(n), sizeof(tagRGBA)));
        if (!m_map) m_colors = 0;
    }
}
