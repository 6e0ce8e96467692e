/// What the viewer has open, how it answers commands, and the text and file helpers for both. Text is UTF-8, and UTF-16
/// only at the library's boundary. Everything runs on the window's thread and takes no lock.
#pragma once

#include "api/exports.h"
#include "platform/platform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;
using Strings = std::vector<std::string>;
using Refusal = std::runtime_error;  ///< thrown when a command can't be carried out; what() tells the agent why

/// In millimetres on the board or in points on a page; x to the right, y downwards.
using Box = std::array<double, 4>;
enum { Left, Top, Right, Bottom };
constexpr Box WholePage{0, 0, 660, 700};

struct Word {
    Box box;
    std::string text;
};

/// A page shows the parts on one side of the board, the bottom as seen through the board, and text below them.
struct Page {
    std::string side, text;
};

/// Everything that the viewer has open and selected.
struct Viewer {
    fs::path boardPath;
    json board;
    fs::path schematicPath;  ///< the drawing set attached to the board; empty if none is
    std::string selectedRefdes, selectedPin, selectedNet;
};

/// The viewer with this board open, and its drawing set if there is one. A board is JSON, in memory as in its file: the
/// boxes of its "outline", the records of its "nets" and "components", and those of their "pins". A record always has
/// its texts and boxes. Throws a Refusal if the file can't be read or is not a board.
Viewer OpenBoard(const fs::path& file);

/// Carries out the library's command and fills in Success and LongReply. No exception leaves it. Returns one line for
/// the console.
std::string AnswerCommand(Viewer& viewer, HostCommand& command);

/// All words of a page: first the labels of its parts, then its text.
std::vector<Word> WordsOf(const json& board, const Page& page);

/// An area of a page as a PNG file, with a part and the pads of the selected net highlighted. It is scaled down until
/// its base64 text fits into `limit` bytes; 0 means no limit. Throws a Refusal if it can't be made small enough.
std::string DrawPage(const Viewer& viewer, const Page& page, Box area, const std::string& chosen, std::size_t limit);

/// Invalid text becomes U+FFFD.
inline std::string FromWide(std::basic_string_view<OrvaneMcpChar> text) {
    std::string utf8(text.size() * 3, '\0');  // no code unit takes more bytes
    const int units = int(text.size());
    utf8.resize(WideCharToMultiByte(CP_UTF8, 0, text.data(), units, utf8.data(), 3 * units, nullptr, nullptr));
    return utf8;
}

inline std::string PathText(const fs::path& path) {
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

inline fs::path PathOf(const std::string& utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

/// A whole file, of 64 MiB at most. Throws a Refusal that names the file, as StoreBytes does.
inline std::string LoadBytes(const fs::path& path) {
    std::error_code failure;
    const std::uintmax_t size = fs::file_size(path, failure);
    std::ifstream file(path, std::ios::binary);
    if (failure || !file) throw Refusal(PathText(path) + " can't be read.");
    if (size > 64 << 20) throw Refusal(PathText(path) + " is too large.");
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void StoreBytes(const fs::path& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes << std::flush;
    if (!file) throw Refusal(PathText(path) + " can't be written.");
}

inline Strings SplitAt(const std::string& text, char separator) {
    std::istringstream in(text + separator);  // so that an empty last part counts too
    Strings parts;
    for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
    return parts;
}

inline std::string Joined(const Strings& parts, const char* separator = ", ") {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : separator) + part;
    return text;
}

inline std::string Lower(std::string text) {
    for (char& byte : text) byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
    return text;
}

/// True if the record's text under `key` is `text`, ignoring case. Never true for an empty text.
inline bool Is(const json& record, const char* key, const std::string& text) {
    return !text.empty() && Lower(record.at(key)) == Lower(text);
}

/// True if the text contains every word of `words`, ignoring case.
inline bool HasWords(const std::string& text, const std::string& words) {
    const auto holds = [lowered = Lower(text)](const std::string& word) { return lowered.find(word) != word.npos; };
    return std::ranges::all_of(SplitAt(Lower(words), ' '), holds);
}

/// The text with control characters turned into blanks.
inline std::string OneLine(std::string text) {
    for (char& byte : text) byte = (byte >= 0 && byte < ' ') || byte == '\x7F' ? ' ' : byte;
    return text;
}

/// The box with its edges moved outwards.
inline Box Grown(const Box& box, double by) {
    return {box[Left] - by, box[Top] - by, box[Right] + by, box[Bottom] + by};
}
