#include "limited_memory.h"

#include <cstdlib>
#include <new>

void* operator new(std::size_t size) {
    void* const block = size <= LargestAllocation::Limit ? std::malloc(size) : nullptr;
    return block != nullptr ? block : throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
