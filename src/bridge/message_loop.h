/// The bridge's loop: reads one message, answers it from its text alone, then reads the next. There is no handshake
/// state and no JSON parser.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

/// The id exactly as the client wrote it, a string with its quotes, as a view into `message`; nothing when the message
/// has none. The first "id" in the text counts, at any depth, even if it is a value.
[[nodiscard]] std::optional<std::string_view> ExtractMessageId(std::string_view message);

/// The text after each `"method":` in the message, at any depth, as views into `message`.
[[nodiscard]] std::vector<std::string_view> FindMethodValues(std::string_view message);

/// True if any of `values` starts with the string `name`, directly or after one blank.
[[nodiscard]] bool MessageHasMethod(const std::vector<std::string_view>& values, std::string_view name);

/// Answers messages on standard output until standard input ends or a message is larger than memory. Runs on the
/// bridge's calling thread only.
void RunMessageLoop();
