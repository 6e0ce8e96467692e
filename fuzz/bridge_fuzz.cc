/// Bytes on the bridge's standard input, with a recording stand-in for the connection: each message gets the reply that
/// a plain second reading of the input expects, in its framing; what goes to the viewer is one line.

#include "bridge/message_loop.h"
#include "checks.h"
#include "hostlink/connection.h"
#include "mcp/catalogue.h"
#include "protocol/control_protocol.h"
#include "protocol/verbs.h"

#include <cstdint>
#include <utility>

bool EnsureControlConnection(DWORD) {
    return true;
}

std::string LastClientName() {
    return "Claude MCP client (bridge pid 1)";
}

std::optional<std::string> SendControlLine(std::string_view line) {
    const auto begins = [line](const HostVerb& verb) { return line.starts_with(verb.Literal); };
    Require(std::any_of(std::begin(HostVerbs), std::end(HostVerbs), begins), "a line begins with a known verb");
    Require(line.find_first_of("\r\n") == line.npos, "a line has no line end");
    const std::string echo = EscapeReplyText(line);
    switch (line.size() % 6) {
        case 0: return std::nullopt;
        case 1: return "ERR\t" + echo;
        case 2: return "OK\tbefore\\nORVANE_MCP_IMAGE mime_type=image/png data=QUJD\\n" + echo;
        case 3: return echo;
        case 4: throw std::bad_alloc();
        default: return "OK\t" + echo;
    }
}

/// What follows the id in the reply to a message, or its beginning; "" when it gets none.
static std::string_view ExpectedTail(const std::string& m) {
    const std::pair<std::string, std::string_view> methods[] = {
        {"initialize", InitializeResultText},
        {"notifications/initialized", ""},
        {"tools/list", ToolListResultText},
        {"tools/call", R"(,"result":{"content":[{"type":"text","text":")"},
    };
    for (const auto& [name, tail] : methods) {
        const std::string value = '"' + name + '"';
        if (m.find("\"method\":" + value) != m.npos || m.find("\"method\": " + value) != m.npos) return tail;
    }
    return IdOf(m).empty() ? "" : R"(,"error":{"code":-32601,"message":"Method not found"}})";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string bytes(reinterpret_cast<const char*>(data), size);
    std::string_view input = bytes;
    if (input.empty()) return 0;
    std::FILE* const console = std::exchange(stdin, fmemopen(bytes.data(), bytes.size(), "rb"));
    const std::string written = Output(RunMessageLoop);
    std::fclose(std::exchange(stdin, console));
    std::string_view output = written;
    while (const std::optional<Message> message = TakeInputMessage(input)) {
        const std::string_view tail = ExpectedTail(message->Body);
        if (tail.empty()) continue;
        const std::string id = IdOf(message->Body), idText = id.empty() ? "null" : id;
        const std::optional<Message> reply = TakeOutputMessage(output);
        Require(reply && reply->Framed == message->Framed, "a message that wants a reply gets one in its framing");
        const std::string head = R"({"jsonrpc":"2.0","id":)" + idText + std::string(tail);
        if (reply->Body == head) continue;
        Require(head.ends_with(":\"") && reply->Body.starts_with(head), "a reply is its method's and its id's");
        Require(!IsJson(idText) || !IsUtf8(reply->Body) || IsJson(reply->Body), "a reply is valid JSON");
    }
    Require(output.empty(), "no message gets a second reply");
    return 0;
}
