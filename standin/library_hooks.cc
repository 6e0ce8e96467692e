// Compiled into the library itself: tells its entry point of load and unload, as the loader of Windows does.
#include "platform/platform.h"
#include "standin/modules.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved);

namespace {

char ownAddress;

HINSTANCE OwnModule() {
    HMODULE module = nullptr;
    if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&ownAddress), &module)) {
        FreeLibrary(module);  // only the address was wanted, not a count
    }
    return module;
}

HINSTANCE loadedModule = nullptr;

[[gnu::constructor]] void OnLoad() {
    loadedModule = OwnModule();
    DllMain(loadedModule, DLL_PROCESS_ATTACH, nullptr);
}

[[gnu::destructor]] void OnUnload() {
    // A pinned module is only torn down when the whole process ends.
    DllMain(loadedModule, DLL_PROCESS_DETACH, StandinModuleIsPinned(loadedModule) ? &ownAddress : nullptr);
}

}  // namespace
