/// Text and files as the viewer needs them: UTF-8 inside, UTF-16 only where it meets the library.
#pragma once

#include "api/exports.h"
#include "platform/platform.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

/// Thrown when a command can't be carried out. what() tells the agent why.
using Refusal = std::runtime_error;
using Strings = std::vector<std::string>;
using WideString = std::basic_string<OrvaneMcpChar>;

/// Invalid text becomes U+FFFD, here and in ToWide.
inline std::string FromWide(const WideString& text) {
    std::string utf8(text.size() * 3, '\0');  // no code unit takes more bytes
    const int units = static_cast<int>(text.size()), bytes = static_cast<int>(utf8.size());
    utf8.resize(WideCharToMultiByte(CP_UTF8, 0, text.data(), units, utf8.data(), bytes, nullptr, nullptr));
    return utf8;
}

inline WideString ToWide(const std::string& text) {
    WideString wide(text.size(), OrvaneMcpChar{});
    const int size = static_cast<int>(text.size());
    wide.resize(MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), size));
    return wide;
}

inline std::string PathText(const std::filesystem::path& path) {
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

inline std::filesystem::path PathOf(const std::string& utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

/// A whole file, of 64 MiB at most. Throws a Refusal that names the file, as StoreBytes does.
inline std::string LoadBytes(const std::filesystem::path& path) {
    std::error_code failure;
    const bool fits = std::filesystem::file_size(path, failure) <= 64 << 20 && !failure;
    std::ifstream file(path, std::ios::binary);
    if (!fits || !file) throw Refusal(PathText(path) + (failure ? " can't be read." : " is too large."));
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void StoreBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes << std::flush;
    if (!file) throw Refusal(PathText(path) + " can't be written.");
}

inline std::string Base64(const std::string& bytes) {
    constexpr auto digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto byte = [&](std::size_t i) { return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U; };
    std::string text;
    for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6)
        text += digits[(byte(bit / 8) << 8 | byte(bit / 8 + 1)) >> (10 - bit % 8) & 63];
    return text.append((4 - text.size() % 4) % 4, '=');
}

inline Strings SplitAt(const std::string& text, char separator) {
    std::istringstream in(text + separator);  // so that an empty last part counts too
    Strings parts;
    for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
    return parts;
}

inline std::string Joined(const Strings& parts, const char* separator = " ") {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : separator) + part;
    return text;
}

inline std::string Lower(std::string text) {
    for (char& byte : text) byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
    return text;
}

/// Whether the text contains every blank-separated word of `words`, in any case.
inline bool HasWords(const std::string& text, const std::string& words) {
    const auto holds = [lowered = Lower(text)](const std::string& word) { return lowered.find(word) != word.npos; };
    return std::ranges::all_of(SplitAt(Lower(words), ' '), holds);
}

/// The text with control characters turned into blanks.
inline std::string OneLine(std::string text) {
    for (char& byte : text) byte = (byte >= 0 && byte < ' ') || byte == '\x7F' ? ' ' : byte;
    return text;
}
