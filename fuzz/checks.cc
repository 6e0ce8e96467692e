#include "checks.h"

#include <charconv>

namespace {

bool IsHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// A recursive-descent reader of JSON that keeps nothing. `at` moves behind what was read.
struct JsonReader {
    std::string_view Text;
    std::size_t At = 0;

    bool Has(char c) { return At < Text.size() && Text[At] == c; }
    bool Take(char c) { return Has(c) && ++At; }
    bool TakeWord(std::string_view word) {
        if (!Text.substr(At).starts_with(word)) return false;
        At += word.size();
        return true;
    }
    void Blanks() {
        while (Has(' ') || Has('\t') || Has('\n') || Has('\r')) ++At;
    }
    bool Digits() {
        const std::size_t start = At;
        while (At < Text.size() && Text[At] >= '0' && Text[At] <= '9') ++At;
        return At > start;
    }
    bool Number() {
        Take('-');
        if (!Take('0') && !Digits()) return false;
        if (Take('.') && !Digits()) return false;
        if (!Has('e') && !Has('E')) return true;
        ++At;
        if (!Take('+')) Take('-');
        return Digits();
    }
    bool String() {
        if (!Take('"')) return false;
        while (At < Text.size()) {
            const char c = Text[At++];
            if (c == '"') return true;
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') continue;
            if (At == Text.size()) return false;
            const char escaped = Text[At++];
            if (escaped == 'u') {
                for (int i = 0; i < 4; ++i) {
                    if (At == Text.size() || !IsHex(Text[At++])) return false;
                }
            } else if (std::string_view("\"\\/bfnrt").find(escaped) == std::string_view::npos) {
                return false;
            }
        }
        return false;
    }
    bool Members(char open, char close, int depth) {
        if (!Take(open)) return false;
        Blanks();
        if (Take(close)) return true;
        do {
            Blanks();
            if (open == '{') {
                if (!String()) return false;
                Blanks();
                if (!Take(':')) return false;
            }
            if (!Value(depth + 1)) return false;
        } while (Take(','));
        return Take(close);
    }
    bool Value(int depth) {
        if (depth > 1000) return false;
        Blanks();
        const bool read = Has('{')   ? Members('{', '}', depth)
                          : Has('[') ? Members('[', ']', depth)
                          : Has('"') ? String()
                                     : TakeWord("true") || TakeWord("false") || TakeWord("null") || Number();
        Blanks();
        return read;
    }
};

}  // namespace

bool IsUtf8(std::string_view bytes) {
    for (std::size_t i = 0; i < bytes.size();) {
        const auto at = [&](std::size_t k) {
            return i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0u;
        };
        const unsigned first = at(0);
        const std::size_t length = first < 0x80   ? 1
                                   : first < 0xC2 ? 0
                                   : first < 0xE0 ? 2
                                   : first < 0xF0 ? 3
                                   : first < 0xF5 ? 4
                                                  : 0;
        if (length == 0) return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((at(k) & 0xC0) != 0x80) return false;
        }
        const bool overlong = (first == 0xE0 && at(1) < 0xA0) || (first == 0xF0 && at(1) < 0x90);
        if (overlong || (first == 0xED && at(1) > 0x9F) || (first == 0xF4 && at(1) > 0x8F)) return false;
        i += length;
    }
    return true;
}

bool IsJson(std::string_view text) {
    JsonReader reader{text};
    return reader.Value(0) && reader.At == text.size();
}

bool TakeOutputMessage(std::string_view& output, OutputMessage& message) {
    constexpr std::string_view header = "Content-Length: ";
    if (output.empty()) return false;
    message.Framed = output.starts_with(header);
    std::size_t length = 0;
    if (message.Framed) {
        const auto number = std::from_chars(output.data() + header.size(), output.data() + output.size(), length);
        output.remove_prefix(static_cast<std::size_t>(number.ptr - output.data()));
        Require(output.starts_with("\r\n\r\n"), "a header ends with an empty line");
        output.remove_prefix(4);
        Require(length > 0 && length <= output.size(), "a header tells the body's length");
    } else {
        length = output.find('\n');
        Require(length != std::string_view::npos, "a bare message ends with a line feed");
    }
    message.Body = output.substr(0, length);
    output.remove_prefix(length + (message.Framed ? 0 : 1));
    return true;
}
