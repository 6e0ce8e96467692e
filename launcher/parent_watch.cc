#include "launcher/parent_watch.h"

#include "platform/own_process.h"
#include "platform/thread.h"

namespace {

constexpr DWORD Patience = 5000;
constexpr DWORD PauseBetweenLooks = 100;

/// Returns once the input has had no writer, and nothing was read from it, for `Patience` milliseconds. Each piece that
/// the bridge still reads restarts the clock.
void AwaitAbandonedInput() {
    std::optional<DWORD> before;
    for (DWORD start = GetTickCount(); GetTickCount() - start < Patience; Sleep(PauseBetweenLooks)) {
        const std::optional<DWORD> unread = UnreadInputAfterItsLastWriter();
        if (!unread || unread != before) start = GetTickCount();
        before = unread;
    }
}

unsigned WINAPI WatchParent(void*) {
    // Here and not at the start: the way to the parent leads through the whole table of processes.
    const OwnedHandle parent = OpenParentProcess();
    // Another process may hold the other end of the pipe and be the real client, so the parent's exit alone proves
    // nothing.
    if (parent && WaitForSingleObject(parent.Get(), INFINITE) == WAIT_OBJECT_0) {
        AwaitAbandonedInput();
        EndOwnProcess(0);
    }
    return 0;
}

}  // namespace

void StartParentWatch() {
    // Without a thread for it the launcher still ends with its input.
    static_cast<void>(StartDetachedThread(WatchParent, nullptr));
}
