/// Starting and stopping the server: the two exports.

#include "api/exports.h"
#include "control/announcement.h"
#include "control/clients.h"
#include "control/listener.h"
#include "control/state.h"
#include "platform/module.h"
#include "protocol/control_protocol.h"
#include "text/paths.h"

#include <cstddef>
#include <mutex>
#include <new>

namespace {

const WCHAR* const LauncherFileName = TEXT("orvane_mcp.exe");

/// The directory of the library's own file; empty on failure.
WideString ResolveModuleDirectory() {
    return ParentDirectory(ModulePath(ServerState().ModuleHandle));
}

/// The launcher's directory: the host's choice, or else the library's own. Only the NUL ends the host's text; its
/// record may be longer or shorter than the declared array.
WideString LauncherDirectory(const ControlServerStartInfo* info) {
    if (info != nullptr) {
        const auto* const bytes = reinterpret_cast<const char*>(info);
        const auto* const given = reinterpret_cast<const WCHAR*>(bytes + offsetof(ControlServerStartInfo, Directory));
        if (*given != 0) return given;
    }
    return ResolveModuleDirectory();
}

/// Sets up the state for a new server run.
void PrepareRun(const ControlServerStartInfo* info, const WideString& directory) {
    const bool overridden = info != nullptr && info->ProcessIdOverride != 0;
    ControlServerState& state = ServerState();
    WideString pipeName = ControlPipeName(overridden ? info->ProcessIdOverride : GetCurrentProcessId());
    WideString serverPath = JoinPath(directory, LauncherFileName);
    const std::lock_guard lock(state.ServerLock);
    state.PipeName.swap(pipeName);
    state.ServerPath.swap(serverPath);
    state.LastErrorText.clear();
    state.HostWindow = info != nullptr ? static_cast<HWND>(info->HostWindowHandle) : nullptr;
    ClearClients();
    state.NextClientId = 1;
    ++state.ServerRun;
}

/// Waits for the sessions to end, but not forever: one inside a host command may be waiting for this very thread.
void WaitForSessions() {
    constexpr int looks = 40;
    constexpr DWORD pause = 50;
    for (int i = 0; i < looks && ServerState().ActiveSessions >= 1; ++i) Sleep(pause);
}

}  // namespace

std::int32_t OrvaneMcp_StartControlServer(const ControlServerStartInfo* info) try {
    ControlServerState& state = ServerState();
    if (state.Running) return 1;
    const WideString directory = LauncherDirectory(info);
    if (directory.empty()) {
        SetLastErrorText(TEXT("Failed to resolve Orvane directory."));
        return 0;
    }
    PrepareRun(info, directory);
    state.Running = true;
    try {
        // Announce before the first instance exists: a bridge that comes too early tries again.
        AnnounceControlServer(true);
        // A library that could be unloaded under its threads must not start any.
        if (PinOwnModule() && state.ListenerThread.Start(RunPipeListener, nullptr)) return 1;
    } catch (const std::bad_alloc&) {
        // Out of memory for the announcement: treated as if the thread hadn't started.
    }
    state.Running = false;
    AnnounceControlServer(false);
    SetLastErrorText(TEXT("Failed to start Orvane MCP control server thread."));
    return 0;
} catch (const std::bad_alloc&) {
    // Out of memory for the names: nothing was started.
    return 0;
}

void OrvaneMcp_StopControlServer() {
    ControlServerState& state = ServerState();
    const bool wasRunning = state.Running.exchange(false);
    if (wasRunning) {
        EndListener();
        WaitForSessions();
    }
    {
        const std::lock_guard lock(state.ServerLock);
        ClearClients();
        state.HostWindow = nullptr;
    }
    // If no server was running here, the announcement may be another viewer's: leave it alone.
    if (wasRunning) AnnounceControlServer(false);
}
