// The Win32 subset: movable global memory and rectangle helpers (the library's own outside
// Windows, the system's on Windows: both must behave alike for the library's DIB code).
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "kiv.h"

TEST(GlobalMemory, SizeLockAndRealloc) {
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 40);
    ASSERT_NE(nullptr, h);
    EXPECT_EQ(40u, GlobalSize(h));
    auto* p = static_cast<unsigned char*>(GlobalLock(h));
    ASSERT_NE(nullptr, p);
    std::memset(p, 0x5A, 40);
    GlobalUnlock(h);
    HGLOBAL h2 = GlobalReAlloc(h, 4000, GMEM_MOVEABLE | GMEM_ZEROINIT);
    ASSERT_NE(nullptr, h2);
    EXPECT_EQ(4000u, GlobalSize(h2));
    p = static_cast<unsigned char*>(GlobalLock(h2));
    EXPECT_EQ(0x5A, p[39]);
    EXPECT_EQ(0, p[40]);
    EXPECT_EQ(0, p[3999]);
    GlobalUnlock(h2);
    EXPECT_EQ(nullptr, GlobalFree(h2));
}

#ifndef _WIN32
TEST(GlobalMemory, EmulationRefusesUnknownHandles) {
    int not_a_block = 0;
    EXPECT_EQ(nullptr, GlobalLock(&not_a_block));
    EXPECT_EQ(0u, GlobalSize(&not_a_block));
    EXPECT_EQ(nullptr, GlobalLock(nullptr));
    EXPECT_EQ(0u, GlobalSize(nullptr));
    EXPECT_EQ(&not_a_block, GlobalFree(&not_a_block));
    EXPECT_EQ(nullptr, GlobalAlloc(GHND, 0));
    EXPECT_EQ(nullptr, GlobalAlloc(GHND, ~SIZE_T(0)));
    HGLOBAL h = GlobalAlloc(GHND, 8);
    void* data = GlobalLock(h);
    EXPECT_NE(h, data);  // a handle is not the data pointer
    GlobalUnlock(h);
    GlobalFree(h);
    EXPECT_EQ(0u, GlobalSize(h));  // freed handles are unknown
}
#endif

namespace {
std::string rect(const RECT& r) {
    return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," + std::to_string(r.bottom);
}
}  // namespace

TEST(Rectangles, Win32Semantics) {
    RECT r;
    ASSERT_TRUE(SetRect(&r, 1, 2, 5, 6));
    EXPECT_FALSE(IsRectEmpty(&r));
    RECT e{3, 3, 3, 9};
    EXPECT_TRUE(IsRectEmpty(&e));
    EXPECT_TRUE(IsRectEmpty(nullptr));
    EXPECT_FALSE(SetRect(nullptr, 0, 0, 1, 1));
    RECT a{0, 0, 10, 10}, b{5, -5, 20, 7}, out;
    EXPECT_TRUE(IntersectRect(&out, &a, &b));
    EXPECT_EQ(rect(out), rect(RECT{5, 0, 10, 7}));
    RECT c{20, 20, 30, 30};
    EXPECT_FALSE(IntersectRect(&out, &a, &c));
    EXPECT_TRUE(IsRectEmpty(&out));
    RECT copy;
    CopyRect(&copy, &r);
    InflateRect(&copy, 1, 2);
    EXPECT_EQ(rect(copy), rect(RECT{0, 0, 6, 8}));
    // Extreme values wrap as on Windows instead of overflowing.
    RECT edge{INT_MIN, INT_MIN, INT_MAX, INT_MAX};
    InflateRect(&edge, 1, -1);
    EXPECT_EQ(rect(edge), rect(RECT{INT_MAX, INT_MIN + 1, INT_MIN, INT_MAX - 1}));
}
