// A module's handle is the address at which it is loaded.
#include "standin/modules.h"

#include "standin/handles.h"
#include "standin/text.h"

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

std::atomic<bool> processEnds = false;

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
        unsigned long from = 0, to = 0;
        int path = 0;
        if (std::sscanf(line.c_str(), "%lx-%lx %*s %*s %*s %*s %n", &from, &to, &path) != 2) continue;
        if (from <= wanted && wanted < to) return line.substr(static_cast<std::size_t>(path));
    }
    return {};
}

}  // namespace

bool ProcessEnds() {
    return processEnds;
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD size) {
    const std::u16string file = Utf16From(module == nullptr ? OwnExecutable() : FileMappedAt(module));
    if (file.empty()) return static_cast<DWORD>(Outcome(ERROR_MOD_NOT_FOUND));
    if (CopyCut(file, path, size)) return static_cast<DWORD>(file.size());
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

/// Finds a module by an address in it, and pins it when asked to; counts no other use.
BOOL GetModuleHandleExW(DWORD flags, LPCWSTR address, HMODULE* module) {
    Dl_info info = {};
    if (dladdr(address, &info) == 0) return Outcome(ERROR_MOD_NOT_FOUND);
    *module = static_cast<HMODULE>(info.dli_fbase);
    if ((flags & GET_MODULE_HANDLE_EX_FLAG_PIN) == 0) return TRUE;
    dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    // Registered while the program runs, this comes before any library is torn down.
    [[maybe_unused]] static const int registered = std::atexit([] { processEnds = true; });
    return TRUE;
}

// The loader here tells a library nothing of threads anyway.
BOOL DisableThreadLibraryCalls(HMODULE) {
    return TRUE;
}
