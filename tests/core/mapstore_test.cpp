// Mapped-file store: mapped images, zero fill, no temporary file left, heap fallback.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#ifdef __linux__
#  include <fcntl.h>
#  include <sched.h>
#  include <sys/mount.h>
#  include <sys/wait.h>
#  include <unistd.h>

#  include <cstdio>
#endif

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

#ifdef __linux__
// The store's descriptor must not leak into programs the host starts (Windows handles are
// not inherited either).
TEST(MapStore, DescriptorIsCloseOnExec) {
    kiv img;
    ASSERT_EQ(1, img.create_width_mapfile(8, 8, 24));
    ASSERT_NE(nullptr, img.m_mapstore);
    const int flags = fcntl(static_cast<int>(img.m_mapstore->file - 1), F_GETFD);
    ASSERT_GE(flags, 0);
    EXPECT_NE(0, flags & FD_CLOEXEC);
}

namespace {
bool write_file(const char* path, const std::string& text) {
    FILE* f = std::fopen(path, "w");
    if (!f) return false;
    const bool ok = std::fputs(text.c_str(), f) >= 0;
    return std::fclose(f) == 0 && ok;
}

// Child process: a private mount of a 64 KiB tmpfs as the temporary directory, then an image
// four times larger. Exit 77: no namespace to be had here; 0: heap fallback, every pixel
// writable, no file left.
[[noreturn]] void full_directory_child(const std::string& dir) {
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) _exit(77);
    write_file("/proc/self/setgroups", "deny");
    if (!write_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
        !write_file("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1"))
        _exit(77);
    if (mount("kivfull", dir.c_str(), "tmpfs", 0, "size=64k") != 0) _exit(77);
    setenv("TMPDIR", dir.c_str(), 1);
    kiv img;
    if (img.create_width_mapfile(256, 256, 24) != 1) _exit(1);
    // A store whose file got no blocks would die here with SIGBUS.
    for (int i = 0; i < img.packets(); ++i) img.m_pixels[i].g = 7;
    if (img.m_mapstore != nullptr) _exit(2);
    img.destroy();
    std::error_code ec;
    if (!fs::is_empty(dir, ec)) _exit(3);
    _exit(0);
}
}  // namespace

// A temporary directory without room for the pixels: the store must see it at once and fall
// back to the heap, as the sizing step on Windows does, not hand out a view that faults later.
TEST(MapStore, FallsBackToTheHeapWhenTheDirectoryIsFull) {
    const fs::path dir = temp_dir() / "kiv-full-tmpfs";
    fs::create_directories(dir);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) full_directory_child(dir.string());
    int status = 0;
    const pid_t waited = waitpid(pid, &status, 0);
    fs::remove(dir);
    ASSERT_EQ(pid, waited);
    ASSERT_TRUE(WIFEXITED(status)) << "child killed by signal " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no user and mount namespaces here";
    EXPECT_EQ(0, WEXITSTATUS(status));
}
#endif
