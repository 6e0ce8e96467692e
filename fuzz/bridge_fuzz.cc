/// Bytes on the bridge's standard input, with a recording stand-in for the connection: what comes out is well framed,
/// at most one reply a message, valid JSON; what goes to the viewer is one line with the verb's number of fields.

#include "bridge/message_loop.h"
#include "checks.h"
#include "hostlink/connection.h"
#include "mcp/framing.h"
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

static bool WantsReply(const std::string& body) {
    const Method method = FindMethod(body);
    return method != Method::Initialized && (method != Method::Other || ExtractMessageId(body));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    std::string input(reinterpret_cast<const char*>(data), size);
    std::FILE* const console = std::exchange(stdin, fmemopen(input.data(), input.size(), "rb"));
    CaughtOutput caught;
    RunMessageLoop();
    std::rewind(stdin);
    std::string_view output = caught.Text();
    while (const std::optional<std::string> message = ReadMcpMessage()) {
        if (!WantsReply(*message)) continue;
        const auto reply = TakeOutputMessage(output);
        Require(reply.has_value(), "every message that wants a reply gets one");
        const std::string idText(ExtractMessageId(*message).value_or("null"));
        Require(reply->starts_with("{\"jsonrpc\":\"2.0\",\"id\":" + idText + ","), "a reply carries the id");
        Require(!IsJson(idText) || !IsUtf8(*reply) || IsJson(*reply), "a reply is valid JSON");
    }
    std::fclose(std::exchange(stdin, console));
    Require(output.empty(), "no message gets a second reply");
    return 0;
}
