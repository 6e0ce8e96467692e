/// A reply line from the pipe: it becomes one well-formed result, and escaping then unescaping gives a text back.

#include "checks.h"
#include "protocol/control_protocol.h"
#include "tools/results.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

namespace {

struct Marker {
    std::string RestOfText, MimeType, Data;
};

/// The first marker line of a text, found by copying line after line.
std::optional<Marker> PlainMarker(const std::string& text) {
    const std::string literal = "ORVANE_MCP_IMAGE ";
    Marker marker;
    bool found = false;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string line = text.substr(start, end - start);
        const bool last = end == text.size();
        if (!found && line.compare(0, literal.size(), literal) == 0) {
            found = true;
            const std::string rest = line.substr(literal.size());
            const std::size_t mime = rest.find("mime_type=");
            const std::size_t data = rest.find(" data=");
            if (mime != std::string::npos && data != std::string::npos && mime < data) {
                marker.MimeType = rest.substr(mime + 10, data - mime - 10);
                marker.Data = rest.substr(data + 6);
            }
        } else {
            marker.RestOfText += last ? line : line + "\n";
        }
        start = end + 1;
    }
    if (!found) return std::nullopt;
    while (!marker.RestOfText.empty() && (marker.RestOfText.back() == '\r' || marker.RestOfText.back() == '\n')) {
        marker.RestOfText.pop_back();
    }
    return marker;
}

void CheckMarker(const std::string& text) {
    const ReplyContent content = ExtractImageMarker(text);
    const std::optional<Marker> plain = PlainMarker(text);
    const std::string rest = std::string(content.TextBefore) + std::string(content.TextAfter);
    Require(rest == (plain ? plain->RestOfText : text), "only the marker line leaves the text");
    const bool isImage = plain && !plain->MimeType.empty() && !plain->Data.empty();
    Require(content.Image.has_value() == isImage, "an image needs both values");
    if (!isImage) return;
    Require(content.Image->MimeType == plain->MimeType && content.Image->Data == plain->Data,
            "an image has its values");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string reply(reinterpret_cast<const char*>(bytes), size);

    const std::string escaped = EscapeReplyText(reply);
    Require(escaped.find_first_of("\r\n") == std::string::npos, "an escaped text is one line");
    Require(UnescapeControlText(escaped) == reply, "unescaping undoes escaping");
    CheckMarker(reply);

    CaughtOutput caught;
    RenderControlReply("1", reply);
    std::string_view output = caught.Text();
    OutputMessage result{};
    Require(TakeOutputMessage(output, result) && output.empty(), "a reply gives one result");
    // Image data goes out as the viewer sent it: data that a JSON string can't hold is the viewer's fault.
    const std::string text = reply.starts_with("OK\t") ? UnescapeControlText(reply.substr(3)) : reply;
    const auto image = reply.starts_with("ERR\t") ? std::nullopt : ExtractImageMarker(text).Image;
    const bool plainData = !image || std::all_of(image->Data.begin(), image->Data.end(), [](unsigned char byte) {
        return byte >= ' ' && byte != '"' && byte != '\\';
    });
    if (IsUtf8(result.Body) && plainData) Require(IsJson(result.Body), "a result is valid JSON");
    return 0;
}
