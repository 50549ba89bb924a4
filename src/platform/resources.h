// Resources compiled into a module (Windows).
#ifndef KIV_PLATFORM_RESOURCES_H
#define KIV_PLATFORM_RESOURCES_H

#include <cstddef>

namespace kivplat {

constexpr unsigned kBitmapResource = 2;  // the system's resource type number for bitmaps

// The bytes of the resource of type number `type` called name (a string, or a number made
// with MAKEINTRESOURCEA) in module, with their count in *size; null when there is none. They
// stay valid while the module is loaded.
const void* find_resource(void* module, const char* name, unsigned type, std::size_t* size);

}  // namespace kivplat

#endif
