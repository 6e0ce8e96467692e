#include "control/pipe_instance.h"

namespace {

/// True for the errors of a write whose client closed its end before or during the write.
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
    // A cancel can arrive just before the call it is meant for, so one isn't enough.
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
    // Never disconnect a pipe while a call is blocked in it: on a synchronous handle, that would wait for the call.
    for (const auto& instance : instances) {
        if (!instance->InCall) DisconnectNamedPipe(instance->Pipe.Get());
    }
}

void WriteReplyBytes(PipeInstance& instance, std::string_view bytes) {
    constexpr std::size_t largestWrite = std::size_t{1} << 30;  // WriteFile takes a 32-bit size
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
