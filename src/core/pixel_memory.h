// Zeroed pixel buffers. Large ones on Linux come straight from the system on 2 MiB
// boundaries with transparent huge pages requested: a fresh 64 MiB image then costs a few
// dozen page faults instead of sixteen thousand, which dominated every operation that
// builds a new image (rotations, resampling, DIB conversion).
#ifndef KIV_CORE_PIXEL_MEMORY_H
#define KIV_CORE_PIXEL_MEMORY_H

#include <cstddef>

namespace kivcore {

// n zeroed bytes, or null. Release only with free_pixels.
void* alloc_pixels(std::size_t n);
// Releases a block of alloc_pixels (null is ignored).
void free_pixels(void* p);

}  // namespace kivcore

#endif
