// A module's handle is the address at which it is loaded.
#include "standin/handles.h"
#include "standin/processes.h"
#include "standin/text.h"

#include <atomic>
#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <string>

static std::atomic<bool> processEnds = false;

bool ProcessEnds() {
    return processEnds;
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD size) {
    Dl_info info = {};
    const bool known = module != nullptr && dladdr(module, &info) != 0;
    char name[PATH_MAX];
    if (realpath(known ? info.dli_fname : "/proc/self/exe", name) == nullptr) return 0;
    const std::u16string file = Utf16From(name);
    if (CopyCut(file, path, size)) return static_cast<DWORD>(file.size());
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

/// Finds a module by an address in it, and pins it if asked. Keeps no reference count.
BOOL GetModuleHandleExW(DWORD flags, LPCWSTR address, HMODULE* module) {
    Dl_info info = {};
    if (dladdr(address, &info) == 0) return Outcome(ERROR_FILE_NOT_FOUND);
    *module = static_cast<HMODULE>(info.dli_fbase);
    if ((flags & GET_MODULE_HANDLE_EX_FLAG_PIN) == 0) return TRUE;
    dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    // Registered at run time, so it is called before any library is torn down.
    [[maybe_unused]] static const int registered = std::atexit([] { processEnds = true; });
    return TRUE;
}

// The loader here never notifies a library about threads anyway.
BOOL DisableThreadLibraryCalls(HMODULE) {
    return TRUE;
}
