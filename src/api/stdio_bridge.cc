/// The bridge's whole life, as the launcher calls it.

#include "api/exports.h"
#include "hostlink/connection.h"
#include "mcp/bridge.h"
#include "platform/platform.h"
#include "tools/tool_calls.h"

#include <cstdio>

namespace {

/// Room for most replies, so that each leaves in one write and not in pieces of 4 KiB. Standard output uses it until
/// the process ends, for which the watcher keeps this library loaded.
char OutputBuffer[65536];

}  // namespace

std::int32_t OrvaneMcp_RunStdioBridge() {
    // Lengths are counted in bytes, so no line end may be translated.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    std::setvbuf(stdout, OutputBuffer, _IOFBF, sizeof OutputBuffer);
    StartControlWatcher();
    RunMessageLoop(HandleToolCall);
    CloseControlConnection();
    return 0;
}
