/// The scanners against a second implementation that is plain, slow and obviously right.

#include "bridge/message_loop.h"
#include "checks.h"
#include "mcp/scanning.h"

#include <cstdint>

namespace {

std::size_t AfterBlanks(const std::string& m, std::size_t at) {
    return std::min(m.find_first_not_of(" \t\r\n", at), m.size());
}

/// At the message's end there is a NUL, which is no part of a value.
Position AfterValue(const std::string& m, std::size_t at, int depth) {
    std::string text;
    at = AfterBlanks(m, at);
    if (m[at] == '"') return AfterString(m, at, text);
    if (m[at] != '{' && m[at] != '[') {
        const std::size_t end = std::min(m.find_first_of(",}]\r\n", at), m.size());
        return end > at ? end : Position();
    }
    if (depth == 512) return {};
    const char close = m[at] == '{' ? '}' : ']';
    for (;;) {
        at = AfterBlanks(m, at + 1);
        if (m[at] == close) return at + 1;
        if (close == '}') {
            const Position key = m[at] == '"' ? AfterString(m, at, text) : Position();
            if (!key || m[at = AfterBlanks(m, *key)] != ':') return {};
            ++at;
        }
        const Position value = AfterValue(m, at, depth + 1);
        if (!value) return {};
        at = AfterBlanks(m, *value);
        if (m[at] == close) return at + 1;
        if (m[at] != ',') return {};
    }
}

std::optional<std::int32_t> IntAt(const std::string& m, std::size_t at) {
    const bool negative = m[at] == '-';
    const std::size_t start = at += negative;
    std::uint32_t value = 0;
    for (; m[at] >= '0' && m[at] <= '9'; ++at) value = value * 10 + static_cast<std::uint32_t>(m[at] - '0');
    if (at == start) return {};
    return static_cast<std::int32_t>(negative ? 0 - value : value);
}

void CheckKey(const std::string& m, const std::string& key) {
    const Position value = ValueOf(m, key);
    std::string text;
    const bool isString = value && m[*value] == '"' && AfterString(m, *value, text);
    Require(FindJsonString(m, key) == (isString ? std::optional(text) : std::nullopt), "FindJsonString finds the text");
    Require(FindJsonInt(m, key) == (value ? IntAt(m, *value) : std::nullopt), "FindJsonInt finds the number");
    const bool yes = value && m.compare(*value, 4, "true") == 0, no = value && m.compare(*value, 5, "false") == 0;
    Require(FindJsonBool(m, key) == (yes || no ? std::optional(yes) : std::nullopt), "FindJsonBool finds the flag");
    const Position end = value ? AfterValue(m, *value, 0) : Position();
    const std::string raw = end ? m.substr(*value, *end - *value) : "";
    Require(FindJsonRawValue(m, key).value_or("") == raw, "FindJsonRawValue finds the source text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string message(reinterpret_cast<const char*>(data), size);
    CheckKey(message, "updates");
    CheckKey(message, "a");
    Require(ExtractMessageId(message).value_or("") == IdOf(message), "ExtractMessageId finds the id's own text");
    Require(SkipJsonValue(message, 0) == AfterValue(message, 0, 0), "SkipJsonValue ends where the value does");
    return 0;
}
