/// Escapes text for a JSON string.
#pragma once

#include "text/byte_runs.h"

#include <string_view>

/// Escapes `text` for the inside of a JSON string and calls `write(piece)` for one piece after the other. A piece is
/// valid only during its call. Bytes from 0x80 up pass unchanged. Allocates nothing.
template <typename Write>
void EscapeJsonText(std::string_view text, Write write) {
    constexpr ByteSet special = MakeByteSet("\"\\", 0x20);
    WalkByRuns(text, special, write, [&write](char byte) {
        constexpr std::string_view hexDigits = "0123456789abcdef";
        const char coded[] = {'\\', 'u', '0', '0', hexDigits[byte >> 4 & 15], hexDigits[byte & 15]};
        switch (byte) {
            case '\b': return write(std::string_view("\\b"));
            case '\t': return write(std::string_view("\\t"));
            case '\n': return write(std::string_view("\\n"));
            case '\f': return write(std::string_view("\\f"));
            case '\r': return write(std::string_view("\\r"));
            case '"': return write(std::string_view("\\\""));
            case '\\': return write(std::string_view("\\\\"));
            default: return write(std::string_view(coded, sizeof coded));
        }
    });
}
