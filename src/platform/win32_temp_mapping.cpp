// Temporary file mappings on Windows: a file from the temporary-name service, a mapping and
// a view.
#include <windows.h>

#include <cstring>

#include "platform/temp_mapping.h"

namespace kivplat {

void* TempFileMapping::open(std::size_t bytes, const char* prefix) {
    close();
    if (bytes == 0) return nullptr;
    char dir[MAX_PATH + 1];
    DWORD len = GetTempPathA(MAX_PATH, dir);
    if (len == 0 || len > MAX_PATH) return nullptr;
    if (GetTempFileNameA(dir, prefix, 0, path) == 0) return nullptr;
    HANDLE f = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           CREATE_ALWAYS, FILE_FLAG_RANDOM_ACCESS | FILE_ATTRIBUTE_ARCHIVE, nullptr);
    if (f == INVALID_HANDLE_VALUE) {
        DeleteFileA(path);  // do not leave the name service's empty file behind
        return nullptr;
    }
    // Sized with a 64-bit distance so that images of 2 GiB and more are mapped too.
    LARGE_INTEGER dist;
    dist.QuadPart = static_cast<LONGLONG>(bytes);
    LARGE_INTEGER got{};
    void* v = nullptr;
    HANDLE m = nullptr;
    if (SetFilePointerEx(f, dist, nullptr, FILE_BEGIN) && SetEndOfFile(f) &&
        GetFileSizeEx(f, &got) && static_cast<std::size_t>(got.QuadPart) == bytes) {
        LARGE_INTEGER zero{};
        SetFilePointerEx(f, zero, nullptr, FILE_BEGIN);
        m = CreateFileMappingA(f, nullptr, PAGE_READWRITE, 0, 0, nullptr);
        if (m) {
            v = MapViewOfFile(m, FILE_MAP_WRITE, 0, 0, 0);
            if (!v) {
                CloseHandle(m);
                m = nullptr;
            }
        }
    }
    if (!v) {
        CloseHandle(f);
        DeleteFileA(path);
        return nullptr;
    }
    view = v;
    file = reinterpret_cast<std::intptr_t>(f);
    mapping = reinterpret_cast<std::intptr_t>(m);
    size = bytes;
    return view;
}

void TempFileMapping::close() {
    if (view) {
        UnmapViewOfFile(view);
        CloseHandle(reinterpret_cast<HANDLE>(mapping));
        CloseHandle(reinterpret_cast<HANDLE>(file));
        DeleteFileA(path);
    }
    view = nullptr;
    file = 0;
    mapping = 0;
    size = 0;
}

}  // namespace kivplat
