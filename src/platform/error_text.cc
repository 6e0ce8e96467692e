#include "platform/error_text.h"

#if defined(_WIN32)

std::basic_string<WCHAR> SystemErrorText(DWORD error) {
    WCHAR text[512];
    constexpr DWORD noLineBreaks = FORMAT_MESSAGE_MAX_WIDTH_MASK;
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | noLineBreaks,
                                        nullptr, error, 0, text, sizeof text / sizeof *text, nullptr);
    std::basic_string<WCHAR> result(text, length);
    result.resize(result.find_last_not_of(L" \r\n") + 1);
    return result;
}

#else

std::basic_string<WCHAR> SystemErrorText(DWORD error) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND: return TEXT("File not found.");
        case ERROR_ACCESS_DENIED: return TEXT("Access denied.");
        case ERROR_PIPE_BUSY: return TEXT("All pipe instances are busy.");
        default: return {};
    }
}

#endif
