#include "guest_host.h"

#include "api/exports.h"
#include "host_window.h"

#include <iostream>
#if !defined(_WIN32)
#include <dlfcn.h>
#endif

namespace {

#if !defined(_WIN32)
void* LoadLibraryW(LPCWSTR) {
    return dlopen("./liborvane_mcp.so", RTLD_NOW | RTLD_LOCAL);
}
constexpr auto GetProcAddress = dlsym;
constexpr auto FreeLibrary = dlclose;
#endif

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
    const auto library = LoadLibraryW(TEXT("orvane_mcp.dll"));
    const auto find = [&]<typename Function>(Function, const char* name) {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    };
    const auto start = find(OrvaneMcp_StartControlServer, "OrvaneMcp_StartControlServer");
    const auto stop = find(OrvaneMcp_StopControlServer, "OrvaneMcp_StopControlServer");
    const auto count = find(OrvaneMcp_GetClientCount, "OrvaneMcp_GetClientCount");
    const auto version = find(OrvaneMcp_GetApiVersion, "OrvaneMcp_GetApiVersion");

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
    TakeLine();
    // Sessions end by themselves, stopped or not, and the functions stay where they were.
    if (!answered || !clientsGo() || version() != 11) return 2;
    stop();
    return 0;
}
