#include "mcp/framing.h"

#include "mcp/json_text.h"
#include "platform/streams.h"
#include "text/trace.h"
#include "text/trim.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

/// Whether the last message read had a Content-Length header.
bool FramedOutput = true;

char LowerAscii(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

/// ReadInputLine without the line end.
std::optional<std::string> ReadStrippedLine() {
    std::optional<std::string> line = ReadInputLine();
    if (line) line->resize(WithoutLineEnd(*line).size());
    return line;
}

/// Calls `write(piece)` with the bytes of `part` in the form in which they are sent.
template <typename Write>
void ForEachPiece(const MessagePart& part, Write write) {
    if (part.Escaped) return EscapeJsonText(part.Text, write);
    write(part.Text);
}

/// Collects small pieces into blocks for standard output, which takes a lock on each call.
class BlockWriter {
  public:
    void Write(std::string_view piece) {
        if (piece.size() > sizeof block_ - used_) Flush();
        if (piece.size() > sizeof block_) {
            std::fwrite(piece.data(), 1, piece.size(), stdout);
        } else {
            used_ += piece.copy(block_ + used_, piece.size());
        }
    }
    void Flush() {
        std::fwrite(block_, 1, used_, stdout);
        used_ = 0;
    }

  private:
    char block_[4096];
    std::size_t used_ = 0;
};

/// Traces a message that was written: its length and the start of its contents.
void TraceAnswer(std::initializer_list<MessagePart> parts) {
    if (TraceLevel == 0) return;
    char beginning[512];
    std::size_t kept = 0, length = 0;
    for (const MessagePart& part : parts) {
        ForEachPiece(part, [&](std::string_view piece) {
            length += piece.size();
            kept += piece.copy(beginning + kept, sizeof beginning - kept);
        });
    }
    Trace("answer of ", length, " bytes", TraceContents{{beginning, kept}});
}

}  // namespace

std::optional<std::string> ReadInputLine() {
    // Grow the line by blocks: growing it for each byte takes longer than reading the byte.
    char block[4096];
    std::size_t used = 0;
    std::string line;
    std::FILE* const input = stdin;  // on Windows, stdin is a function call
    for (int byte = 0; byte != '\n' && (byte = ReadByteUnlocked(input)) != EOF;) {
        block[used++] = static_cast<char>(byte);
        if (used == sizeof block) {
            line.append(block, used);
            used = 0;
        }
    }
    line.append(block, used);
    if (line.empty()) return std::nullopt;
    return line;
}

std::optional<std::size_t> ParseContentLength(const std::string& line) {
    constexpr std::string_view header = "content-length:";
    const std::string_view start = std::string_view(line).substr(0, header.size());
    const auto sameLetter = [](char byte, char lower) { return LowerAscii(byte) == lower; };
    if (!std::equal(start.begin(), start.end(), header.begin(), header.end(), sameLetter)) return std::nullopt;
    // strtoull skips the blanks and tabs before the number. It returns 0 if there are no digits, and nearly every
    // negative number wraps to a huge one: both are out of range.
    const unsigned long long number = std::strtoull(line.c_str() + header.size(), nullptr, 10);
    if (number < 1 || number > LargestFramedBody) return std::nullopt;
    return static_cast<std::size_t>(number);
}

std::optional<std::string> ReadMcpMessage() {
    std::optional<std::string> line;
    do {
        line = ReadStrippedLine();
        if (!line) return std::nullopt;
    } while (line->empty());

    const std::optional<std::size_t> length = ParseContentLength(*line);
    FramedOutput = length.has_value();
    if (!length) {
        Trace("message of ", line->size(), " bytes, a bare line", TraceContents{*line});
        return line;
    }

    do {
        line = ReadStrippedLine();
    } while (line && !line->empty());
    std::string body(*length, '\0');
    for (std::size_t arrived = 0; arrived < body.size();) {
        const std::size_t count = std::fread(body.data() + arrived, 1, body.size() - arrived, stdin);
        if (count == 0) return std::nullopt;
        arrived += count;
    }
    Trace("message of ", body.size(), " bytes, framed", TraceContents{body});
    return body;
}

void WriteMcpMessage(std::initializer_list<MessagePart> parts) {
    BlockWriter out;
    if (FramedOutput) {
        std::size_t length = 0;
        for (const MessagePart& part : parts) {
            ForEachPiece(part, [&](std::string_view piece) { length += piece.size(); });
        }
        char header[64];
        std::snprintf(header, sizeof header, "Content-Length: %zu\r\n\r\n", length);
        out.Write(header);
    }
    for (const MessagePart& part : parts) {
        ForEachPiece(part, [&](std::string_view piece) { out.Write(piece); });
    }
    if (!FramedOutput) out.Write("\n");
    out.Flush();
    std::fflush(stdout);
    TraceAnswer(parts);
}
