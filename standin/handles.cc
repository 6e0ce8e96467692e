#include "standin/handles.h"

#include "standin/pipes.h"
#include "standin/processes.h"
#include "standin/streams.h"

#include <mutex>
#include <unordered_map>

namespace {

struct HandleTable {
    std::mutex Mutex;
    std::unordered_map<HANDLE, HandleObject> Objects;
    std::uintptr_t LastValue = 0x100;
};

HandleTable& Table() {
    static HandleTable& table = *new HandleTable;
    return table;
}

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

HANDLE AddHandle(HandleObject object) {
    HandleTable& table = Table();
    const std::lock_guard guard(table.Mutex);
    const HANDLE handle = reinterpret_cast<HANDLE>(table.LastValue += 4);
    table.Objects.emplace(handle, std::move(object));
    return handle;
}

HandleObject FindObject(HANDLE handle) {
    HandleTable& table = Table();
    const std::lock_guard guard(table.Mutex);
    const auto found = table.Objects.find(handle);
    return found == table.Objects.end() ? HandleObject() : found->second;
}

HandleObject RemoveHandle(HANDLE handle) {
    HandleTable& table = Table();
    const std::lock_guard guard(table.Mutex);
    auto node = table.Objects.extract(handle);
    return node.empty() ? HandleObject() : std::move(node.mapped());
}

BOOL CloseHandle(HANDLE handle) {
    if (handle == GetCurrentProcess()) return TRUE;
    const HandleObject object = RemoveHandle(handle);
    if (std::holds_alternative<std::monostate>(object)) return Outcome(ERROR_INVALID_HANDLE);
    if (const auto* pipe = std::get_if<std::shared_ptr<PipeEnd>>(&object)) ClosePipe(**pipe);
    if (const auto* stream = std::get_if<std::shared_ptr<Stream>>(&object)) CloseStream(**stream);
    return TRUE;
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD bytesRead, OVERLAPPED*) {
    DWORD count = 0;
    DWORD error = ERROR_INVALID_HANDLE;
    const HandleObject object = FindObject(file);
    if (const auto* pipe = std::get_if<std::shared_ptr<PipeEnd>>(&object)) error = ReadPipe(*pipe, buffer, size, count);
    if (const auto* stream = std::get_if<std::shared_ptr<Stream>>(&object)) {
        error = ReadStream(**stream, buffer, size, count);
    }
    if (bytesRead != nullptr) *bytesRead = count;
    return Outcome(error);
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD bytesWritten, OVERLAPPED*) {
    DWORD count = 0;
    DWORD error = ERROR_INVALID_HANDLE;
    const HandleObject object = FindObject(file);
    if (const auto* pipe = std::get_if<std::shared_ptr<PipeEnd>>(&object))
        error = WritePipe(*pipe, buffer, size, count);
    if (const auto* stream = std::get_if<std::shared_ptr<Stream>>(&object)) {
        error = WriteStream(**stream, buffer, size, count);
    }
    if (bytesWritten != nullptr) *bytesWritten = count;
    return Outcome(error);
}

BOOL CancelIoEx(HANDLE file, OVERLAPPED*) {
    DWORD error = ERROR_INVALID_HANDLE;
    const HandleObject object = FindObject(file);
    if (const auto* pipe = std::get_if<std::shared_ptr<PipeEnd>>(&object)) error = CancelPipeCalls(**pipe);
    if (const auto* stream = std::get_if<std::shared_ptr<Stream>>(&object)) error = CancelStreamCalls(**stream);
    return Outcome(error);
}

BOOL PeekNamedPipe(HANDLE file, LPVOID buffer, DWORD bufferSize, LPDWORD bytesRead, LPDWORD bytesAvailable,
                   LPDWORD bytesLeftThisMessage) {
    DWORD read = 0;
    DWORD available = 0;
    DWORD error = ERROR_INVALID_HANDLE;
    const HandleObject object = FindObject(file);
    if (const auto* pipe = std::get_if<std::shared_ptr<PipeEnd>>(&object)) {
        error = PeekPipe(*pipe, buffer, bufferSize, read, available);
    }
    if (const auto* stream = std::get_if<std::shared_ptr<Stream>>(&object)) {
        error = PeekStream(**stream, buffer, available);
    }
    if (error != ERROR_SUCCESS) return Outcome(error);
    if (bytesRead != nullptr) *bytesRead = read;
    if (bytesAvailable != nullptr) *bytesAvailable = available;
    if (bytesLeftThisMessage != nullptr) *bytesLeftThisMessage = 0;
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    if (const auto process = FindProcess(handle)) return WaitForProcess(*process, milliseconds);
    return WAIT_FAILED;
}

// Nothing but the three standard handles is ever handed to a child, and these are named when it is started.
BOOL SetHandleInformation(HANDLE handle, DWORD, DWORD) {
    const HandleObject object = FindObject(handle);
    return Outcome(std::holds_alternative<std::monostate>(object) ? ERROR_INVALID_HANDLE : DWORD{ERROR_SUCCESS});
}
