// Cropping an image to a rectangle of itself.
#include "core/pixel_memory.h"
#include "geometry/geometry.h"

int kiv::crop(tagRECT* rect) {
    if (!m_pixels) return 0;
    tagRECT r;
    if (!validaterect(rect, &r)) return 0;
    kiv tmp;
    // The blt below fills every pixel: no need for a cleared block.
    if (!kivcore::create_overwritten(&tmp, r.right - r.left, r.bottom - r.top, m_bits)) return 0;
    // Below 24 bits the map and its count travel with the pixels (their fourth bytes index
    // it); a true-colour image keeps no map, even one left over from a raised depth.
    if (m_bits < 24 && !kivgeom::copy_colour_map(*this, tmp)) return 0;
    tmp.blt(0, 0, tmp.m_width, tmp.m_height, this, r.left, r.top);
    movefrom(&tmp);  // like every rebuild but rotate's, this clears the progress callback
    return 1;
}
