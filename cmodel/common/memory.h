// Memory of a run or of a model: taken piece by piece, given back as a whole.
//
// Memory that cannot be had gives null and is remembered, so that whatever needs many pieces takes them all
// and asks once, with failed(), before it uses any. What was taken last run is there for the next.
#ifndef CMODEL_MEMORY_H
#define CMODEL_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace cm {

class Memory {
  public:
    Memory() = default;
    ~Memory() { release(); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    // `count` objects on a 64-byte line, not cleared; null when there is no memory, now or before.
    template <typename T>
    T* take(size_t count) {
        static_assert(std::is_trivially_destructible_v<T>);
        return count > SIZE_MAX / 2 / sizeof(T) ? fail<T>() : static_cast<T*>(take_bytes(count * sizeof(T)));
    }

    // Whether any piece could not be had since the last reset.
    bool failed() const { return failed_; }

    // All pieces are free again. Their memory is kept for the next ones, in one block.
    void reset();

    // The same, and the memory goes back to the system.
    void release();

    // Bytes that are held.
    size_t held() const { return held_; }

  private:
    struct Block {
        Block* next;
        size_t size;  // header included
    };
    static constexpr size_t kLine = 64;
    static constexpr size_t kLeast = size_t{64} << 10;

    template <typename T>
    T* fail() {
        failed_ = true;
        return nullptr;
    }
    void* take_bytes(size_t size);
    bool add_block(size_t size);

    Block* blocks_ = nullptr;  // the newest first, which is the one that pieces come from
    size_t used_ = 0;          // of the newest
    size_t held_ = 0;
    bool failed_ = false;
};

}  // namespace cm

#endif
