/// A reply line from the pipe: it becomes one well-formed result with the text and the image that a plain second
/// reading of the line gives, and escaping then unescaping gives a text back.

#include "checks.h"
#include "protocol/control_protocol.h"
#include "tools/results.h"

#include <cstdint>
#include <sstream>

namespace {

std::string Unescaped(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::size_t escape = text[i] == '\\' ? std::string("nr\\").find(text.c_str()[i + 1]) : text.npos;
        plain += escape < 3 ? "\n\r\\"[escape] : text[i];
        i += escape < 3;
    }
    return plain;
}

/// The blocks of a result. The first line that is marked gives the image, when it has all that an image needs.
nlohmann::json Blocks(const std::string& text) {
    const std::string mark = "ORVANE_MCP_IMAGE ", mimeKey = "mime_type=", dataKey = " data=";
    std::string before, after, image;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const bool marked = image.empty() && line.starts_with(mark);
        std::string& place = marked ? image : image.empty() ? before : after;
        place += lines.eof() || marked ? line : line + "\n";
    }
    if (!image.empty()) {
        after = WithoutEnd(after);
        if (after.empty()) before = WithoutEnd(before);
    }
    nlohmann::json blocks = nlohmann::json::array({{{"type", "text"}, {"text", before + after}}});
    const std::size_t mime = image.find(mimeKey, mark.size()), data = image.find(dataKey, mark.size());
    if (mime == image.npos || data == image.npos || mime + mimeKey.size() >= data) return blocks;
    const std::string mimeType = image.substr(mime + mimeKey.size(), data - mime - mimeKey.size());
    const std::string bytes = image.substr(data + dataKey.size());
    if (!bytes.empty()) blocks.push_back({{"type", "image"}, {"mimeType", mimeType}, {"data", bytes}});
    return blocks;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string reply(reinterpret_cast<const char*>(bytes), size);
    const std::string escaped = EscapeReplyText(reply);
    Require(escaped.find_first_of("\r\n") == std::string::npos, "an escaped text is one line");
    Require(UnescapeControlText(escaped) == reply && Unescaped(escaped) == reply, "unescaping undoes escaping");

    const std::string written = Output([&reply] { RenderControlReply("1", reply); });
    std::string_view output = written;
    const auto result = TakeOutputMessage(output);
    Require(result && result->Framed && output.empty(), "a reply gives one result");
    const bool failed = reply.starts_with("ERR\t"), good = reply.starts_with("OK\t");
    nlohmann::json blocks = Blocks(good ? Unescaped(reply.substr(3)) : reply);
    if (failed) blocks = nlohmann::json::array({{{"type", "text"}, {"text", Unescaped(reply.substr(4))}}});
    // Image data goes out as the viewer sent it: data that a JSON string can't hold is the viewer's fault.
    const std::string data = blocks.size() > 1 ? blocks[1]["data"].get<std::string>() : "";
    const auto isPlain = [](unsigned char byte) { return byte >= ' ' && byte != '"' && byte != '\\'; };
    if (!IsUtf8(result->Body) || !std::all_of(data.begin(), data.end(), isPlain)) return 0;
    const nlohmann::json expected = {
        {"jsonrpc", "2.0"}, {"id", 1}, {"result", {{"content", blocks}, {"isError", failed}}}};
    Require(IsJson(result->Body) && nlohmann::json::parse(result->Body) == expected,
            "a result has the reply's contents");
    return 0;
}
