// The mapped-file pixel store: one temporary file, its mapping and its view.
#ifndef KIV_CORE_MAPSTORE_H
#define KIV_CORE_MAPSTORE_H

#include <cstddef>
#include <cstdint>

// Implemented per platform (src/platform/*_mapfile.cpp).
struct kivMapStore {
    void* view = nullptr;  // base of the mapped view; null when closed
    std::intptr_t file = 0;     // platform file handle or descriptor + 1; 0 when none
    std::intptr_t mapping = 0;  // platform mapping handle; 0 when none
    std::size_t size = 0;       // bytes mapped
    char path[4096] = {};       // full path of the temporary file

    // Makes a zero-filled temporary file of `bytes` bytes, maps it read-write and returns
    // the view, or null (everything released, no file left) when any step fails.
    void* open(std::size_t bytes);
    // Unmaps, closes and deletes the file; safe on a closed store.
    void close();
    ~kivMapStore() { close(); }
};

#endif
