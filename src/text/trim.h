/// Trims byte strings.
#pragma once

#include <string_view>

/// `text` without the carriage returns and line feeds at its end, in any order and number.
inline std::string_view WithoutLineEnd(std::string_view text) {
    return text.substr(0, text.find_last_not_of("\r\n") + 1);
}
