/// What the fuzzers hold the product against: small, plain and independent of its code.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// Ends the fuzzer with `what` when `holds` is false, so that the input is kept as a finding.
inline void Require(bool holds, const char* what) {
    if (!holds) throw std::logic_error(what);
}

/// The text without line ends at its end.
inline std::string WithoutEnd(const std::string& text) {
    return text.substr(0, text.find_last_not_of("\r\n") + 1);
}

inline std::string TakeLine(std::string_view& input) {
    const std::string line(input.substr(0, input.find('\n')));
    input.remove_prefix(std::min(line.size() + 1, input.size()));
    return WithoutEnd(line);
}

/// The length that a header line tells; 0 for a line that is none, or tells none from 1 to 32 MiB.
inline std::size_t LengthIn(std::string line) {
    const std::string name = "content-length:";
    std::transform(line.begin(), line.end(), line.begin(), [](unsigned char c) { return std::tolower(c); });
    if (!line.starts_with(name)) return 0;
    line = line.substr(std::min(line.find_first_not_of(" \t\v\f\r", name.size()), line.size()));
    if (line.starts_with('+')) line.erase(0, 1);
    line = line.substr(0, line.find_first_not_of("0123456789"));
    line.erase(0, line.find_first_not_of('0'));
    const std::size_t length = line.empty() || line.size() > 8 ? 0 : std::stoul(line);
    return length <= 32 << 20 ? length : 0;
}

/// True when the bytes are well-formed UTF-8.
inline bool IsUtf8(std::string_view bytes) try {
    nlohmann::json(bytes).dump();
    return true;
} catch (const nlohmann::json::type_error&) {
    return false;
}

/// True when `text` is exactly one JSON value in UTF-8, with blanks around it or not.
inline bool IsJson(std::string_view text) {
    // The parser takes a NUL for the end and passes over a byte-order mark.
    const bool own = text.find('\0') == std::string_view::npos && !text.starts_with("\xEF\xBB\xBF");
    return own && nlohmann::json::accept(text);
}

struct Message {
    std::string Body;
    bool Framed;
};

/// Takes the next message off the input of a bridge; nothing when there is none left, or only a part of one.
inline std::optional<Message> TakeInputMessage(std::string_view& input) {
    std::string line;
    while (line.empty() && !input.empty()) line = TakeLine(input);
    const std::size_t length = LengthIn(line);
    if (length == 0) return line.empty() ? std::nullopt : std::optional(Message{line, false});
    while (!input.empty() && !TakeLine(input).empty()) {
    }
    if (length > input.size()) return std::nullopt;
    const std::string body(input.substr(0, length));
    input.remove_prefix(length);
    return Message{body, true};
}

/// Takes the next message off the output of a bridge; nothing when there is none left. Its framing must be flawless.
inline std::optional<Message> TakeOutputMessage(std::string_view& output) {
    if (output.empty()) return std::nullopt;
    const bool framed = output.starts_with("Content-Length: ");
    const std::size_t end = output.find(framed ? "\r\n\r\n" : "\n");
    Require(end != output.npos, "a header, and a bare message, has an end");
    std::string body(output.substr(0, end));
    output.remove_prefix(end + (framed ? 4 : 1));
    if (!framed) return Message{body, false};
    const std::size_t length = LengthIn(body);
    Require(body == "Content-Length: " + std::to_string(length) && length > 0 && length <= output.size(),
            "a header tells the body's length");
    body = output.substr(0, length);
    output.remove_prefix(length);
    return Message{body, true};
}

using Position = std::optional<std::size_t>;  // nothing: the scan failed

/// Where the value of `key` begins.
inline Position ValueOf(const std::string& m, const std::string& key, const char* blanks = " \t\r\n") {
    std::size_t at = m.find('"' + key + '"');
    if (at == m.npos || (at = m.find(':', at + key.size() + 2)) == m.npos) return {};
    at = m.find_first_not_of(blanks, at + 1);
    return at != m.npos ? at : Position();
}

/// The position after the closing quote of the string that opens at `at`; `text` gets its bytes unescaped.
inline Position AfterString(const std::string& m, std::size_t at, std::string& text) {
    for (++at; at < m.size(); ++at) {
        if (m[at] == '"') return at + 1;
        const bool escaped = m[at] == '\\';
        if (escaped && ++at == m.size()) return {};
        const std::size_t letter = escaped ? std::string("bfnrt").find(m[at]) : m.npos;
        text += letter == m.npos ? m[at] : "\b\f\n\r\t"[letter];
    }
    return {};
}

/// The id's own text, or "".
inline std::string IdOf(const std::string& m) {
    const Position start = ValueOf(m, "id", " \t");
    if (!start) return "";
    std::string text;
    if (m[*start] != '"') return m.substr(*start, m.find_first_of(",} ", *start) - *start);
    return m.substr(*start, AfterString(m, *start, text).value_or(*start) - *start);
}

/// What `write` leaves on standard output.
template <typename Write>
std::string Output(Write write) {
    char* data = nullptr;
    std::size_t size = 0;
    std::FILE* const console = std::exchange(stdout, open_memstream(&data, &size));
    write();
    std::fclose(std::exchange(stdout, console));
    const std::unique_ptr<char, decltype(&std::free)> owned(data, std::free);
    return {data, size};
}
