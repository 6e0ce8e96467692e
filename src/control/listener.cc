#include "control/listener.h"

#include "control/pipe_instance.h"
#include "control/session.h"
#include "control/state.h"

#include <memory>
#include <mutex>
#include <new>

namespace {

constexpr DWORD PipeBufferSize = 512;

/// Publishes the instance that is waiting for a client, so that a stop can find it.
class ListeningScope {
  public:
    explicit ListeningScope(std::shared_ptr<PipeInstance> instance) { Publish(std::move(instance)); }
    ListeningScope(const ListeningScope&) = delete;
    ListeningScope& operator=(const ListeningScope&) = delete;
    ~ListeningScope() { Publish(nullptr); }

  private:
    static void Publish(std::shared_ptr<PipeInstance> instance) {
        const std::lock_guard lock(ServerState().ServerLock);
        ServerState().ListeningInstance.swap(instance);
    }
};

std::shared_ptr<PipeInstance> CreateInstance() {
    OwnedHandle pipe(CreateNamedPipeW(ServerState().PipeName.c_str(), PIPE_ACCESS_DUPLEX,
                                      PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, PIPE_UNLIMITED_INSTANCES,
                                      PipeBufferSize, PipeBufferSize, 0, nullptr));
    return pipe ? std::make_shared<PipeInstance>(std::move(pipe)) : nullptr;
}

/// Blocks until a client has opened the instance. A client that connected before this call counts too.
bool WaitForClient(const std::shared_ptr<PipeInstance>& instance) {
    const ListeningScope listening(instance);
    return ConnectNamedPipe(instance->Pipe.Get(), nullptr) != 0 || GetLastError() == ERROR_PIPE_CONNECTED;
}

void AcceptClients(std::uint64_t serverRun) {
    while (IsServing(serverRun)) {
        std::shared_ptr<PipeInstance> instance = CreateInstance();
        if (!instance) return SetLastErrorText(TEXT("Failed to create Orvane MCP control pipe."));
        const bool connected = WaitForClient(instance);
        // A stop connects too, just to get the listener to this line.
        if (!IsServing(serverRun)) return;
        // If no thread can be started, this connection closes and the next client gets its turn.
        if (connected) StartClientSession(std::move(instance), serverRun);
    }
}

}  // namespace

unsigned WINAPI RunPipeListener(void*) noexcept {
    try {
        AcceptClients(ServerState().ServerRun);
    } catch (const std::bad_alloc&) {
        // Out of memory for an instance: reported as if the system had none left.
        try {
            SetLastErrorText(TEXT("Failed to create Orvane MCP control pipe."));
        } catch (const std::bad_alloc&) {
        }
    }
    return 0;
}

void EndListener() {
    constexpr DWORD pause = 1;
    ControlServerState& state = ServerState();
    // Repeat, because one attempt can fall between two instances. Cancel the wait too, because the open may reach
    // another process that serves a pipe of the same name. The cancel can't hit a session's call: the listener checks
    // Running before it hands over an instance, and Running is already false.
    do {
        const OwnedHandle wakeUp(CreateFileW(state.PipeName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        std::shared_ptr<PipeInstance> listening;
        {
            const std::lock_guard lock(state.ServerLock);
            listening = state.ListeningInstance;
        }
        if (listening) CancelIoEx(listening->Pipe.Get(), nullptr);
    } while (!state.ListenerThread.EndsWithin(pause));
    state.ListenerThread = {};
}
