#include "launcher/parent_watch.h"

#include "platform/own_process.h"
#include "platform/thread.h"

namespace {

constexpr DWORD Patience = 5000;
constexpr DWORD PauseBetweenLooks = 100;

/// Returns once the input has had no writer for `Patience` milliseconds and nothing has been read from it. Anything
/// that the bridge still reads restarts the clock.
void AwaitAbandonedInput() {
    std::optional<DWORD> before;
    for (DWORD start = GetTickCount(); GetTickCount() - start < Patience; Sleep(PauseBetweenLooks)) {
        const std::optional<DWORD> unread = UnreadInputAfterItsLastWriter();
        if (!unread || unread != before) start = GetTickCount();
        before = unread;
    }
}

/// `handle` is the parent process. This thread owns it.
unsigned WINAPI WatchParent(void* handle) {
    const OwnedHandle parent(handle);
    // Another process may hold the other end of the pipe and be the real client, so the parent's exit alone proves
    // nothing.
    if (WaitForSingleObject(parent.Get(), INFINITE) == WAIT_OBJECT_0) {
        AwaitAbandonedInput();
        EndOwnProcess(0);
    }
    return 0;
}

}  // namespace

void StartParentWatch() {
    OwnedHandle parent = OpenParentProcess();
    // If either fails, the launcher still ends with its input.
    if (parent && StartDetachedThread(WatchParent, parent.Get())) parent.Release();
}
