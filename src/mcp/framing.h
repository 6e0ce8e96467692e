/// Reads messages from standard input and writes messages to standard output. A message follows a Content-Length header
/// block or is one bare line; each reply uses the framing of the last message read.
/// Everything here runs on the bridge's calling thread.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

/// The largest body that a header may announce; the smallest is 1 byte.
inline constexpr std::size_t LargestFramedBody = 33554432;

/// How every reply begins; the id follows.
inline constexpr std::string_view ReplyHead = R"({"jsonrpc":"2.0","id":)";

/// Reads the next message, blocking until it is complete. Returns nothing if input ends first; an unfinished message is
/// dropped. Throws std::bad_alloc for a message larger than memory.
[[nodiscard]] std::optional<std::string> ReadMcpMessage();

/// One part of a message to write: bytes to send unchanged, or text to escape for the inside of a JSON string. Doesn't
/// own the text.
struct MessagePart {
    std::string_view Text;
    bool Escaped;

    // NOLINTNEXTLINE(google-explicit-constructor): a list of parts can then hold plain texts
    constexpr MessagePart(std::string_view text, bool escaped = false) : Text(text), Escaped(escaped) {}
};

/// The part that puts `text` inside a JSON string.
constexpr MessagePart JsonText(std::string_view text) {
    return {text, true};
}

/// Writes one message and flushes. The parts are written from where they are and nothing is allocated, so running out
/// of memory never leaves a message half written. Write errors are ignored: when a client is gone, its input ends too.
void WriteMcpMessage(std::initializer_list<MessagePart> parts);

/// Reads one line, including its line feed. A last line without a line feed still counts; nothing when input has ended.
[[nodiscard]] std::optional<std::string> ReadInputLine();

/// The length in `line`, a Content-Length header without its line end; nothing if `line` isn't one or the length is out
/// of range.
[[nodiscard]] std::optional<std::size_t> ParseContentLength(const std::string& line);
