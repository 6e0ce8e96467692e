/// The control server's process-wide state and the rules for its one lock.
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

/// The stages of a session, in order.
enum class SessionStage { Starting, Greeting, Polling, InCommand, Ending };

/// Lives as long as the library and is never destroyed: sessions may still run while the process ends.
struct ControlServerState {
    /// Held briefly, never across a pipe call, a sleep, a registry call or SendMessageW.
    std::mutex ServerLock;

    // Guarded by ServerLock. The listener, start and stop also read PipeName without it: only a start writes it, when
    // no listener is running.
    WideString PipeName;
    WideString ServerPath;
    WideString LastErrorText;
    std::uint64_t NextClientId = 0;
    HWND HostWindow = nullptr;
    std::vector<ClientRecord> Clients;
    /// The instance that is waiting for a client; null if none is.
    std::shared_ptr<PipeInstance> ListeningInstance;

    /// True from start to stop; the listener and all sessions poll it.
    std::atomic<bool> Running = false;
    /// The number of starts so far, which identifies the current run. Written under ServerLock.
    std::atomic<std::uint64_t> ServerRun = 0;
    /// The number of live sessions; a stop waits for it to reach 0.
    std::atomic<std::int32_t> ActiveSessions = 0;
    /// The same sessions by stage, for finding out why one doesn't end.
    std::array<std::atomic<std::int32_t>, 5> SessionsByStage{};

    /// Used by start and stop only. Empty if no listener is running.
    JoinableThread ListenerThread;
    /// The library's own module; set once, at load.
    HMODULE ModuleHandle = nullptr;
};

ControlServerState& ServerState();

/// Sets the text that OrvaneMcp_GetLastError returns; null clears it. Takes ServerLock.
void SetLastErrorText(const WCHAR* text);

/// True while `serverRun` is the current run and the server is running. Takes no lock.
bool IsServing(std::uint64_t serverRun);
