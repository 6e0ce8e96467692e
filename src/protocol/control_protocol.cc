#include "protocol/control_protocol.h"

#include "text/byte_runs.h"

#include <algorithm>
#include <cstring>

WideString ControlPipeName(DWORD processId) {
    WCHAR name[256];
    swprintf_s(name, std::size(name), TEXT("\\\\.\\pipe\\orvane_mcp_control_%lu"),
               static_cast<unsigned long>(processId));
    return name;
}

std::string OkReply(std::string_view text) {
    return std::string(OkReplyPrefix) + EscapeReplyText(text);
}

std::string ErrorReply(std::string_view text) {
    return std::string(ErrorReplyPrefix) + EscapeReplyText(text);
}

std::string EscapeReplyText(std::string_view text) {
    static constexpr ByteSet special = MakeByteSet("\n\r\\");
    std::string escaped;
    escaped.reserve(text.size());
    WalkByRuns(
        text, special, [&](std::string_view run) { escaped += run; },
        [&](char byte) {
            escaped += '\\';
            escaped += byte == '\n' ? 'n' : byte == '\r' ? 'r' : byte;
        });
    return escaped;
}

std::string UnescapeControlText(std::string text, std::size_t start) {
    // In place, because the text only gets shorter and replies can be large.
    std::size_t end = 0;
    for (std::size_t i = start; i < text.size();) {
        const std::size_t backslash = std::min(text.find('\\', i), text.size());
        std::memmove(text.data() + end, text.data() + i, backslash - i);
        end += backslash - i;
        i = backslash;
        if (i == text.size()) break;
        const char next = i + 1 < text.size() ? text[i + 1] : '\0';
        const bool escape = next == 'n' || next == 'r' || next == '\\';
        text[end++] = next == 'n' ? '\n' : next == 'r' ? '\r' : '\\';
        i += escape ? 2 : 1;
    }
    text.resize(end);
    return text;
}
