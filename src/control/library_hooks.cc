/// What happens at load and unload. Loading never starts the server.

#include "api/exports.h"
#include "control/announcement.h"
#include "control/state.h"

/// Called by the loader, under its lock. `reserved` is not null if the whole process is ending.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_ATTACH) {
        ServerState().ModuleHandle = module;
        DisableThreadLibraryCalls(module);
    } else if (reason == DLL_PROCESS_DETACH) {
        if (reserved == nullptr) {
            // A library that has started a thread is pinned. So no server is running, and this doesn't wait.
            OrvaneMcp_StopControlServer();
        } else {
            WithdrawAtProcessEnd();
        }
    }
    return TRUE;
}
