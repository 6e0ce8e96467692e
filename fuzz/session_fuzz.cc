/// Bytes from a client of the control pipe, in any cuts: as many replies as there are lines with something on them, in
/// order, each on one line, and as many host commands.
///
/// The pipe and the host's window are this file's own: its functions stand in front of the stand-in's.

#include "api/exports.h"
#include "checks.h"
#include "control/session.h"
#include "control/state.h"
#include "protocol/control_protocol.h"
#include "protocol/verbs.h"

#include <cstring>

namespace {

struct FakePipe {
    std::string_view Incoming;
    std::uint32_t Cut = 0;
    DWORD WriteError = 0;  // of a later reply; 0 when all can be written
    std::size_t Available = 0;
    std::string Outgoing = {};
    bool Refused = false;  // whether a reply could not be written
    int Commands = 0;

    /// What a client had sent before it went is carried out still.
    bool ClientHasGone() const { return WriteError == ERROR_NO_DATA || WriteError == ERROR_BROKEN_PIPE; }
    std::size_t Arrived() {
        Cut = Cut * 1664525 + 1013904223;
        if (Available == 0) Available = std::min<std::size_t>(Incoming.size(), (Cut >> 16) % 700 + 1);
        return Available;
    }
};
FakePipe wire;

}  // namespace

BOOL PeekNamedPipe(HANDLE, LPVOID, DWORD, LPDWORD, LPDWORD bytesAvailable, LPDWORD) {
    *bytesAvailable = static_cast<DWORD>(wire.Arrived());
    return *bytesAvailable > 0;
}

BOOL ReadFile(HANDLE, LPVOID buffer, DWORD size, LPDWORD bytesRead, OVERLAPPED*) {
    *bytesRead = static_cast<DWORD>(wire.Incoming.substr(0, wire.Arrived()).copy(static_cast<char*>(buffer), size));
    wire.Incoming.remove_prefix(*bytesRead);
    wire.Available -= *bytesRead;
    return *bytesRead > 0;
}

BOOL WriteFile(HANDLE, LPCVOID buffer, DWORD size, LPDWORD bytesWritten, OVERLAPPED*) {
    Require(!wire.Refused, "nothing follows a reply that could not be written");
    wire.Refused = wire.WriteError != 0 && wire.Outgoing.size() > 40;
    if (wire.Refused) return SetLastError(wire.WriteError), FALSE;
    wire.Outgoing.append(static_cast<const char*>(buffer), *bytesWritten = size);
    return TRUE;
}

BOOL IsWindow(HWND) {
    return TRUE;
}

void Sleep(DWORD) {}

/// The host answers with the command's own text.
LRESULT SendMessageW(HWND, UINT, WPARAM, LPARAM parameter) {
    Require(!wire.Refused || wire.ClientHasGone(), "a client that stays without its reply is served no further");
    ++wire.Commands;
    HostCommand& command = *reinterpret_cast<HostCommand*>(parameter);
    Require(command.LongText != nullptr && command.LongText[command.LongTextLength] == 0, "a command's text ends");
    command.Success = 1;
    const std::size_t bytes = command.LongTextLength * sizeof(OrvaneMcpChar);
    command.LongReply = static_cast<OrvaneMcpChar*>(CoTaskMemAlloc(bytes + 1));
    std::memcpy(command.LongReply, command.LongText, bytes);
    command.LongReplyLength = command.LongTextLength;
    return 1;
}

namespace {

/// The reply to a request line; its beginning where the text is not plain.
std::string ExpectedReply(std::string line) {
    line.erase(line.find_last_not_of('\r') + 1);
    if (line.empty()) return "";
    if (line.starts_with(Verb::ClientName)) return "OK\tClient name updated.\n";
    for (const HostVerb& verb : HostVerbs) {
        if (!line.starts_with(verb.Literal) || (!verb.HasPayload() && line != verb.Literal)) continue;
        const std::string text = std::string(verb.TextPrefix) + line.substr(verb.Literal.size());
        const auto isPlain = [](char c) { return c >= '\t' && c <= 'z' && c != '\\' && c != '\r'; };
        if (!std::all_of(text.begin(), text.end(), isPlain)) return "OK\t";
        return "OK\t" + (text.empty() ? "OK" : text) + "\n";
    }
    return "ERR\tUnknown Orvane MCP command.\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const DWORD errors[] = {0, 0, 0, ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_DATA, ERROR_BROKEN_PIPE};
    wire = {{reinterpret_cast<const char*>(data), size}, data[0], errors[size % std::size(errors)]};
    const std::string requests(wire.Incoming.substr(std::min<std::size_t>(wire.Arrived(), LongestHelloLine)));

    ControlServerState& state = ServerState();
    state.Running = true;
    state.HostWindow = reinterpret_cast<HWND>(&state);
    state.NextClientId = 1;
    ClientSession session{std::make_shared<PipeInstance>(OwnedHandle()), state.ServerRun};
    RunClientSession(session);
    Require(OrvaneMcp_GetClientCount() == 0, "a session that ends leaves no record");

    std::string_view replies = wire.Outgoing;
    Require(replies.starts_with("OK\n"), "a greeting is answered");
    replies.remove_prefix(3);
    int expectedCommands = 0;
    for (std::size_t start = 0, end = 0; (end = requests.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string expected = ExpectedReply(requests.substr(start, end - start));
        if (expected.empty()) continue;
        expectedCommands += expected.starts_with("OK\t") && !expected.starts_with("OK\tClient");
        if (wire.Refused) continue;
        Require(replies.starts_with(expected) && replies.find('\n') != replies.npos, "each line is answered, in order");
        TakeLine(replies);
    }
    Require(wire.Commands == expectedCommands || (wire.Refused && !wire.ClientHasGone()),
            "every command is carried out once");
    Require(wire.Refused || replies.empty(), "nothing is answered twice");
    return 0;
}
