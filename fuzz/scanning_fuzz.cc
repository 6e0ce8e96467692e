/// The scanners against a second implementation that is plain, slow and obviously right.

#include "bridge/message_loop.h"
#include "checks.h"
#include "mcp/scanning.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace {

using Position = std::optional<std::size_t>;  // nothing: the scan failed

std::size_t BehindBlanks(const std::string& m, std::size_t at) {
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
    at = BehindBlanks(m, at + 1);
    return at < m.size() ? at : Position();
}

/// Behind the closing quote of the string that opens at `at`; `text` takes its bytes unescaped.
Position BehindString(const std::string& m, std::size_t at, std::string& text) {
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

Position BehindValue(const std::string& m, std::size_t at, int depth);

Position BehindContainer(const std::string& m, std::size_t at, int depth) {
    const char close = m[at] == '{' ? '}' : ']';
    const bool keyed = m[at] == '{';
    if (depth == 512) return {};
    ++at;
    for (;;) {
        at = BehindBlanks(m, at);
        if (at >= m.size()) return {};
        if (m[at] == close) return at + 1;
        if (keyed) {
            std::string key;
            if (m[at] != '"') return {};
            const Position behindKey = BehindString(m, at, key);
            if (!behindKey) return {};
            at = BehindBlanks(m, *behindKey);
            if (at >= m.size() || m[at] != ':') return {};
            ++at;
        }
        const Position behind = BehindValue(m, at, depth + 1);
        if (!behind) return {};
        at = BehindBlanks(m, *behind);
        if (at >= m.size()) return {};
        if (m[at] == close) return at + 1;
        if (m[at] != ',') return {};
        ++at;
    }
}

Position BehindValue(const std::string& m, std::size_t at, int depth) {
    std::string text;
    at = BehindBlanks(m, at);
    if (at >= m.size()) return {};
    if (m[at] == '"') return BehindString(m, at, text);
    if (m[at] == '{' || m[at] == '[') return BehindContainer(m, at, depth);
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
        const Position end = BehindString(m, at, text);
        return end ? m.substr(at, *end - at) : "";
    }
    std::string id;
    for (; at < m.size() && m[at] != ',' && m[at] != '}' && m[at] != ' '; ++at) id += m[at];
    return id;
}

void CheckKey(const std::string& m, const std::string& key) {
    const Position value = ValueOf(m, key);

    std::string plainText;
    const bool isString = value && m[*value] == '"' && BehindString(m, *value, plainText);
    std::string text = "was there";
    Require(FindJsonString(m, key, text) == isString, "FindJsonString finds what is there");
    Require(text == (isString ? plainText : ""), "FindJsonString gives the text");

    const std::optional<std::int32_t> plainInt = value ? IntAt(m, *value) : std::nullopt;
    std::int32_t number = 77;
    Require(FindJsonInt(m, key, number) == plainInt.has_value(), "FindJsonInt finds what is there");
    Require(number == plainInt.value_or(77), "FindJsonInt gives the number");

    const bool isTrue = value && m.compare(*value, 4, "true") == 0;
    const bool isFalse = value && m.compare(*value, 5, "false") == 0;
    bool flag = !isTrue;
    Require(FindJsonBool(m, key, flag) == (isTrue || isFalse), "FindJsonBool finds what is there");
    Require(flag == (isTrue || !isFalse), "FindJsonBool gives the flag");

    const Position behind = value ? BehindValue(m, *value, 0) : Position();
    std::string raw = "was there";
    Require(FindJsonRawValue(m, key, raw) == behind.has_value(), "FindJsonRawValue finds what is there");
    Require(raw == (behind ? m.substr(*value, *behind - *value) : ""), "FindJsonRawValue gives the source");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string message(reinterpret_cast<const char*>(data), size);
    CheckKey(message, "updates");
    CheckKey(message, "a");
    Require(ExtractMessageId(message) == PlainId(message), "ExtractMessageId gives the id's own text");
    std::size_t at = 0;
    const bool passed = SkipJsonValue(message, at);
    const Position plain = BehindValue(message, 0, 0);
    Require(passed == plain.has_value() && at <= message.size(), "SkipJsonValue passes what can be passed");
    Require(!passed || at == *plain, "SkipJsonValue stops behind the value");
    return 0;
}
