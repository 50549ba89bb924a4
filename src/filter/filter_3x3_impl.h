// run_3x3, the neighbourhood gatherer shared by the 3x3 filters (included by filter.h).
#ifndef KIV_FILTER_FILTER_3X3_IMPL_H
#define KIV_FILTER_FILTER_3X3_IMPL_H

#include <vector>

#include "core/parallel.h"

namespace kivfilter {

template <class Kernel>
void run_3x3(kiv* img, const Area& a, Kernel kernel) {
    const int w = a.w(), h = a.h();
    const std::size_t sw = static_cast<std::size_t>(w);
    std::vector<tagRGBA> in = read_area(img, a);
    std::vector<tagRGBA> out(in.size());
    kivcore::parallel_chunks(0, h, [&](int jb, int je) {
        // Planar copies of the rows, padded by one pixel each side.
        const std::size_t pw = sw + 2;
        std::vector<unsigned char> planes(9 * pw), res(3 * sw);
        auto fill = [&](unsigned char* dst, int j) {
            const tagRGBA* src = in.data() + static_cast<std::size_t>(j) * sw;
            for (int c = 0; c < 3; ++c) {
                unsigned char* d = dst + c * pw;
                const unsigned char* s = reinterpret_cast<const unsigned char*>(src) + c;
                for (std::size_t i = 0; i < sw; ++i) d[i + 1] = s[4 * i];
                d[0] = d[1];
                d[sw + 1] = d[sw];
            }
        };
        for (int j = jb; j < je; ++j) {
            Rows3 rows;
            for (int r = 0; r < 3; ++r) {
                unsigned char* dst = planes.data() + static_cast<std::size_t>(3 * r) * pw;
                fill(dst, clamp_index(j - 1 + r, h));
                for (int c = 0; c < 3; ++c) rows.row[r][c] = dst + c * pw;
            }
            unsigned char* o[3] = {res.data(), res.data() + sw, res.data() + 2 * sw};
            kernel(rows, w, o);
            const tagRGBA* s = in.data() + static_cast<std::size_t>(j) * sw;
            tagRGBA* d = out.data() + static_cast<std::size_t>(j) * sw;
            for (std::size_t i = 0; i < sw; ++i) d[i] = tagRGBA{o[0][i], o[1][i], o[2][i], s[i].a};
        }
    });
    img->setpacket(out.data(), a.left, a.top, w, h);
}

}  // namespace kivfilter

#endif
