/// Text on its way into a JSON string.
#pragma once

#include "text/byte_runs.h"

#include <string_view>

/// Calls `write(piece)` for piece after piece of `text`, escaped for the inside of a JSON string. A piece is valid
/// during its call only. Bytes from 0x80 up pass unchanged. Allocates nothing.
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
