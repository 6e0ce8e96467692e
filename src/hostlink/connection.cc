#include "hostlink/connection.h"

#include "hostlink/client_identity.h"
#include "hostlink/discovery.h"
#include "platform/error_text.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "protocol/control_protocol.h"
#include "text/trace.h"
#include "text/trim.h"
#include "text/wide.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <thread>

namespace {

constexpr DWORD WatcherPause = 1000;
constexpr DWORD WatcherConnectTimeOut = 1000;
constexpr DWORD PauseBetweenPasses = 100;
constexpr DWORD BusyPipeWait = 250;
constexpr DWORD ReadSize = 256;
constexpr DWORD GreetingPause = 5;

/// The connection's state, one for the process. It is never destroyed: the watcher runs until the process ends.
struct ControlLink {
    /// Guards the handle and the name, and every byte sent or received on the pipe.
    std::mutex ControlMutex;
    /// The client end of the pipe. Written under the mutex; atomic because CloseControlConnection first checks it
    /// without the mutex, so as not to wait for a connection attempt in progress.
    std::atomic<HANDLE> ControlHandle = INVALID_HANDLE_VALUE;
    std::string BridgeClientName;
    std::atomic<unsigned char> ControlWatcherStarted = 0;
};

ControlLink& Link() {
    static ControlLink& link = *new ControlLink;
    return link;
}

/// Closes the connection. The caller holds ControlMutex.
void CloseLocked() {
    const OwnedHandle closing(Link().ControlHandle.exchange(INVALID_HANDLE_VALUE));
    if (closing) Trace("connection closed");
}

/// True when one write took the whole text.
bool WriteWhole(HANDLE pipe, std::string_view text) {
    DWORD written = 0;
    return WriteFile(pipe, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != 0 &&
           written == text.size();
}

/// True for the name of a pipe on this machine. The name comes from the registry, which can just as well name a file or
/// another machine, and `..` would lead out of the pipe namespace. None of these may ever be opened.
bool IsLocalPipeName(const WideString& name) {
    constexpr WideView prefix = TEXT("\\\\.\\pipe\\");
    if (!ToLowerWide(name).starts_with(prefix)) return false;
    for (std::size_t start = prefix.size(); start <= name.size();) {
        const std::size_t end = std::min(name.find_first_of(TEXT("\\/"), start), name.size());
        if (name.find_first_not_of(TEXT(". "), start) >= end) return false;
        start = end + 1;
    }
    return true;
}

/// The refusals that one search has traced so far. It tries the pipes ten times a second, mostly with the same result.
using TracedRefusals = std::vector<std::pair<WideString, DWORD>>;

void TraceRefusal(TracedRefusals& traced, const WideString& name, DWORD error) {
    const std::pair refusal(name, error);
    if (TraceLevel == 0 || std::find(traced.begin(), traced.end(), refusal) != traced.end()) return;
    traced.push_back(refusal);
    if (!IsLocalPipeName(name)) return Trace(name, " is not a pipe of this machine and is never opened");
    Trace(name, " did not open: Windows error ", error, ". ", SystemErrorText(error));
}

/// One pass over the pipes that may belong to a viewer. Returns the first that opens, or an empty handle.
OwnedHandle OpenFirstPipe(TracedRefusals& traced) {
    for (const WideString& name : FindControlPipes()) {
        DWORD error = ERROR_SUCCESS;
        if (IsLocalPipeName(name)) {
            OwnedHandle pipe(CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
            error = GetLastError();
            if (pipe) Trace(name, " opened");
            if (pipe) return pipe;
        }
        TraceRefusal(traced, name, error);
        // A busy pipe is retried in the next pass; in this one the others get their turn.
        if (error == ERROR_PIPE_BUSY) WaitNamedPipeW(name.c_str(), BusyPipeWait);
    }
    return {};
}

/// Searches until a pipe opens or `timeoutMs` has passed, which is checked only between two passes.
OwnedHandle SearchPipe(DWORD timeoutMs) {
    TracedRefusals traced;
    const DWORD start = GetTickCount();
    while (GetTickCount() - start < timeoutMs) {
        if (OwnedHandle pipe = OpenFirstPipe(traced)) return pipe;
        Sleep(PauseBetweenPasses);
    }
    Trace("searched for ", GetTickCount() - start, " ms: ", traced.empty() ? "no viewer found" : "no pipe opened");
    return {};
}

/// Waits for the answer to a greeting; true if it is "OK". The pipe of a hung viewer opens and accepts the greeting
/// like any other, and a blocked read has no timeout. So this reads only what has arrived, until GreetingTimeOut is up.
bool IsGreetingAnswered(HANDLE pipe) {
    std::string answer;
    const DWORD start = GetTickCount();
    for (; GetTickCount() - start < GreetingTimeOut; Sleep(GreetingPause)) {
        DWORD available = 0;
        if (PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) == 0) {
            Trace("greeting refused: Windows error ", GetLastError());
            return false;
        }
        if (available == 0) continue;
        char chunk[ReadSize];
        DWORD count = 0;
        if (ReadFile(pipe, chunk, std::min(available, ReadSize), &count, nullptr) == 0 || count == 0) {
            Trace("greeting refused: Windows error ", GetLastError());
            return false;
        }
        const std::string_view arrived(chunk, count);
        const std::size_t lineFeed = arrived.find('\n');
        answer.append(arrived.substr(0, lineFeed));
        if (lineFeed == std::string_view::npos) continue;
        const bool accepted = WithoutLineEnd(answer) == HelloReply;
        Trace(accepted ? "greeting accepted after " : "greeting answered with something else after ",
              GetTickCount() - start, " ms", TraceContents{answer});
        return accepted;
    }
    Trace("greeting not answered in ", GreetingTimeOut, " ms");
    return false;
}

/// Sends HELLO on a newly opened pipe. True if the viewer accepts the client.
bool Greet(HANDLE pipe, std::string_view clientName) {
    std::string line = HelloPrefix + std::string(clientName);
    // The server takes the greeting with a single read: anything longer would count as a request.
    line.resize(std::min(line.size(), LongestHelloLine - 1));
    line += '\n';
    // One write for the server's one read. A failed write shows up when the answer is read.
    WriteWhole(pipe, line);
    return IsGreetingAnswered(pipe);
}

/// Writes the line and reads its reply.
std::optional<std::string> Exchange(HANDLE pipe, std::string_view line) {
    const DWORD start = GetTickCount();
    Trace("sending a line of ", line.size(), " bytes", TraceContents{line});
    const bool sent = WriteWhole(pipe, line) && WriteWhole(pipe, "\n");
    std::optional<std::string> reply = sent ? ReadControlLine(pipe) : std::nullopt;
    const DWORD error = GetLastError();
    if (reply) {
        Trace("reply of ", reply->size(), " bytes after ", GetTickCount() - start, " ms", TraceContents{*reply});
    } else {
        Trace(sent ? "no reply" : "not sent", " after ", GetTickCount() - start, " ms: Windows error ", error);
    }
    return reply;
}

/// One round of the watcher.
void WatchOnce() {
    const bool found = !FindControlPipes().empty();
    {
        const std::lock_guard lock(Link().ControlMutex);
        if (!found) return CloseLocked();
        if (Link().ControlHandle != INVALID_HANDLE_VALUE) return;
    }
    ConnectControlPipe(WatcherConnectTimeOut);
}

}  // namespace

bool EnsureControlConnection(DWORD timeoutMs) {
    {
        const std::lock_guard lock(Link().ControlMutex);
        if (Link().ControlHandle != INVALID_HANDLE_VALUE) return true;
    }
    return ConnectControlPipe(timeoutMs);
}

bool ConnectControlPipe(DWORD timeoutMs) try {
    ControlLink& link = Link();
    const std::lock_guard lock(link.ControlMutex);
    if (link.ControlHandle != INVALID_HANDLE_VALUE) return true;
    OwnedHandle pipe = SearchPipe(timeoutMs);
    if (!pipe) return false;
    link.BridgeClientName = BuildClientName();
    if (!Greet(pipe.Get(), link.BridgeClientName)) return false;
    link.ControlHandle = pipe.Release();
    return true;
} catch (const std::bad_alloc&) {
    // Out of memory for a moment: an attempt that failed like any other.
    return false;
}

std::optional<std::string> SendControlLine(std::string_view line) {
    const std::lock_guard lock(Link().ControlMutex);
    const HANDLE pipe = Link().ControlHandle;
    if (pipe == INVALID_HANDLE_VALUE) return std::nullopt;
    try {
        std::optional<std::string> reply = Exchange(pipe, line);
        if (!reply) CloseLocked();
        return reply;
    } catch (const std::bad_alloc&) {
        CloseLocked();  // the rest of this reply must not pass for the next one
        throw;
    }
}

std::optional<std::string> ReadControlLine(HANDLE pipe) {
    std::string line;
    char chunk[ReadSize];
    for (std::size_t lineFeed = std::string::npos; lineFeed == std::string::npos;) {
        DWORD count = 0;
        if (ReadFile(pipe, chunk, ReadSize, &count, nullptr) == 0 || count == 0) return std::nullopt;
        const std::string_view arrived(chunk, count);
        lineFeed = arrived.find('\n');
        // Pictures are large, and growing fourfold leaves less freed memory behind than doubling does.
        if (line.size() + count > line.capacity()) line.reserve(line.capacity() * 4);
        line.append(arrived.substr(0, lineFeed));
    }
    line.resize(WithoutLineEnd(line).size());
    return line;
}

void CloseControlConnection() {
    if (Link().ControlHandle == INVALID_HANDLE_VALUE) return;
    const std::lock_guard lock(Link().ControlMutex);
    CloseLocked();
}

std::string LastClientName() {
    const std::lock_guard lock(Link().ControlMutex);
    return Link().BridgeClientName;
}

void StartControlWatcher() {
    unsigned char expected = 0;
    if (!Link().ControlWatcherStarted.compare_exchange_strong(expected, 1)) return;
    static_cast<void>(PinOwnModule());  // failure does no harm: the launcher never unloads it
    std::thread(ControlWatcher).detach();
}

void ControlWatcher() {
    for (;;) {
        Sleep(WatcherPause);
        try {
            WatchOnce();
        } catch (const std::bad_alloc&) {
            // Out of memory for a moment: the next round tries again.
        }
    }
}
