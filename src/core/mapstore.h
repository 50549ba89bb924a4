// The mapped-file pixel store: one "~~kv" temporary file, its mapping and its view.
#ifndef KIV_CORE_MAPSTORE_H
#define KIV_CORE_MAPSTORE_H

#include <cstddef>

#include "platform/temp_mapping.h"

struct kivMapStore : kivplat::TempFileMapping {
    // A zero-filled view of `bytes` bytes, or null (everything released, no file left).
    void* open(std::size_t bytes) { return TempFileMapping::open(bytes, "~~kv"); }
};

#endif
