/// The bridge's whole life, as the launcher calls it.

#include "api/exports.h"
#include "hostlink/connection.h"
#include "mcp/bridge.h"
#include "platform/platform.h"
#include "tools/tool_calls.h"

#include <cstdio>

std::int32_t OrvaneMcp_RunStdioBridge() {
    // Lengths are counted in bytes, so no line end may be translated.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    StartControlWatcher();
    RunMessageLoop(HandleToolCall);
    CloseControlConnection();
    return 0;
}
