#include "control/pipe_instance.h"

namespace {

/// True for the errors of a write to a client that has closed its end, before the write or during it.
bool MeansClientIsGone(DWORD error) {
    return error == ERROR_NO_DATA || error == ERROR_BROKEN_PIPE;
}

}  // namespace

void EndConnections(const std::vector<std::shared_ptr<PipeInstance>>& instances) {
    constexpr int mostTries = 100;
    constexpr DWORD pause = 10;
    for (const auto& instance : instances) {
        instance->Leaving = true;
        CancelIoEx(instance->Pipe.Get(), nullptr);
    }
    // A cancel can come just before the call that it was meant for, so one isn't enough.
    for (int tries = 0; tries < mostTries; ++tries) {
        bool anyInCall = false;
        for (const auto& instance : instances) {
            if (!instance->InCall) continue;
            anyInCall = true;
            CancelIoEx(instance->Pipe.Get(), nullptr);
        }
        if (!anyInCall) break;
        Sleep(pause);
    }
    // Never disconnect a pipe that a call is blocked in: on a synchronous handle that waits for the call.
    for (const auto& instance : instances) {
        if (!instance->InCall) DisconnectNamedPipe(instance->Pipe.Get());
    }
}

void WriteReplyBytes(PipeInstance& instance, std::string_view bytes) {
    constexpr std::size_t largestWrite = std::size_t{1} << 30;  // a call counts bytes in 32 bits
    while (!bytes.empty() && !instance.Broken) {
        const std::string_view piece = bytes.substr(0, largestWrite);
        const PipeCall call(instance);
        DWORD written = 0;
        const bool taken = call && WriteFile(instance.Pipe.Get(), piece.data(), static_cast<DWORD>(piece.size()),
                                             &written, nullptr) != 0;
        const bool gone = call && !taken && MeansClientIsGone(GetLastError());
        instance.Broken = !taken || written != piece.size();
        if (instance.Broken && !gone) instance.Leaving = true;
        bytes.remove_prefix(piece.size());
    }
}

void WriteReplyLine(PipeInstance& instance, std::string_view text) {
    WriteReplyBytes(instance, text);
    WriteReplyBytes(instance, "\n");
}
