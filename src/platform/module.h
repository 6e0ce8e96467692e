/// The module that this code is part of, and the paths of modules and processes.
#pragma once

#include "platform/platform.h"

#include <algorithm>
#include <string>

/// Keeps this library loaded until the process ends, whatever the host frees: once a thread has started, our code may
/// still be running. Safe to call again. False if the system refuses.
[[nodiscard]] bool PinOwnModule();

/// The full path of `module`; null means the process's main executable. Empty on any failure.
std::basic_string<WCHAR> ModulePath(HMODULE module);

/// The outcome of one attempt to read a path into a buffer.
enum class PathRead { Complete, BufferTooSmall, Failed };

/// Reads a path with `read(buffer, length)`: `length` is the buffer's size on entry and the path's length on return.
/// The buffer starts at 1024 code units and doubles up to 32768. Returns an empty path when even that is too small.
template <typename Read>
std::basic_string<WCHAR> ReadGrowingPath(Read read) {
    constexpr DWORD firstSize = 1024;
    constexpr DWORD lastSize = 32768;
    std::basic_string<WCHAR> path;
    for (DWORD size = firstSize;; size = std::min(size * 2, lastSize)) {
        path.resize(size);
        DWORD length = size;
        const PathRead outcome = read(path.data(), length);
        if (outcome == PathRead::Complete) {
            path.resize(length);
            return path;
        }
        if (outcome == PathRead::Failed || size == lastSize) return {};
    }
}
