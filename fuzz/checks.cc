#include "checks.h"

#include <charconv>
#include <nlohmann/json.hpp>

bool IsUtf8(std::string_view bytes) try {
    nlohmann::json(bytes).dump();
    return true;
} catch (const nlohmann::json::type_error&) {
    return false;
}

bool IsJson(std::string_view text) {
    // The parser takes a NUL for the end and passes over a byte-order mark.
    const bool own = text.find('\0') == std::string_view::npos && !text.starts_with("\xEF\xBB\xBF");
    return own && nlohmann::json::accept(text);
}

std::optional<std::string_view> TakeOutputMessage(std::string_view& output) {
    constexpr std::string_view header = "Content-Length: ";
    if (output.empty()) return std::nullopt;
    const bool framed = output.starts_with(header);
    std::size_t length = output.find('\n');
    Require(length != output.npos, "a bare message ends with a line feed");
    if (framed) {
        const auto number = std::from_chars(output.data() + header.size(), output.data() + output.size(), length);
        output.remove_prefix(static_cast<std::size_t>(number.ptr - output.data()));
        Require(output.starts_with("\r\n\r\n"), "a header ends with an empty line");
        output.remove_prefix(4);
        Require(length > 0 && length <= output.size(), "a header tells the body's length");
    }
    const std::string_view body = output.substr(0, length);
    output.remove_prefix(length + !framed);
    return body;
}
