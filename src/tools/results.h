/// From a control line to one MCP result: the round trip to the viewer, and the results of all tools, text and images.
/// Bridge's calling thread only; each function called Run, Render or Write writes exactly one result.
#pragma once

#include <string>
#include <string_view>

/// What the agent reads when a command was not delivered.
inline constexpr std::string_view SendFailureText = "Failed to send command to Orvane.";

/// What the agent reads when the viewer has carried out a command but its reply outgrows memory.
inline constexpr std::string_view ReplyTooLargeText = "Orvane answered, but its reply is too large to pass on.";

/// Sends `line` (without a line feed) to the viewer and writes its answer, or a failure, as the result. Sends again
/// once over a new connection when the first fails; blocks for as long as the viewer takes to answer.
void RunControlCommand(std::string_view idText, std::string_view line);

/// Writes the result that `reply`, a reply line without its line feed, stands for.
void RenderControlReply(std::string_view idText, std::string reply);

/// Writes a result of one text block.
void WriteTextResult(std::string_view idText, std::string_view text, bool isError);

/// Writes the result of a good reply, with an image block when `text` holds a marker with a type and data.
void WriteContentResult(std::string_view idText, std::string text);

/// Takes the first marker line out of `text`, and with it the line breaks that then end the text. True when the line
/// gave both values; a malformed marker is removed all the same. A text without a marker stays untouched.
bool ExtractImageMarker(std::string& text, std::string& mimeType, std::string& data);

/// The body of a JSON string for `text`, without the enclosing quotes. Bytes from 0x80 up pass unchanged.
std::string EscapeJsonText(std::string_view text);
