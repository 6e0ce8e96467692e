#include "standin/files.h"
#include "standin/handles.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <thread>

static std::atomic<PHANDLER_ROUTINE> consoleHandler = nullptr;
static std::atomic<int> signalEvents = -1;

/// Calls the handler on a thread, which a signal handler can't safely do itself.
static void CallHandler() {
    for (eventfd_t count = 0;;) {
        if (eventfd_read(signalEvents, &count) == 0) consoleHandler.load()(CTRL_C_EVENT);
    }
}

static void OnSignal(int) {
    const int before = errno;
    eventfd_write(signalEvents, 1);
    errno = before;
}

/// Sets the one handler, for good. A separate thread calls it for each SIGINT and SIGTERM; its result is ignored.
BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL) {
    if (consoleHandler.exchange(handler) != nullptr) return Outcome(ERROR_INVALID_PARAMETER);
    signalEvents = eventfd(0, EFD_CLOEXEC);
    std::thread(CallHandler).detach();
    for (const int handled : {SIGINT, SIGTERM}) signal(handled, OnSignal);
    return TRUE;
}

BOOL GetConsoleMode(HANDLE console, LPDWORD mode) {
    const std::shared_ptr<File> file = FindHandle<File>(console);
    if (!file || isatty(file->Stream->Get()) == 0) return Outcome(ERROR_INVALID_HANDLE);
    *mode = 0;
    return TRUE;
}

// Terminals here use UTF-8, and no stream translates line ends.
BOOL SetConsoleOutputCP(UINT) {
    return TRUE;
}
int _fileno(std::FILE* stream) {
    return fileno(stream);
}
int _setmode(int file, int) {
    return fcntl(file, F_GETFD) >= 0 ? _O_BINARY : -1;
}
