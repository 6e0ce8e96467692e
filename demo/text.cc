#include "text.h"

#include "platform/platform.h"

#include <algorithm>
#include <fstream>
#include <sstream>

std::string FromWide(std::basic_string_view<OrvaneMcpChar> text) {
    const int units = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, result.data(), size, nullptr, nullptr);
    return result;
}

std::basic_string<OrvaneMcpChar> ToWide(std::string_view text) {
    const int bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, nullptr, 0);
    std::basic_string<OrvaneMcpChar> result(static_cast<std::size_t>(units), OrvaneMcpChar{});
    MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, result.data(), units);
    return result;
}

std::string PathText(const std::filesystem::path& path) {
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

std::filesystem::path PathOf(std::string_view utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

std::string LoadBytes(const std::filesystem::path& path) {
    constexpr std::uintmax_t largestFile = 64 << 20;
    std::error_code failure;
    const bool fits = std::filesystem::file_size(path, failure) <= largestFile && !failure;
    std::ifstream file(path, std::ios::binary);
    if (!fits || !file) throw Refusal(PathText(path) + (failure ? " can't be read." : " is too large."));
    return {std::istreambuf_iterator<char>(file), {}};
}

void StoreBytes(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw Refusal(PathText(path) + " can't be written.");
}

Strings SplitAt(std::string_view text, char separator) {
    std::istringstream in(std::string(text) + separator);  // so that an empty last part counts too
    Strings parts;
    for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
    return parts;
}

std::string Joined(const Strings& parts) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : " ") + part;
    return text;
}

std::string Lower(std::string_view text) {
    std::string lowered(text);
    for (char& byte : lowered) byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
    return lowered;
}

bool HasWords(std::string_view text, std::string_view words) {
    const std::string lowered = Lower(text);
    const Strings wanted = SplitAt(Lower(words), ' ');
    return std::ranges::all_of(wanted, [&](const std::string& word) { return lowered.find(word) != lowered.npos; });
}

std::string OneLine(std::string_view text) {
    std::string line(text);
    for (char& byte : line) byte = (byte >= 0 && byte < ' ') || byte == '\x7F' ? ' ' : byte;
    return line;
}

std::string Entry(const char* key, std::string_view value) {
    return std::string(key) + "=" + OneLine(value) + "\n";
}

std::string Entry(const char* key, std::size_t value) {
    return Entry(key, std::to_string(value));
}

std::string Row(const char* word, const Strings& cells) {
    std::string row = word;
    for (const std::string& cell : cells) row += "\t" + OneLine(cell);
    return row + "\n";
}
