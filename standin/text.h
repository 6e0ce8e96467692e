/// Conversions between the machine's UTF-8 and the platform's UTF-16.
#pragma once

#include "standin/windows.h"

#include <string>
#include <string_view>

std::u16string Utf16From(std::string_view utf8);
std::string Utf8From(std::u16string_view utf16);

/// Copies `text` and its terminator into `target`, cut to `capacity` units. True if nothing was cut.
bool CopyCut(std::u16string_view text, LPWSTR target, std::size_t capacity);
