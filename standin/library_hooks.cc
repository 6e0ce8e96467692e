// Linked into the library itself: calls its entry point on load and unload, as the Windows loader does.
#include "standin/processes.h"
#include "standin/windows.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved);

namespace {

HMODULE ownModule = nullptr;

[[gnu::constructor]] void OnLoad() {
    const auto* const ownAddress = reinterpret_cast<LPCWSTR>(&ownModule);
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, ownAddress, &ownModule);
    DllMain(ownModule, DLL_PROCESS_ATTACH, nullptr);
}

[[gnu::destructor]] void OnUnload() {
    DllMain(ownModule, DLL_PROCESS_DETACH, ProcessEnds() ? &ownModule : nullptr);
}

}  // namespace
