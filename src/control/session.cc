#include "control/session.h"

#include "control/clients.h"
#include "control/dispatch.h"
#include "control/state.h"
#include "platform/thread.h"
#include "protocol/client_labels.h"
#include "protocol/control_protocol.h"

#include <algorithm>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr DWORD ReadChunk = 512;
constexpr DWORD PollInterval = 100;

std::atomic<std::int32_t>& SessionsAt(SessionStage stage) {
    return ServerState().SessionsByStage[static_cast<std::size_t>(stage)];
}

/// Removes the client from the list and ends its connection, however the session ends.
class SessionEnd {
  public:
    explicit SessionEnd(ClientSession& session) : session_(session) {}
    SessionEnd(const SessionEnd&) = delete;
    SessionEnd& operator=(const SessionEnd&) = delete;
    ~SessionEnd() {
        session_.Count.Enter(SessionStage::Ending);
        RemoveClient(session_.ClientId, session_.ServerRun);
        // Closing alone isn't enough: a DisconnectClients in progress holds the handle too.
        DisconnectNamedPipe(session_.Pipe->Pipe.Get());
        session_.Pipe.reset();
    }

  private:
    ClientSession& session_;
};

/// Reads the greeting, which is whatever the first read returns, and extracts the client's name. Always returns a name.
/// Blocks while the client says nothing.
WideString ReadClientHello(PipeInstance& instance) {
    char buffer[LongestHelloLine + 1] = {};
    DWORD count = 0;
    const PipeCall call(instance);
    if (!call || ReadFile(instance.Pipe.Get(), buffer, LongestHelloLine, &count, nullptr) == 0 || count == 0) {
        return Utf8ToWide(UnnamedClient);
    }
    std::string_view text(buffer);  // up to the first NUL
    if (text.starts_with(HelloPrefix)) text.remove_prefix(std::string_view(HelloPrefix).size());
    text = text.substr(0, text.find_last_not_of("\r\n ") + 1);
    WCHAR name[LongestHelloLine];
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), name,
                                          static_cast<int>(std::size(name)));
    return units <= 0 ? Utf8ToWide(UnnamedClient) : WideString(name, static_cast<std::size_t>(units));
}

/// True while the session may carry out another line.
bool MayServe(const ClientSession& session) {
    return IsServing(session.ServerRun) && !session.Pipe->Leaving;
}

/// Appends what has arrived to `pending`, 512 bytes at most, without waiting. False once the connection is gone.
bool ReadAvailable(PipeInstance& instance, std::string& pending) {
    const PipeCall call(instance);
    const HANDLE pipe = instance.Pipe.Get();
    DWORD available = 0;
    if (!call || PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) == 0) return false;
    if (available == 0) return true;
    char chunk[ReadChunk];
    DWORD count = 0;
    if (ReadFile(pipe, chunk, std::min(available, ReadChunk), &count, nullptr) == 0 || count == 0) return false;
    pending.append(chunk, count);
    return true;
}

/// Dispatches the complete lines in `pending` and keeps the rest. The first `searched` bytes hold no line feed.
void DispatchLines(ClientSession& session, std::string& pending, std::size_t& searched) {
    std::size_t start = 0;
    for (std::size_t lineFeed = 0; (lineFeed = pending.find('\n', searched)) != std::string::npos;) {
        if (!MayServe(session)) return;
        session.Count.Enter(SessionStage::InCommand);
        DispatchControlLine(session, std::string_view(pending).substr(start, lineFeed + 1 - start));
        session.Count.Enter(SessionStage::Polling);
        start = searched = lineFeed + 1;
    }
    pending.erase(0, start);
    searched = pending.size();
}

/// A thread's body: no exception may leave it.
unsigned WINAPI RunSessionThread(void* argument) {
    const std::unique_ptr<ClientSession> session(static_cast<ClientSession*>(argument));
    try {
        RunClientSession(*session);
    } catch (...) {
        // Out of memory. This connection is closed; the others keep running.
    }
    return 0;
}

}  // namespace

SessionCount::SessionCount() {
    ++ServerState().ActiveSessions;
    ++SessionsAt(stage_);
}

SessionCount::~SessionCount() {
    --SessionsAt(stage_);
    --ServerState().ActiveSessions;
}

void SessionCount::Enter(SessionStage stage) {
    --SessionsAt(std::exchange(stage_, stage));
    ++SessionsAt(stage);
}

void StartClientSession(std::shared_ptr<PipeInstance> pipe, std::uint64_t serverRun) try {
    // Counted before its thread exists, so that a stop can't miss a session that hasn't begun to run. Once started, the
    // thread owns it.
    std::unique_ptr<ClientSession> session(new ClientSession{std::move(pipe), serverRun});
    if (StartDetachedThread(RunSessionThread, session.get())) static_cast<void>(session.release());
} catch (const std::bad_alloc&) {
    // Out of memory for a session: the connection closes with its last owner.
}

void RunClientSession(ClientSession& session) {
    const SessionEnd end(session);
    session.Count.Enter(SessionStage::Greeting);
    const WideString name = ReadClientHello(*session.Pipe);
    session.ClientId = RegisterClient(name, session.Pipe, session.ServerRun);
    if (session.ClientId == 0) return;
    WriteReplyBytes(*session.Pipe, std::string(HelloReply) + "\n");

    session.Count.Enter(SessionStage::Polling);
    std::string pending;
    std::size_t searched = 0;
    while (MayServe(session) && ReadAvailable(*session.Pipe, pending)) {
        DispatchLines(session, pending, searched);
        Sleep(PollInterval);
    }
}
