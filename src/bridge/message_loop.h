/// The bridge's loop: it reads one message at a time, judges it by its own text and answers it before it reads the
/// next. There is no handshake state and no JSON parser.
#pragma once

#include <optional>
#include <string_view>

/// The id exactly as the client wrote it, a string with its quotes, as a view into `message`; nothing when the message
/// has none. The first "id" of the text decides, at any depth, even where it is a value.
[[nodiscard]] std::optional<std::string_view> ExtractMessageId(std::string_view message);

/// What a message asks for.
enum class Method { Initialize, Initialized, ToolsList, ToolsCall, Other };

/// The method of a message: the value of any member "method" of the text, at any depth, written with one blank after
/// the colon or none. Among several, the one that Method lists first.
[[nodiscard]] Method FindMethod(std::string_view message);

/// Answers messages on standard output until standard input ends, or until a message is larger than memory. Bridge's
/// calling thread only.
void RunMessageLoop();
