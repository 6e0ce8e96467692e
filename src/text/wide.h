/// UTF-16 text, as the platform and the host use it, and conversion to and from UTF-8.
#pragma once

#include "platform/platform.h"

#include <string>
#include <string_view>

using WideString = std::basic_string<WCHAR>;
using WideView = std::basic_string_view<WCHAR>;

/// `text` with towlower applied to each code unit.
WideString ToLowerWide(WideString text);

/// UTF-8 to UTF-16, up to the first NUL byte. Reports no error: bad bytes become U+FFFD. Text that starts with a NUL,
/// or that the system can't convert, is copied byte by byte instead, with "?" for every byte from 128 up.
WideString Utf8ToWide(std::string_view text);

/// The reverse: UTF-16 to UTF-8, up to the first NUL, with U+FFFD for an unpaired surrogate.
std::string WideToUtf8(WideView wide);

/// One byte for each code unit: ASCII unchanged, "?" for everything else.
std::string WideToAsciiLossy(WideView wide);
