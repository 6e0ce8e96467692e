// An instance of a pipe is a listening socket in the shared directory: "pipe.<name>.<most instances>.<process>.
// <its start>.<serial>.free". The client that connects renames it to ".busy", and the server deletes it with the
// instance, so the directory always shows what a client will find under a name.
#include "standin/directory.h"
#include "standin/files.h"
#include "standin/handles.h"
#include "standin/processes.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

/// A server's file in the shared directory; `File` is its name without the state.
struct InstanceFile {
    const std::string File;

    explicit InstanceFile(std::string file) : File(std::move(file)) {}
    InstanceFile(const InstanceFile&) = delete;
    InstanceFile& operator=(const InstanceFile&) = delete;
    ~InstanceFile() {
        // In this order nothing is left behind even if a client renames it in between.
        const Descriptor directory = OpenSharedDirectory();
        for (const char* state : {".free", ".busy"}) unlinkat(directory.Get(), (File + state).c_str(), 0);
    }
};

namespace {

/// The name after "\\.\pipe\" or "\\.\PIPE\"; empty when `path` has another form.
std::u16string_view PipeName(LPCWSTR path) {
    constexpr std::u16string_view prefix = u"\\\\.\\pipe\\", upper = u"\\\\.\\PIPE\\";
    const std::u16string_view whole(path);
    const bool isPipe = whole.starts_with(prefix) || whole.starts_with(upper);
    return isPipe ? whole.substr(prefix.size()) : std::u16string_view();
}

/// An instance, as its file name describes it.
struct ListedInstance {
    std::string File;  // without the state
    bool IsFree = false;
    DWORD Limit = 0;
};

/// The instances of `name`. Deletes what dead processes left, under any name.
std::vector<ListedInstance> FindInstances(const Descriptor& directory, std::u16string_view name) {
    std::vector<ListedInstance> instances;
    const std::string prefix = "pipe." + FileNameFor(name) + ".";
    for (const std::string& file : ListFiles(directory)) {
        ListedInstance instance;
        unsigned process = 0;
        unsigned long long start = 0;
        if (std::sscanf(file.c_str(), "pipe.%*[^.].%x.%x.%llx", &instance.Limit, &process, &start) != 3) continue;
        if (ProcessStart(static_cast<pid_t>(process)) != start) {
            unlinkat(directory.Get(), file.c_str(), 0);
        } else if (file.starts_with(prefix)) {
            instance.File = file.substr(0, file.rfind('.'));
            instance.IsFree = file.ends_with(".free");
            instances.push_back(instance);
        }
    }
    return instances;
}

/// A new socket, attached to the file of a free instance with `bind` or `connect`. Empty on failure.
Descriptor SocketAt(const Descriptor& directory, const std::string& instance,
                    int (*attach)(int, const sockaddr*, socklen_t)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    // Fits into sun_path whatever the directory is called.
    const std::string path = "/proc/self/fd/" + std::to_string(directory.Get()) + "/" + instance + ".free";
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const bool attached = made && attach(made.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    return attached ? std::move(made) : Descriptor();
}

/// Hides a free instance from other clients. The caller holds the directory's lock.
void MarkBusy(const Descriptor& directory, const std::string& instance) {
    const int shared = directory.Get();
    renameat(shared, (instance + ".free").c_str(), shared, (instance + ".busy").c_str());
}

/// If one end doesn't read, the other soon blocks in a write, as with a pipe's small buffers.
std::shared_ptr<const Descriptor> WithSmallBuffer(Descriptor socket) {
    const int size = 8192;
    setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
    return std::make_shared<Descriptor>(std::move(socket));
}

/// The client that has connected; empty, with errno set, if there is none.
Descriptor AcceptClient(const Descriptor& listener, const InstanceFile& instance) {
    // The lock keeps a second client out: the socket listens until it is closed.
    const Descriptor directory = LockSharedDirectory();
    Descriptor client(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    // The client has renamed the file itself, unless it died just before that.
    if (client) MarkBusy(directory, instance.File);
    return client;
}

}  // namespace

HANDLE CreateNamedPipeW(LPCWSTR name, DWORD, DWORD, DWORD maxInstances, DWORD, DWORD, DWORD, SECURITY_ATTRIBUTES*) {
    const std::u16string_view pipeName = PipeName(name);
    if (pipeName.empty()) return NoHandle(ERROR_INVALID_PARAMETER);
    const Descriptor directory = LockSharedDirectory();
    if (!directory) return INVALID_HANDLE_VALUE;
    const std::vector<ListedInstance> others = FindInstances(directory, pipeName);
    // The first instance sets the limit for all.
    if (!others.empty()) maxInstances = others.front().Limit;
    if (maxInstances != PIPE_UNLIMITED_INSTANCES && others.size() >= maxInstances) return NoHandle(ERROR_PIPE_BUSY);

    static std::atomic<unsigned> serial = 0;
    char stamp[64];
    std::snprintf(stamp, sizeof(stamp), ".%x.%x.%llx.%x", maxInstances, GetCurrentProcessId(), ProcessStart(getpid()),
                  serial++);
    const auto pipe = std::make_shared<File>();
    pipe->Instance = std::make_shared<InstanceFile>("pipe." + FileNameFor(pipeName) + stamp);
    pipe->Listening = true;
    Descriptor listener = SocketAt(directory, pipe->Instance->File, bind);
    // One client may wait to be accepted, no more.
    if (!listener || listen(listener.Get(), 0) != 0) return NoHandle(ERROR_NOT_ENOUGH_MEMORY);
    pipe->Stream = std::make_shared<Descriptor>(std::move(listener));
    return AddHandle(pipe);
}

BOOL ConnectNamedPipe(HANDLE handle, OVERLAPPED*) {
    const std::shared_ptr<File> pipe = FindHandle<File>(handle);
    if (!pipe) return FALSE;
    const PendingCall call(*pipe);
    std::unique_lock lock(pipe->Mutex);
    if (!pipe->Listening) return Outcome(pipe->Stream ? ERROR_PIPE_CONNECTED : ERROR_PIPE_NOT_CONNECTED);
    const std::shared_ptr<const Descriptor> listener = pipe->Stream;
    lock.unlock();
    for (bool waited = false;; waited = true) {
        if (Descriptor client = AcceptClient(*listener, *pipe->Instance)) {
            const bool goneAlready = !waited && HasHungUp(client);
            lock.lock();
            pipe->Listening = false;
            pipe->Stream = WithSmallBuffer(std::move(client));
            return Outcome(waited ? DWORD{ERROR_SUCCESS} : goneAlready ? ERROR_NO_DATA : ERROR_PIPE_CONNECTED);
        }
        if (errno != EAGAIN && errno != EINTR) return Outcome(ERROR_NOT_ENOUGH_MEMORY);
        const DWORD error = call.AwaitReady(listener->Get(), POLLIN);
        if (error != ERROR_SUCCESS) return Outcome(error);
    }
}

BOOL DisconnectNamedPipe(HANDLE handle) {
    const std::shared_ptr<File> pipe = FindHandle<File>(handle);
    if (!pipe) return FALSE;
    const std::lock_guard lock(pipe->Mutex);
    if (!pipe->Stream || pipe->Listening) return Outcome(ERROR_PIPE_NOT_CONNECTED);
    // Ends calls in progress too: they hold the socket.
    shutdown(pipe->Stream->Get(), SHUT_RDWR);
    pipe->Stream = nullptr;
    return TRUE;
}

HANDLE CreateFileW(LPCWSTR name, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) {
    const std::u16string_view pipeName = PipeName(name);
    if (pipeName.empty()) return NoHandle(ERROR_FILE_NOT_FOUND);
    const Descriptor directory = LockSharedDirectory();
    if (!directory) return INVALID_HANDLE_VALUE;
    DWORD error = ERROR_FILE_NOT_FOUND;
    for (const ListedInstance& instance : FindInstances(directory, pipeName)) {
        error = ERROR_PIPE_BUSY;
        if (!instance.IsFree) continue;
        Descriptor client = SocketAt(directory, instance.File, connect);
        if (!client) continue;
        MarkBusy(directory, instance.File);
        const auto pipe = std::make_shared<File>();
        pipe->Stream = WithSmallBuffer(std::move(client));
        return AddHandle(pipe);
    }
    return NoHandle(error);
}

BOOL WaitNamedPipeW(LPCWSTR name, DWORD timeOut) {
    constexpr int pause = 2;
    for (const DWORD start = GetTickCount();; poll(nullptr, 0, pause)) {
        const std::vector<ListedInstance> instances = FindInstances(OpenSharedDirectory(), PipeName(name));
        if (instances.empty()) return Outcome(ERROR_FILE_NOT_FOUND);
        if (std::any_of(instances.begin(), instances.end(), [](const auto& one) { return one.IsFree; })) return TRUE;
        if (GetTickCount() - start >= timeOut) return Outcome(ERROR_SEM_TIMEOUT);
    }
}
