#include "mcp/framing.h"

#include "text/trace.h"
#include "text/trim.h"

#include <cstdio>
#include <cstdlib>

namespace {

/// Whether the last message read had a Content-Length header.
bool FramedOutput = true;

char LowerAscii(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

/// ReadInputLine without the line end.
bool ReadStrippedLine(std::string& line) {
    if (!ReadInputLine(line)) return false;
    line.resize(WithoutLineEnd(line).size());
    return true;
}

}  // namespace

bool ReadInputLine(std::string& line) {
    line.clear();
    for (int byte; (byte = std::fgetc(stdin)) != EOF;) {
        line.push_back(static_cast<char>(byte));
        if (byte == '\n') break;
    }
    return !line.empty();
}

bool ParseContentLength(const std::string& line, std::size_t& length) {
    constexpr std::string_view header = "content-length:";
    if (line.size() < header.size()) return false;
    for (std::size_t i = 0; i < header.size(); ++i) {
        if (LowerAscii(line[i]) != header[i]) return false;
    }
    // strtoull passes over the blanks and tabs in front of the number. A negative number wraps to a huge one.
    const char* const digits = line.c_str() + header.size();
    char* end = nullptr;
    const unsigned long long number = std::strtoull(digits, &end, 10);
    if (end == digits || number < 1 || number > LargestFramedBody) return false;
    length = static_cast<std::size_t>(number);
    return true;
}

bool ReadMcpMessage(std::string& out) {
    out.clear();
    do {
        if (!ReadStrippedLine(out)) return false;
    } while (out.empty());

    std::size_t length = 0;
    FramedOutput = ParseContentLength(out, length);
    if (!FramedOutput) {
        Trace("message of ", out.size(), " bytes, a bare line", TraceContents{{out}});
        return true;
    }

    while (ReadStrippedLine(out) && !out.empty()) {
    }
    out.assign(length, '\0');
    for (std::size_t arrived = 0; arrived < length;) {
        const std::size_t count = std::fread(out.data() + arrived, 1, length - arrived, stdin);
        if (count == 0) return false;
        arrived += count;
    }
    Trace("message of ", length, " bytes, framed", TraceContents{{out}});
    return true;
}

void WriteMcpMessage(std::string_view body) {
    WriteMcpMessage({body});
}

void WriteMcpMessage(std::initializer_list<std::string_view> parts) {
    std::size_t length = 0;
    for (const std::string_view part : parts) length += part.size();
    if (FramedOutput) {
        char header[64];
        std::snprintf(header, sizeof header, "Content-Length: %zu\r\n\r\n", length);
        std::fputs(header, stdout);
    }
    for (const std::string_view part : parts) std::fwrite(part.data(), 1, part.size(), stdout);
    if (!FramedOutput) std::fputc('\n', stdout);
    std::fflush(stdout);
    Trace("answer of ", length, " bytes written", TraceContents{parts});
}
