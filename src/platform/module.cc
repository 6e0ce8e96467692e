#include "platform/module.h"

void PinOwnModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(&PinOwnModule), &module);
}

std::basic_string<WCHAR> ModulePath(HMODULE module) {
    return ReadGrowingPath([module](WCHAR* buffer, DWORD& length) {
        const DWORD size = length;
        length = GetModuleFileNameW(module, buffer, size);
        if (length == 0) return PathRead::Failed;
        // A cut path fills the buffer, so only a length with room to spare is complete.
        return length + 1 < size ? PathRead::Complete : PathRead::BufferTooSmall;
    });
}
