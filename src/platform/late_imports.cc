/// The functions of user32 and ole32 that only the control server calls. Its host has both loaded; the bridge would pay
/// twenty milliseconds and a megabyte for them at each start. So they are found at their first call. Calls elsewhere
/// look like any other: the compiler makes them through the pointers below, which an import library otherwise defines.

#if defined(_WIN32)

#include "platform/platform.h"

namespace {

/// A system function, or null. Its library stays loaded from then on.
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
