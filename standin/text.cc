#include "standin/text.h"

#include "standin/handles.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace {

constexpr char16_t Replacement = 0xFFFD;

/// Removes the first code point from `rest`; U+FFFD if it is not UTF-8. Of a damaged sequence it removes the lead byte
/// and the continuation bytes up to where the damage shows.
char32_t TakeCodePoint(std::string_view& rest) {
    const auto byteAt = [&rest](std::size_t i) { return static_cast<unsigned char>(rest[i]); };
    const unsigned char lead = byteAt(0);
    const std::size_t length = lead < 0xC2 || lead > 0xF4 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (length == 1) {
        rest.remove_prefix(1);
        return lead < 0x80 ? lead : Replacement;
    }
    char32_t point = lead & (0xFFu >> (length + 1));
    std::size_t used = 1;
    for (; used < length && used < rest.size() && (byteAt(used) & 0xC0) == 0x80; ++used) {
        point = point << 6 | (byteAt(used) & 0x3Fu);
        // The second byte reveals an overlong form, a surrogate or a point beyond the last one.
        const bool hopeless = used == 1 && ((length == 3 && (point < 0x20 || (point >= 0x360 && point < 0x380))) ||
                                            (length == 4 && (point < 0x10 || point >= 0x110)));
        if (!hopeless) continue;
        rest.remove_prefix(2);
        return Replacement;
    }
    rest.remove_prefix(used);
    return used == length ? point : Replacement;
}

bool IsHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

/// Copies a conversion's result and returns what both conversion calls return: the count, which is all that a capacity
/// of 0 asks for, or 0 with the last error set if the result doesn't fit.
template <typename Text, typename Unit>
int HandOut(const Text& text, Unit* target, int capacity) {
    const int count = static_cast<int>(text.size());
    if (capacity == 0) return count;
    if (count > capacity) return Outcome(ERROR_INSUFFICIENT_BUFFER);
    std::copy(text.begin(), text.end(), target);
    return count;
}

/// The source of a conversion; a length of -1 includes the terminator.
template <typename Unit>
std::basic_string_view<Unit> Source(const Unit* source, int length) {
    if (length >= 0) return {source, static_cast<std::size_t>(length)};
    return {source, std::char_traits<Unit>::length(source) + 1};
}

int LowerAscii(char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? unit + 32 : unit;
}

}  // namespace

std::u16string Utf16From(std::string_view utf8) {
    std::u16string wide;
    wide.reserve(utf8.size());
    while (!utf8.empty()) {
        const char32_t point = TakeCodePoint(utf8);
        if (point >= 0x10000) wide += static_cast<char16_t>(0xD7C0 + (point >> 10));
        wide += static_cast<char16_t>(point < 0x10000 ? point : 0xDC00 + (point & 0x3FF));
    }
    return wide;
}

std::string Utf8From(std::u16string_view utf16) {
    std::string bytes(utf16.size() * 3, '\0');  // the most it can need
    char* end = bytes.data();
    for (std::size_t i = 0; i < utf16.size(); ++i) {
        char32_t point = utf16[i];
        if (IsHighSurrogate(utf16[i]) && i + 1 < utf16.size() && IsLowSurrogate(utf16[i + 1])) {
            point = 0x10000 + ((point - 0xD800) << 10) + (utf16[++i] - 0xDC00u);
        } else if (IsHighSurrogate(utf16[i]) || IsLowSurrogate(utf16[i])) {
            point = Replacement;
        }
        constexpr char32_t leads[] = {0, 0xC0, 0xE0, 0xF0};
        const int following = point < 0x80 ? 0 : point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
        *end++ = static_cast<char>(leads[following] | point >> 6 * following);
        for (int i = following - 1; i >= 0; --i) *end++ = static_cast<char>(0x80 | (point >> 6 * i & 0x3F));
    }
    bytes.resize(static_cast<std::size_t>(end - bytes.data()));
    return bytes;
}

bool CopyCut(std::u16string_view text, LPWSTR target, std::size_t capacity) {
    const std::size_t copied = text.copy(target, capacity - 1);
    target[copied] = 0;
    return copied == text.size();
}

// Only UTF-8 is ever asked for, with no flags.
int MultiByteToWideChar(UINT, DWORD, const char* source, int sourceLength, LPWSTR target, int capacity) {
    return HandOut(Utf16From(Source(source, sourceLength)), target, capacity);
}

int WideCharToMultiByte(UINT, DWORD, LPCWSTR source, int sourceLength, char* target, int capacity, const char*, BOOL*) {
    return HandOut(Utf8From(Source(source, sourceLength)), target, capacity);
}

/// Copies what fits; the count is always _TRUNCATE.
errno_t wcsncpy_s(LPWSTR target, std::size_t capacity, LPCWSTR source, std::size_t) {
    constexpr errno_t truncated = 80;
    return CopyCut(source, target, capacity) ? 0 : truncated;
}

/// Supports the formats that mean the same in narrow text.
int swprintf_s(LPWSTR target, std::size_t capacity, LPCWSTR format, ...) {
    char text[1024];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof(text), Utf8From(format).c_str(), arguments);
    va_end(arguments);
    const bool whole = CopyCut(Utf16From(text), target, capacity) && length < static_cast<int>(sizeof(text));
    return whole ? length : -1;
}

int _wcsicmp(LPCWSTR left, LPCWSTR right) {
    for (; *left != 0 && LowerAscii(*left) == LowerAscii(*right); ++left) ++right;
    return LowerAscii(*left) - LowerAscii(*right);
}

int StandinIsWideSpace(std::wint_t unit) {
    constexpr std::wstring_view others = L"\x20\x85\xA0\u1680\u2028\u2029\u202F\u205F\u3000";
    const bool inRange = (unit >= 9 && unit <= 13) || (unit >= 0x2000 && unit <= 0x200A);
    return inRange || others.find(static_cast<wchar_t>(unit)) != others.npos ? 1 : 0;
}
