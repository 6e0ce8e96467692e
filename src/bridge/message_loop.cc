#include "bridge/message_loop.h"

#include "hostlink/connection.h"
#include "mcp/catalogue.h"
#include "mcp/framing.h"
#include "tools/tool_calls.h"

#include <new>

namespace {

constexpr std::string_view MethodNotFoundText = R"(,"error":{"code":-32601,"message":"Method not found"}})";

void WriteReply(std::string_view idText, std::string_view tail) {
    WriteMcpMessage({ReplyHead, idText, tail});
}

/// A string from its opening quote, at the text's start, to its closing one; empty when that is missing.
std::string_view QuotedIdText(std::string_view text) {
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') return text.substr(0, i + 1);
        if (text[i] == '\\') ++i;
    }
    return {};
}

/// Answers one message, or passes over it.
void HandleMessage(std::string_view message) {
    std::string idText = ExtractMessageId(message);
    const bool hasId = !idText.empty();
    if (!hasId) idText = "null";

    // The order decides, since each test looks at the whole text. The connection attempts come behind the replies,
    // so that a missing viewer never holds up a handshake.
    if (MessageHasMethod(message, "initialize")) {
        WriteReply(idText, InitializeResultText);
        EnsureControlConnection(MainThreadConnectTimeOut);
    } else if (MessageHasMethod(message, "notifications/initialized")) {
        // Nothing is kept of the handshake.
    } else if (MessageHasMethod(message, "tools/list")) {
        WriteReply(idText, ToolListResultText);
        EnsureControlConnection(MainThreadConnectTimeOut);
    } else if (MessageHasMethod(message, "tools/call")) {
        HandleToolCall(idText, message);
    } else if (hasId) {
        WriteReply(idText, MethodNotFoundText);
    }
}

}  // namespace

std::string ExtractMessageId(std::string_view message) {
    constexpr std::string_view key = R"("id")";
    const std::size_t found = message.find(key);
    if (found == std::string_view::npos) return {};
    const std::size_t colon = message.find(':', found + key.size());
    if (colon == std::string_view::npos) return {};
    // Line ends are not passed over: they become part of the id, which leaves the reply valid JSON.
    const std::size_t start = message.find_first_not_of(" \t", colon + 1);
    if (start == std::string_view::npos) return {};
    const std::string_view rest = message.substr(start);
    return std::string(rest.front() == '"' ? QuotedIdText(rest) : rest.substr(0, rest.find_first_of(",} ")));
}

bool MessageHasMethod(std::string_view message, std::string_view name) {
    constexpr std::string_view key = R"("method":)";
    for (std::size_t at = message.find(key); at != std::string_view::npos; at = message.find(key, at + key.size())) {
        std::string_view value = message.substr(at + key.size());
        if (value.starts_with(' ')) value.remove_prefix(1);
        if (!value.starts_with('"') || !value.substr(1).starts_with(name)) continue;
        if (value.substr(1 + name.size()).starts_with('"')) return true;
    }
    return false;
}

void RunMessageLoop() try {
    for (std::string message; ReadMcpMessage(message);) HandleMessage(message);
} catch (const std::bad_alloc&) {
    // A message larger than memory: what follows can't be told from its rest, so the loop ends in order and the client
    // sees it.
}
