// Zeroed pixel buffers. Large ones on Linux come straight from the system on 2 MiB
// boundaries with transparent huge pages requested: a fresh 64 MiB image then costs a few
// dozen page faults instead of sixteen thousand, which dominated every operation that
// builds a new image (rotations, resampling, DIB conversion).
#ifndef KIV_CORE_PIXEL_MEMORY_H
#define KIV_CORE_PIXEL_MEMORY_H

#include <cstddef>
#include <new>

class kiv;

namespace kivcore {

// n zeroed bytes, or null. Release only with free_pixels.
void* alloc_pixels(std::size_t n);
// n bytes of unspecified contents, or null, for callers that write every byte: large ones
// may be a recently freed block, which spares the kernel's clearing of fresh pages.
void* alloc_pixels_unzeroed(std::size_t n);
// Releases a block of alloc_pixels or alloc_pixels_unzeroed (null is ignored).
void free_pixels(void* p);

// kiv::create for a caller that then writes every byte of every pixel: a heap image of the
// same pixel count keeps its buffer, a new buffer need not come zeroed. 1 on success.
int create_overwritten(kiv* img, int width, int height, int bits);

// A block of n bytes that its user writes whole before reading: a large one may be a block
// freed shortly before, which spares the page faults of fresh memory. Throws std::bad_alloc.
class UnzeroedBlock {
public:
    explicit UnzeroedBlock(std::size_t n) : p_(alloc_pixels_unzeroed(n == 0 ? 1 : n)) {
        if (!p_) throw std::bad_alloc();
    }
    ~UnzeroedBlock() { free_pixels(p_); }
    UnzeroedBlock(const UnzeroedBlock&) = delete;
    UnzeroedBlock& operator=(const UnzeroedBlock&) = delete;
    template <class T>
    T* as() const {
        return static_cast<T*>(p_);
    }

private:
    void* p_;
};

}  // namespace kivcore

#endif
