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
#include <vector>

// ---- A connection that records
// ---------------------------------------------------------------------------------------

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

// ---- What is expected -----------------------------------------------------------------------------------------------

namespace {

struct InputMessage {
    bool Framed;
    std::string Body;
};

/// Splits the input by the framing's rules, slowly.
std::vector<InputMessage> SplitInput(std::string_view input) {
    std::vector<InputMessage> messages;
    const auto takeLine = [&input](std::string& line) {
        if (input.empty()) return false;
        const std::size_t end = std::min(input.find('\n'), input.size() - 1) + 1;
        line = input.substr(0, end);
        input.remove_prefix(end);
        while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
        return true;
    };
    for (std::string line; takeLine(line);) {
        if (line.empty()) continue;
        const std::optional<std::size_t> length = ParseContentLength(line);
        if (!length) {
            messages.push_back({false, line});
            continue;
        }
        while (takeLine(line) && !line.empty()) {
        }
        if (input.size() < *length) break;
        messages.push_back({true, std::string(input.substr(0, *length))});
        input.remove_prefix(*length);
    }
    return messages;
}

bool HasMethod(const std::string& body, const std::string& name) {
    return body.find("\"method\":\"" + name + "\"") != std::string::npos ||
           body.find("\"method\": \"" + name + "\"") != std::string::npos;
}

bool WantsReply(const std::string& body) {
    if (HasMethod(body, "initialize")) return true;
    if (HasMethod(body, "notifications/initialized")) return false;
    return HasMethod(body, "tools/list") || HasMethod(body, "tools/call") || ExtractMessageId(body);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    std::string input(reinterpret_cast<const char*>(data), size);
    std::FILE* const console = stdin;
    stdin = fmemopen(input.data(), input.size(), "rb");
    CaughtOutput caught;
    RunMessageLoop();
    std::fclose(stdin);
    stdin = console;

    std::string_view output = caught.Text();
    for (const InputMessage& message : SplitInput(input)) {
        if (!WantsReply(message.Body)) continue;
        OutputMessage reply{};
        Require(TakeOutputMessage(output, reply), "every message that wants a reply gets one");
        Require(reply.Framed == message.Framed, "a reply has its message's framing");
        const std::string idText(ExtractMessageId(message.Body).value_or("null"));
        Require(reply.Body.starts_with("{\"jsonrpc\":\"2.0\",\"id\":" + idText + ","), "a reply carries the id");
        Require(!IsJson(idText) || !IsUtf8(reply.Body) || IsJson(reply.Body), "a reply is valid JSON");
    }
    Require(output.empty(), "no message gets a second reply");
    return 0;
}
