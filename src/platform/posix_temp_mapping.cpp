// Temporary file mappings on POSIX: a file in TMPDIR (else /tmp), mapped shared.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/temp_mapping.h"

namespace kivplat {

void* TempFileMapping::open(std::size_t bytes, const char* prefix) {
    close();
    if (bytes == 0) return nullptr;
    const char* dir = std::getenv("TMPDIR");
    if (!dir || !*dir) dir = "/tmp";
    int n = std::snprintf(path, sizeof path, "%s/%sXXXXXX", dir, prefix);
    if (n <= 0 || static_cast<std::size_t>(n) >= sizeof path) return nullptr;
    // Close-on-exec: programs the host starts must not inherit the file.
    int fd = ::mkostemp(path, O_CLOEXEC);
    if (fd < 0) return nullptr;
    // The blocks are reserved, not just the length set: a sparse file on a full disk would
    // map fine and then kill the process with SIGBUS at the first write, where a full
    // directory must fail here, while the caller can still do without. off_t is 64-bit, so 2 GiB and more work too.
    if (::posix_fallocate(fd, 0, static_cast<off_t>(bytes)) != 0) {
        ::close(fd);
        ::unlink(path);
        return nullptr;
    }
    void* v = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (v == MAP_FAILED) {
        ::close(fd);
        ::unlink(path);
        return nullptr;
    }
    view = v;
    file = fd + 1;
    mapping = 1;
    size = bytes;
    return view;
}

void TempFileMapping::close() {
    if (view) {
        ::munmap(view, size);
        ::close(static_cast<int>(file - 1));
        ::unlink(path);
    }
    view = nullptr;
    file = 0;
    mapping = 0;
    size = 0;
}

}  // namespace kivplat
