// Anonymous memory straight from the system, for blocks so large that the heap would map
// them page by page anyway. What to map, when, and what to keep is the caller's policy.
#ifndef KIV_PLATFORM_MEMORY_H
#define KIV_PLATFORM_MEMORY_H

#include <cstddef>

// Whether this system offers the calls below with transparent huge pages.
#if defined(__linux__)
#  define KIV_PLATFORM_HUGE_PAGES 1
#else
#  define KIV_PLATFORM_HUGE_PAGES 0
#endif

namespace kivplat {

// len bytes of zero pages, read-write, starting on a multiple of align (a power of two, a
// multiple of the page size); null when the system has none.
void* map_pages(std::size_t len, std::size_t align);
// Gives [p, p + len) back to the system.
void unmap_pages(void* p, std::size_t len);
// Asks for huge pages over [p, p + len): advice only, the pages work without.
void advise_huge_pages(void* p, std::size_t len);
// Lets the system take the pages back when it needs them, without asking first: until written
// again their bytes are unspecified, and the range stays mapped. False where the system has
// no such advice (the pages are then left as they are).
bool advise_free(void* p, std::size_t len);
// Gives the pages of [p, p + len) back now: the range stays mapped and reads as zeros until
// written again. False where the system cannot (the pages are then left as they are).
bool discard_pages(void* p, std::size_t len);

}  // namespace kivplat

#endif
