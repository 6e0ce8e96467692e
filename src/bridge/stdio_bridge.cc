/// The bridge's whole life, as the launcher calls it.

#include "api/exports.h"
#include "bridge/message_loop.h"
#include "hostlink/connection.h"
#include "platform/platform.h"
#include "text/trace.h"

#include <cstdio>
#include <cstdlib>

namespace {

/// Gives a standard stream a larger buffer, so that most messages take one system call and not one for each 4 KiB.
/// Nothing waits for it to fill: a read returns what has arrived, and each reply is flushed. The buffer lives as long
/// as the process; without memory for it, the stream keeps its own.
void WidenBuffer(std::FILE* stream) {
    constexpr std::size_t size = 65536;
    if (void* const buffer = std::malloc(size)) std::setvbuf(stream, static_cast<char*>(buffer), _IOFBF, size);
}

}  // namespace

std::int32_t OrvaneMcp_RunStdioBridge() {
    // Lengths are counted in bytes, so line ends must not be translated.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    WidenBuffer(stdin);
    WidenBuffer(stdout);
    StartTrace();
    StartControlWatcher();
    RunMessageLoop();
    Trace("input ended");
    CloseControlConnection();
    return 0;
}
