/// The trace: what the bridge does, line by line on standard error, for whoever has to find out from a client's log
/// what is wrong. Off by default; when off, it costs one comparison. Any thread.
#pragma once

#include "text/wide.h"

#include <atomic>
#include <exception>

/// 0: off. 1: what happens, with sizes and times. 2: contents as well.
inline std::atomic<int> TraceLevel = 0;

/// Sets the level from the environment variable ORVANE_MCP_TRACE.
void StartTrace();

/// The same, but at level 1 at least and on this standard stream.
void StartTraceOn(DWORD standardStream);

/// Bytes that the trace shows only at level 2.
struct TraceContents {
    std::string_view Bytes;
};

/// The start of `bytes` on one line, with control bytes escaped.
std::string PrintableBytes(std::string_view bytes);

/// The contents as the end of a line; empty below level 2.
std::string TracePart(TraceContents contents);

/// Writes the line, with the time and this process's id, in a single write. Failures are ignored.
void WriteTraceLine(std::string_view text);

inline std::string_view TracePart(std::string_view text) {
    return text;
}
inline std::string TracePart(std::size_t number) {
    return std::to_string(number);
}
inline std::string TracePart(const WideString& text) {
    return PrintableBytes(WideToUtf8(text));
}

/// Traces a line made of these parts: texts, numbers, names, contents. Never fails: out of memory, it drops the line.
template <typename... Parts>
void Trace(const Parts&... parts) noexcept {
    if (TraceLevel == 0) return;
    try {
        std::string line;
        (line.append(TracePart(parts)), ...);
        WriteTraceLine(line);
    } catch (const std::exception&) {
        // Drop the line.
    }
}
