/// The hooks for load and unload. The server never starts by itself.

#include "api/exports.h"
#include "control/announcement.h"
#include "control/state.h"

/// Called by the loader, under its lock. `reserved` is not null when the whole process ends.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_ATTACH) {
        ServerState().ModuleHandle = module;
        DisableThreadLibraryCalls(module);
    } else if (reason == DLL_PROCESS_DETACH) {
        if (reserved == nullptr) {
            // A library that has started a thread is pinned, so no server runs here and this can't wait.
            OrvaneMcp_StopControlServer();
        } else {
            WithdrawAtProcessEnd();
        }
    }
    return TRUE;
}
