/// The functions of user32 and ole32 that only the control server calls. A viewer has both loaded anyway; importing
/// them would cost the bridge twenty milliseconds and a megabyte at each start. So each is looked up when it is first
/// called. Call sites don't change: the compiler calls through these pointers, as if an import library defined them.

#if defined(_WIN32)

#include "platform/platform.h"

namespace {

/// A system function, or null. Its library stays loaded.
template <typename Function>
Function* FindFunction(const WCHAR* library, const char* name) {
    const HMODULE module = LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    return module == nullptr ? nullptr
                             : reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

BOOL WINAPI LateIsWindow(HWND window) {
    static const auto function = FindFunction<decltype(IsWindow)>(L"user32.dll", "IsWindow");
    return function != nullptr ? function(window) : FALSE;
}

LRESULT WINAPI LateSendMessageW(HWND window, UINT message, WPARAM first, LPARAM second) {
    static const auto function = FindFunction<decltype(SendMessageW)>(L"user32.dll", "SendMessageW");
    return function != nullptr ? function(window, message, first, second) : 0;
}

void WINAPI LateCoTaskMemFree(void* block) {
    static const auto function = FindFunction<decltype(CoTaskMemFree)>(L"ole32.dll", "CoTaskMemFree");
    if (function != nullptr) function(block);
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the compiler's
extern "C" {
decltype(IsWindow)* __imp_IsWindow = LateIsWindow;
decltype(SendMessageW)* __imp_SendMessageW = LateSendMessageW;
decltype(CoTaskMemFree)* __imp_CoTaskMemFree = LateCoTaskMemFree;
}
// NOLINTEND(bugprone-reserved-identifier)

#endif
