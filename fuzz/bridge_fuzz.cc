/// Bytes on the bridge's standard input, with a recording stand-in for the connection: each message gets the reply that a
/// plain second reading of the input expects, in its framing; what goes to the viewer is one line with the verb's number
/// of fields.

#include "bridge/message_loop.h"
#include "checks.h"
#include "hostlink/connection.h"
#include "mcp/catalogue.h"
#include "protocol/control_protocol.h"
#include "protocol/verbs.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace {

/// The tabs in the line of a positional verb with more than one field.
const std::pair<std::string_view, std::ptrdiff_t> TabsOf[] = {
    {Verb::SelectPin, 2},
    {Verb::ListComponents, 4},
    {Verb::BulkUpdateComponents, 5},
    {Verb::PdfiumExtractText, 7},
    {Verb::GetPdfPageContext, 8},
    {Verb::SearchFiles, 10},
    {Verb::SearchIndexedContent, 10},
};

void CheckLine(std::string_view line) {
    Require(line.find_first_of("\r\n") == std::string_view::npos, "a line has no line end");
    const auto verb = std::find_if(std::begin(HostVerbs), std::end(HostVerbs), [line](const HostVerb& known) {
        return known.HasPayload() ? line.starts_with(known.Literal) : line == known.Literal;
    });
    Require(verb != std::end(HostVerbs), "a line begins with a known verb");
    const auto tabs = std::count(line.begin(), line.end(), '\t');
    if (verb->Literal == Verb::UpdateComponent || verb->Literal == Verb::UpdateNet) {
        return Require(tabs >= 3 && tabs % 2 == 1, "an update has a subject and pairs");
    }
    std::ptrdiff_t expected = verb->HasPayload();
    for (const auto& [literal, own] : TabsOf) expected = verb->Literal == literal ? own : expected;
    Require(tabs == expected, "a line has its verb's fields");
}

}  // namespace

bool EnsureControlConnection(DWORD) {
    return true;
}

std::string LastClientName() {
    return "Claude MCP client (bridge pid 1)";
}

std::optional<std::string> SendControlLine(std::string_view line) {
    CheckLine(line);
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
    CaughtOutput caught;
    RunMessageLoop();
    std::fclose(std::exchange(stdin, console));
    std::string_view output = caught.Text();
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
