/// What happens when the system loads and unloads the library. The server never starts by itself.

#include "api/library.h"

#include "api/exports.h"
#include "platform/platform.h"

/// Called by the loader, under its lock. `reserved` is not null when the whole process ends.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_ATTACH) {
        NoteLibraryLoaded(module);
        DisableThreadLibraryCalls(module);
    } else if (reason == DLL_PROCESS_DETACH) {
        if (reserved == nullptr) {
            // A library with threads is pinned, so there is no server here to wait for.
            OrvaneMcp_StopControlServer();
        } else {
            NoteProcessEnds();
        }
    }
    return TRUE;
}
