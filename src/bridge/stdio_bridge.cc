/// The export that runs the bridge from start to finish. The launcher calls it.

#include "api/exports.h"
#include "bridge/message_loop.h"
#include "hostlink/connection.h"
#include "platform/platform.h"
#include "text/trace.h"

#include <cstdio>
#include <mutex>

namespace {

/// Enlarges the buffers of the standard streams: most messages then take one system call instead of one per 4 KiB.
/// Nothing waits for a buffer to fill: a read returns what has arrived, and each reply is flushed.
void WidenBuffers() {
    constexpr std::size_t size = 65536;
    static char input[size], output[size];  // used until the process ends
    std::setvbuf(stdin, input, _IOFBF, size);
    std::setvbuf(stdout, output, _IOFBF, size);
}

}  // namespace

std::int32_t OrvaneMcp_RunStdioBridge() {
    // Lengths are counted in bytes, so line ends must not be translated.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    static std::once_flag widened;  // a stream that has been used must keep its buffer
    std::call_once(widened, WidenBuffers);
    StartTrace();
    StartControlWatcher();
    RunMessageLoop();
    CloseControlConnection();
    return 0;
}
