/// Walking a text in runs of bytes that need no attention, so that long texts are copied in blocks.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

/// The bytes that need attention.
using ByteSet = std::array<bool, 256>;

/// The set of the bytes in `bytes`, and of all below `controls`.
constexpr ByteSet MakeByteSet(std::string_view bytes, unsigned char controls = 0) {
    ByteSet set{};
    for (const char byte : bytes) set[static_cast<unsigned char>(byte)] = true;
    for (unsigned char byte = 0; byte < controls; ++byte) set[byte] = true;
    return set;
}

/// The first place from `i` on where a byte of `special` stands, or the text's end.
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

/// Appends `text` to `out`: each byte of `special` by `append(out, byte)`, the runs between them as they are.
template <typename Append>
void AppendByRuns(std::string& out, std::string_view text, const ByteSet& special, Append append) {
    for (std::size_t run = 0; run < text.size();) {
        const std::size_t end = FindSpecial(text, run, special);
        out.append(text, run, end - run);
        if (end < text.size()) append(out, text[end]);
        run = end + 1;
    }
}
