/// Memory that runs out.
#pragma once

#include <atomic>
#include <cstdint>

/// While it lives, each allocation larger than `bytes` throws std::bad_alloc, on every thread. One at a time.
struct LargestAllocation {
    inline static std::atomic<std::size_t> Limit = SIZE_MAX;
    explicit LargestAllocation(std::size_t bytes) { Limit = bytes; }
    ~LargestAllocation() { Limit = SIZE_MAX; }
};
