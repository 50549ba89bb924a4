// Whole-file reading, symbolic links, patterns and directories, the same on every system
// through the C and C++ libraries.
#include "platform/files.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace kivplat {

namespace fs = std::filesystem;

namespace {

void set_reason(std::string* reason, const std::error_code& ec) {
    if (reason) *reason = ec.message();
}

// Whether name matches pattern, `*` any run of characters and `?` any one.
bool wildcard_match(const char* p, const char* s) {
    const char *star = nullptr, *resume = nullptr;
    while (*s) {
        if (*p == '*') {
            star = p++;
            resume = s;
        } else if (*p == '?' || *p == *s) {
            ++p;
            ++s;
        } else if (star) {
            p = star + 1;
            s = ++resume;
        } else {
            return false;
        }
    }
    while (*p == '*') ++p;
    return !*p;
}

}  // namespace

bool read_file(const char* path, std::size_t max_bytes, std::vector<unsigned char>* out, std::string* reason) {
    if (!path || !out) return false;
    out->clear();
    errno = 0;
    std::FILE* f = std::fopen(path, "rb");
    if (!f) {
        set_reason(reason, std::error_code(errno ? errno : ENOENT, std::generic_category()));
        return false;
    }
    unsigned char buf[65536];
    bool ok = true;
    for (;;) {
        const std::size_t n = std::fread(buf, 1, sizeof buf, f);
        if (n > max_bytes - out->size()) {
            set_reason(reason, std::make_error_code(std::errc::file_too_large));
            ok = false;
            break;
        }
        out->insert(out->end(), buf, buf + n);
        if (n < sizeof buf) {
            ok = !std::ferror(f);
            // A directory opens on some systems and fails only here.
            if (!ok) set_reason(reason, std::error_code(errno ? errno : EIO, std::generic_category()));
            break;
        }
    }
    std::fclose(f);
    return ok;
}

std::string temp_name_beside(const char* path, unsigned long process) {
    static std::atomic<unsigned> count{0};
    return std::string(path) + ".~kv" + std::to_string(process) + "-" + std::to_string(count++);
}

std::string link_target(const std::string& path, std::string* reason) {
    fs::path p = path;
    // Forty hops, as POSIX systems allow before ELOOP.
    for (int hop = 0; hop < 40; ++hop) {
        std::error_code ec;
        if (!fs::is_symlink(fs::symlink_status(p, ec))) return p.string();
        fs::path next = fs::read_symlink(p, ec);
        if (ec) {
            set_reason(reason, ec);
            return "";
        }
        p = next.is_absolute() ? next : p.parent_path() / next;
    }
    set_reason(reason, std::make_error_code(std::errc::too_many_symbolic_link_levels));
    return "";
}

std::vector<std::string> glob_files(const std::string& pattern) {
    std::vector<std::string> found;
    const fs::path p = pattern;
    const std::string name = p.filename().string();
    std::error_code ec;
    if (name.find_first_of("*?") == std::string::npos) {
        if (fs::is_regular_file(p, ec)) found.push_back(pattern);
        return found;
    }
    const fs::path dir = p.has_parent_path() ? p.parent_path() : fs::path(".");
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string entry = it->path().filename().string();
        // As in the shells, a wildcard does not match a leading dot.
        if (entry[0] == '.' && name[0] != '.') continue;
        std::error_code ec2;
        if (wildcard_match(name.c_str(), entry.c_str()) && it->is_regular_file(ec2))
            found.push_back((p.has_parent_path() ? p.parent_path() / entry : fs::path(entry)).string());
    }
    std::sort(found.begin(), found.end());
    return found;
}

bool make_directories(const std::string& path, std::string* reason) {
    std::error_code ec;
    fs::create_directories(path, ec);
    if (ec || !fs::is_directory(path, ec)) {
        set_reason(reason, ec ? ec : std::make_error_code(std::errc::not_a_directory));
        return false;
    }
    return true;
}

}  // namespace kivplat
