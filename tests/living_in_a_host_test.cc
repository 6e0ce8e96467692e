/// The shared library in processes of its own kind of host: how they end, stop, free it and go on.

#include "child_process.h"
#include "control/announcement.h"
#include "host_window.h"
#include "hostlink/discovery.h"
#include "platform/module.h"
#include "protocol/control_protocol.h"

#include <iostream>
#if !defined(_WIN32)
#include <dlfcn.h>

static constexpr auto LoadLibraryW = [](LPCWSTR) { return dlopen("./liborvane_mcp.so", RTLD_NOW | RTLD_LOCAL); };
static constexpr auto GetProcAddress = dlsym;
static constexpr auto FreeLibrary = dlclose;
#endif

/// Plays a host that knows only the library's exports until its input ends, and gives the exit code; 0 when all went as
/// it should. It says "serving" and "command".
/// exit: a line ends the process without a stop. stop: stops inside the first command. free: gives the library back
/// while the server runs. stop-free: both inside the first command.
int RunGuestHost(const std::string& mode) {
    _setmode(_fileno(stdout), _O_BINARY);
    const auto library = LoadLibraryW(TEXT("orvane_mcp.dll"));
    const auto find = [&]<typename Function>(Function, const char* name) {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    };
    const auto start = find(OrvaneMcp_StartControlServer, "OrvaneMcp_StartControlServer");
    const auto stop = find(OrvaneMcp_StopControlServer, "OrvaneMcp_StopControlServer");
    const auto count = find(OrvaneMcp_GetClientCount, "OrvaneMcp_GetClientCount");
    const auto freeTwice = [&] { FreeLibrary(library), FreeLibrary(library); };

    std::atomic<bool> serving = false;
    HostWindow host([&](HostCommand& command) -> LRESULT {
        std::cout << "command" << std::endl;
        if (mode == "exit") Sleep(INFINITE);
        if (mode.starts_with("stop") && Eventually([&] { return serving.load(); })) stop();
        if (mode == "stop-free") freeTwice();
        return Echo(command);
    });
    ControlServerStartInfo info{};
    info.HostWindowHandle = host.Handle;
    serving = start(&info) == 1;
    if (mode == "free") freeTwice();
    std::cout << "serving" << std::endl;
    if (mode == "exit") return std::cin.get() == EOF ? 1 : (std::exit(0), 0);
    std::cin.get();
    // Sessions end by themselves, stopped or not, and the functions stay where they were.
    const bool alone = Eventually([&] { return count() == 0; });
    stop();
    return serving && alone ? 0 : 1;
}

static bool Announced() {
    return !ReadRegistryString(HKEY_CURRENT_USER, Announcement::Key, Announcement::PipeName).empty();
}

TEST(LivingInAHost, AHostMayExitOrStopInsideACommandAndFreeTheLibraryAtAnyTime) {
    for (const std::string mode : {"exit", "stop", "free", "stop-free"}) {
        SCOPED_TRACE(mode);
        ChildProcess host(ModulePath(nullptr), {"--host", mode});
        EXPECT_EQ(host.Read("\n"), "serving");
        EXPECT_TRUE(Announced());
        {
            RawClient idle("idle", ControlPipeName(host.Id)), busy("busy", ControlPipeName(host.Id));
            busy.Send("GET_BOARD_STATE\n");
            EXPECT_EQ(host.Read("\n"), "command");
            if (mode == "exit") host.Send("\n");
            // The command that was under way is answered; after a stop the session then ends by itself.
            EXPECT_EQ(busy.Read(), mode == "exit" ? "<end>" : "OK\t2:");
            EXPECT_EQ(mode == "free" ? "<end>" : idle.Read(), "<end>");
            EXPECT_EQ(mode == "free" ? "<end>" : busy.Read(), "<end>");
        }
        host.Input.reset();
        EXPECT_EQ(host.WaitForExitCode(), 0u);
        EXPECT_FALSE(Announced());
    }
}

TEST(LivingInAHost, AViewerLeavesTheAnnouncementOfALaterOne) {
    ChildProcess first(ModulePath(nullptr), {"--host", "exit"});
    EXPECT_EQ(first.Read("\n"), "serving");
    ChildProcess second(ModulePath(nullptr), {"--host", "free"});
    EXPECT_EQ(second.Read("\n"), "serving");
    first.Send("\n");
    EXPECT_EQ(first.WaitForExitCode(), 0u);
    EXPECT_THAT(FindControlPipes(), testing::ElementsAre(ControlPipeName(second.Id)));
    AnnounceControlServer(false);
}
