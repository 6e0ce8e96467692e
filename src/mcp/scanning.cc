#include "mcp/scanning.h"

#include <algorithm>

namespace {

/// The rest of the message from the value of `key` on; empty if there is no such key.
std::string_view TextFromValue(std::string_view message, std::string_view key) {
    const std::string pattern = '"' + std::string(key) + '"';
    const std::size_t found = message.find(pattern);
    if (found == std::string_view::npos) return {};
    const std::size_t colon = message.find(':', found + pattern.size());
    if (colon == std::string_view::npos) return {};
    return message.substr(SkipJsonWhitespace(message, colon + 1));
}

bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

/// The byte that a backslash and `byte` stand for in a string.
char UnescapedByte(char byte) {
    switch (byte) {
        case 'b': return '\b';
        case 'f': return '\f';
        case 'n': return '\n';
        case 'r': return '\r';
        case 't': return '\t';
        default: return byte;
    }
}

/// The position after a part of the message; nothing if that part is malformed.
using End = std::optional<std::size_t>;

bool IsAt(std::string_view message, std::size_t position, char byte) {
    return position < message.size() && message[position] == byte;
}

/// Skips a string from its opening quote.
End SkipString(std::string_view message, std::size_t position) {
    for (++position; position < message.size(); ++position) {
        if (message[position] == '"') return position + 1;
        if (message[position] == '\\') ++position;
    }
    return std::nullopt;
}

End SkipValue(std::string_view message, std::size_t position, int depth);

/// Skips the key of an object's member and the colon after it.
End SkipMemberKey(std::string_view message, std::size_t position) {
    if (!IsAt(message, position, '"')) return std::nullopt;
    const End key = SkipString(message, position);
    if (!key) return std::nullopt;
    const std::size_t colon = SkipJsonWhitespace(message, *key);
    if (!IsAt(message, colon, ':')) return std::nullopt;
    return colon + 1;
}

/// Skips one element of an array, or one member of an object, and the blanks after it.
End SkipElement(std::string_view message, std::size_t position, bool isMember, int depth) {
    End end = position;
    if (isMember) end = SkipMemberKey(message, position);
    if (end) end = SkipValue(message, *end, depth);
    if (end) end = SkipJsonWhitespace(message, *end);
    return end;
}

/// Skips an object or an array from its opening bracket to `close`. `depth` counts the containers around it.
End SkipContainer(std::string_view message, std::size_t position, char close, int depth) {
    if (depth == DeepestJsonNesting) return std::nullopt;
    do {
        position = SkipJsonWhitespace(message, position + 1);  // past the opening bracket, or past a comma
        if (IsAt(message, position, close)) break;
        const End end = SkipElement(message, position, close == '}', depth + 1);
        if (!end) return std::nullopt;
        position = *end;
    } while (IsAt(message, position, ','));
    if (!IsAt(message, position, close)) return std::nullopt;
    return position + 1;
}

End SkipJsonObject(std::string_view message, std::size_t position, int depth) {
    return SkipContainer(message, position, '}', depth);
}

End SkipJsonArray(std::string_view message, std::size_t position, int depth) {
    return SkipContainer(message, position, ']', depth);
}

End SkipValue(std::string_view message, std::size_t position, int depth) {
    position = SkipJsonWhitespace(message, position);
    if (IsAt(message, position, '"')) return SkipString(message, position);
    if (IsAt(message, position, '{')) return SkipJsonObject(message, position, depth);
    if (IsAt(message, position, '[')) return SkipJsonArray(message, position, depth);
    const std::size_t end = std::min(message.find_first_of(",}]\r\n", position), message.size());
    if (end == position) return std::nullopt;
    return end;
}

}  // namespace

std::size_t SkipJsonWhitespace(std::string_view message, std::size_t position) {
    return std::min(message.find_first_not_of(" \t\r\n", position), message.size());
}

std::optional<std::size_t> SkipJsonValue(std::string_view message, std::size_t position) {
    return SkipValue(message, position, 0);
}

std::optional<std::string> FindJsonString(std::string_view message, std::string_view key) {
    const std::string_view value = TextFromValue(message, key);
    if (!value.starts_with('"')) return std::nullopt;
    std::string text;
    for (std::size_t i = 1; i < value.size(); ++i) {
        if (value[i] == '"') return text;
        if (value[i] != '\\') {
            text.push_back(value[i]);
        } else if (++i < value.size()) {
            text.push_back(UnescapedByte(value[i]));
        }
    }
    return std::nullopt;
}

std::optional<std::int32_t> FindJsonInt(std::string_view message, std::string_view key) {
    std::string_view digits = TextFromValue(message, key);
    const bool negative = digits.starts_with('-');
    if (negative) digits.remove_prefix(1);
    if (digits.empty() || !IsDigit(digits.front())) return std::nullopt;
    std::uint32_t value = 0;
    for (; !digits.empty() && IsDigit(digits.front()); digits.remove_prefix(1)) {
        value = value * 10 + static_cast<std::uint32_t>(digits.front() - '0');
    }
    return static_cast<std::int32_t>(negative ? 0 - value : value);
}

std::optional<bool> FindJsonBool(std::string_view message, std::string_view key) {
    const std::string_view value = TextFromValue(message, key);
    if (value.starts_with("true")) return true;
    if (value.starts_with("false")) return false;
    return std::nullopt;
}

std::optional<std::string_view> FindJsonRawValue(std::string_view message, std::string_view key) {
    const std::string_view value = TextFromValue(message, key);
    const End end = SkipJsonValue(value, 0);
    if (!end) return std::nullopt;
    return value.substr(0, *end);
}
