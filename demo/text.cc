#include "text.h"

#include "platform/platform.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iomanip>
#include <sstream>

namespace {

/// The JSON text with no escapes but those of quotes and backslashes. What would break a line becomes a blank.
std::string WithoutEscapes(std::string_view json) {
    const auto text = ToWide(json);  // the code that \u is written in
    std::basic_string<OrvaneMcpChar> plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const OrvaneMcpChar kind = text[at] == '\\' && at + 1 < text.size() ? text[++at] : OrvaneMcpChar{};
        unsigned unit = kind == 0 ? text[at] : kind >= 'a' && kind <= 'z' ? ' ' : kind;
        if (kind == 'u') {
            const std::string digits = FromWide(text.substr(at + 1, 4));
            std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
            at += digits.size();
        }
        if (kind != 0 && (unit == '"' || unit == '\\')) plain += '\\';
        plain += static_cast<OrvaneMcpChar>(unit);
    }
    return OneLine(FromWide(plain));
}

}  // namespace

std::string FromWide(std::basic_string_view<OrvaneMcpChar> text) {
    if (text.empty()) return {};
    const int units = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, result.data(), size, nullptr, nullptr);
    return result;
}

std::basic_string<OrvaneMcpChar> ToWide(std::string_view text) {
    if (text.empty()) return {};
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
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) throw Refusal("Can't read " + PathText(path) + ".");
    return bytes;
}

void StoreBytes(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw Refusal("Can't write " + PathText(path) + ".");
}

std::vector<std::string> SplitAt(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (true) {
        const std::size_t end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

std::string Joined(const std::vector<std::string>& parts, const char* separator) {
    std::string text;
    for (const std::string& part : parts) text += (&part == parts.data() ? "" : separator) + part;
    return text;
}

std::string Lower(std::string_view text) {
    std::string lowered(text);
    for (char& byte : lowered) byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
    return lowered;
}

bool HasWords(std::string_view text, std::string_view words) {
    const std::string lowered = Lower(text);
    const std::vector<std::string> wanted = SplitAt(Lower(words), ' ');
    return std::all_of(wanted.begin(), wanted.end(),
                       [&](const std::string& word) { return lowered.find(word) != std::string::npos; });
}

std::string OneLine(std::string_view text) {
    std::string line(text);
    for (char& byte : line) byte = byte >= 0 && byte < ' ' ? ' ' : byte;
    return line;
}

std::vector<std::map<std::string, std::string>> ReadJsonRecords(std::string_view text) {
    std::istringstream in(WithoutEscapes(text));
    const auto accept = [&](char wanted) { return in >> std::ws && in.peek() == wanted && in.get(); };
    std::vector<std::map<std::string, std::string>> records;
    bool sound = accept('[');
    while (sound && accept('{')) {
        auto& record = records.emplace_back();
        do {
            std::string key;
            in >> std::quoted(key);
            sound = accept(':') && in >> std::quoted(record[key]);
        } while (sound && accept(','));
        sound = sound && accept('}');
        accept(',');
    }
    if (!sound || !accept(']')) throw Refusal("The updates are no JSON array of objects with texts.");
    return records;
}
