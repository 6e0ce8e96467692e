#include "launcher/parent_watch.h"

#include "platform/own_process.h"
#include "platform/thread.h"

namespace {

constexpr DWORD Patience = 5000;
constexpr DWORD PauseBetweenLooks = 100;

/// Returns once the input has had no writer for as long as `Patience`. A bridge that still works through the requests
/// in it gets its time anew with each piece that it reads.
void AwaitAbandonedInput() {
    std::optional<DWORD> before;
    for (DWORD start = GetTickCount(); GetTickCount() - start < Patience; Sleep(PauseBetweenLooks)) {
        const std::optional<DWORD> unread = UnreadInputAfterItsLastWriter();
        if (!unread || unread != before) start = GetTickCount();
        before = unread;
    }
}

unsigned WINAPI WatchParent(void* argument) {
    const OwnedHandle parent(argument);
    // Whoever else holds the other end of the pipe may be the true client: a starter that leaves changes nothing.
    if (WaitForSingleObject(parent.Get(), INFINITE) == WAIT_OBJECT_0) {
        AwaitAbandonedInput();
        EndOwnProcess(0);
    }
    return 0;
}

}  // namespace

void StartParentWatch() {
    OwnedHandle parent = OpenParentProcess();
    if (!parent || !StartDetachedThread(WatchParent, parent.Get())) return;
    parent.Release();
}
