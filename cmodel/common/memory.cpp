#include "memory.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "large_pages.h"

namespace cm {

bool Memory::add_block(size_t size) {
    const size_t rounded = (std::max(size + kLine, kLeast) + kLine - 1) / kLine * kLine;
    void* const memory = std::aligned_alloc(kLine, rounded);
    if (memory == nullptr) {
        return false;
    }
    advise_large_pages(memory, rounded);
    blocks_ = new (memory) Block{blocks_, rounded};
    used_ = kLine;
    held_ += rounded;
    return true;
}

void* Memory::take_bytes(size_t size) {
    const size_t rounded = (size + kLine - 1) / kLine * kLine;
    const size_t left = blocks_ != nullptr ? blocks_->size - used_ : 0;
    if (failed_ || (rounded > left && !add_block(rounded))) {
        failed_ = true;
        return nullptr;
    }
    uint8_t* const piece = reinterpret_cast<uint8_t*>(blocks_) + used_;
    used_ += rounded;
    return piece;
}

void Memory::reset() {
    failed_ = false;
    if (blocks_ != nullptr && blocks_->next != nullptr) {
        const size_t whole = held_;
        release();
        add_block(whole);  // without it the pieces come in blocks of their own again
    }
    used_ = kLine;
}

void Memory::release() {
    while (blocks_ != nullptr) {
        Block* const next = blocks_->next;
        std::free(blocks_);
        blocks_ = next;
    }
    used_ = held_ = 0;
    failed_ = false;
}

}  // namespace cm
