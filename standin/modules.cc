#include "standin/modules.h"

#include "standin/handles.h"
#include "standin/text.h"

#include <climits>
#include <cstdint>
#include <dlfcn.h>
#include <fstream>
#include <link.h>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

struct PinnedModules {
    std::mutex Mutex;
    std::set<HMODULE> Modules;
};

PinnedModules& Pinned() {
    static PinnedModules& pinned = *new PinnedModules;
    return pinned;
}

std::string OwnExecutable() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    return length < 0 ? std::string() : std::string(path, static_cast<std::size_t>(length));
}

/// The file that is mapped at `address`; always absolute, unlike the name by which it was loaded.
std::string FileMappedAt(const void* address) {
    std::ifstream maps("/proc/self/maps");
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    for (std::string line; std::getline(maps, line);) {
        std::istringstream fields(line);
        std::uintptr_t from = 0;
        std::uintptr_t to = 0;
        char dash = 0;
        std::string skipped;
        std::string path;
        fields >> std::hex >> from >> dash >> to >> skipped >> skipped >> skipped >> skipped >> std::ws;
        std::getline(fields, path);
        if (from <= wanted && wanted < to) return path;
    }
    return {};
}

struct LibraryCloser {
    using pointer = void*;
    void operator()(void* library) const { dlclose(library); }
};
using OwnedLibrary = std::unique_ptr<void, LibraryCloser>;

/// The loader's own handle for a module that is loaded, counted once more; null for the main program and for what is
/// no module.
OwnedLibrary LibraryOf(HMODULE module, int flags = 0) {
    Dl_info info = {};
    const bool known = module != nullptr && dladdr(module, &info) != 0 && info.dli_fbase == module;
    return OwnedLibrary(known ? dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | flags) : nullptr);
}

HMODULE ModuleOf(void* library) {
    link_map* map = nullptr;
    dlinfo(library, RTLD_DI_LINKMAP, &map);
    Dl_info info = {};
    dladdr(map->l_ld, &info);
    return static_cast<HMODULE>(info.dli_fbase);
}

}  // namespace

bool StandinModuleIsPinned(HMODULE module) {
    PinnedModules& pinned = Pinned();
    const std::lock_guard guard(pinned.Mutex);
    return pinned.Modules.contains(module);
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD size) {
    const std::u16string file = Utf16From(module == nullptr ? OwnExecutable() : FileMappedAt(module));
    if (file.empty()) return static_cast<DWORD>(Outcome(ERROR_MOD_NOT_FOUND));
    if (size == 0) return static_cast<DWORD>(Outcome(ERROR_INSUFFICIENT_BUFFER));
    if (CopyCut(file, path, size)) return static_cast<DWORD>(file.size());
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

BOOL GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE* module) {
    Dl_info info = {};
    if ((flags & GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS) == 0) return Outcome(ERROR_INVALID_PARAMETER);
    if (dladdr(name, &info) == 0) return Outcome(ERROR_MOD_NOT_FOUND);
    *module = static_cast<HMODULE>(info.dli_fbase);
    const bool pin = (flags & GET_MODULE_HANDLE_EX_FLAG_PIN) != 0;
    OwnedLibrary library = LibraryOf(*module, pin ? RTLD_NODELETE : 0);
    // Kept: the caller frees it with FreeLibrary, a pinned one never.
    library.release();
    if (!pin) return TRUE;
    PinnedModules& pinned = Pinned();
    const std::lock_guard guard(pinned.Mutex);
    pinned.Modules.insert(*module);
    return TRUE;
}

// The loader here tells a library nothing of threads anyway.
BOOL DisableThreadLibraryCalls(HMODULE) {
    return TRUE;
}

HMODULE LoadLibraryW(LPCWSTR path) {
    void* const library = dlopen(Utf8From(std::u16string_view(path)).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library != nullptr) return ModuleOf(library);
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

BOOL FreeLibrary(HMODULE module) {
    const OwnedLibrary library = LibraryOf(module);
    if (!library) return Outcome(ERROR_MOD_NOT_FOUND);
    dlclose(library.get());  // the count that the caller had; ours goes at the end
    return TRUE;
}

FARPROC GetProcAddress(HMODULE module, const char* name) {
    const OwnedLibrary library = LibraryOf(module);
    void* const address = library ? dlsym(library.get(), name) : nullptr;
    if (address == nullptr) SetLastError(library ? ERROR_PROC_NOT_FOUND : ERROR_MOD_NOT_FOUND);
    return reinterpret_cast<FARPROC>(address);
}
