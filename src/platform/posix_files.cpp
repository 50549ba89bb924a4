// Atomic file replacement, the standard streams and the terminal test on POSIX.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "platform/files.h"

namespace kivplat {
namespace {

bool write_all(int fd, const unsigned char* p, std::size_t n) {
    while (n > 0) {
        const ssize_t w = ::write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) {
            if (w == 0) errno = EIO;
            return false;
        }
        p += w;
        n -= static_cast<std::size_t>(w);
    }
    return true;
}

// The system's words for errno, kept before cleanup calls can change it.
bool fail(std::string* reason) {
    if (reason) *reason = std::generic_category().message(errno ? errno : EIO);
    return false;
}

}  // namespace

bool replace_file(const char* path, const void* data, std::size_t size, std::string* reason) {
    if (!path || !*path || (!data && size)) {
        errno = EINVAL;
        return fail(reason);
    }
    // A name another writer took meanwhile is skipped; any other failure ends the attempt.
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string tmp = temp_name_beside(path, static_cast<unsigned long>(::getpid()));
        const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            return fail(reason);
        }
        bool ok = write_all(fd, static_cast<const unsigned char*>(data), size);
        ok = ::close(fd) == 0 && ok;
        ok = ok && std::rename(tmp.c_str(), path) == 0;
        if (!ok) {
            fail(reason);
            ::unlink(tmp.c_str());
        }
        return ok;
    }
    errno = EEXIST;
    return fail(reason);
}

bool read_stdin(std::vector<unsigned char>* out, std::string* reason) {
    if (!out) return false;
    out->clear();
    unsigned char buf[65536];
    for (;;) {
        const ssize_t n = ::read(0, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail(reason);
        if (n == 0) return true;
        out->insert(out->end(), buf, buf + n);
    }
}

bool write_stdout(const void* data, std::size_t size, std::string* reason) {
    std::fflush(stdout);
    return write_all(1, static_cast<const unsigned char*>(data), size) || fail(reason);
}

bool is_terminal(std::FILE* stream) { return stream && ::isatty(::fileno(stream)) == 1; }

}  // namespace kivplat
