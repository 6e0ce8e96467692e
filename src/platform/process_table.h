/// Walking the system's table of processes.
#pragma once

#include "platform/owned.h"

/// A snapshot of the processes; empty on failure.
inline OwnedHandle TakeProcessSnapshot() {
    return OwnedHandle(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
}

/// Calls `visit` with each entry of a snapshot, in order.
template <typename Visit>
void VisitProcesses(const OwnedHandle& snapshot, Visit visit) {
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot.Get(), &entry); more; more = Process32NextW(snapshot.Get(), &entry)) {
        visit(entry);
    }
}

/// The entry of `processId` in a snapshot; an entry with id 0 if it isn't there.
inline PROCESSENTRY32W FindProcessEntry(const OwnedHandle& snapshot, DWORD processId) {
    PROCESSENTRY32W found{};
    VisitProcesses(snapshot, [&](const PROCESSENTRY32W& entry) {
        if (entry.th32ProcessID == processId) found = entry;
    });
    return found;
}
