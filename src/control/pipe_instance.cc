#include "control/pipe_instance.h"

void EndConnection(PipeInstance& instance) {
    constexpr DWORD cancelTime = 1000;
    constexpr DWORD cancelPause = 1;
    instance.Leaving = true;
    CancelIoEx(instance.Pipe.Get(), nullptr);
    // One cancel can come just before the call that it was meant for. And a pipe with a call in it must not be
    // disconnected: the system would let that wait for the call.
    for (const DWORD start = GetTickCount(); instance.InCall && GetTickCount() - start < cancelTime;) {
        Sleep(cancelPause);
        CancelIoEx(instance.Pipe.Get(), nullptr);
    }
    if (!instance.InCall) DisconnectNamedPipe(instance.Pipe.Get());
}

void WriteReplyBytes(PipeInstance& instance, std::string_view bytes) {
    constexpr std::size_t largestWrite = std::size_t{1} << 30;  // one call counts in 32 bits
    while (!bytes.empty() && !instance.Broken) {
        const std::string_view piece = bytes.substr(0, largestWrite);
        const PipeCall call(instance);
        DWORD written = 0;
        const bool whole =
            call &&
            WriteFile(instance.Pipe.Get(), piece.data(), static_cast<DWORD>(piece.size()), &written, nullptr) != 0 &&
            written == piece.size();
        instance.Broken = !whole;
        bytes.remove_prefix(piece.size());
    }
}

void WriteReplyLine(PipeInstance& instance, std::string_view text) {
    WriteReplyBytes(instance, text);
    WriteReplyBytes(instance, "\n");
}
