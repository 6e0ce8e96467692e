/// Flat scanners that fetch a tool's arguments from the text of a message, in place of a JSON parser.
///
/// Each Find operation takes the first place in the whole message where the quoted key stands, at any depth, then
/// the first colon behind it, then the value behind that. A key that is absent and a value of another type both give
/// false. All are pure functions; a zero byte in the message is a byte like any other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The unescaped string behind `key`. There is no \u decoding: a backslash and any letter without a meaning of its
/// own give that letter. On false `out` is empty.
bool FindJsonString(std::string_view message, std::string_view key, std::string& out);

/// The integer behind `key`, wrapping at 32 bits; what follows its digits is not looked at. On false `out` keeps
/// its value, so that a default can stand there beforehand.
bool FindJsonInt(std::string_view message, std::string_view key, std::int32_t& out);

/// The boolean behind `key`. On false `out` keeps its value.
bool FindJsonBool(std::string_view message, std::string_view key, bool& out);

/// The source text of the value behind `key`, unchanged: a string with its quotes, an array with its inner blanks.
/// On false `out` is empty.
bool FindJsonRawValue(std::string_view message, std::string_view key, std::string& out);

/// Moves `position` over blanks, tabs, carriage returns and line feeds, to the message's end at most.
void SkipJsonWhitespace(std::string_view message, std::size_t& position);

/// How many containers may stand inside one another.
inline constexpr int DeepestJsonNesting = 512;

/// Moves `position` behind one value. False when none can be passed, or when it is nested too deep; the position
/// then stands where the scan stopped. Bare words are not validated, and a comma may stand before a closing bracket.
bool SkipJsonValue(std::string_view message, std::size_t& position);

/// The same, for an object whose `{`, or an array whose `[`, stands at `position`.
bool SkipJsonObject(std::string_view message, std::size_t& position);
bool SkipJsonArray(std::string_view message, std::size_t& position);
