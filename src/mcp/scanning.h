/// Flat scanners that find a tool's arguments in the text of a message, in place of a JSON parser.
///
/// Each Find operation takes the first occurrence of the quoted key in the whole message, at any depth, then the first
/// colon after it, then the value after that. It returns nothing when the key is absent or the value has another type.
/// All are pure functions; a NUL in the message is a byte like any other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The unescaped string value of `key`. \u is not decoded: a backslash before a letter with no meaning of its own is
/// dropped.
[[nodiscard]] std::optional<std::string> FindJsonString(std::string_view message, std::string_view key);

/// The integer value of `key`, wrapping at 32 bits. Anything after the digits is ignored.
[[nodiscard]] std::optional<std::int32_t> FindJsonInt(std::string_view message, std::string_view key);

/// The boolean value of `key`.
[[nodiscard]] std::optional<bool> FindJsonBool(std::string_view message, std::string_view key);

/// The source text of the value of `key`, as a view into `message`: a string with its quotes, an array with its inner
/// blanks. Never empty.
[[nodiscard]] std::optional<std::string_view> FindJsonRawValue(std::string_view message, std::string_view key);

/// The position of the first byte at or after `position` that is not a blank, tab, carriage return or line feed, or
/// the message's length.
[[nodiscard]] std::size_t SkipJsonWhitespace(std::string_view message, std::size_t position);

/// How deep containers may be nested.
inline constexpr int DeepestJsonNesting = 512;

/// The position after the value at `position`; nothing if there is no value to skip or it is nested too deep. Bare
/// words are not validated, and a comma is allowed before a closing bracket.
[[nodiscard]] std::optional<std::size_t> SkipJsonValue(std::string_view message, std::size_t position);
