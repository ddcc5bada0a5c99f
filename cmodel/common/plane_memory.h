// Memory for planes as they came from files.
#ifndef CMODEL_PLANE_MEMORY_H
#define CMODEL_PLANE_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace cm {

struct FreeBytes {
    bool owned = true;  // else the memory belongs to a PlaneMemory
    void operator()(void* p) const {
        if (owned) {
            std::free(p);
        }
    }
};
using Bytes = std::unique_ptr<uint8_t[], FreeBytes>;

// Memory that is not cleared; no memory ends the program.
Bytes allocate_bytes(size_t size);

// Memory for the planes of one run, laid side by side so that large pages cover even planes that are
// smaller than one. Everything taken is given back with the object.
class PlaneMemory {
  public:
    PlaneMemory() = default;
    ~PlaneMemory();
    PlaneMemory(const PlaneMemory&) = delete;
    PlaneMemory& operator=(const PlaneMemory&) = delete;

    // Not cleared; no memory ends the program.
    Bytes take(size_t size);

  private:
    static constexpr size_t kRegion = size_t{32} << 20;       // address space only, until it is touched
    static constexpr size_t kWorthwhile = size_t{256} << 10;  // smaller planes come from the heap

    struct Region {
        void* start;
        size_t size;
    };

    bool add_region(size_t size);

    std::vector<Region> regions_;
    uint8_t* next_ = nullptr;
    size_t left_ = 0;
};

}  // namespace cm

#endif
