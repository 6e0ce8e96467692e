// A false alarm inside <regex> that GCC raises in builds with sanitizers.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include "text.h"

#include "platform/platform.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace {

constexpr std::size_t MaxPatternLength = 200;

bool IsControl(char byte) {
    return static_cast<unsigned char>(byte) < ' ' || byte == 0x7F;
}

bool IsWordByte(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return value >= 0x80 || (value >= '0' && value <= '9') || (value >= 'a' && value <= 'z') ||
           (value >= 'A' && value <= 'Z');
}

/// A place in a JSON text. It is read as UTF-16, which is what JSON's own escapes are written in.
struct JsonCursor {
    const std::basic_string<OrvaneMcpChar> text;
    std::size_t at = 0;

    bool AtEnd() const { return at >= text.size(); }
    bool AtOneOf(std::string_view bytes) const {
        return !AtEnd() && text[at] < 0x80 && bytes.find(static_cast<char>(text[at])) != std::string_view::npos;
    }
};

[[noreturn]] void RefuseJson(const JsonCursor& in, const char* wanted) {
    throw Refusal("The updates can't be read: expected " + std::string(wanted) + " at character " +
                  std::to_string(in.at) + ".");
}

/// Passes over blanks and commas, then over `wanted` if it stands there.
bool Accept(JsonCursor& in, char wanted) {
    while (in.AtOneOf(" \t\r\n,")) ++in.at;
    if (!in.AtOneOf({&wanted, 1})) return false;
    ++in.at;
    return true;
}

/// A string behind its opening quote, up to and with its closing one.
std::string ReadJsonString(JsonCursor& in) {
    constexpr std::string_view escapes = "ntrbf", meanings = "\n\t\r\b\f";
    std::basic_string<OrvaneMcpChar> value;
    for (; !in.AtEnd() && !in.AtOneOf("\""); ++in.at) {
        OrvaneMcpChar unit = in.text[in.at];
        if (unit == '\\' && ++in.at < in.text.size()) {
            unit = in.text[in.at];
            if (in.AtOneOf("u")) {
                const std::string digits = FromWide(&in.text[in.at], std::min<std::size_t>(5, in.text.size() - in.at));
                unsigned code = 0;
                const auto read = std::from_chars(digits.data() + 1, digits.data() + digits.size(), code, 16);
                if (read.ptr != digits.data() + 5) RefuseJson(in, "four hexadecimal digits");
                unit = static_cast<OrvaneMcpChar>(code);
                in.at += 4;
            } else if (in.AtOneOf(escapes)) {
                unit = static_cast<OrvaneMcpChar>(meanings[escapes.find(static_cast<char>(unit))]);
            }
        }
        value += unit;
    }
    if (in.AtEnd()) RefuseJson(in, "the end of a string");
    ++in.at;
    return FromWide(value.data(), value.size());
}

std::string ReadJsonValue(JsonCursor& in) {
    if (Accept(in, '"')) return ReadJsonString(in);
    const std::size_t start = in.at;
    while (!in.AtEnd() && !in.AtOneOf(" \t\r\n,{}[]\"")) ++in.at;
    if (in.at == start) RefuseJson(in, "a text or a number");
    return FromWide(&in.text[start], in.at - start);
}

}  // namespace

std::string FromWide(const OrvaneMcpChar* text, std::size_t length) {
    const int units = static_cast<int>(std::min<std::size_t>(length, INT_MAX / 4));
    if (units == 0) return {};
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, units, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, units, result.data(), size, nullptr, nullptr);
    return result;
}

std::basic_string<OrvaneMcpChar> ToWide(std::string_view text) {
    const int bytes = static_cast<int>(std::min<std::size_t>(text.size(), INT_MAX / 4));
    if (bytes == 0) return {};
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

std::filesystem::path Absolute(const std::filesystem::path& path) {
    return std::filesystem::absolute(path).lexically_normal();
}

std::string LoadBytes(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) throw Refusal("Can't read " + PathText(path) + ".");
    return bytes;
}

void StoreBytes(const std::filesystem::path& path, std::string_view bytes) {
    std::filesystem::path draft = path;
    draft += ".part";
    std::ofstream file(draft, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    std::error_code failure;
    if (file) std::filesystem::rename(draft, path, failure);
    if (!file || failure) {
        std::filesystem::remove(draft, failure);
        throw Refusal("Can't write " + PathText(path) + ".");
    }
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

std::vector<std::string> LowerWords(std::string_view text) {
    std::vector<std::string> words;
    for (std::string& word : SplitAt(Lower(OneLine(text)), ' ')) {
        while (!word.empty() && std::string_view("?!.,;").find(word.back()) != std::string_view::npos) word.pop_back();
        if (!word.empty()) words.push_back(std::move(word));
    }
    return words;
}

std::string Lower(std::string_view text) {
    std::string lowered(text);
    for (char& byte : lowered) {
        if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte + ('a' - 'A'));
    }
    return lowered;
}

bool SameName(std::string_view left, std::string_view right) {
    return Lower(left) == Lower(right);
}

std::string OneLine(std::string_view text) {
    std::string line(text);
    for (char& byte : line) {
        if (IsControl(byte)) byte = ' ';
    }
    return line;
}

TextQuery MakeTextQuery(std::string_view text, bool wholeWord, bool regex, bool anywhere) {
    TextQuery query{LowerWords(text), wholeWord, anywhere, {}};
    if (!regex) return query;
    if (text.size() > MaxPatternLength) throw Refusal("The pattern is longer than 200 bytes.");
    try {
        // Polynomial: the library's other matcher can take hours and all of the stack, and this is the window thread.
        query.pattern.emplace(std::string(text), std::regex::icase | std::regex_constants::__polynomial);
    } catch (const std::regex_error&) {
        throw Refusal("No usable regular expression: " + std::string(text));
    }
    return query;
}

bool Fits(const TextQuery& query, std::string_view line) {
    if (query.pattern) return std::regex_search(line.begin(), line.end(), *query.pattern);
    return std::all_of(query.words.begin(), query.words.end(),
                       [&](const std::string& word) { return HasWord(line, word, query.wholeWord, query.anywhere); });
}

bool HasWord(std::string_view line, std::string_view word, bool wholeWord, bool anywhere) {
    const std::string text = Lower(line);
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        if (anywhere) return true;
        const std::size_t end = at + word.size();
        const bool begins = at == 0 || !IsWordByte(text[at - 1]) || !IsWordByte(text[at]);
        const bool ends = end == text.size() || !IsWordByte(text[end]) || !IsWordByte(text[end - 1]);
        if (begins && (ends || !wholeWord)) return true;
    }
    return false;
}

std::string JsonString(std::string_view text) {
    std::string quoted = "\"";
    for (const char byte : text) {
        if (byte == '"' || byte == '\\') quoted += '\\';
        if (byte == '\n') {
            quoted += "\\n";
        } else if (IsControl(byte)) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(byte));
            quoted += escape;
        } else {
            quoted += byte;
        }
    }
    return quoted + '"';
}

std::vector<std::map<std::string, std::string>> ReadJsonRecords(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);  // some editors put one in front
    JsonCursor in{ToWide(text)};
    std::vector<std::map<std::string, std::string>> records;
    const bool isArray = Accept(in, '[');
    while (Accept(in, '{')) {
        auto& record = records.emplace_back();
        while (!Accept(in, '}')) {
            if (!Accept(in, '"')) RefuseJson(in, "a key in quotes");
            const std::string key = ReadJsonString(in);
            if (!Accept(in, ':')) RefuseJson(in, "a colon");
            record[key] = ReadJsonValue(in);
        }
    }
    if (isArray && !Accept(in, ']')) RefuseJson(in, "an object or the end of the array");
    Accept(in, ' ');
    if (!in.AtEnd() || (!isArray && records.empty())) RefuseJson(in, "one array of objects");
    return records;
}
