/// The bridge's loop: it reads one message at a time, judges it by its own text and answers it before it reads the
/// next. There is no handshake state and no JSON parser.
#pragma once

#include <string>
#include <string_view>

/// The id exactly as the client wrote it, a string with its quotes; empty when the message has none. Takes the
/// first "id" of the text, at any depth, even where it is a value.
std::string ExtractMessageId(std::string_view message);

/// True when the message holds the member "method" with the value `name`, written with one blank behind the colon
/// or none. The place in the message doesn't matter.
bool MessageHasMethod(std::string_view message, std::string_view name);

/// Answers messages on standard output until standard input ends, or until a message is larger than memory. Bridge's
/// calling thread only.
void RunMessageLoop();
