#include "text/wide.h"

#include <algorithm>
#include <limits>
#include <type_traits>

WideString ToLowerWide(WideString text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](WCHAR unit) { return static_cast<WCHAR>(towlower(static_cast<std::wint_t>(unit))); });
    return text;
}

namespace {

constexpr std::size_t LargestSource = std::numeric_limits<int>::max();

/// The system's conversion into `target`, which has room for `capacity` units; with null it only counts. 0 if there is
/// nothing to convert, or more than the system accepts.
int Convert(std::string_view source, WCHAR* target, int capacity) {
    if (source.empty() || source.size() > LargestSource) return 0;
    return MultiByteToWideChar(CP_UTF8, 0, source.data(), static_cast<int>(source.size()), target, capacity);
}

int Convert(WideView source, char* target, int capacity) {
    if (source.empty() || source.size() > LargestSource) return 0;
    const int length = static_cast<int>(source.size());
    return WideCharToMultiByte(CP_UTF8, 0, source.data(), length, target, capacity, nullptr, nullptr);
}

/// Copies text that can't be converted, unit by unit: ASCII stays, everything else becomes "?".
template <typename Target, typename Source>
Target CopyAsciiOnly(Source source) {
    Target copy;
    copy.reserve(source.size());
    for (const auto unit : source) {
        const bool ascii = static_cast<std::make_unsigned_t<decltype(+unit)>>(unit) < 128;
        copy.push_back(static_cast<typename Target::value_type>(ascii ? unit : '?'));
    }
    return copy;
}

}  // namespace

WideString Utf8ToWide(std::string_view text) {
    // The length excludes the terminator, so that a character cut off at the end of the text can't swallow it.
    const std::string_view source = text.substr(0, text.find('\0'));
    const int count = Convert(source, nullptr, 0);
    if (count <= 0) return CopyAsciiOnly<WideString>(text);
    WideString wide(static_cast<std::size_t>(count), 0);
    Convert(source, wide.data(), count);
    return wide;
}

std::string WideToAsciiLossy(WideView wide) {
    return CopyAsciiOnly<std::string>(wide);
}

std::string WideToUtf8(WideView wide) {
    const WideView source = wide.substr(0, wide.find(WCHAR(0)));
    const int count = Convert(source, nullptr, 0);
    if (count <= 0) return WideToAsciiLossy(wide);
    std::string text(static_cast<std::size_t>(count), '\0');
    Convert(source, text.data(), count);
    return text;
}
