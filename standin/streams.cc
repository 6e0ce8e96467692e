#include "standin/streams.h"

#include "standin/descriptor.h"
#include "standin/handles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <limits.h>
#include <mutex>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

struct Stream {
    int File = -1;
    Descriptor Owned;  // of the same number, but empty for a standard stream
    DWORD Access = 0;
    bool IsRegularFile = false;
    bool EndsAsPipe = false;  // its end is a failure, as a pipe's end is; else it reads as no bytes

    std::mutex Mutex;
    Descriptor Wake;  // readable while there are calls to be given up
    std::uint64_t LastCall = 0;
    std::uint64_t GivenUp = 0;  // calls up to this number fail
    int Blocked = 0;
    int Leaving = 0;  // of the blocked, those that have been given up
    bool Closed = false;
};

namespace {

std::shared_ptr<Stream> NewStream(int file, DWORD access) {
    const auto stream = std::make_shared<Stream>();
    struct stat status = {};
    fstat(file, &status);
    stream->IsRegularFile = S_ISREG(status.st_mode);
    stream->EndsAsPipe = S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
    stream->File = file;
    stream->Access = access;
    stream->Wake = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return stream;
}

HANDLE AddOwnedStream(int file, DWORD access) {
    const std::shared_ptr<Stream> stream = NewStream(file, access);
    stream->Owned = Descriptor(file);
    return AddHandle(stream);
}

/// Waits until the stream is ready for `events`. Gives ERROR_OPERATION_ABORTED when the call is given up meanwhile.
DWORD WaitUntilReady(Stream& stream, short events) {
    std::unique_lock lock(stream.Mutex);
    if (stream.Closed) return ERROR_INVALID_HANDLE;
    const std::uint64_t number = ++stream.LastCall;
    ++stream.Blocked;
    pollfd waiting[] = {{stream.File, events, 0}, {stream.Wake.Get(), POLLIN, 0}};
    do {
        lock.unlock();
        poll(waiting, 2, -1);
        lock.lock();
    } while (number > stream.GivenUp && waiting[0].revents == 0);
    --stream.Blocked;
    const bool givenUp = number <= stream.GivenUp;
    if (givenUp && --stream.Leaving == 0) {
        std::uint64_t told = 0;
        [[maybe_unused]] const ssize_t taken = read(stream.Wake.Get(), &told, sizeof(told));
    }
    return givenUp ? ERROR_OPERATION_ABORTED : DWORD{ERROR_SUCCESS};
}

/// Gives up every call under way. False when there is none. Under the mutex.
bool GiveUpCalls(Stream& stream) {
    if (stream.Blocked == 0) return false;
    stream.GivenUp = stream.LastCall;
    stream.Leaving = stream.Blocked;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t told = write(stream.Wake.Get(), &one, sizeof(one));
    return true;
}

// Windows has no signal for a pipe without a reader: a program there sees the write fail.
[[gnu::constructor]] void IgnoreBrokenPipeSignal() {
    struct sigaction current = {};
    sigaction(SIGPIPE, nullptr, &current);
    if (current.sa_handler == SIG_DFL) signal(SIGPIPE, SIG_IGN);
}

}  // namespace

DWORD ReadStream(Stream& stream, LPVOID buffer, DWORD size, DWORD& count) {
    if ((stream.Access & GENERIC_READ) == 0) return ERROR_ACCESS_DENIED;
    for (;;) {
        if (const DWORD error = WaitUntilReady(stream, POLLIN); error != ERROR_SUCCESS) return error;
        const ssize_t got = read(stream.File, buffer, size);
        if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (got < 0 || (got == 0 && size > 0 && stream.EndsAsPipe)) return ERROR_BROKEN_PIPE;
        count = static_cast<DWORD>(got);
        return ERROR_SUCCESS;
    }
}

DWORD WriteStream(Stream& stream, LPCVOID buffer, DWORD size, DWORD& count) {
    if ((stream.Access & GENERIC_WRITE) == 0) return ERROR_ACCESS_DENIED;
    // A pipe that is ready takes this much without blocking, so the call can always be given up.
    const DWORD most = stream.IsRegularFile ? size : DWORD{PIPE_BUF};
    while (count < size) {
        if (const DWORD error = WaitUntilReady(stream, POLLOUT); error != ERROR_SUCCESS) return error;
        const char* const rest = static_cast<const char*>(buffer) + count;
        const ssize_t put = write(stream.File, rest, std::min(most, size - count));
        if (put < 0 && errno != EINTR && errno != EAGAIN) return ERROR_NO_DATA;
        if (put > 0) count += static_cast<DWORD>(put);
    }
    return ERROR_SUCCESS;
}

DWORD PeekStream(Stream& stream, LPVOID buffer, DWORD& available) {
    if ((stream.Access & GENERIC_READ) == 0) return ERROR_ACCESS_DENIED;
    if (buffer != nullptr || !stream.EndsAsPipe) return ERROR_NOT_SUPPORTED;
    int bytes = 0;
    if (ioctl(stream.File, FIONREAD, &bytes) != 0) return ERROR_NOT_SUPPORTED;
    available = static_cast<DWORD>(bytes);
    if (bytes > 0) return ERROR_SUCCESS;
    pollfd state = {stream.File, 0, 0};
    poll(&state, 1, 0);
    return (state.revents & POLLHUP) != 0 ? ERROR_BROKEN_PIPE : DWORD{ERROR_SUCCESS};
}

DWORD CancelStreamCalls(Stream& stream) {
    const std::lock_guard guard(stream.Mutex);
    return GiveUpCalls(stream) ? DWORD{ERROR_SUCCESS} : ERROR_NOT_FOUND;
}

void CloseStream(Stream& stream) {
    const std::lock_guard guard(stream.Mutex);
    stream.Closed = true;
    GiveUpCalls(stream);
    if (stream.Owned) return;
    // The number of a standard stream stays taken, or the next file opened would become the program's output.
    const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (nothing) dup2(nothing.Get(), stream.File);
}

int StreamDescriptor(HANDLE handle, std::shared_ptr<Stream>& keep) {
    const HandleObject object = FindObject(handle);
    const auto* const found = std::get_if<std::shared_ptr<Stream>>(&object);
    if (found == nullptr) return -1;
    keep = *found;
    return keep->File;
}

BOOL CreatePipe(HANDLE* readEnd, HANDLE* writeEnd, SECURITY_ATTRIBUTES*, DWORD) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return Outcome(ERROR_NOT_ENOUGH_MEMORY);
    *readEnd = AddOwnedStream(ends[0], GENERIC_READ);
    *writeEnd = AddOwnedStream(ends[1], GENERIC_WRITE);
    return TRUE;
}

HANDLE GetStdHandle(DWORD which) {
    constexpr std::size_t count = 3;
    static const std::array<HANDLE, count>& handles = *[] {
        auto* const made = new std::array<HANDLE, count>{};
        for (std::size_t i = 0; i < count; ++i) {
            const int file = static_cast<int>(i);
            if (fcntl(file, F_GETFD) >= 0) (*made)[i] = AddHandle(NewStream(file, GENERIC_READ | GENERIC_WRITE));
        }
        return made;
    }();
    const DWORD index = STD_INPUT_HANDLE - which;
    if (index < count) return handles[index];
    SetLastError(ERROR_INVALID_HANDLE);
    return INVALID_HANDLE_VALUE;
}

BOOL GetConsoleMode(HANDLE console, LPDWORD mode) {
    std::shared_ptr<Stream> keep;
    const int file = StreamDescriptor(console, keep);
    if (file < 0 || isatty(file) == 0) return Outcome(ERROR_INVALID_HANDLE);
    constexpr DWORD processedAndLines = 3;
    *mode = processedAndLines;
    return TRUE;
}

int _fileno(std::FILE* stream) {
    return fileno(stream);
}

int _setmode(int file, int) {
    return fcntl(file, F_GETFD) >= 0 ? _O_BINARY : -1;
}

BOOL SetConsoleOutputCP(UINT codePage) {
    return Outcome(codePage == CP_UTF8 ? DWORD{ERROR_SUCCESS} : ERROR_INVALID_PARAMETER);
}
