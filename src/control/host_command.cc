#include "control/host_command.h"

#include "api/exports.h"
#include "control/state.h"
#include "platform/owned.h"
#include "protocol/control_protocol.h"
#include "text/wide.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <utility>

namespace {

HWND FindHostWindow(std::uint64_t serverRun) {
    ControlServerState& state = ServerState();
    const std::lock_guard lock(state.ServerLock);
    return state.ServerRun == serverRun ? state.HostWindow : nullptr;
}

/// The reply text that the host left in the record. A block allocated by the host is freed even if the conversion
/// fails.
std::string TakeReplyText(HostCommand& command) {
    if (command.LongReply == nullptr) {
        const auto* const end = std::find(std::begin(command.Reply), std::end(command.Reply), WCHAR(0));
        return WideToUtf8(WideView(command.Reply, static_cast<std::size_t>(end - command.Reply)));
    }
    const OwnedTaskText block(std::exchange(command.LongReply, nullptr));
    return WideToUtf8(WideView(block.get(), std::exchange(command.LongReplyLength, 0)));
}

}  // namespace

std::string SendHostCommand(std::int32_t commandId, std::string_view text, std::uint64_t serverRun) {
    const HWND window = FindHostWindow(serverRun);
    if (window == nullptr || IsWindow(window) == 0) return ErrorReply("Orvane main window is not available.");

    const WideString wideText = Utf8ToWide(text);
    HostCommand command{};
    command.Size = sizeof command;
    command.CommandId = commandId;
    command.LongText = wideText.c_str();
    command.LongTextLength =
        static_cast<std::uint32_t>(std::min<std::size_t>(wideText.size(), std::numeric_limits<std::uint32_t>::max()));
    wcsncpy_s(command.Text, std::size(command.Text), wideText.c_str(), _TRUNCATE);

    const LRESULT result = SendMessageW(window, HostCommandMessage, 0, reinterpret_cast<LPARAM>(&command));

    // Text and success are independent: a host explains a failure with a text and Success 0.
    std::string replyText = TakeReplyText(command);
    if (replyText.empty()) replyText = command.Success != 0 ? "OK" : "Orvane command failed.";
    const bool succeeded = command.Success != 0 && result != 0;
    return succeeded ? OkReply(replyText) : ErrorReply(replyText);
}
