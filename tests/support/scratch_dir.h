// A scratch directory per test, removed afterwards, and whole-file byte helpers: for the tests
// that read and write files and must prove no temporary was left behind.
#ifndef KIV_TESTS_SCRATCH_DIR_H
#define KIV_TESTS_SCRATCH_DIR_H

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace kivtest {

struct ScratchDir {
    std::filesystem::path dir;
    explicit ScratchDir(const std::string& prefix) {
        dir = std::filesystem::temp_directory_path() /
              (prefix + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    std::string operator()(const std::string& name) const { return (dir / name).string(); }
    // Every file in the directory, sorted.
    std::vector<std::string> files() const {
        std::vector<std::string> v;
        for (const auto& e : std::filesystem::directory_iterator(dir)) v.push_back(e.path().filename().string());
        std::sort(v.begin(), v.end());
        return v;
    }
};

inline std::vector<unsigned char> read_bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}
inline void write_bytes(const std::string& path, const std::vector<unsigned char>& b) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

}  // namespace kivtest

#endif
