#include "standin/descriptor.h"
#include "standin/handles.h"
#include "standin/watcher.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int HandledSignals[] = {SIGINT, SIGTERM};
constexpr int ExitCodeOfCtrlC = 130;

struct Console {
    std::mutex Mutex;
    std::vector<PHANDLER_ROUTINE> Handlers;
    bool IgnoresCtrlC = false;
    Descriptor Events{eventfd(0, EFD_CLOEXEC)};  // what the signal handler tells the thread
};

void RunHandlers(Console& console) {
    for (;;) {
        std::uint64_t count = 0;
        if (read(console.Events.Get(), &count, sizeof(count)) < 0) continue;
        std::vector<PHANDLER_ROUTINE> handlers;
        bool ignored = false;
        {
            const std::lock_guard guard(console.Mutex);
            handlers = console.Handlers;
            ignored = console.IgnoresCtrlC;
        }
        // The last one added is asked first.
        const bool handled = ignored || std::any_of(handlers.rbegin(), handlers.rend(), [](PHANDLER_ROUTINE handler) {
                                 return handler(CTRL_C_EVENT) != FALSE;
                             });
        // Other threads are at work, so nothing of theirs is torn down.
        if (!handled) _exit(ExitCodeOfCtrlC);
    }
}

Console& TheConsole() {
    static Console& console = *[] {
        auto* const created = new Console;
        StartServiceThread([created] { RunHandlers(*created); });
        return created;
    }();
    return console;
}

std::atomic<int> eventsForSignal = -1;

void OnSignal(int) {
    const int before = errno;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t told = write(eventsForSignal, &one, sizeof(one));
    errno = before;
}

/// Takes or gives back the signals, whichever the handlers ask for. Under the console's mutex.
void UpdateSignals(const Console& console) {
    eventsForSignal = console.Events.Get();
    struct sigaction action = {};
    action.sa_flags = SA_RESTART;
    if (console.Handlers.empty() && !console.IgnoresCtrlC) {
        action.sa_handler = SIG_DFL;
    } else {
        action.sa_handler = OnSignal;
    }
    for (const int signal : HandledSignals) sigaction(signal, &action, nullptr);
}

}  // namespace

BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add) {
    Console& console = TheConsole();
    const std::lock_guard guard(console.Mutex);
    if (handler == nullptr) {
        console.IgnoresCtrlC = add != FALSE;
    } else if (add != FALSE) {
        console.Handlers.push_back(handler);
    } else {
        const auto found = std::find(console.Handlers.begin(), console.Handlers.end(), handler);
        if (found == console.Handlers.end()) return Outcome(ERROR_INVALID_PARAMETER);
        console.Handlers.erase(found);
    }
    UpdateSignals(console);
    return TRUE;
}
