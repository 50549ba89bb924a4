// The image object's invariants, shared by the test suite and the fuzz targets.
#ifndef KIV_TEST_IMAGE_CHECK_H
#define KIV_TEST_IMAGE_CHECK_H

#include <string>

#include "kiv.h"

namespace kivtest {

// Why img breaks the object's invariants, or an empty string when it keeps them all:
// m_packets = width x height, pixels present exactly when there are packets, a depth the
// object can hold, and a colour map that exists exactly when it has entries (palettized
// images have one, no larger than their depth can index, unless the host itself replaced
// it through alloccmap: with_map false).
inline std::string image_violation(const kiv& img, bool with_map = true) {
    const long long n = static_cast<long long>(img.m_width) * img.m_height;
    if ((img.m_map != nullptr) != (img.m_colors > 0)) return "colour map and colour count disagree";
    if (!img.m_pixels) {
        if (img.m_width || img.m_height || img.m_packets) return "geometry without pixels";
        if (img.m_mapstore) return "mapped store without pixels";
        return {};
    }
    if (img.m_width < 1 || img.m_height < 1) return "pixels without geometry";
    if (n != img.m_packets) return "packets differ from width x height";
    if (img.m_bits < 1 || img.m_bits > 32) return "depth outside 1..32";
    if (img.m_bits < 24 && with_map) {
        if (!img.m_map) return "palettized image without a colour map";
        const int cap = 1 << img.m_bits;
        if (img.m_colors > cap) return "more colours than the depth indexes";
    }
    return {};
}

}  // namespace kivtest

#endif
