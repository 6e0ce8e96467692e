#include "tools/image_results.h"

#include "mcp/framing.h"
#include "text/trim.h"
#include "tools/results.h"

namespace {

constexpr std::string_view MarkerLiteral = "ORVANE_MCP_IMAGE ";
constexpr std::string_view MimeTypeKey = "mime_type=";
constexpr std::string_view DataKey = " data=";

/// Where the first line begins that opens with the marker literal; npos when none does.
std::size_t FindMarkerLine(std::string_view text) {
    for (std::size_t start = 0;;) {
        if (text.substr(start).starts_with(MarkerLiteral)) return start;
        const std::size_t lineFeed = text.find('\n', start);
        if (lineFeed == std::string_view::npos) return lineFeed;
        start = lineFeed + 1;
    }
}

}  // namespace

bool ExtractImageMarker(std::string& text, std::string& mimeType, std::string& data) {
    mimeType.clear();
    data.clear();
    const std::size_t start = FindMarkerLine(text);
    if (start == std::string::npos) return false;
    const std::size_t end = text.find('\n', start);
    const std::string_view line = std::string_view(text).substr(start, end - start);

    const std::size_t mimeTypeKey = line.find(MimeTypeKey, MarkerLiteral.size());
    const std::size_t dataKey = line.find(DataKey, MarkerLiteral.size());
    if (mimeTypeKey != std::string_view::npos && dataKey != std::string_view::npos && dataKey > mimeTypeKey) {
        const std::size_t mimeTypeStart = mimeTypeKey + MimeTypeKey.size();
        mimeType = line.substr(mimeTypeStart, dataKey - mimeTypeStart);
        data = line.substr(dataKey + DataKey.size());
    }

    text.erase(start, end == std::string::npos ? end : end - start + 1);
    text.resize(WithoutLineEnd(text).size());
    return !mimeType.empty() && !data.empty();
}

void WriteContentResult(std::string_view idText, std::string text) {
    std::string mimeType;
    std::string data;
    if (!ExtractImageMarker(text, mimeType, data)) return WriteTextResult(idText, text, false);
    std::string body = BeginTextBlock(idText, text, mimeType.size() + data.size());
    body.append(R"("},{"type":"image","mimeType":")").append(EscapeJsonText(mimeType));
    body.append(R"(","data":")").append(data).append(R"("}],"isError":false}})");
    WriteMcpMessage(body);
}
