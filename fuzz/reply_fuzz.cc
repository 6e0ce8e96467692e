/// A reply line from the pipe: it becomes one well-formed result, and escaping then unescaping gives a text back.

#include "checks.h"
#include "protocol/control_protocol.h"
#include "tools/results.h"

#include <algorithm>
#include <cstdint>
#include <optional>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string reply(reinterpret_cast<const char*>(bytes), size);

    const std::string escaped = EscapeReplyText(reply);
    Require(escaped.find_first_of("\r\n") == std::string::npos, "an escaped text is one line");
    Require(UnescapeControlText(escaped) == reply, "unescaping undoes escaping");
    const ReplyContent content = ExtractImageMarker(reply);
    const std::string rest = std::string(content.TextBefore) + std::string(content.TextAfter);
    Require(reply.starts_with(content.TextBefore) && rest.size() <= reply.size(), "a marker only shortens the text");

    CaughtOutput caught;
    RenderControlReply("1", reply);
    std::string_view output = caught.Text();
    const auto result = TakeOutputMessage(output);
    Require(result && output.empty(), "a reply gives one result");
    // Image data goes out as the viewer sent it: data that a JSON string can't hold is the viewer's fault.
    const std::string text = reply.starts_with("OK\t") ? UnescapeControlText(reply.substr(3)) : reply;
    const auto image = reply.starts_with("ERR\t") ? std::nullopt : ExtractImageMarker(text).Image;
    const bool plainData = !image || std::all_of(image->Data.begin(), image->Data.end(), [](unsigned char byte) {
        return byte >= ' ' && byte != '"' && byte != '\\';
    });
    if (IsUtf8(*result) && plainData) Require(IsJson(*result), "a result is valid JSON");
    return 0;
}
