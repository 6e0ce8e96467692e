/// Text as the viewer needs it: UTF-8 inside, UTF-16 only where it meets the library.
#pragma once

#include "api/exports.h"

#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Thrown where a command can't be carried out. what() is the reply that explains it to the agent.
using Refusal = std::runtime_error;

/// Between the library's UTF-16 and UTF-8. What is no valid text becomes U+FFFD.
std::string FromWide(std::basic_string_view<OrvaneMcpChar> text);
std::basic_string<OrvaneMcpChar> ToWide(std::string_view text);

std::string PathText(const std::filesystem::path& path);
std::filesystem::path PathOf(std::string_view utf8);

/// A whole file. Both throw a Refusal that names the file.
std::string LoadBytes(const std::filesystem::path& path);
void StoreBytes(const std::filesystem::path& path, std::string_view bytes);

std::vector<std::string> SplitAt(std::string_view text, char separator);
std::string Joined(const std::vector<std::string>& parts, const char* separator = " ");
std::string Lower(std::string_view text);

/// Whether every blank-separated word of `words` stands somewhere in the text, in any case. No words are always there.
bool HasWords(std::string_view text, std::string_view words);

/// The text with control characters as blanks, so that it stays on its line.
std::string OneLine(std::string_view text);

/// Reads a JSON array of objects whose members are strings; each value is made to stand on one line. Throws a Refusal.
std::vector<std::map<std::string, std::string>> ReadJsonRecords(std::string_view text);
