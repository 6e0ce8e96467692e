#include "standin/files.h"

#include "standin/handles.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

PendingCall::PendingCall(File& file) : file_(file), cancelled_(eventfd(0, EFD_CLOEXEC)) {
    const std::lock_guard lock(file.Mutex);
    next_ = std::exchange(file.Calls, this);
}

PendingCall::~PendingCall() {
    const std::lock_guard lock(file_.Mutex);
    PendingCall** place = &file_.Calls;
    while (*place != this) place = &(*place)->next_;
    *place = next_;
}

DWORD PendingCall::AwaitReady(int descriptor, short events) const {
    if (!cancelled_) return ERROR_NOT_ENOUGH_MEMORY;
    pollfd waiting[] = {{descriptor, events, 0}, {cancelled_.Get(), POLLIN, 0}};
    while (poll(waiting, 2, -1) < 0 && errno == EINTR) {
    }
    return waiting[1].revents != 0 ? ERROR_OPERATION_ABORTED : DWORD{ERROR_SUCCESS};
}

bool CancelCalls(File& file) {
    const std::lock_guard lock(file.Mutex);
    for (const PendingCall* call = file.Calls; call != nullptr; call = call->next_) {
        eventfd_write(call->cancelled_.Get(), 1);
    }
    return file.Calls != nullptr;
}

bool HasHungUp(const Descriptor& stream) {
    pollfd state = {stream.Get(), 0, 0};
    return poll(&state, 1, 0) > 0 && (state.revents & POLLHUP) != 0;
}

namespace {

/// The stream to read and write; null, with the last error set, if nothing is connected.
std::shared_ptr<const Descriptor> ConnectedStream(File& file) {
    const std::lock_guard lock(file.Mutex);
    if (!file.Stream || file.Listening) SetLastError(ERROR_PIPE_NOT_CONNECTED);
    return file.Listening ? nullptr : file.Stream;
}

/// Reads or writes once without blocking, given that the descriptor is ready. A plain pipe that is ready takes
/// PIPE_BUF bytes at once.
ssize_t ReadSome(int file, void* buffer, std::size_t size) {
    const ssize_t count = recv(file, buffer, size, MSG_DONTWAIT);
    return count < 0 && errno == ENOTSOCK ? read(file, buffer, size) : count;
}
ssize_t WriteSome(int file, const char* bytes, std::size_t size) {
    const ssize_t count = send(file, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    return count < 0 && errno == ENOTSOCK ? write(file, bytes, std::min<std::size_t>(size, PIPE_BUF)) : count;
}

/// True if a read or write with this result merely wasn't ready after all.
bool MayTryAgain(ssize_t count) {
    return count < 0 && (errno == EAGAIN || errno == EINTR);
}

// Windows has no signal for a pipe without a reader: the write just fails.
[[gnu::constructor]] void IgnoreBrokenPipeSignal() {
    signal(SIGPIPE, SIG_IGN);
}

}  // namespace

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD size, LPDWORD bytesRead, OVERLAPPED*) {
    *bytesRead = 0;
    const std::shared_ptr<File> file = FindHandle<File>(handle);
    if (!file) return FALSE;
    const PendingCall call(*file);
    const std::shared_ptr<const Descriptor> stream = ConnectedStream(*file);
    if (!stream) return FALSE;
    for (;;) {
        const DWORD error = call.AwaitReady(stream->Get(), POLLIN);
        if (error != ERROR_SUCCESS) return Outcome(error);
        const ssize_t count = ReadSome(stream->Get(), buffer, size);
        if (MayTryAgain(count)) continue;
        *bytesRead = static_cast<DWORD>(std::max<ssize_t>(count, 0));
        return Outcome(count > 0 ? DWORD{ERROR_SUCCESS} : ERROR_BROKEN_PIPE);
    }
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD size, LPDWORD bytesWritten, OVERLAPPED*) {
    *bytesWritten = 0;
    const std::shared_ptr<File> file = FindHandle<File>(handle);
    if (!file) return FALSE;
    const PendingCall call(*file);
    const std::shared_ptr<const Descriptor> stream = ConnectedStream(*file);
    if (!stream) return FALSE;
    while (*bytesWritten < size) {
        const DWORD error = call.AwaitReady(stream->Get(), POLLOUT);
        if (error != ERROR_SUCCESS) return Outcome(error);
        const char* const rest = static_cast<const char*>(buffer) + *bytesWritten;
        const ssize_t count = WriteSome(stream->Get(), rest, size - *bytesWritten);
        if (MayTryAgain(count)) continue;
        if (count < 0) return Outcome(ERROR_NO_DATA);
        *bytesWritten += static_cast<DWORD>(count);
    }
    return TRUE;
}

/// Counts what can be read. Copies nothing: no caller asks for that.
BOOL PeekNamedPipe(HANDLE handle, LPVOID buffer, DWORD, LPDWORD, LPDWORD bytesAvailable, LPDWORD) {
    const std::shared_ptr<File> file = FindHandle<File>(handle);
    if (!file) return FALSE;
    const std::shared_ptr<const Descriptor> stream = ConnectedStream(*file);
    if (!stream) return FALSE;
    struct stat status = {};
    fstat(stream->Get(), &status);
    const bool isPipe = S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
    if (!isPipe || buffer != nullptr) return Outcome(ERROR_INVALID_PARAMETER);
    // In this order, so that bytes written before the hang-up are always counted.
    const bool ended = HasHungUp(*stream);
    int bytes = 0;
    if (ioctl(stream->Get(), FIONREAD, &bytes) != 0 || (bytes == 0 && ended)) return Outcome(ERROR_BROKEN_PIPE);
    if (bytesAvailable != nullptr) *bytesAvailable = static_cast<DWORD>(bytes);
    return TRUE;
}

BOOL CancelIoEx(HANDLE handle, OVERLAPPED*) {
    const std::shared_ptr<File> file = FindHandle<File>(handle);
    if (!file) return FALSE;
    return Outcome(CancelCalls(*file) ? DWORD{ERROR_SUCCESS} : ERROR_NOT_FOUND);
}

HANDLE GetStdHandle(DWORD which) {
    // A duplicate: closing the handle leaves the C library's own descriptor open.
    constexpr auto open = [](int stream) -> HANDLE {
        Descriptor copy(fcntl(stream, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        if (!copy) return nullptr;
        const auto file = std::make_shared<File>();
        file->Stream = std::make_shared<Descriptor>(std::move(copy));
        return AddHandle(file);
    };
    static const HANDLE handles[] = {open(STDIN_FILENO), open(STDOUT_FILENO), open(STDERR_FILENO)};
    const DWORD index = STD_INPUT_HANDLE - which;
    return index < std::size(handles) ? handles[index] : NoHandle(ERROR_INVALID_HANDLE);
}
