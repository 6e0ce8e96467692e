#include "platform/module.h"

bool PinOwnModule() {
    HMODULE module = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                              reinterpret_cast<LPCWSTR>(&PinOwnModule), &module) != 0;
}

std::basic_string<WCHAR> ModulePath(HMODULE module) {
    return ReadGrowingPath([module](WCHAR* buffer, DWORD& length) {
        const DWORD size = length;
        length = GetModuleFileNameW(module, buffer, size);
        if (length == 0) return PathRead::Failed;
        // A truncated path fills the buffer, so a path is complete only if there is room to spare.
        return length + 1 < size ? PathRead::Complete : PathRead::BufferTooSmall;
    });
}
