// Shared pieces of the filter tests: image/rectangle cases and a progress recorder.
#ifndef KIV_TESTS_FILTER_UTIL_H
#define KIV_TESTS_FILTER_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/test_images.h"

namespace kivfiltertest {

// Odd sizes and rectangles that are inset, partly outside, one pixel thin, or null.
struct Case {
    int w, h;
    bool whole;
    tagRECT r;
};

inline std::vector<Case> cases() {
    return {
        {1, 1, true, {0, 0, 0, 0}},      {7, 1, true, {0, 0, 0, 0}},     {1, 9, true, {0, 0, 0, 0}},
        {13, 11, true, {0, 0, 0, 0}},    {17, 15, false, {3, 2, 11, 9}}, {19, 13, false, {-4, -3, 8, 40}},
        {23, 21, false, {9, 5, 60, 19}}, {31, 9, false, {2, 4, 29, 5}},  {9, 29, false, {4, -2, 5, 27}},
        {37, 33, false, {1, 1, 36, 32}},
    };
}

inline tagRECT* rect_of(Case& c) { return c.whole ? nullptr : &c.r; }

// Records the progress callback's calls as a string: "i2 c c t".
inline std::string& progress_log() {
    static std::string log;
    return log;
}
inline void record_progress(int code, int value) {
    std::string& s = progress_log();
    if (!s.empty()) s += ' ';
    if (code == 0) {
        s.push_back('i');
        s.append(std::to_string(value));
    } else {
        s.push_back(code == 1 ? 'c' : (code == 2 ? 't' : 'r'));
    }
}
// The expected log for init(n), n continues, term.
inline std::string progress_expect(int n) {
    std::string s(1, 'i');
    s.append(std::to_string(n));
    for (int k = 0; k < n; ++k) s.append(" c");
    s.append(" t");
    return s;
}

// op on one copy of src against ref on another, byte for byte; op must succeed.
template <class Op, class Ref>
::testing::AssertionResult matches(const kiv& src, Op op, Ref ref) {
    kiv got(src), want(src);
    if (op(got) != 1) return ::testing::AssertionFailure() << "refused";
    ref(want);
    return kivtest::images_equal(got, want);
}

inline kiv flat_image(int w, int h, tagRGBA p) {
    kiv img(w, h, 24);
    for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = p;
    return img;
}

}  // namespace kivfiltertest

#endif
