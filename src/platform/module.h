/// The module this code stands in, and the paths of modules and processes.
#pragma once

#include "platform/platform.h"

#include <algorithm>
#include <string>

/// Keeps this library in the process until the process ends, whatever the host frees: from the first thread on,
/// there is code of ours that may still run. Harmless when called again.
void PinOwnModule();

/// The full path of `module`; null means the process's main executable. Empty on any failure.
std::basic_string<WCHAR> ModulePath(HMODULE module);

/// What one attempt to read a path into a buffer came to.
enum class PathRead { Complete, BufferTooSmall, Failed };

/// Reads a path by `read(buffer, length)`, which gets the buffer's size in `length` and leaves the path's there.
/// The buffer starts at 1024 code units and doubles up to 32768; a path that does not fit then is given up as empty.
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
