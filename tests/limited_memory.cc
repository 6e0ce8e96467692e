#include "limited_memory.h"

#include <atomic>
#include <cstdlib>
#include <new>

static constexpr std::size_t NoLimit = ~static_cast<std::size_t>(0);
static std::atomic<std::size_t> limit = NoLimit;

LargestAllocation::LargestAllocation(std::size_t bytes) {
    limit = bytes;
}

LargestAllocation::~LargestAllocation() {
    limit = NoLimit;
}

void* operator new(std::size_t size) {
    void* const block = size <= limit ? std::malloc(size) : nullptr;
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
