// enhance's per-pixel step for AVX2 (sharpening_avx2.cpp).
#ifndef KIV_FILTER_SHARPENING_AVX2_H
#define KIV_FILTER_SHARPENING_AVX2_H

namespace kivfilter {

// One row of enhance: p1 and p2 the prefix sums (p[i]: columns before i) of the box rows'
// column sums of lightness and its square, l the row's lightness, area the box's row count
// times its width 2 radius + 1.
struct EnhanceRow {
    const long long* p1;
    const long long* p2;
    const unsigned char* l;
    double area, gain_scale;
    int radius;
};

// Pixels x0 .. x1 - 1 of the row (every box whole: x0 >= radius, x1 + radius <= width),
// four at a time: their lightness change is added to the colour bytes of out[i]. Returns
// the first pixel left to do. Call only when kivcore::use_avx2().
int enhance_span_avx2(const EnhanceRow* row, int x0, int x1, unsigned char* out);

}  // namespace kivfilter

#endif
