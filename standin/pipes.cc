// A pipe's instance is a socket's file in the shared directory, "<stamp>.<in>.<out>.<limit>.<name>.free". Who connects
// renames it to ".busy", and the server removes it when it closes the instance: what a client may expect of a name is
// always in the listing. On the socket each end frames what it says as packets; how many bytes the other end has read
// is what decides when a write is complete.
#include "standin/pipes.h"

#include "standin/directory.h"
#include "standin/handles.h"
#include "standin/watcher.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <vector>

namespace {

enum class Phase { Listening, Connected, PeerGone, Disconnected, Closed };

/// Bytes that come in at the end and leave at the front, each at constant cost.
struct ByteQueue {
    std::string Bytes;
    std::size_t Head = 0;

    std::size_t Size() const { return Bytes.size() - Head; }
    const char* Data() const { return Bytes.data() + Head; }
    void Append(const void* data, std::size_t size) { Bytes.append(static_cast<const char*>(data), size); }
    void RemoveFront(std::size_t size) {
        Head += size;
        if (Head * 2 < Bytes.size()) return;
        Bytes.erase(0, Head);
        Head = 0;
    }
    void RemoveBack(std::size_t size) { Bytes.resize(Bytes.size() - size); }
    void Clear() { *this = {}; }
};

enum class PacketKind : std::uint32_t { Data, Read, Retract, Disconnect };

/// What an end says to the other. Data: `Size` bytes follow. Read: so many bytes of yours have been read or dropped.
/// Retract: drop what is unread of my last `Size` bytes. Disconnect: the server has ended the connection.
struct PacketHeader {
    PacketKind Kind;
    std::uint32_t Size;
};

enum class CallKind { Read, Write, Connect };

/// A call under way; on the stack of its thread. All under the pipe's mutex.
struct Call {
    CallKind Kind;
    void* Buffer = nullptr;
    DWORD Size = 0;
    std::uint64_t End = 0;  // of a write: where its last byte ends in all that this end has written
    bool Done = false;
    DWORD Error = ERROR_SUCCESS;
    DWORD Count = 0;
};

/// A socket whose last packets are still on their way although its pipe's end has let go of it.
struct Farewell {
    std::mutex Mutex;
    Descriptor Socket;
    ByteQueue Wire;
    std::uint64_t Watch = 0;
};

}  // namespace

struct PipeEnd {
    bool IsServer = false;
    DWORD Access = 0;
    std::string Instance;  // of a server: its file's name without ".free" or ".busy"
    DWORD ReadQuota = 0;   // how many unread bytes a complete write of the other end may leave
    DWORD WriteQuota = 0;

    std::mutex Mutex;  // guards the rest; taken before the directory lock
    std::condition_variable Changed;
    Phase State = Phase::Listening;
    Descriptor Socket;  // listens, or is connected
    std::uint64_t Watch = 0;
    bool WatchesRoom = false;
    std::list<Call*> Calls;  // in the order they came

    PacketHeader Header = {};  // of the packet that comes in now
    std::size_t HeaderBytes = 0;
    std::size_t DataLeft = 0;
    ByteQueue Inbox;
    std::uint64_t Received = 0;
    std::uint64_t LastWriteStart = 0;  // where the last write of the other end began in all that came
    std::uint32_t ReadUntold = 0;      // bytes read here that the other end has not been told of

    ByteQueue Wire;  // framed, not yet taken by the socket
    std::uint64_t Written = 0;
    std::uint64_t ReadByPeer = 0;
};

namespace {

constexpr std::u16string_view PipePrefix = u"\\\\.\\pipe\\";

/// The name behind "\\.\pipe\", empty when `path` has another form.
std::u16string_view PipeName(LPCWSTR path) {
    if (path == nullptr) return {};
    const std::u16string_view whole(path);
    if (whole.size() <= PipePrefix.size()) return {};
    for (std::size_t i = 0; i < PipePrefix.size(); ++i) {
        if (std::towlower(whole[i]) != static_cast<std::wint_t>(PipePrefix[i])) return {};
    }
    return whole.substr(PipePrefix.size());
}

/// An instance as its file tells it.
struct Instance {
    std::string File;  // without ".free" or ".busy"
    bool IsFree = false;
    DWORD InBuffer = 0;
    DWORD OutBuffer = 0;
    DWORD Limit = 0;
};

/// The instances of `name` whose servers are alive; what dead ones left is removed. Under the directory lock.
std::vector<Instance> FindInstances(const Descriptor& directory, std::u16string_view name) {
    std::vector<Instance> instances;
    const std::string wanted = FileNameFor(name);
    for (const std::string& file : ListFiles(directory)) {
        Instance instance;
        int nameStart = 0;
        const int fields = std::sscanf(file.c_str(), "p.%*x.%*x.%*x.%x.%x.%x.%n", &instance.InBuffer,
                                       &instance.OutBuffer, &instance.Limit, &nameStart);
        const std::size_t dot = file.rfind('.');
        if (fields != 3 || nameStart == 0 || dot < static_cast<std::size_t>(nameStart)) continue;
        if (file.compare(static_cast<std::size_t>(nameStart), dot - static_cast<std::size_t>(nameStart), wanted) != 0) {
            continue;
        }
        if (!StampIsAlive(file)) {
            unlinkat(directory.Get(), file.c_str(), 0);
            continue;
        }
        instance.File = file.substr(0, dot);
        instance.IsFree = file.compare(dot, std::string::npos, ".free") == 0;
        instances.push_back(instance);
    }
    return instances;
}

struct SocketAddress {
    sockaddr_un Address = {};
    socklen_t Size = sizeof(sockaddr_un);
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&Address); }
};

SocketAddress AddressOf(const Descriptor& directory, const std::string& file) {
    SocketAddress address;
    address.Address.sun_family = AF_UNIX;
    const std::string path = PathThrough(directory, file);
    path.copy(address.Address.sun_path, sizeof(address.Address.sun_path) - 1);
    return address;
}

Descriptor NewSocket() {
    return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

void OnReady(const std::shared_ptr<PipeEnd>& pipe);

/// Gives the pipe's end a socket to listen on or to talk through. The mutex is held or nobody else has the end.
void TakeSocket(const std::shared_ptr<PipeEnd>& pipe, Descriptor socket) {
    EndWatch(pipe->Watch, pipe->Socket.Get());
    pipe->Socket = std::move(socket);
    pipe->WatchesRoom = false;
    pipe->Watch = StartWatch(pipe->Socket.Get(), EPOLLIN, [weak = std::weak_ptr(pipe)] {
        if (const std::shared_ptr<PipeEnd> alive = weak.lock()) OnReady(alive);
    });
}

void DropSocket(PipeEnd& pipe) {
    EndWatch(pipe.Watch, pipe.Socket.Get());
    pipe.Watch = 0;
    pipe.Socket.Reset();
}

/// Sends from `wire` what the socket takes. False when the other end is gone.
bool SendSome(const Descriptor& socket, ByteQueue& wire) {
    while (wire.Size() > 0) {
        const ssize_t sent = send(socket.Get(), wire.Data(), wire.Size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            wire.RemoveFront(static_cast<std::size_t>(sent));
        } else if (errno != EINTR) {
            return errno == EAGAIN;
        }
    }
    return true;
}

void Flush(PipeEnd& pipe) {
    if (!pipe.Socket) return;
    if (!SendSome(pipe.Socket, pipe.Wire)) pipe.Wire.Clear();  // what the other end left is still to be read
    const bool wantsRoom = pipe.Wire.Size() > 0;
    if (wantsRoom == pipe.WatchesRoom) return;
    pipe.WatchesRoom = wantsRoom;
    ChangeWatch(pipe.Watch, pipe.Socket.Get(), wantsRoom ? EPOLLIN | EPOLLOUT : EPOLLIN);
}

void Say(PipeEnd& pipe, PacketKind kind, std::size_t size) {
    const PacketHeader header = {kind, static_cast<std::uint32_t>(size)};
    pipe.Wire.Append(&header, sizeof(header));
}

/// Lets go of the socket. What it has not taken yet still goes out, by the watcher.
void LeaveSocket(PipeEnd& pipe) {
    if (pipe.Socket && pipe.Wire.Size() > 0) {
        EndWatch(pipe.Watch, pipe.Socket.Get());
        const auto farewell = std::make_shared<Farewell>();
        const std::lock_guard guard(farewell->Mutex);
        farewell->Socket = std::move(pipe.Socket);
        farewell->Wire = std::move(pipe.Wire);
        // The watch owns the farewell and ends itself.
        farewell->Watch = StartWatch(farewell->Socket.Get(), EPOLLOUT, [farewell] {
            const std::lock_guard inner(farewell->Mutex);
            if (SendSome(farewell->Socket, farewell->Wire) && farewell->Wire.Size() > 0) return;
            EndWatch(farewell->Watch, farewell->Socket.Get());
            farewell->Socket.Reset();
        });
        pipe.Watch = 0;
    }
    DropSocket(pipe);
    pipe.Wire.Clear();
}

void ResetTraffic(PipeEnd& pipe) {
    pipe.HeaderBytes = pipe.DataLeft = 0;
    pipe.Inbox.Clear();
    pipe.Wire.Clear();
    pipe.Received = pipe.LastWriteStart = pipe.Written = pipe.ReadByPeer = 0;
    pipe.ReadUntold = 0;
}

void Finish(Call& call, DWORD error) {
    call.Done = true;
    call.Error = error;
}

/// Tells the other end how much has been read here. Not while all that is unread or untold belongs to one write
/// that can't be complete anyway: then the news would change nothing, and a long line would cost a packet for each
/// read.
void TellRead(PipeEnd& pipe) {
    const bool oneWrite = pipe.ReadUntold + pipe.Inbox.Size() <= pipe.Received - pipe.LastWriteStart;
    const bool stillPending = oneWrite && pipe.Inbox.Size() > pipe.ReadQuota;
    if (pipe.ReadUntold == 0 || stillPending || !pipe.Socket) return;
    Say(pipe, PacketKind::Read, pipe.ReadUntold);
    pipe.ReadUntold = 0;
    Flush(pipe);
}

DWORD TakeBytes(PipeEnd& pipe, void* buffer, DWORD size) {
    const auto count = static_cast<DWORD>(std::min<std::size_t>(size, pipe.Inbox.Size()));
    if (count == 0) return 0;
    std::memcpy(buffer, pipe.Inbox.Data(), count);
    pipe.Inbox.RemoveFront(count);
    pipe.ReadUntold += count;
    return count;
}

/// What keeps a call from going on waiting in this state of the pipe; ERROR_SUCCESS when it may wait.
DWORD ReasonToFail(const PipeEnd& pipe, CallKind kind) {
    switch (pipe.State) {
        case Phase::Listening: return kind == CallKind::Connect ? DWORD{ERROR_SUCCESS} : ERROR_PIPE_LISTENING;
        case Phase::Connected: return ERROR_SUCCESS;
        case Phase::PeerGone: return ERROR_BROKEN_PIPE;
        case Phase::Disconnected: return ERROR_PIPE_NOT_CONNECTED;
        case Phase::Closed: return kind == CallKind::Connect ? ERROR_HANDLES_CLOSED : ERROR_BROKEN_PIPE;
    }
    return ERROR_INVALID_HANDLE;
}

/// Ends every call that the pipe's state and bytes now allow to end. Called after each change, under the mutex.
void Settle(PipeEnd& pipe) {
    for (auto next = pipe.Calls.begin(); next != pipe.Calls.end();) {
        Call& call = **next;
        if (call.Kind == CallKind::Read && pipe.Inbox.Size() > 0) {
            call.Count = TakeBytes(pipe, call.Buffer, call.Size);
            Finish(call, ERROR_SUCCESS);
        } else if (call.Kind == CallKind::Write && call.End - std::min(call.End, pipe.ReadByPeer) <= pipe.WriteQuota) {
            // Complete even if the other end has closed since.
            call.Count = call.Size;
            Finish(call, ERROR_SUCCESS);
        } else if (call.Kind == CallKind::Connect && pipe.State != Phase::Listening && pipe.State != Phase::Closed) {
            Finish(call, ERROR_SUCCESS);
        } else if (const DWORD reason = ReasonToFail(pipe, call.Kind); reason != ERROR_SUCCESS) {
            Finish(call, reason);
        }
        next = call.Done ? pipe.Calls.erase(next) : std::next(next);
    }
    TellRead(pipe);
    pipe.Changed.notify_all();
}

void ActOnPacket(PipeEnd& pipe) {
    pipe.HeaderBytes = 0;
    const std::size_t size = pipe.Header.Size;
    switch (pipe.Header.Kind) {
        case PacketKind::Data:
            pipe.DataLeft = size;
            pipe.LastWriteStart = pipe.Received;
            break;
        case PacketKind::Read: pipe.ReadByPeer += size; break;
        case PacketKind::Retract: {
            const std::size_t dropped = std::min(size, pipe.Inbox.Size());
            pipe.Inbox.RemoveBack(dropped);
            pipe.ReadUntold += static_cast<std::uint32_t>(dropped);
            break;
        }
        case PacketKind::Disconnect:
            pipe.State = Phase::Disconnected;
            pipe.Inbox.Clear();
            break;
    }
}

/// Takes in what has come on the socket. False when memory can't hold it.
bool TakeIn(PipeEnd& pipe, const char* bytes, std::size_t count) try {
    while (count > 0 && pipe.State == Phase::Connected) {
        std::size_t used = 0;
        if (pipe.DataLeft > 0) {
            used = std::min(count, pipe.DataLeft);
            pipe.Inbox.Append(bytes, used);
            pipe.DataLeft -= used;
            pipe.Received += used;
        } else {
            used = std::min(count, sizeof(pipe.Header) - pipe.HeaderBytes);
            std::memcpy(reinterpret_cast<char*>(&pipe.Header) + pipe.HeaderBytes, bytes, used);
            pipe.HeaderBytes += used;
            if (pipe.HeaderBytes == sizeof(pipe.Header)) ActOnPacket(pipe);
        }
        bytes += used;
        count -= used;
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

/// Takes in all that has come on a connected socket, its end included.
void Drain(PipeEnd& pipe) {
    char bytes[65536];
    while (pipe.State == Phase::Connected) {
        const ssize_t count = recv(pipe.Socket.Get(), bytes, sizeof(bytes), MSG_DONTWAIT);
        if (count > 0 && TakeIn(pipe, bytes, static_cast<std::size_t>(count))) continue;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EAGAIN) return;
        // A reset is only another way of closing: all that was said before it has been read by now. And bytes that no
        // memory can hold end the connection like one.
        pipe.State = Phase::PeerGone;
        // A write that was not complete goes with its writer.
        if (pipe.DataLeft > 0 || pipe.Inbox.Size() > pipe.ReadQuota) {
            pipe.Inbox.RemoveBack(std::min<std::size_t>(pipe.Inbox.Size(), pipe.Received - pipe.LastWriteStart));
        }
        pipe.DataLeft = 0;
    }
    pipe.Wire.Clear();
    DropSocket(pipe);
}

/// Opens a new socket for the next client. False, with the last error set, when that can't be done.
bool Listen(const std::shared_ptr<PipeEnd>& pipe, const DirectoryLock& lock) {
    Descriptor listener = NewSocket();
    const SocketAddress address = AddressOf(lock.Directory, pipe->Instance + ".free");
    if (!listener || bind(listener.Get(), address.Get(), address.Size) != 0 || listen(listener.Get(), 0) != 0) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    unlinkat(lock.Directory.Get(), (pipe->Instance + ".busy").c_str(), 0);
    ResetTraffic(*pipe);
    pipe->State = Phase::Listening;
    TakeSocket(pipe, std::move(listener));
    return true;
}

/// Takes the client that has come, if one has. Done under the directory lock, since the socket listens to the end and
/// nobody else may come in between.
void AcceptClient(const std::shared_ptr<PipeEnd>& pipe) {
    pollfd waiting = {pipe->Socket.Get(), POLLIN, 0};
    if (poll(&waiting, 1, 0) <= 0) return;
    const DirectoryLock lock = LockSharedDirectory();
    Descriptor client(accept4(pipe->Socket.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!client) return;
    if (lock) {
        // The client has done this, unless it died just before.
        renameat(lock.Directory.Get(), (pipe->Instance + ".free").c_str(), lock.Directory.Get(),
                 (pipe->Instance + ".busy").c_str());
    }
    pipe->State = Phase::Connected;
    TakeSocket(pipe, std::move(client));
}

/// Brings the pipe up to what has happened on its socket. Every call begins with it, so that what the other end has
/// done before is always seen.
void CatchUp(const std::shared_ptr<PipeEnd>& pipe) {
    if (pipe->State == Phase::Listening) AcceptClient(pipe);
    if (pipe->State == Phase::Connected) {
        Drain(*pipe);
        Flush(*pipe);
    }
    Settle(*pipe);
}

void OnReady(const std::shared_ptr<PipeEnd>& pipe) {
    bool clientStillWaits = false;
    {
        const std::lock_guard guard(pipe->Mutex);
        CatchUp(pipe);
        clientStillWaits = pipe->State == Phase::Listening;
    }
    // The process is out of descriptors, most likely: better slow than in a tight circle until it has one again.
    if (clientStillWaits) Sleep(1);
}

/// Waits in line until `call` is done. Gives its error.
DWORD Await(PipeEnd& pipe, std::unique_lock<std::mutex>& lock, Call& call) {
    pipe.Calls.push_back(&call);
    Settle(pipe);
    pipe.Changed.wait(lock, [&call] { return call.Done; });
    return call.Error;
}

}  // namespace

DWORD ReadPipe(const std::shared_ptr<PipeEnd>& pipe, LPVOID buffer, DWORD size, DWORD& count) {
    if ((pipe->Access & GENERIC_READ) == 0) return ERROR_ACCESS_DENIED;
    std::unique_lock lock(pipe->Mutex);
    CatchUp(pipe);
    Call call = {.Kind = CallKind::Read, .Buffer = buffer, .Size = size};
    const DWORD error = Await(*pipe, lock, call);
    count = call.Count;
    return error;
}

DWORD WritePipe(const std::shared_ptr<PipeEnd>& pipe, LPCVOID buffer, DWORD size, DWORD& count) {
    if ((pipe->Access & GENERIC_WRITE) == 0) return ERROR_ACCESS_DENIED;
    std::unique_lock lock(pipe->Mutex);
    CatchUp(pipe);
    if (pipe->State == Phase::PeerGone) return ERROR_NO_DATA;
    if (const DWORD reason = ReasonToFail(*pipe, CallKind::Write); reason != ERROR_SUCCESS) return reason;
    if (size == 0) return ERROR_SUCCESS;
    // All the room at once: a header must not go out without its bytes because memory has run out between them.
    pipe->Wire.Bytes.reserve(pipe->Wire.Bytes.size() + sizeof(PacketHeader) + size);
    Say(*pipe, PacketKind::Data, size);
    pipe->Wire.Append(buffer, size);
    pipe->Written += size;
    Flush(*pipe);
    Call call = {.Kind = CallKind::Write, .Size = size, .End = pipe->Written};
    const DWORD error = Await(*pipe, lock, call);
    count = call.Count;
    return error;
}

DWORD PeekPipe(const std::shared_ptr<PipeEnd>& pipe, LPVOID buffer, DWORD size, DWORD& read, DWORD& available) {
    if ((pipe->Access & GENERIC_READ) == 0) return ERROR_ACCESS_DENIED;
    const std::lock_guard guard(pipe->Mutex);
    CatchUp(pipe);
    const bool serverAlone = pipe->IsServer && pipe->State == Phase::Disconnected;
    if (pipe->State == Phase::Listening || serverAlone) return ERROR_BAD_PIPE;
    const DWORD reason = ReasonToFail(*pipe, CallKind::Read);
    if (reason != ERROR_SUCCESS && pipe->Inbox.Size() == 0) return reason;
    // The rest of a long write counts before it is here.
    available = static_cast<DWORD>(pipe->Inbox.Size() + pipe->DataLeft);
    if (buffer == nullptr) return ERROR_SUCCESS;
    read = static_cast<DWORD>(std::min<std::size_t>(size, pipe->Inbox.Size()));
    std::memcpy(buffer, pipe->Inbox.Data(), read);
    return ERROR_SUCCESS;
}

DWORD CancelPipeCalls(PipeEnd& pipe) {
    const std::lock_guard guard(pipe.Mutex);
    if (pipe.Calls.empty()) return ERROR_NOT_FOUND;
    std::uint64_t kept = pipe.Written;
    for (Call* call : pipe.Calls) {
        if (call->Kind == CallKind::Write) kept = std::min(kept, call->End - call->Size);
        Finish(*call, ERROR_OPERATION_ABORTED);
    }
    pipe.Calls.clear();
    if (kept < pipe.Written) {
        Say(pipe, PacketKind::Retract, pipe.Written - kept);
        Flush(pipe);
    }
    pipe.Changed.notify_all();
    return ERROR_SUCCESS;
}

void ClosePipe(PipeEnd& pipe) {
    const std::lock_guard guard(pipe.Mutex);
    if (pipe.IsServer) {
        if (const DirectoryLock lock = LockSharedDirectory()) {
            unlinkat(lock.Directory.Get(), (pipe.Instance + ".free").c_str(), 0);
            unlinkat(lock.Directory.Get(), (pipe.Instance + ".busy").c_str(), 0);
        }
    }
    pipe.State = Phase::Closed;
    pipe.Inbox.Clear();
    LeaveSocket(pipe);
    Settle(pipe);
}

HANDLE CreateNamedPipeW(LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD maxInstances, DWORD outBufferSize,
                        DWORD inBufferSize, DWORD, SECURITY_ATTRIBUTES*) {
    const std::u16string_view pipeName = PipeName(name);
    const bool supported = openMode == PIPE_ACCESS_DUPLEX && pipeMode == PIPE_TYPE_BYTE && maxInstances > 0 &&
                           maxInstances <= PIPE_UNLIMITED_INSTANCES;
    if (pipeName.empty() || !supported) {
        SetLastError(pipeName.empty() ? ERROR_INVALID_NAME : ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    const DirectoryLock lock = LockSharedDirectory();
    if (!lock) return INVALID_HANDLE_VALUE;
    const std::vector<Instance> others = FindInstances(lock.Directory, pipeName);
    // The first instance sets the limit for all.
    if (!others.empty()) maxInstances = others.front().Limit;
    if (maxInstances != PIPE_UNLIMITED_INSTANCES && others.size() >= maxInstances) {
        SetLastError(ERROR_PIPE_BUSY);
        return INVALID_HANDLE_VALUE;
    }
    char sizes[64];
    std::snprintf(sizes, sizeof(sizes), ".%x.%x.%x.", inBufferSize, outBufferSize, maxInstances);
    const auto pipe = std::make_shared<PipeEnd>();
    pipe->IsServer = true;
    pipe->Access = GENERIC_READ | GENERIC_WRITE;
    pipe->Instance = NewFileStamp('p') + sizes + FileNameFor(pipeName);
    pipe->ReadQuota = inBufferSize;
    pipe->WriteQuota = outBufferSize;
    const std::lock_guard guard(pipe->Mutex);
    return Listen(pipe, lock) ? AddHandle(pipe) : INVALID_HANDLE_VALUE;
}

BOOL ConnectNamedPipe(HANDLE handle, OVERLAPPED*) {
    const HandleObject object = FindObject(handle);
    if (std::holds_alternative<std::shared_ptr<Stream>>(object)) return Outcome(ERROR_INVALID_FUNCTION);
    const std::shared_ptr<PipeEnd> pipe = FindHandle<PipeEnd>(handle);
    if (!pipe) return FALSE;
    if (!pipe->IsServer) return Outcome(ERROR_INVALID_FUNCTION);
    std::unique_lock lock(pipe->Mutex);
    CatchUp(pipe);
    if (pipe->State == Phase::Connected) return Outcome(ERROR_PIPE_CONNECTED);
    if (pipe->State == Phase::PeerGone) return Outcome(ERROR_NO_DATA);
    if (pipe->State == Phase::Disconnected) {
        const DirectoryLock directory = LockSharedDirectory();
        if (!directory || !Listen(pipe, directory)) return FALSE;
    }
    Call call = {.Kind = CallKind::Connect};
    return Outcome(Await(*pipe, lock, call));
}

BOOL DisconnectNamedPipe(HANDLE handle) {
    const std::shared_ptr<PipeEnd> pipe = FindHandle<PipeEnd>(handle);
    if (!pipe) return FALSE;
    if (!pipe->IsServer) return Outcome(ERROR_NOT_SUPPORTED);
    const std::lock_guard guard(pipe->Mutex);
    CatchUp(pipe);
    if (pipe->State == Phase::Closed) return Outcome(ERROR_INVALID_HANDLE);
    if (pipe->State == Phase::Listening) return Outcome(ERROR_PIPE_LISTENING);
    if (pipe->State == Phase::Disconnected) return Outcome(ERROR_PIPE_NOT_CONNECTED);
    if (pipe->State == Phase::Connected) {
        Say(*pipe, PacketKind::Disconnect, 0);
        Flush(*pipe);
    }
    pipe->State = Phase::Disconnected;
    pipe->Inbox.Clear();
    LeaveSocket(*pipe);
    Settle(*pipe);
    return TRUE;
}

HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) {
    const std::u16string_view pipeName = PipeName(name);
    if (pipeName.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    const DirectoryLock lock = LockSharedDirectory();
    if (!lock) return INVALID_HANDLE_VALUE;
    DWORD error = ERROR_FILE_NOT_FOUND;
    for (const Instance& instance : FindInstances(lock.Directory, pipeName)) {
        error = ERROR_PIPE_BUSY;
        if (!instance.IsFree) continue;
        Descriptor socket = NewSocket();
        const SocketAddress address = AddressOf(lock.Directory, instance.File + ".free");
        if (!socket || connect(socket.Get(), address.Get(), address.Size) != 0) continue;
        renameat(lock.Directory.Get(), (instance.File + ".free").c_str(), lock.Directory.Get(),
                 (instance.File + ".busy").c_str());
        const auto pipe = std::make_shared<PipeEnd>();
        pipe->Access = access;
        pipe->ReadQuota = instance.OutBuffer;
        pipe->WriteQuota = instance.InBuffer;
        const std::lock_guard guard(pipe->Mutex);
        pipe->State = Phase::Connected;
        TakeSocket(pipe, std::move(socket));
        return AddHandle(pipe);
    }
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

BOOL WaitNamedPipeW(LPCWSTR name, DWORD timeOut) {
    constexpr DWORD useDefault = 0;
    constexpr DWORD waitForever = 0xFFFFFFFF;
    constexpr DWORD defaultWait = 50;
    const std::u16string_view pipeName = PipeName(name);
    if (pipeName.empty()) return Outcome(ERROR_FILE_NOT_FOUND);
    const auto limit = std::chrono::milliseconds(timeOut == useDefault ? defaultWait : timeOut);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    const Descriptor events(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    for (bool first = true;; first = false) {
        DirectoryLock lock = LockSharedDirectory();
        if (!lock) return FALSE;
        if (first) inotify_add_watch(events.Get(), PathThrough(lock.Directory, ".").c_str(), IN_CREATE | IN_MOVED_TO);
        const std::vector<Instance> instances = FindInstances(lock.Directory, pipeName);
        if (instances.empty() && first) return Outcome(ERROR_FILE_NOT_FOUND);
        const auto isFree = [](const Instance& instance) { return instance.IsFree; };
        if (std::any_of(instances.begin(), instances.end(), isFree)) return TRUE;
        lock.LockFile.Reset();
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (timeOut != waitForever && left.count() <= 0) return Outcome(ERROR_SEM_TIMEOUT);
        pollfd waiting = {events.Get(), POLLIN, 0};
        const int pollLimit = static_cast<int>(std::min<std::int64_t>(left.count(), INT_MAX));
        poll(&waiting, 1, timeOut == waitForever ? -1 : pollLimit);
        char seen[4096];
        while (read(events.Get(), seen, sizeof(seen)) > 0) {
        }
    }
}
