/// The control server's one process-wide record, and the rules of its one lock.
#pragma once

#include "control/clients.h"
#include "control/pipe_instance.h"
#include "platform/thread.h"
#include "text/wide.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

/// Where a session is, in the order it gets there.
enum class SessionStage { Starting, Greeting, Polling, InCommand, Ending };

/// Alive as long as the library, and never destroyed: sessions may still run while the process ends.
struct ControlServerState {
    /// Held for short work only, never across a pipe call, a sleep, a registry call or SendMessageW.
    std::mutex ServerLock;

    // Guarded by ServerLock. PipeName is also read without it, by the listener and by start and stop: only a start
    // changes it, and no listener runs then.
    WideString PipeName;
    WideString ServerPath;
    WideString LastErrorText;
    std::uint64_t NextClientId = 0;
    HWND HostWindow = nullptr;
    std::vector<ClientRecord> Clients;
    /// The instance that waits for a client, while one waits.
    std::shared_ptr<PipeInstance> ListeningInstance;

    /// True from start to stop; the listener and all sessions poll it.
    std::atomic<bool> Running = false;
    /// Counts the starts. A session belongs to the run that accepted it and ends with it. Written under ServerLock.
    std::atomic<std::uint64_t> ServerRun = 0;
    /// The number of sessions alive; a stop waits on it.
    std::atomic<std::int32_t> ActiveSessions = 0;
    /// The same sessions by stage, for whoever wants to know why one stays.
    std::array<std::atomic<std::int32_t>, 5> SessionsByStage{};

    /// Start and stop only. Empty when none runs.
    JoinableThread ListenerThread;
    /// The library's own module; written once, at load.
    HMODULE ModuleHandle = nullptr;
};

ControlServerState& ServerState();

/// Stores what OrvaneMcp_GetLastError tells; null clears it. Takes ServerLock.
void SetLastErrorText(const WCHAR* text);

/// True while the run `serverRun` is the one that is being served. No lock.
bool IsServing(std::uint64_t serverRun);
