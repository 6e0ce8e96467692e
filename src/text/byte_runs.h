/// Walks through text in runs of plain bytes, so that long texts are copied in blocks.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

/// The bytes that end a run.
using ByteSet = std::array<bool, 256>;

/// The set of the bytes in `bytes` and all bytes below `controls`.
constexpr ByteSet MakeByteSet(std::string_view bytes, unsigned char controls = 0) {
    ByteSet set{};
    for (const char byte : bytes) set[static_cast<unsigned char>(byte)] = true;
    for (unsigned char byte = 0; byte < controls; ++byte) set[byte] = true;
    return set;
}

/// The position of the first byte of `special` at or after `i`, or the text's length.
inline std::size_t FindSpecial(std::string_view text, std::size_t i, const ByteSet& special) {
    const auto at = [&](std::size_t k) -> unsigned { return special[static_cast<unsigned char>(text[k])]; };
    // Eight at a time, without a branch for each: most texts are plain for long stretches.
    while (text.size() - i >= 8 &&
           (at(i) | at(i + 1) | at(i + 2) | at(i + 3) | at(i + 4) | at(i + 5) | at(i + 6) | at(i + 7)) == 0) {
        i += 8;
    }
    while (i < text.size() && at(i) == 0) ++i;
    return i;
}

/// Calls `onRun(run)` for each run of plain bytes and `onSpecial(byte)` for each byte of `special`, in order.
template <typename OnRun, typename OnSpecial>
void WalkByRuns(std::string_view text, const ByteSet& special, OnRun onRun, OnSpecial onSpecial) {
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = FindSpecial(text, start, special);
        if (end > start) onRun(text.substr(start, end - start));
        if (end < text.size()) onSpecial(text[end]);
        start = end + 1;
    }
}
