/// The bridge's whole life, as the launcher calls it.

#include "api/exports.h"
#include "bridge/message_loop.h"
#include "hostlink/connection.h"
#include "platform/platform.h"
#include "text/trace.h"

#include <cstdio>
#include <cstdlib>

namespace {

/// Gives standard output room for most replies, so that each leaves in one write and not in pieces of 4 KiB. The buffer
/// is used until the process ends; without memory for it, standard output keeps its own.
void WidenStandardOutput() {
    constexpr std::size_t size = 65536;
    if (void* const buffer = std::malloc(size)) std::setvbuf(stdout, static_cast<char*>(buffer), _IOFBF, size);
}

}  // namespace

std::int32_t OrvaneMcp_RunStdioBridge() {
    // Lengths are counted in bytes, so no line end may be translated.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    WidenStandardOutput();
    StartTrace();
    StartControlWatcher();
    RunMessageLoop();
    Trace("input ended");
    CloseControlConnection();
    return 0;
}
