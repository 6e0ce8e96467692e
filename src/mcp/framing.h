/// Turns standard input into messages and messages into standard output. A message follows a Content-Length header
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

/// Reads the next message, blocking until it is complete. Nothing when input ended first; an unfinished message is
/// dropped. Throws std::bad_alloc for a message larger than memory.
[[nodiscard]] std::optional<std::string> ReadMcpMessage();

/// One part of a message to write: bytes that go out unchanged, or text that is escaped for the inside of a JSON
/// string. It only refers to the text.
struct MessagePart {
    std::string_view Text;
    bool Escaped;

    // NOLINTNEXTLINE(google-explicit-constructor): a list of parts names plain texts as they are
    constexpr MessagePart(std::string_view text, bool escaped = false) : Text(text), Escaped(escaped) {}
};

/// The part that puts `text` inside a JSON string.
constexpr MessagePart JsonText(std::string_view text) {
    return {text, true};
}

/// Writes one message and flushes. The parts go out from where they are: nothing is allocated, so a message is never
/// half written for lack of memory. Write errors are ignored, since the input of a client that is gone ends too.
void WriteMcpMessage(std::initializer_list<MessagePart> parts);

/// Reads one line, including its line feed. A last line without a line feed still counts; nothing when input has ended.
[[nodiscard]] std::optional<std::string> ReadInputLine();

/// The length in a Content-Length header, given without its line end; nothing when `line` is not a usable one.
[[nodiscard]] std::optional<std::size_t> ParseContentLength(const std::string& line);
