// Whole-file reading, the same on every system through the C library.
#include "platform/files.h"

#include <atomic>

namespace kivplat {

bool read_file(const char* path, std::size_t max_bytes, std::vector<unsigned char>* out) {
    if (!path || !out) return false;
    out->clear();
    std::FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    unsigned char buf[65536];
    bool ok = true;
    for (;;) {
        const std::size_t n = std::fread(buf, 1, sizeof buf, f);
        if (n > max_bytes - out->size()) {
            ok = false;
            break;
        }
        out->insert(out->end(), buf, buf + n);
        if (n < sizeof buf) {
            ok = !std::ferror(f);
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

}  // namespace kivplat
