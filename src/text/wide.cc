#include "text/wide.h"

#include <algorithm>

WideString ToLowerWide(WideString text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](WCHAR unit) { return static_cast<WCHAR>(towlower(static_cast<std::wint_t>(unit))); });
    return text;
}

namespace {

/// Copies unit by unit what no conversion took: ASCII stays, everything else becomes "?".
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
    if (text.empty()) return {};
    const std::string source(text);  // the conversion wants a terminator
    const int count = MultiByteToWideChar(CP_UTF8, 0, source.c_str(), -1, nullptr, 0);
    if (count <= 1) return CopyAsciiOnly<WideString>(text);
    // The call also writes the NUL that it counts, which lands on the string's own terminator.
    WideString wide(static_cast<std::size_t>(count) - 1, 0);
    MultiByteToWideChar(CP_UTF8, 0, source.c_str(), -1, wide.data(), count);
    return wide;
}

std::string WideToUtf8(WideView wide) {
    if (wide.empty()) return {};
    const WideString source(wide);
    const int count = WideCharToMultiByte(CP_UTF8, 0, source.c_str(), -1, nullptr, 0, nullptr, nullptr);
    if (count <= 1) return CopyAsciiOnly<std::string>(wide);
    std::string text(static_cast<std::size_t>(count) - 1, '\0');
    WideCharToMultiByte(CP_UTF8, 0, source.c_str(), -1, text.data(), count, nullptr, nullptr);
    return text;
}
