#include "guest_host.h"

#include "api/exports.h"
#include "host_window.h"

#include <fstream>
#include <iostream>

namespace {

template <typename Function>
Function Export(HMODULE library, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

void Say(const std::string& text) {
    std::cout << text << std::endl;
}

bool TakeLine() {
    std::string line;
    return static_cast<bool>(std::getline(std::cin, line));
}

/// What this process uses, private memory in units of 256 KiB.
std::string Usage() {
    std::string usage = ThreadsAndDescriptors();
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("RssAnon:")) usage += ", memory " + std::to_string(std::stol(line.substr(8)) / 256);
    }
    return usage;
}

}  // namespace

int RunGuestHost(const std::string& mode) {
    _setmode(_fileno(stdout), _O_BINARY);
    HMODULE library = LoadLibraryW(TEXT("orvane_mcp.dll"));
    if (library == nullptr) library = LoadLibraryW(TEXT("./liborvane_mcp.so"));
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
    if (mode == "count") {
        while (TakeLine()) Say(Eventually([&] { return count() == 0; }) ? Usage() : "clients stay");
    } else {
        // The session ends by itself, stopped or not, and the functions stay where they were.
        TakeLine();
        if (!answered || !Eventually([&] { return count() == 0; }) || version() != 11) return 2;
    }
    stop();
    return 0;
}
