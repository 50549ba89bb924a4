// A temporary file mapped read-write: made zero-filled in the system's temporary directory,
// named with a caller's prefix, and deleted when closed.
#ifndef KIV_PLATFORM_TEMP_MAPPING_H
#define KIV_PLATFORM_TEMP_MAPPING_H

#include <cstddef>
#include <cstdint>

namespace kivplat {

// Implemented per system (posix_temp_mapping.cpp, win32_temp_mapping.cpp).
struct TempFileMapping {
    void* view = nullptr;       // base of the mapped view; null when closed
    std::intptr_t file = 0;     // system file handle, or descriptor + 1; 0 when none
    std::intptr_t mapping = 0;  // system mapping handle; 0 when none
    std::size_t size = 0;       // bytes mapped
    char path[4096] = {};       // full path of the file

    TempFileMapping() = default;
    TempFileMapping(const TempFileMapping&) = delete;
    TempFileMapping& operator=(const TempFileMapping&) = delete;
    ~TempFileMapping() { close(); }

    // Makes a zero-filled file of `bytes` bytes whose name starts with prefix (Windows keeps
    // its first three characters), maps it read-write and returns the view; null, with
    // everything released and no file left, when any step fails.
    void* open(std::size_t bytes, const char* prefix);
    // Unmaps, closes and deletes the file; safe when closed.
    void close();
};

}  // namespace kivplat

#endif
