#include "tools/results.h"

#include "control/protocol.h"
#include "hostlink/connection.h"
#include "mcp/framing.h"
#include "text/byte_runs.h"
#include "tools/image_results.h"

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

}  // namespace

void RunControlCommand(std::string_view idText, std::string_view line) {
    std::string reply;
    // The first send also fails, at once, when there is no connection yet: the second is how one comes up.
    const bool answered = SendControlLine(line, reply) ||
                          (EnsureControlConnection(MainThreadConnectTimeOut) && SendControlLine(line, reply));
    if (!answered) return WriteTextResult(idText, SendFailureText, true);
    RenderControlReply(idText, std::move(reply));
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

std::string BeginTextBlock(std::string_view idText, std::string_view text, std::size_t more) {
    constexpr std::string_view textHead = R"(,"result":{"content":[{"type":"text","text":")";
    std::string body;
    // Room for the whole result, unless the text needs many escapes.
    body.reserve(ReplyHead.size() + idText.size() + textHead.size() + text.size() + text.size() / 16 + more + 256);
    body.append(ReplyHead).append(idText).append(textHead);
    AppendJsonText(body, text);
    return body;
}

std::string EscapeJsonText(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size() + 16);
    AppendJsonText(escaped, text);
    return escaped;
}
