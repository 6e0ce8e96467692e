/// Text as the viewer needs it: UTF-8 inside, UTF-16 only where it meets the library.
#pragma once

#include "api/exports.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Thrown where a command can't be carried out. what() is the reply that explains it to the agent.
using Refusal = std::runtime_error;

/// Between the library's UTF-16 and UTF-8. What is no valid text becomes U+FFFD.
std::string FromWide(const OrvaneMcpChar* text, std::size_t length);
std::basic_string<OrvaneMcpChar> ToWide(std::string_view text);

std::string PathText(const std::filesystem::path& path);
std::filesystem::path PathOf(std::string_view utf8);
std::filesystem::path Absolute(const std::filesystem::path& path);

/// A whole file; storing replaces it in one step. Both throw a Refusal that names the file.
std::string LoadBytes(const std::filesystem::path& path);
void StoreBytes(const std::filesystem::path& path, std::string_view bytes);

std::vector<std::string> SplitAt(std::string_view text, char separator);
std::vector<std::string> LowerWords(std::string_view text);
std::string Lower(std::string_view text);
bool SameName(std::string_view left, std::string_view right);

/// The text with control characters as blanks, so that it stays on its line.
std::string OneLine(std::string_view text);

/// What a search asks of one line of text. Words are compared without case and must begin where a word of the
/// line begins; wholeWord wants their ends to meet too, anywhere drops both conditions.
struct TextQuery {
    std::vector<std::string> words;
    bool wholeWord = false;
    bool anywhere = false;
    std::optional<std::regex> pattern;
};

/// Throws a Refusal when `regex` is set and the text is no regular expression.
TextQuery MakeTextQuery(std::string_view text, bool wholeWord, bool regex, bool anywhere);

/// Whether the line holds every word of the query, or its pattern. A query without words fits every line.
bool Fits(const TextQuery& query, std::string_view line);
bool HasWord(std::string_view line, std::string_view word, bool wholeWord = false, bool anywhere = false);

/// `text` as a JSON string, quotes included.
std::string JsonString(std::string_view text);

/// Reads a JSON array of flat objects, or one such object; every value as its text. Commas too many or too few
/// are forgiven. Throws a Refusal that gives the place where the text can't be read.
std::vector<std::map<std::string, std::string>> ReadJsonRecords(std::string_view text);
