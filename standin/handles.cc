#include "standin/handles.h"

#include "standin/files.h"

#include <mutex>
#include <unordered_map>

namespace {

struct HandleTable {
    std::mutex Mutex;
    std::unordered_map<HANDLE, HandleEntry> Entries;
    std::uintptr_t LastValue = 0x100;
};

HandleTable& table = *new HandleTable;

thread_local DWORD lastError = ERROR_SUCCESS;

}  // namespace

DWORD GetLastError() {
    return lastError;
}

void SetLastError(DWORD code) {
    lastError = code;
}

BOOL Outcome(DWORD error) {
    if (error == ERROR_SUCCESS) return TRUE;
    SetLastError(error);
    return FALSE;
}

HANDLE NoHandle(DWORD error) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

HANDLE AddEntry(HandleEntry entry) {
    const std::lock_guard lock(table.Mutex);
    const HANDLE handle = reinterpret_cast<HANDLE>(table.LastValue += 4);
    table.Entries.emplace(handle, std::move(entry));
    return handle;
}

HandleEntry FindEntry(HANDLE handle) {
    const std::lock_guard lock(table.Mutex);
    const auto found = table.Entries.find(handle);
    return found == table.Entries.end() ? HandleEntry() : found->second;
}

HandleEntry RemoveEntry(HANDLE handle) {
    const std::lock_guard lock(table.Mutex);
    auto node = table.Entries.extract(handle);
    return node.empty() ? HandleEntry() : std::move(node.mapped());
}

BOOL CloseHandle(HANDLE handle) {
    const HandleEntry entry = RemoveEntry(handle);
    // A blocked call would keep the connection open.
    if (const std::shared_ptr<File> file = ObjectOf<File>(entry)) CancelCalls(*file);
    return Outcome(entry.Object ? DWORD{ERROR_SUCCESS} : ERROR_INVALID_HANDLE);
}
