/// Memory that runs out.
#pragma once

#include <cstddef>

/// While it lives, each allocation larger than `bytes` throws std::bad_alloc, on every thread. One at a time.
struct LargestAllocation {
    explicit LargestAllocation(std::size_t bytes);
    ~LargestAllocation();
};
