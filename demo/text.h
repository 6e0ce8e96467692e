/// Text and files as the viewer needs them: UTF-8 inside, UTF-16 only where it meets the library.
#pragma once

#include "api/exports.h"

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Thrown when a command can't be carried out. what() tells the agent why.
using Refusal = std::runtime_error;
using Strings = std::vector<std::string>;

/// Between the library's UTF-16 and UTF-8. Invalid text becomes U+FFFD.
std::string FromWide(std::basic_string_view<OrvaneMcpChar> text);
std::basic_string<OrvaneMcpChar> ToWide(std::string_view text);
std::string PathText(const std::filesystem::path& path);
std::filesystem::path PathOf(std::string_view utf8);

/// A whole file, of 64 MiB at most. Both throw a Refusal that names the file.
std::string LoadBytes(const std::filesystem::path& path);
void StoreBytes(const std::filesystem::path& path, std::string_view bytes);

Strings SplitAt(std::string_view text, char separator);
std::string Joined(const Strings& parts);
std::string Lower(std::string_view text);

/// Whether the text contains every blank-separated word of `words`, in any case.
bool HasWords(std::string_view text, std::string_view words);

/// The text with control characters turned into blanks.
std::string OneLine(std::string_view text);

/// The two kinds of reply line: "key=value", and a word followed by tab-separated cells. Every line begins with a word
/// of the viewer's own. Boards are written by strangers: a line that began with their text could pass for one that the
/// bridge or the agent acts on.
std::string Entry(const char* key, std::string_view value);
std::string Entry(const char* key, std::size_t value);
std::string Row(const char* word, const Strings& cells);
