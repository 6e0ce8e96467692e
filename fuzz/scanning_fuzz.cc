/// The scanners against a second implementation that is plain, slow and obviously right.

#include "bridge/message_loop.h"
#include "checks.h"
#include "mcp/scanning.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace {

using Position = std::optional<std::size_t>;  // nothing: the scan failed

std::size_t AfterBlanks(const std::string& m, std::size_t at) {
    while (at < m.size() && std::string(" \t\r\n").find(m[at]) != std::string::npos) ++at;
    return at;
}

/// Where the value of `key` begins.
Position ValueOf(const std::string& m, const std::string& key) {
    const std::string pattern = "\"" + key + "\"";
    std::size_t at = 0;
    while (at < m.size() && m.compare(at, pattern.size(), pattern) != 0) ++at;
    if (at >= m.size()) return {};
    at += pattern.size();
    while (at < m.size() && m[at] != ':') ++at;
    if (at >= m.size()) return {};
    at = AfterBlanks(m, at + 1);
    return at < m.size() ? at : Position();
}

/// The position after the closing quote of the string that opens at `at`; `text` gets its bytes unescaped.
Position AfterString(const std::string& m, std::size_t at, std::string& text) {
    for (++at; at < m.size(); ++at) {
        if (m[at] == '"') return at + 1;
        if (m[at] != '\\') {
            text += m[at];
            continue;
        }
        if (++at == m.size()) return {};
        const std::size_t letter = std::string("bfnrt").find(m[at]);
        text += letter == std::string::npos ? m[at] : "\b\f\n\r\t"[letter];
    }
    return {};
}

Position AfterValue(const std::string& m, std::size_t at, int depth);

Position AfterContainer(const std::string& m, std::size_t at, int depth) {
    const char close = m[at] == '{' ? '}' : ']';
    const bool keyed = m[at] == '{';
    if (depth == 512) return {};
    ++at;
    for (;;) {
        at = AfterBlanks(m, at);
        if (at >= m.size()) return {};
        if (m[at] == close) return at + 1;
        if (keyed) {
            std::string key;
            if (m[at] != '"') return {};
            const Position afterKey = AfterString(m, at, key);
            if (!afterKey) return {};
            at = AfterBlanks(m, *afterKey);
            if (at >= m.size() || m[at] != ':') return {};
            ++at;
        }
        const Position after = AfterValue(m, at, depth + 1);
        if (!after) return {};
        at = AfterBlanks(m, *after);
        if (at >= m.size()) return {};
        if (m[at] == close) return at + 1;
        if (m[at] != ',') return {};
        ++at;
    }
}

Position AfterValue(const std::string& m, std::size_t at, int depth) {
    std::string text;
    at = AfterBlanks(m, at);
    if (at >= m.size()) return {};
    if (m[at] == '"') return AfterString(m, at, text);
    if (m[at] == '{' || m[at] == '[') return AfterContainer(m, at, depth);
    const std::size_t start = at;
    while (at < m.size() && std::string(",}]\r\n").find(m[at]) == std::string::npos) ++at;
    return at == start ? Position() : at;
}

std::optional<std::int32_t> IntAt(const std::string& m, std::size_t at) {
    const bool negative = m[at] == '-';
    if (negative) ++at;
    if (at >= m.size() || m[at] < '0' || m[at] > '9') return {};
    std::uint64_t value = 0;
    for (; at < m.size() && m[at] >= '0' && m[at] <= '9'; ++at) {
        value = (value * 10 + static_cast<std::uint64_t>(m[at] - '0')) % 0x100000000ULL;
    }
    if (negative) value = (0x100000000ULL - value) % 0x100000000ULL;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

std::string PlainId(const std::string& m) {
    std::size_t at = m.find("\"id\"");
    if (at == std::string::npos || (at = m.find(':', at + 4)) == std::string::npos) return "";
    for (++at; at < m.size() && (m[at] == ' ' || m[at] == '\t');) ++at;
    if (at >= m.size()) return "";
    if (m[at] == '"') {
        std::string text;
        const Position end = AfterString(m, at, text);
        return end ? m.substr(at, *end - at) : "";
    }
    std::string id;
    for (; at < m.size() && m[at] != ',' && m[at] != '}' && m[at] != ' '; ++at) id += m[at];
    return id;
}

void CheckKey(const std::string& m, const std::string& key) {
    const Position value = ValueOf(m, key);

    std::string text;
    const bool isString = value && m[*value] == '"' && AfterString(m, *value, text);
    Require(FindJsonString(m, key) == (isString ? std::optional(text) : std::nullopt), "FindJsonString finds the text");

    Require(FindJsonInt(m, key) == (value ? IntAt(m, *value) : std::nullopt), "FindJsonInt finds the number");

    std::optional<bool> flag;
    if (value && m.compare(*value, 4, "true") == 0) flag = true;
    if (value && m.compare(*value, 5, "false") == 0) flag = false;
    Require(FindJsonBool(m, key) == flag, "FindJsonBool finds the flag");

    std::optional<std::string_view> raw;
    const Position end = value ? AfterValue(m, *value, 0) : Position();
    if (end) raw = std::string_view(m).substr(*value, *end - *value);
    Require(FindJsonRawValue(m, key) == raw, "FindJsonRawValue finds the source text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string message(reinterpret_cast<const char*>(data), size);
    CheckKey(message, "updates");
    CheckKey(message, "a");
    Require(ExtractMessageId(message).value_or("") == PlainId(message), "ExtractMessageId finds the id's own text");
    Require(SkipJsonValue(message, 0) == AfterValue(message, 0, 0), "SkipJsonValue ends where the value does");
    return 0;
}
