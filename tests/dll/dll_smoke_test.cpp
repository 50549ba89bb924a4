// The public header used through the shared library's exports, as a host would.
#include <gtest/gtest.h>

#include <cstring>

#ifndef _WIN32
#  include <dlfcn.h>
// Win32-style names a host has already, as macros and as a typedef of the same type: kiv.h
// must still compile after them.
#  define TRUE 1
#  define BOOL int
typedef unsigned char BYTE;
#endif
#include "kiv.h"

TEST(SharedLibrary, CreatesCopiesAndBlits) {
    kiv a(32, 16, 24);
    ASSERT_NE(nullptr, a.pixels());
    for (int i = 0; i < a.packets(); ++i) a.pixels()[i] = tagRGBA{BYTE(i), BYTE(i >> 8), 7, 9};
    kiv b(a);
    ASSERT_EQ(0, std::memcmp(a.pixels(), b.pixels(), 32 * 16 * 4));
    kiv c(8, 8, 8);
    EXPECT_EQ(256, c.colors());
    c.blt(0, 0, 8, 8, &a, 4, 4);
    EXPECT_EQ(a.pos(4, 4)->r, c.pixels()[0].r);
    kiv::setthreads(1);
    EXPECT_EQ(1, kiv::getthreads());
    kiv::setthreads(0);
}

TEST(SharedLibrary, GlobalMemoryRoundTrip) {
    HGLOBAL h = GlobalAlloc(GHND, 100);
    ASSERT_NE(nullptr, h);
    EXPECT_GE(GlobalSize(h), 100u);
    auto* p = static_cast<unsigned char*>(GlobalLock(h));
    ASSERT_NE(nullptr, p);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(0, p[i]);
    GlobalUnlock(h);
    EXPECT_EQ(nullptr, GlobalFree(h));
}

#ifndef _WIN32
// Exported under kiv-prefixed names only, so no other Win32 layer in the process collides.
TEST(SharedLibrary, ExportsNoWin32Names) {
    for (const char* name : {"GlobalAlloc", "GlobalFree", "GlobalSize", "SetRect", "CopyRect", "IntersectRect"})
        EXPECT_EQ(nullptr, dlsym(RTLD_DEFAULT, name)) << name;
    EXPECT_NE(nullptr, dlsym(RTLD_DEFAULT, "kiv_GlobalAlloc"));
}
#endif
