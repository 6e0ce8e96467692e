#include "guest_host.h"

#include "api/exports.h"
#include "host_window.h"

#include <iostream>
#if !defined(_WIN32)
#include <dlfcn.h>
#endif

namespace {

#if defined(_WIN32)
HMODULE LoadOwnLibrary() {
    return LoadLibraryW(TEXT("orvane_mcp.dll"));
}
void* FindExport(HMODULE library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(library, name));
}
#else
void* LoadOwnLibrary() {
    return dlopen("./liborvane_mcp.so", RTLD_NOW | RTLD_LOCAL);
}
void* FindExport(void* library, const char* name) {
    return dlsym(library, name);
}
void FreeLibrary(void* library) {
    dlclose(library);
}
#endif

template <typename Function, typename Library>
Function Export(Library library, const char* name) {
    return reinterpret_cast<Function>(FindExport(library, name));
}

void Say(const std::string& text) {
    std::cout << text << std::endl;
}

bool TakeLine() {
    std::string line;
    return static_cast<bool>(std::getline(std::cin, line));
}

}  // namespace

int RunGuestHost(const std::string& mode) {
    _setmode(_fileno(stdout), _O_BINARY);
    const auto library = LoadOwnLibrary();
    const auto start = Export<decltype(&OrvaneMcp_StartControlServer)>(library, "OrvaneMcp_StartControlServer");
    const auto stop = Export<decltype(&OrvaneMcp_StopControlServer)>(library, "OrvaneMcp_StopControlServer");
    const auto count = Export<decltype(&OrvaneMcp_GetClientCount)>(library, "OrvaneMcp_GetClientCount");
    const auto version = Export<decltype(&OrvaneMcp_GetApiVersion)>(library, "OrvaneMcp_GetApiVersion");

    std::atomic<bool> answered = false, serving = false;
    HostWindow host([&](HostCommand& command) -> LRESULT {
        Say("command");
        if (mode == "exit") Sleep(INFINITE);
        if (mode.starts_with("stop") && Eventually([&] { return serving.load(); })) stop();
        if (mode == "stop-free") FreeLibrary(library), FreeLibrary(library);
        answered = true;
        return Echo(command);
    });
    ControlServerStartInfo info{};
    info.HostWindowHandle = host.Handle;
    serving = start(&info) == 1;
    if (!serving) return 1;
    if (mode == "free") FreeLibrary(library), FreeLibrary(library);
    Say("serving");
    if (mode == "exit") return TakeLine() ? std::exit(0), 0 : 1;
    const auto clientsGo = [&] { return Eventually([&] { return count() == 0; }); };
    while (TakeLine() && clientsGo()) Say(ThreadsAndHandles());
    // Sessions end by themselves, stopped or not, and the functions stay where they were.
    if ((!answered && mode != "stay") || !clientsGo() || version() != 11) return 2;
    stop();
    return 0;
}
