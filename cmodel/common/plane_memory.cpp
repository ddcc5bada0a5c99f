#include "plane_memory.h"

#include <sys/mman.h>

#include <algorithm>

#include "fatal.h"
#include "large_pages.h"

namespace cm {

Bytes allocate_bytes(size_t size) {
    Bytes bytes(static_cast<uint8_t*>(std::malloc(size > 0 ? size : 1)));
    if (bytes == nullptr) {
        fail_without_memory();
    }
    return bytes;
}

PlaneMemory::~PlaneMemory() {
    for (const Region& region : regions_) {
        munmap(region.start, region.size);
    }
}

Bytes PlaneMemory::take(size_t size) {
    const size_t rounded = (size + 63) / 64 * 64;
    if (size < kWorthwhile || (rounded > left_ && !add_region(rounded))) {
        return allocate_bytes(size);
    }
    uint8_t* const start = next_;
    next_ += rounded;
    left_ -= rounded;
    return Bytes(start, FreeBytes{.owned = false});
}

bool PlaneMemory::add_region(size_t size) {
    // One large page more than asked for, so that the planes can start where large pages do.
    const size_t wanted = round_to_large_page(std::max(size, kRegion));
    void* const start =
        mmap(nullptr, wanted + kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start == MAP_FAILED) {
        return false;
    }
    regions_.push_back({start, wanted + kLargePage});
    next_ = reinterpret_cast<uint8_t*>(round_to_large_page(reinterpret_cast<uintptr_t>(start)));
    left_ = wanted;
    advise_large_pages(next_, left_);
    return true;
}

}  // namespace cm
