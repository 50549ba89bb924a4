// Atomic file replacement and terminal test on Windows.
#include <windows.h>
#include <io.h>

#include <cstdio>

#include "platform/files.h"

namespace kivplat {

bool replace_file(const char* path, const void* data, std::size_t size) {
    if (!path || !*path || (!data && size)) return false;
    // A name another writer took meanwhile is skipped; any other failure ends the attempt.
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string tmp = temp_name_beside(path, GetCurrentProcessId());
        HANDLE f = CreateFileA(tmp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (f == INVALID_HANDLE_VALUE) {
            if (GetLastError() == ERROR_FILE_EXISTS) continue;
            return false;
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
        ok = CloseHandle(f) && ok;
        ok = ok && MoveFileExA(tmp.c_str(), path, MOVEFILE_REPLACE_EXISTING);
        if (!ok) DeleteFileA(tmp.c_str());
        return ok;
    }
    return false;
}

bool is_terminal(std::FILE* stream) { return stream && _isatty(_fileno(stream)) != 0; }

}  // namespace kivplat
