/// The bridge's loop: it reads one message at a time, judges it by its own text and answers it before it reads the
/// next. There is no handshake state and no JSON parser.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

/// The id exactly as the client wrote it, a string with its quotes, as a view into `message`; nothing when the message
/// has none. The first "id" of the text decides, at any depth, even where it is a value.
[[nodiscard]] std::optional<std::string_view> ExtractMessageId(std::string_view message);

/// What follows each member "method" and its colon, at any depth of the message's text. Views into `message`.
[[nodiscard]] std::vector<std::string_view> FindMethodValues(std::string_view message);

/// Whether any of `values` is the string `name`, written right after its colon or after one blank.
[[nodiscard]] bool MessageHasMethod(const std::vector<std::string_view>& values, std::string_view name);

/// Answers messages on standard output until standard input ends, or until a message is larger than memory. Bridge's
/// calling thread only.
void RunMessageLoop();
