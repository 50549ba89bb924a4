// Mapped-file store: mapped images, zero fill, no temporary file left, heap fallback.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/mapstore.h"
#include "kiv.h"
#include "support/test_images.h"

namespace fs = std::filesystem;

namespace {
fs::path temp_dir() {
#ifdef _WIN32
    return fs::temp_directory_path();
#else
    const char* d = std::getenv("TMPDIR");
    return (d && *d) ? fs::path(d) : fs::path("/tmp");
#endif
}

// Names of our temporary files in the temporary directory. (The Windows name service keeps
// only the first three characters of the prefix.)
int count_store_files() {
    int n = 0;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(temp_dir(), ec)) {
        std::string name = e.path().filename().string();
#ifdef _WIN32
        if (name.rfind("~~k", 0) == 0) ++n;
#else
        if (name.rfind("~~kv", 0) == 0) ++n;
#endif
    }
    return n;
}

#ifndef _WIN32
// Points TMPDIR somewhere else for the life of the object.
struct TmpDir {
    std::string saved;
    bool had;
    explicit TmpDir(const std::string& dir) {
        const char* d = std::getenv("TMPDIR");
        had = d != nullptr;
        if (had) saved = d;
        setenv("TMPDIR", dir.c_str(), 1);
    }
    ~TmpDir() {
        if (had)
            setenv("TMPDIR", saved.c_str(), 1);
        else
            unsetenv("TMPDIR");
    }
};
#endif
}  // namespace

TEST(MapStore, MappedImageIsZeroedAndLeavesNoFile) {
    int before = count_store_files();
    {
        kiv img;
        ASSERT_EQ(1, img.create_width_mapfile(300, 200, 8));
        ASSERT_NE(nullptr, img.m_mapstore);
        EXPECT_EQ(256, img.colors());
        EXPECT_EQ(before + 1, count_store_files());
        for (int i = 0; i < img.packets(); ++i) ASSERT_EQ(0u, *reinterpret_cast<std::uint32_t*>(&img.m_pixels[i]));
        img.m_pixels[img.packets() - 1].r = 5;  // the whole view is writable
        kiv heap;
        ASSERT_EQ(1, img.copyto(&heap));
        EXPECT_EQ(nullptr, heap.m_mapstore);
        EXPECT_TRUE(kivtest::images_equal(img, heap));
        img.destroy();
        EXPECT_EQ(nullptr, img.m_mapstore);
        EXPECT_EQ(before, count_store_files());
    }
    EXPECT_EQ(before, count_store_files());
}

TEST(MapStore, MoveHandsTheStoreOver) {
    int before = count_store_files();
    kiv a;
    ASSERT_EQ(1, a.create_width_mapfile(16, 16, 24));
    kivMapStore* store = a.m_mapstore;
    kiv b;
    b.movefrom(&a);
    EXPECT_EQ(store, b.m_mapstore);
    EXPECT_EQ(nullptr, a.m_mapstore);
    EXPECT_EQ(before + 1, count_store_files());
    b.create(2, 2, 24);  // rebuilding closes the store
    EXPECT_EQ(before, count_store_files());
}

TEST(MapStore, CloseIsSafeTwice) {
    kivMapStore s;
    s.close();
    ASSERT_NE(nullptr, s.open(4096));
    s.close();
    s.close();
    EXPECT_EQ(nullptr, s.view);
    EXPECT_EQ(nullptr, s.open(0));
}

#ifndef _WIN32
TEST(MapStore, FallsBackToTheHeapWhenTheDirectoryIsUnusable) {
    TmpDir redirect("/nonexistent-kivlib-dir/sub");
    kiv img;
    ASSERT_EQ(1, img.create_width_mapfile(40, 30, 24));
    EXPECT_EQ(nullptr, img.m_mapstore);
    ASSERT_NE(nullptr, img.pixels());
    for (int i = 0; i < img.packets(); ++i) ASSERT_EQ(0, img.m_pixels[i].r);
}
#endif
