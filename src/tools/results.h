/// Turns a control line into one MCP result: the round trip to the viewer, and the results of all tools, text and
/// images. Each function called Run, Render or Write writes exactly one result; Render and Write do it without
/// allocating. All run on the bridge's calling thread only.
#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What the agent reads when a command was not delivered.
inline constexpr std::string_view SendFailureText = "Failed to send command to Orvane.";

/// What the agent reads when the viewer has carried out a command but its reply is larger than memory.
inline constexpr std::string_view ReplyTooLargeText = "Orvane answered, but its reply is too large to pass on.";

/// Sends `line` (without a line feed) to the viewer and writes its answer, or a failure, as the result. If the first
/// attempt fails, sends it once more over a new connection. Blocks however long the viewer takes to answer.
void RunControlCommand(std::string_view idText, std::string_view line);

/// Writes `reply`, a reply line without its line feed, as a result.
void RenderControlReply(std::string_view idText, std::string reply);

/// Writes a result of one text block.
void WriteTextResult(std::string_view idText, std::string_view text, bool isError);

/// Writes the result of a successful reply, with an image block when `text` has a marker with a type and data.
void WriteContentResult(std::string_view idText, std::string_view text);

/// The picture in a marker line.
struct ImageMarker {
    std::string_view MimeType;
    std::string_view Data;
};

/// A reply's text taken apart at its first marker line. All are views into that text.
struct ReplyContent {
    std::string_view TextBefore;
    /// What follows the marker line. Line ends at the very end of the remaining text are removed.
    std::string_view TextAfter;
    /// Nothing if the marker line lacks a value. The line is removed anyway.
    std::optional<ImageMarker> Image;
};

/// Removes the first marker line from `text`. A text without a marker line is TextBefore, unchanged.
[[nodiscard]] ReplyContent ExtractImageMarker(std::string_view text);
