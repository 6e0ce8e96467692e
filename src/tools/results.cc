#include "tools/results.h"

#include "hostlink/connection.h"
#include "mcp/framing.h"
#include "protocol/control_protocol.h"
#include "text/trim.h"

#include <algorithm>
#include <new>
#include <utility>

namespace {

// A result is ReplyHead, the id, these pieces and the contents between them.
constexpr std::string_view TextBlockHead = R"(,"result":{"content":[{"type":"text","text":")";
constexpr std::string_view ImageBlockHead = R"("},{"type":"image","mimeType":")";
constexpr std::string_view ImageDataHead = R"(","data":")";
constexpr std::string_view SuccessTail = R"("}],"isError":false}})";
constexpr std::string_view ErrorTail = R"("}],"isError":true}})";

constexpr std::string_view MarkerLiteral = "ORVANE_MCP_IMAGE ";
constexpr std::string_view MimeTypeKey = "mime_type=";
constexpr std::string_view DataKey = " data=";

/// The start of the first line that begins with the marker literal; npos when there is none.
std::size_t FindMarkerLine(std::string_view text) {
    for (std::size_t start = 0;;) {
        if (text.substr(start).starts_with(MarkerLiteral)) return start;
        const std::size_t lineFeed = text.find('\n', start);
        if (lineFeed == std::string_view::npos) return lineFeed;
        start = lineFeed + 1;
    }
}

/// The values in a marker line; nothing if one is missing or empty.
std::optional<ImageMarker> ParseMarkerLine(std::string_view line) {
    const std::size_t mimeTypeKey = line.find(MimeTypeKey, MarkerLiteral.size());
    const std::size_t dataKey = line.find(DataKey, MarkerLiteral.size());
    if (mimeTypeKey == std::string_view::npos || dataKey == std::string_view::npos) return std::nullopt;
    const std::size_t mimeTypeStart = mimeTypeKey + MimeTypeKey.size();
    const std::size_t dataStart = dataKey + DataKey.size();
    if (dataKey <= mimeTypeStart || dataStart == line.size()) return std::nullopt;
    return ImageMarker{line.substr(mimeTypeStart, dataKey - mimeTypeStart), line.substr(dataStart)};
}

}  // namespace

void RunControlCommand(std::string_view idText, std::string_view line) {
    std::optional<std::string> reply;
    try {
        // Without a connection the first attempt fails at once; the second one follows a search for a viewer.
        reply = SendControlLine(line);
        if (!reply && EnsureControlConnection(MainThreadConnectTimeOut)) reply = SendControlLine(line);
    } catch (const std::bad_alloc&) {
        // The command was carried out. Sending it again would repeat its edit.
        return WriteTextResult(idText, ReplyTooLargeText, true);
    }
    if (!reply) return WriteTextResult(idText, SendFailureText, true);
    RenderControlReply(idText, std::move(*reply));
}

void RenderControlReply(std::string_view idText, std::string reply) {
    if (reply.starts_with(OkReplyPrefix)) {
        WriteContentResult(idText, UnescapeControlText(std::move(reply), OkReplyPrefix.size()));
    } else if (reply.starts_with(ErrorReplyPrefix)) {
        WriteTextResult(idText, UnescapeControlText(std::move(reply), ErrorReplyPrefix.size()), true);
    } else {
        WriteContentResult(idText, reply);
    }
}

void WriteTextResult(std::string_view idText, std::string_view text, bool isError) {
    WriteMcpMessage({ReplyHead, idText, TextBlockHead, JsonText(text), isError ? ErrorTail : SuccessTail});
}

void WriteContentResult(std::string_view idText, std::string_view text) {
    const auto [before, after, image] = ExtractImageMarker(text);
    if (!image) {
        return WriteMcpMessage({ReplyHead, idText, TextBlockHead, JsonText(before), JsonText(after), SuccessTail});
    }
    // The data is written unescaped: base64 has nothing to escape, and checking that would take another pass.
    WriteMcpMessage({ReplyHead, idText, TextBlockHead, JsonText(before), JsonText(after), ImageBlockHead,
                     JsonText(image->MimeType), ImageDataHead, image->Data, SuccessTail});
}

ReplyContent ExtractImageMarker(std::string_view text) {
    const std::size_t start = FindMarkerLine(text);
    if (start == std::string_view::npos) return {text, {}, {}};
    const std::size_t end = std::min(text.find('\n', start), text.size());
    ReplyContent content{text.substr(0, start), WithoutLineEnd(text.substr(end)),
                         ParseMarkerLine(text.substr(start, end - start))};
    if (content.TextAfter.empty()) {
        content.TextBefore = WithoutLineEnd(content.TextBefore);
    } else {
        content.TextAfter.remove_prefix(1);  // the marker line's own line feed
    }
    return content;
}
