// Atomic file replacement, the standard streams and the terminal test on Windows.
#include <windows.h>
#include <fcntl.h>
#include <io.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "platform/files.h"

namespace kivplat {
namespace {

// The system's words for the last error, kept before cleanup calls can change it.
bool fail(std::string* reason, DWORD code) {
    if (reason) *reason = std::system_category().message(static_cast<int>(code ? code : ERROR_WRITE_FAULT));
    return false;
}

}  // namespace

bool replace_file(const char* path, const void* data, std::size_t size, std::string* reason) {
    if (!path || !*path || (!data && size)) return fail(reason, ERROR_INVALID_PARAMETER);
    // A name another writer took meanwhile is skipped; any other failure ends the attempt.
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string tmp = temp_name_beside(path, GetCurrentProcessId());
        HANDLE f = CreateFileA(tmp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (f == INVALID_HANDLE_VALUE) {
            if (GetLastError() == ERROR_FILE_EXISTS) continue;
            return fail(reason, GetLastError());
        }
        const auto* p = static_cast<const unsigned char*>(data);
        bool ok = true;
        for (std::size_t left = size; ok && left > 0;) {
            const DWORD chunk = left > (DWORD(1) << 30) ? (DWORD(1) << 30) : static_cast<DWORD>(left);
            DWORD wrote = 0;
            ok = WriteFile(f, p, chunk, &wrote, nullptr) && wrote == chunk;
            p += chunk;
            left -= chunk;
        }
        DWORD code = ok ? 0 : GetLastError();
        ok = CloseHandle(f) && ok;
        ok = ok && MoveFileExA(tmp.c_str(), path, MOVEFILE_REPLACE_EXISTING);
        if (!ok) {
            if (!code) code = GetLastError();
            DeleteFileA(tmp.c_str());
            return fail(reason, code);
        }
        return true;
    }
    return fail(reason, ERROR_FILE_EXISTS);
}

bool read_stdin(std::vector<unsigned char>* out, std::string* reason) {
    if (!out) return false;
    out->clear();
    _setmode(_fileno(stdin), _O_BINARY);
    unsigned char buf[65536];
    for (;;) {
        const std::size_t n = std::fread(buf, 1, sizeof buf, stdin);
        out->insert(out->end(), buf, buf + n);
        if (n < sizeof buf) {
            if (!std::ferror(stdin)) return true;
            if (reason) *reason = std::generic_category().message(errno ? errno : EIO);
            return false;
        }
    }
}

bool write_stdout(const void* data, std::size_t size, std::string* reason) {
    std::fflush(stdout);
    _setmode(_fileno(stdout), _O_BINARY);
    const bool ok = std::fwrite(data, 1, size, stdout) == size && std::fflush(stdout) == 0;
    if (!ok && reason) *reason = std::generic_category().message(errno ? errno : EIO);
    return ok;
}

bool is_terminal(std::FILE* stream) { return stream && _isatty(_fileno(stream)) != 0; }

}  // namespace kivplat
