#include "control/state.h"

#include "api/exports.h"

namespace {

constexpr std::int32_t ApiVersion = 11;

/// Copies `text` into the host's buffer, which must be usable, truncated to fit. The caller holds ServerLock.
void CopyOut(const WideString& text, WCHAR* buffer, std::int32_t capacity) {
    wcsncpy_s(buffer, static_cast<std::size_t>(capacity), text.c_str(), _TRUNCATE);
}

bool IsUsable(const WCHAR* buffer, std::int32_t capacity) {
    return buffer != nullptr && capacity >= 1;
}

std::int32_t CopyOutLocked(const WideString& text, WCHAR* buffer, std::int32_t capacity) {
    if (!IsUsable(buffer, capacity)) return 0;
    const std::lock_guard lock(ServerState().ServerLock);
    CopyOut(text, buffer, capacity);
    return 1;
}

}  // namespace

ControlServerState& ServerState() {
    static ControlServerState& state = *new ControlServerState;
    return state;
}

void SetLastErrorText(const WCHAR* text) {
    const std::lock_guard lock(ServerState().ServerLock);
    ServerState().LastErrorText = text != nullptr ? text : TEXT("");
}

bool IsServing(std::uint64_t serverRun) {
    // Running is read first: a start raises the run number before it sets the flag, so an old run never sees both.
    return ServerState().Running && ServerState().ServerRun == serverRun;
}

std::int32_t OrvaneMcp_GetApiVersion() {
    return ApiVersion;
}

std::int32_t OrvaneMcp_GetPipeName(OrvaneMcpChar* buffer, std::int32_t capacity) {
    return CopyOutLocked(ServerState().PipeName, buffer, capacity);
}

std::int32_t OrvaneMcp_GetServerPath(OrvaneMcpChar* buffer, std::int32_t capacity) {
    return CopyOutLocked(ServerState().ServerPath, buffer, capacity);
}

std::int32_t OrvaneMcp_GetLastError(OrvaneMcpChar* buffer, std::int32_t capacity) {
    if (!IsUsable(buffer, capacity)) return 0;
    const std::lock_guard lock(ServerState().ServerLock);
    CopyOut(ServerState().LastErrorText, buffer, capacity);
    return ServerState().LastErrorText.empty() ? 0 : 1;
}
