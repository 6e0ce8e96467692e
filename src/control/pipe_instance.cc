#include "control/pipe_instance.h"

namespace {

/// True for the errors of a write to a client that has closed its end, before the write or during it.
bool MeansThatClientHasGone(DWORD error) {
    return error == ERROR_NO_DATA || error == ERROR_BROKEN_PIPE;
}

}  // namespace

void EndConnections(const std::vector<std::shared_ptr<PipeInstance>>& instances) {
    constexpr DWORD cancelTime = 1000;
    constexpr DWORD cancelPause = 1;
    constexpr int fewestTries = 50;  // the time goes on while a machine sleeps
    for (const auto& instance : instances) {
        instance->Leaving = true;
        CancelIoEx(instance->Pipe.Get(), nullptr);
    }
    // One cancel can come just before the call that it was meant for.
    const DWORD start = GetTickCount();
    for (int tries = 0; tries < fewestTries || GetTickCount() - start < cancelTime; ++tries) {
        bool anyInCall = false;
        for (const auto& instance : instances) {
            if (!instance->InCall) continue;
            anyInCall = true;
            CancelIoEx(instance->Pipe.Get(), nullptr);
        }
        if (!anyInCall) break;
        Sleep(cancelPause);
    }
    // A pipe with a call in it must not be disconnected: the system would let that wait for the call.
    for (const auto& instance : instances) {
        if (!instance->InCall) DisconnectNamedPipe(instance->Pipe.Get());
    }
}

void WriteReplyBytes(PipeInstance& instance, std::string_view bytes) {
    constexpr std::size_t largestWrite = std::size_t{1} << 30;  // one call counts in 32 bits
    while (!bytes.empty() && !instance.Broken) {
        const std::string_view piece = bytes.substr(0, largestWrite);
        const PipeCall call(instance);
        DWORD written = 0;
        const bool taken = call && WriteFile(instance.Pipe.Get(), piece.data(), static_cast<DWORD>(piece.size()),
                                             &written, nullptr) != 0;
        const bool gone = call && !taken && MeansThatClientHasGone(GetLastError());
        instance.Broken = !taken || written != piece.size();
        // A client that stays would wait for this reply for ever, so it is sent away.
        if (instance.Broken && !gone) instance.Leaving = true;
        bytes.remove_prefix(piece.size());
    }
}

void WriteReplyLine(PipeInstance& instance, std::string_view text) {
    WriteReplyBytes(instance, text);
    WriteReplyBytes(instance, "\n");
}
