#include "tools/results.h"

#include "hostlink/connection.h"
#include "mcp/framing.h"
#include "protocol/control_protocol.h"
#include "text/byte_runs.h"
#include "text/trim.h"

#include <new>
#include <optional>
#include <utility>

namespace {

/// Appends the body of a JSON string for `text`.
void AppendJsonText(std::string& out, std::string_view text) {
    static constexpr ByteSet special = MakeByteSet("\"\\", 0x20);
    AppendByRuns(out, text, special, [](std::string& escaped, char byte) {
        constexpr char hexDigits[] = "0123456789abcdef";
        switch (byte) {
            case '\b': escaped += "\\b"; break;
            case '\t': escaped += "\\t"; break;
            case '\n': escaped += "\\n"; break;
            case '\f': escaped += "\\f"; break;
            case '\r': escaped += "\\r"; break;
            case '"': escaped += "\\\""; break;
            case '\\': escaped += "\\\\"; break;
            default: escaped.append("\\u00").append({hexDigits[byte >> 4], hexDigits[byte & 15]}); break;
        }
    });
}

/// The beginning of every result, up to and including the escaped text of its text block, with room for `more` bytes.
std::string BeginTextBlock(std::string_view idText, std::string_view text, std::size_t more = 0) {
    constexpr std::string_view textHead = R"(,"result":{"content":[{"type":"text","text":")";
    std::string body;
    // Room for the whole result, unless the text needs many escapes.
    body.reserve(ReplyHead.size() + idText.size() + textHead.size() + text.size() + text.size() / 16 + more + 256);
    body.append(ReplyHead).append(idText).append(textHead);
    AppendJsonText(body, text);
    return body;
}

constexpr std::string_view MarkerLiteral = "ORVANE_MCP_IMAGE ";
constexpr std::string_view MimeTypeKey = "mime_type=";
constexpr std::string_view DataKey = " data=";

/// Where the first line begins that opens with the marker literal; npos when none does.
std::size_t FindMarkerLine(std::string_view text) {
    for (std::size_t start = 0;;) {
        if (text.substr(start).starts_with(MarkerLiteral)) return start;
        const std::size_t lineFeed = text.find('\n', start);
        if (lineFeed == std::string_view::npos) return lineFeed;
        start = lineFeed + 1;
    }
}

}  // namespace

void RunControlCommand(std::string_view idText, std::string_view line) {
    // The first send also fails, at once, when there is no connection yet: the second is how one comes up.
    std::optional<std::string> reply;
    try {
        reply = SendControlLine(line);
        if (!reply && EnsureControlConnection(MainThreadConnectTimeOut)) reply = SendControlLine(line);
        if (reply) return RenderControlReply(idText, std::move(*reply));
    } catch (const std::bad_alloc&) {
        // The command was carried out: sent again, it would make its edit twice. The parts of the reply are freed by
        // now, and nothing of a result has been written.
        return WriteTextResult(idText, ReplyTooLargeText, true);
    }
    WriteTextResult(idText, SendFailureText, true);
}

void RenderControlReply(std::string_view idText, std::string reply) {
    if (reply.starts_with(OkReplyPrefix)) {
        WriteContentResult(idText, UnescapeControlText(std::move(reply), OkReplyPrefix.size()));
    } else if (reply.starts_with(ErrorReplyPrefix)) {
        WriteTextResult(idText, UnescapeControlText(std::move(reply), ErrorReplyPrefix.size()), true);
    } else {
        WriteContentResult(idText, std::move(reply));
    }
}

void WriteTextResult(std::string_view idText, std::string_view text, bool isError) {
    std::string body = BeginTextBlock(idText, text);
    body.append(R"("}],"isError":)").append(isError ? "true" : "false").append("}}");
    WriteMcpMessage(body);
}

std::string EscapeJsonText(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size() + 16);
    AppendJsonText(escaped, text);
    return escaped;
}

bool ExtractImageMarker(std::string& text, std::string& mimeType, std::string& data) {
    mimeType.clear();
    data.clear();
    const std::size_t start = FindMarkerLine(text);
    if (start == std::string::npos) return false;
    const std::size_t end = text.find('\n', start);
    const std::string_view line = std::string_view(text).substr(start, end - start);

    const std::size_t mimeTypeKey = line.find(MimeTypeKey, MarkerLiteral.size());
    const std::size_t dataKey = line.find(DataKey, MarkerLiteral.size());
    if (mimeTypeKey != std::string_view::npos && dataKey != std::string_view::npos && dataKey > mimeTypeKey) {
        const std::size_t mimeTypeStart = mimeTypeKey + MimeTypeKey.size();
        mimeType = line.substr(mimeTypeStart, dataKey - mimeTypeStart);
        data = line.substr(dataKey + DataKey.size());
    }

    text.erase(start, end == std::string::npos ? end : end - start + 1);
    text.resize(WithoutLineEnd(text).size());
    return !mimeType.empty() && !data.empty();
}

void WriteContentResult(std::string_view idText, std::string text) {
    std::string mimeType;
    std::string data;
    if (!ExtractImageMarker(text, mimeType, data)) return WriteTextResult(idText, text, false);
    std::string body = BeginTextBlock(idText, text, mimeType.size() + data.size());
    body.append(R"("},{"type":"image","mimeType":")").append(EscapeJsonText(mimeType));
    body.append(R"(","data":")").append(data).append(R"("}],"isError":false}})");
    WriteMcpMessage(body);
}
