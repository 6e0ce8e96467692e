#include "control/pipe_instance.h"

namespace {

void WritePiece(PipeInstance& instance, std::string_view text) {
    if (instance.Broken) return;
    const PipeCall call(instance);
    DWORD written = 0;
    instance.Broken =
        !call || WriteFile(instance.Pipe.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == 0 ||
        written != text.size();
}

}  // namespace

void EndConnection(PipeInstance& instance) {
    constexpr int cancelTries = 1000;
    constexpr DWORD cancelPause = 1;
    instance.Leaving = true;
    CancelIoEx(instance.Pipe.Get(), nullptr);
    // One cancel can come just before the call that it was meant for. And a pipe with a call in it must not be
    // disconnected: the system would let that wait for the call.
    for (int i = 0; i < cancelTries && instance.InCall; ++i) {
        Sleep(cancelPause);
        CancelIoEx(instance.Pipe.Get(), nullptr);
    }
    if (!instance.InCall) DisconnectNamedPipe(instance.Pipe.Get());
}

void WriteReplyLine(PipeInstance& instance, std::string_view text) {
    WritePiece(instance, text);
    WritePiece(instance, "\n");
}
