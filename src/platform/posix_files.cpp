// Atomic file replacement and terminal test on POSIX.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/files.h"

namespace kivplat {
namespace {

bool write_all(int fd, const unsigned char* p, std::size_t n) {
    while (n > 0) {
        const ssize_t w = ::write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        n -= static_cast<std::size_t>(w);
    }
    return true;
}

}  // namespace

bool replace_file(const char* path, const void* data, std::size_t size) {
    if (!path || !*path || (!data && size)) return false;
    // A name another writer took meanwhile is skipped; any other failure ends the attempt.
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string tmp = temp_name_beside(path, static_cast<unsigned long>(::getpid()));
        const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            return false;
        }
        bool ok = write_all(fd, static_cast<const unsigned char*>(data), size);
        ok = ::close(fd) == 0 && ok;
        ok = ok && std::rename(tmp.c_str(), path) == 0;
        if (!ok) ::unlink(tmp.c_str());
        return ok;
    }
    return false;
}

bool is_terminal(std::FILE* stream) { return stream && ::isatty(::fileno(stream)) == 1; }

}  // namespace kivplat
