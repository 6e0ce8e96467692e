/// The trace: what the bridge does, a line at a time on standard error, for whoever has to find out from a client's log
/// why it doesn't work. Off unless asked for, and then it costs a look at one number. Any thread.
#pragma once

#include "text/wide.h"

#include <atomic>
#include <exception>

/// 0: off. 1: what happens, with sizes and times. 2: contents as well.
inline std::atomic<int> TraceLevel = 0;

/// Takes the level from the environment variable ORVANE_MCP_TRACE.
void StartTrace();

/// Traces at least level 1, on this standard stream.
void StartTraceOn(DWORD standardStream);

/// Bytes that are shown at level 2 only.
struct TraceContents {
    std::string_view Bytes;
};

/// The beginning of `bytes` on one line, with an escape for each control byte.
std::string PrintableBytes(std::string_view bytes);

/// The contents as the end of a line; empty below level 2.
std::string TracePart(TraceContents contents);

/// Writes the line in one write, with the time and this process's id. A failure is nobody's concern.
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

/// Traces a line of these parts: texts, numbers, names, contents. Never fails: short of memory, it drops the line.
template <typename... Parts>
void Trace(const Parts&... parts) noexcept {
    if (TraceLevel == 0) return;
    try {
        std::string line;
        (line.append(TracePart(parts)), ...);
        WriteTraceLine(line);
    } catch (const std::exception&) {
        // What is traced goes on without it.
    }
}
