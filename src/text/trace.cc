#include "text/trace.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

std::atomic<DWORD> TraceStream = STD_ERROR_HANDLE;

}  // namespace

void StartTrace() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment
    const char* const asked = std::getenv("ORVANE_MCP_TRACE");
    TraceLevel = asked != nullptr && *asked >= '1' && *asked <= '9' ? *asked - '0' : 0;
}

void StartTraceOn(DWORD standardStream) {
    StartTrace();
    TraceLevel = std::max<int>(TraceLevel, 1);
    TraceStream = standardStream;
}

std::string PrintableBytes(std::string_view bytes) {
    constexpr std::size_t most = 500;
    std::size_t length = std::min(bytes.size(), most);
    const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    // Don't cut inside a character.
    while (length > 0 && length < bytes.size() && (byteAt(length) & 0xC0) == 0x80) --length;
    std::string shown;
    for (std::size_t i = 0; i < length; ++i) {
        constexpr unsigned char firstPrintable = 0x20, deleteByte = 0x7F;
        if (byteAt(i) >= firstPrintable && byteAt(i) != deleteByte) {
            shown += bytes[i];
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02X", byteAt(i));
            shown += escape;
        }
    }
    return length < bytes.size() ? shown + " ..." : shown;
}

std::string TracePart(TraceContents contents) {
    return TraceLevel < 2 ? std::string() : ": " + PrintableBytes(contents.Bytes);
}

void WriteTraceLine(std::string_view text) {
    FILETIME now{};
    SYSTEMTIME local{};
    GetSystemTimeAsFileTime(&now);
    FileTimeToLocalFileTime(&now, &now);
    FileTimeToSystemTime(&now, &local);
    char head[64];
    std::snprintf(head, sizeof head, "%02u:%02u:%02u.%03u orvane_mcp %lu: ", local.wHour, local.wMinute, local.wSecond,
                  local.wMilliseconds, static_cast<unsigned long>(GetCurrentProcessId()));
    const std::string line = std::string(head).append(text).append("\n");
    DWORD written = 0;
    WriteFile(GetStdHandle(TraceStream), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}
