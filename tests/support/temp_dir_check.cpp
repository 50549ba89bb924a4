// Linked into every test program: the program runs with a temporary directory of its own
// (TMPDIR, or TMP and TEMP on Windows, point at it), and anything left there at the end, such
// as a mapped-store "~~kv" file or a test's scratch file, fails the run.  A private directory
// keeps other processes' temporaries out of the count.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace {

namespace fs = std::filesystem;

void set_env(const char* name, const std::string& value) {
#ifdef _WIN32
    _putenv_s(name, value.c_str());
#else
    if (value.empty())
        unsetenv(name);
    else
        setenv(name, value.c_str(), 1);
#endif
}

std::string get_env(const char* name) {
    const char* v = std::getenv(name);
    return v ? v : "";
}

class TempDirCheck : public ::testing::Environment {
public:
    void SetUp() override {
        saved_tmpdir_ = get_env("TMPDIR");
        saved_tmp_ = get_env("TMP");
        saved_temp_ = get_env("TEMP");
        std::random_device rd;
        dir_ = fs::temp_directory_path() / ("kivtests-" + std::to_string(rd()) + std::to_string(rd()));
        std::error_code ec;
        if (!fs::create_directory(dir_, ec)) {
            ADD_FAILURE() << "cannot make " << dir_.string() << ": " << ec.message();
            dir_.clear();
            return;
        }
        const std::string d = dir_.string();
#ifdef _WIN32
        set_env("TMP", d);
        set_env("TEMP", d);
#else
        set_env("TMPDIR", d);
#endif
    }

    void TearDown() override {
        if (dir_.empty()) return;
        set_env("TMPDIR", saved_tmpdir_);
#ifdef _WIN32
        set_env("TMP", saved_tmp_);
        set_env("TEMP", saved_temp_);
#endif
        std::string left;
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(dir_, ec)) {
            left += ' ';
            left += e.path().filename().string();
        }
        EXPECT_EQ(left, "") << "files left in the temporary directory";
        fs::remove_all(dir_, ec);
    }

private:
    fs::path dir_;
    std::string saved_tmpdir_, saved_tmp_, saved_temp_;
};

[[maybe_unused]] ::testing::Environment* const registered = ::testing::AddGlobalTestEnvironment(new TempDirCheck);

}  // namespace
