#include "tools/results.h"

#include "control/protocol.h"
#include "hostlink/connection.h"
#include "mcp/framing.h"
#include "tools/image_results.h"

void RunControlCommand(std::string_view idText, std::string_view line) {
    std::string reply;
    // The first send also fails, at once, when there is no connection yet: the second is how one comes up.
    const bool answered = SendControlLine(line, reply) ||
                          (EnsureControlConnection(MainThreadConnectTimeOut) && SendControlLine(line, reply));
    if (!answered) return WriteTextResult(idText, SendFailureText, true);
    RenderControlReply(idText, reply);
}

void RenderControlReply(std::string_view idText, std::string_view reply) {
    if (reply.starts_with(OkReplyPrefix)) {
        WriteContentResult(idText, UnescapeControlText(reply.substr(OkReplyPrefix.size())));
    } else if (reply.starts_with(ErrorReplyPrefix)) {
        WriteTextResult(idText, UnescapeControlText(reply.substr(ErrorReplyPrefix.size())), true);
    } else {
        WriteContentResult(idText, std::string(reply));
    }
}

void WriteTextResult(std::string_view idText, std::string_view text, bool isError) {
    std::string body = BeginTextBlock(idText, text);
    body.append(R"("}],"isError":)").append(isError ? "true" : "false").append("}}");
    WriteMcpMessage(body);
}

std::string BeginTextBlock(std::string_view idText, std::string_view text) {
    std::string body(ReplyHead);
    body.append(idText).append(R"(,"result":{"content":[{"type":"text","text":")").append(EscapeJsonText(text));
    return body;
}

std::string EscapeJsonText(std::string_view text) {
    constexpr char hexDigits[] = "0123456789abcdef";
    std::string escaped;
    escaped.reserve(text.size() + 16);
    for (const char byte : text) {
        switch (byte) {
            case '\b': escaped += "\\b"; continue;
            case '\t': escaped += "\\t"; continue;
            case '\n': escaped += "\\n"; continue;
            case '\f': escaped += "\\f"; continue;
            case '\r': escaped += "\\r"; continue;
            case '"': escaped += "\\\""; continue;
            case '\\': escaped += "\\\\"; continue;
            default: break;
        }
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x20) {
            escaped.append("\\u00").append({hexDigits[value >> 4], hexDigits[value & 15]});
        } else {
            escaped += byte;
        }
    }
    return escaped;
}
