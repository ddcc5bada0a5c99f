// Large pages. The first touch of a page costs more than filling it, and a large page is touched once for
// 512 small ones; so planes ask for them. Only a hint: memory without large pages serves as well.
#ifndef CMODEL_LARGE_PAGES_H
#define CMODEL_LARGE_PAGES_H

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace cm {

inline constexpr uintptr_t kLargePage = uintptr_t{2} << 20;

inline uintptr_t round_to_large_page(uintptr_t address) {
    return (address + kLargePage - 1) / kLargePage * kLargePage;
}

// For fresh memory: whatever large pages fit between its ends.
inline void advise_large_pages([[maybe_unused]] void* memory, [[maybe_unused]] size_t size) {
#ifdef MADV_HUGEPAGE
    const uintptr_t start = round_to_large_page(reinterpret_cast<uintptr_t>(memory));
    const uintptr_t end = (reinterpret_cast<uintptr_t>(memory) + size) / kLargePage * kLargePage;
    if (memory != nullptr && end > start) {
        madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
    }
#endif
}

}  // namespace cm

#endif
