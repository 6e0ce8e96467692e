#include "control/session.h"

#include "control/clients.h"
#include "control/dispatch.h"
#include "control/state.h"
#include "protocol/client_labels.h"
#include "protocol/control_protocol.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace {

constexpr DWORD ReadChunk = 512;
constexpr DWORD PollInterval = 100;

/// One of the sessions that a stop waits for.
class SessionCount {
  public:
    SessionCount() { ++ServerState().ActiveSessions; }
    SessionCount(SessionCount&& other) noexcept : counted_(std::exchange(other.counted_, false)) {}
    SessionCount& operator=(SessionCount&&) = delete;
    ~SessionCount() {
        if (counted_) --ServerState().ActiveSessions;
    }

  private:
    bool counted_ = true;
};

/// Takes the client off the list and ends its connection, whichever way the session leaves.
class SessionEnd {
  public:
    explicit SessionEnd(ClientSession& session) : session_(session) {}
    SessionEnd(const SessionEnd&) = delete;
    SessionEnd& operator=(const SessionEnd&) = delete;
    ~SessionEnd() {
        RemoveClient(session_.ClientId, session_.ServerRun);
        DisconnectNamedPipe(session_.Pipe->Pipe.Get());
        session_.Pipe.reset();
    }

  private:
    ClientSession& session_;
};

/// Reads the greeting, which is all that the first read gives, and takes the client's name out of it. Always gives a
/// name. Blocks for as long as the client is silent.
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

/// True while the session may take up another line.
bool MayServe(const ClientSession& session) {
    return IsServing(session.ServerRun) && !session.Pipe->Leaving;
}

/// Adds what has arrived to `pending`, 512 bytes at most, without waiting for more. False once the connection is gone.
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

/// Dispatches the whole lines in `pending` and leaves the rest. `searched` is how much of it is known to hold none.
void DispatchLines(const ClientSession& session, std::string& pending, std::size_t& searched) {
    std::size_t start = 0;
    for (std::size_t lineFeed = 0; (lineFeed = pending.find('\n', searched)) != std::string::npos;) {
        if (!MayServe(session)) return;
        DispatchControlLine(session, std::string_view(pending).substr(start, lineFeed + 1 - start));
        start = searched = lineFeed + 1;
    }
    pending.erase(0, start);
    searched = pending.size();
}

/// A thread's body: nothing may leave it.
void RunSessionThread(ClientSession session, SessionCount) noexcept {
    try {
        RunClientSession(session);
    } catch (...) {
        // Out of memory. The connection has ended in order, and everybody else's goes on.
    }
}

}  // namespace

bool StartClientSession(std::shared_ptr<PipeInstance> pipe, std::uint64_t serverRun) try {
    // Counted before the thread runs, so that a stop can't overlook a session that has not come to its first line.
    std::thread(RunSessionThread, ClientSession{std::move(pipe), serverRun}, SessionCount()).detach();
    return true;
} catch (const std::exception&) {
    return false;
}

void RunClientSession(ClientSession& session) {
    const SessionEnd end(session);
    const WideString name = ReadClientHello(*session.Pipe);
    session.ClientId = RegisterClient(name, session.Pipe, session.ServerRun);
    if (session.ClientId == 0) return;
    WriteReplyBytes(*session.Pipe, std::string(HelloReply) + "\n");

    std::string pending;
    std::size_t searched = 0;
    while (MayServe(session) && ReadAvailable(*session.Pipe, pending)) {
        DispatchLines(session, pending, searched);
        Sleep(PollInterval);
    }
}
