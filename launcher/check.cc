#include "launcher/check.h"

#include "hostlink/connection.h"
#include "hostlink/discovery.h"
#include "platform/module.h"
#include "platform/own_process.h"
#include "platform/thread.h"
#include "protocol/control_protocol.h"
#include "text/trace.h"

#include <algorithm>
#include <cstdio>
#include <new>

namespace {

constexpr DWORD ReplyPatience = 10000;
constexpr int Works = 0;
constexpr int DoesNotWork = 1;

/// Writes one line and flushes it, because the trace writes to the same stream without a buffer.
void Say(const std::string& text) {
    std::fputs((text + "\n").c_str(), stdout);
    std::fflush(stdout);
}

/// Lists the viewers found. False if there are none.
bool FindViewers() {
    const WideString announced = IsControlServerAnnounced()
                                     ? ReadRegistryString(HKEY_CURRENT_USER, Announcement::Key, Announcement::PipeName)
                                     : WideString();
    const std::vector<WideString> names = FindControlPipes();
    if (announced.empty()) Say("No Orvane is announced in the registry of this user.");
    bool besides = false;
    for (const WideString& name : names) {
        besides = besides || name != announced;
        Say((name == announced ? "An Orvane is announced in the registry, with the pipe "
                               : "An Orvane is running beside this program, with the pipe ") +
            PrintableBytes(WideToUtf8(name)));
    }
    if (!besides) Say(std::string(announced.empty() ? "No" : "No other") + " Orvane runs in this program's folder.");
    return !names.empty();
}

/// A viewer may take a command and never answer. Only ending the program ends that wait.
unsigned WINAPI GiveUpLater(void*) {
    Sleep(ReplyPatience);
    Say("Orvane took the command but hasn't answered for 10 seconds: it is showing a dialog, or it hangs. Agents' "
        "calls wait until it responds.");
    EndOwnProcess(DoesNotWork);
}

/// Prints the viewer's answer, line by line. True if the command was carried out.
bool PrintReply(const std::string& reply) {
    const bool failed = reply.starts_with(ErrorReplyPrefix);
    Say(failed ? "Orvane answered GET_BOARD_STATE with a failure:" : "Orvane answered GET_BOARD_STATE:");
    std::string text = reply;
    if (failed) text = UnescapeControlText(reply, ErrorReplyPrefix.size());
    if (reply.starts_with(OkReplyPrefix)) text = UnescapeControlText(reply, OkReplyPrefix.size());
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        Say("    " + PrintableBytes(std::string_view(text).substr(start, end - start)));
        start = end + 1;
    }
    return !failed;
}

/// Asks the connected viewer for the state of its board. True if an agent would get it.
bool AskForBoardState() try {
    // If the thread can't start, the wait has no limit, just like an agent's.
    static_cast<void>(StartDetachedThread(GiveUpLater, nullptr));
    const std::optional<std::string> reply = SendControlLine("GET_BOARD_STATE");
    if (!reply) {
        Say("Orvane closed the connection without an answer. Agents' calls fail.");
        return false;
    }
    const bool works = PrintReply(*reply);
    Say(works ? "Agents' calls work." : "The connection works, but Orvane couldn't carry out the command.");
    return works;
} catch (const std::bad_alloc&) {
    Say("Orvane answered, but its reply is too large to pass on.");
    return false;
}

}  // namespace

int RunCheck() {
    SetConsoleOutputCP(CP_UTF8);
    Say("Orvane MCP " ORVANE_VERSION ", " + WideToUtf8(ModulePath(nullptr)));
    if (!FindViewers()) {
        Say("Agents' calls fail. Start Orvane. If it is running, start it as the same user as the agent, and neither "
            "of the two as administrator.");
        return DoesNotWork;
    }
    StartTraceOn(STD_OUTPUT_HANDLE);
    // A second attempt gets past a hung viewer, as an agent's next call would.
    if (!EnsureControlConnection(MainThreadConnectTimeOut) && !EnsureControlConnection(MainThreadConnectTimeOut)) {
        Say("No Orvane accepted the connection. Agents' calls fail.");
        return DoesNotWork;
    }
    const bool works = AskForBoardState();
    CloseControlConnection();
    return works ? Works : DoesNotWork;
}
