#include "bridge/message_loop.h"

#include "hostlink/connection.h"
#include "mcp/catalogue.h"
#include "mcp/framing.h"
#include "text/trace.h"
#include "tools/tool_calls.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <new>

namespace {

constexpr std::string_view MethodNotFoundText = R"(,"error":{"code":-32601,"message":"Method not found"}})";

void WriteReply(std::string_view idText, std::string_view tail) {
    WriteMcpMessage({ReplyHead, idText, tail});
}

/// The string at the start of `text`, quotes included; empty when the closing quote is missing.
std::string_view LeadingString(std::string_view text) {
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') return text.substr(0, i + 1);
        if (text[i] == '\\') ++i;
    }
    return {};
}

/// The first occurrence of `Key` at or after `from`; npos when there is none. Messages are full of quotes, so searching
/// for a key's first byte would be slow.
template <const std::string_view& Key>
std::size_t FindKey(std::string_view message, std::size_t from = 0) {
    static const std::boyer_moore_horspool_searcher searcher(Key.begin(), Key.end());
    const auto* const found = searcher(message.data() + from, message.data() + message.size()).first;
    const auto position = static_cast<std::size_t>(found - message.data());
    return position < message.size() ? position : std::string_view::npos;
}

constexpr std::string_view IdKey = R"("id")";
constexpr std::string_view MethodKey = R"("method":)";

/// Answers one message, or ignores it. If the message has several methods, the first one in this order counts.
void HandleMessage(std::string_view message) {
    const std::optional<std::string_view> id = ExtractMessageId(message);
    const std::string_view idText = id.value_or("null");
    const std::vector<std::string_view> methods = FindMethodValues(message);

    // Connect only after the reply is written: a missing viewer delays the next message, but never this reply.
    if (MessageHasMethod(methods, "initialize")) {
        WriteReply(idText, InitializeResultText);
        EnsureControlConnection(MainThreadConnectTimeOut);
    } else if (MessageHasMethod(methods, "notifications/initialized")) {
        // Nothing to do: the bridge keeps no handshake state.
    } else if (MessageHasMethod(methods, "tools/list")) {
        WriteReply(idText, ToolListResultText);
        EnsureControlConnection(MainThreadConnectTimeOut);
    } else if (MessageHasMethod(methods, "tools/call")) {
        HandleToolCall(idText, message);
    } else if (id) {
        WriteReply(idText, MethodNotFoundText);
    }
}

}  // namespace

std::optional<std::string_view> ExtractMessageId(std::string_view message) {
    const std::size_t found = FindKey<IdKey>(message);
    if (found == std::string_view::npos) return std::nullopt;
    const std::size_t colon = message.find(':', found + IdKey.size());
    if (colon == std::string_view::npos) return std::nullopt;
    // Line ends are not skipped: they become part of the id, and the reply is still valid JSON.
    const std::size_t start = message.find_first_not_of(" \t", colon + 1);
    if (start == std::string_view::npos) return std::nullopt;
    const std::string_view rest = message.substr(start);
    const std::string_view id = rest.front() == '"' ? LeadingString(rest) : rest.substr(0, rest.find_first_of(",} "));
    if (id.empty()) return std::nullopt;
    return id;
}

std::vector<std::string_view> FindMethodValues(std::string_view message) {
    std::vector<std::string_view> values;
    for (std::size_t at = 0; (at = FindKey<MethodKey>(message, at)) != std::string_view::npos;) {
        at += MethodKey.size();
        values.push_back(message.substr(at));
    }
    return values;
}

bool MessageHasMethod(const std::vector<std::string_view>& values, std::string_view name) {
    return std::any_of(values.begin(), values.end(), [name](std::string_view value) {
        if (value.starts_with(' ')) value.remove_prefix(1);
        return value.starts_with('"') && value.substr(1).starts_with(name) &&
               value.substr(1 + name.size()).starts_with('"');
    });
}

void RunMessageLoop() try {
    while (const std::optional<std::string> message = ReadMcpMessage()) HandleMessage(*message);
    Trace("input ended");
} catch (const std::bad_alloc&) {
    Trace("message larger than memory: the bridge ends");
    // The rest of the message can't be told apart from the next one. End, so that the client notices.
}
