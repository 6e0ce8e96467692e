#include "mcp/scanning.h"

#include <algorithm>
#include <utility>

namespace {

/// Finds where the value of `key` begins.
bool FindValue(std::string_view message, std::string_view key, std::size_t& position) {
    const std::string pattern = '"' + std::string(key) + '"';
    const std::size_t found = message.find(pattern);
    if (found == std::string_view::npos) return false;
    const std::size_t colon = message.find(':', found + pattern.size());
    if (colon == std::string_view::npos) return false;
    position = colon + 1;
    SkipJsonWhitespace(message, position);
    return position < message.size();
}

bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

/// What a backslash and `byte` stand for in a string.
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

/// Moves `position`, at an opening quote, behind the closing one.
bool SkipString(std::string_view message, std::size_t& position) {
    for (++position; position < message.size(); ++position) {
        if (message[position] == '"') {
            ++position;
            return true;
        }
        if (message[position] == '\\') ++position;
    }
    position = message.size();
    return false;
}

bool SkipValue(std::string_view message, std::size_t& position, int depth);

/// Passes the key of an object's member and the colon behind it.
bool SkipMemberKey(std::string_view message, std::size_t& position) {
    if (message[position] != '"' || !SkipString(message, position)) return false;
    SkipJsonWhitespace(message, position);
    if (position >= message.size() || message[position] != ':') return false;
    ++position;
    return true;
}

/// Passes an object or an array. `depth` counts the containers around this one.
bool SkipContainer(std::string_view message, std::size_t& position, char open, char close, int depth) {
    if (depth >= DeepestJsonNesting || position >= message.size() || message[position] != open) return false;
    do {
        ++position;  // behind the opening bracket, or behind a comma
        SkipJsonWhitespace(message, position);
        if (position >= message.size()) return false;
        if (message[position] == close) break;
        if (open == '{' && !SkipMemberKey(message, position)) return false;
        if (!SkipValue(message, position, depth + 1)) return false;
        SkipJsonWhitespace(message, position);
        if (position >= message.size()) return false;
    } while (message[position] == ',');
    if (message[position] != close) return false;
    ++position;
    return true;
}

bool SkipValue(std::string_view message, std::size_t& position, int depth) {
    SkipJsonWhitespace(message, position);
    if (position >= message.size()) return false;
    switch (message[position]) {
        case '"': return SkipString(message, position);
        case '{': return SkipContainer(message, position, '{', '}', depth);
        case '[': return SkipContainer(message, position, '[', ']', depth);
        default: break;
    }
    const std::size_t start = position;
    position = std::min(message.find_first_of(",}]\r\n", start), message.size());
    return position > start;
}

}  // namespace

void SkipJsonWhitespace(std::string_view message, std::size_t& position) {
    position = std::min(message.find_first_not_of(" \t\r\n", position), message.size());
}

bool SkipJsonValue(std::string_view message, std::size_t& position) {
    return SkipValue(message, position, 0);
}

bool SkipJsonObject(std::string_view message, std::size_t& position) {
    return SkipContainer(message, position, '{', '}', 0);
}

bool SkipJsonArray(std::string_view message, std::size_t& position) {
    return SkipContainer(message, position, '[', ']', 0);
}

bool FindJsonString(std::string_view message, std::string_view key, std::string& out) {
    out.clear();
    std::size_t position = 0;
    if (!FindValue(message, key, position) || message[position] != '"') return false;
    std::string text;
    for (++position; position < message.size(); ++position) {
        char byte = message[position];
        if (byte == '"') {
            out = std::move(text);
            return true;
        }
        if (byte == '\\') {
            if (++position == message.size()) return false;
            byte = UnescapedByte(message[position]);
        }
        text.push_back(byte);
    }
    return false;
}

bool FindJsonInt(std::string_view message, std::string_view key, std::int32_t& out) {
    std::size_t position = 0;
    if (!FindValue(message, key, position)) return false;
    const bool negative = message[position] == '-';
    if (negative) ++position;
    if (position == message.size() || !IsDigit(message[position])) return false;
    std::uint32_t value = 0;
    for (; position < message.size() && IsDigit(message[position]); ++position) {
        value = value * 10 + static_cast<std::uint32_t>(message[position] - '0');
    }
    out = static_cast<std::int32_t>(negative ? 0 - value : value);
    return true;
}

bool FindJsonBool(std::string_view message, std::string_view key, bool& out) {
    std::size_t position = 0;
    if (!FindValue(message, key, position)) return false;
    const std::string_view value = message.substr(position);
    if (!value.starts_with("true") && !value.starts_with("false")) return false;
    out = value.starts_with("true");
    return true;
}

bool FindJsonRawValue(std::string_view message, std::string_view key, std::string& out) {
    out.clear();
    std::size_t position = 0;
    if (!FindValue(message, key, position)) return false;
    const std::size_t start = position;
    if (!SkipJsonValue(message, position) || position == start) return false;
    out = message.substr(start, position - start);
    return true;
}
