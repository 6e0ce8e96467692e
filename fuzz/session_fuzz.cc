/// Bytes from a client of the control pipe, in any cuts: as many replies as there are lines with something on them, in
/// order, each on one line; names in the list are never longer than promised.
///
/// The pipe and the host's window are this file's own: its functions stand in front of the stand-in's.

#include "api/exports.h"
#include "checks.h"
#include "control/session.h"
#include "control/state.h"
#include "protocol/control_protocol.h"
#include "protocol/verbs.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace {

std::string_view incoming;
std::size_t available = 0;
std::uint32_t cut = 0;
std::string outgoing;
bool refusing = false, refused = false;  // whether a later reply can't be written, and whether that was so

std::size_t NextCut() {
    cut = cut * 1664525 + 1013904223;
    return std::min<std::size_t>(incoming.size(), (cut >> 16) % 700 + 1);
}

void CheckClientList() {
    ClientInfo info{};
    info.Size = sizeof info;
    if (OrvaneMcp_GetClientInfo(0, &info) == 0) return;
    Require(std::find(std::begin(info.DisplayName), std::end(info.DisplayName), 0) != std::end(info.DisplayName),
            "a name in the list ends inside its field");
}

}  // namespace

BOOL PeekNamedPipe(HANDLE, LPVOID, DWORD, LPDWORD, LPDWORD bytesAvailable, LPDWORD) {
    if (incoming.empty()) return FALSE;
    if (available == 0) available = NextCut();
    *bytesAvailable = static_cast<DWORD>(available);
    return TRUE;
}

BOOL ReadFile(HANDLE, LPVOID buffer, DWORD size, LPDWORD bytesRead, OVERLAPPED*) {
    if (available == 0) available = NextCut();
    const std::size_t count = std::min<std::size_t>(size, available);
    std::memcpy(buffer, incoming.data(), count);
    incoming.remove_prefix(count);
    available -= count;
    *bytesRead = static_cast<DWORD>(count);
    return count > 0;
}

BOOL WriteFile(HANDLE, LPCVOID buffer, DWORD size, LPDWORD bytesWritten, OVERLAPPED*) {
    Require(!refused, "nothing follows a reply that could not be written");
    refused = refusing && outgoing.size() > 40;
    if (refused) return SetLastError(ERROR_NOT_ENOUGH_MEMORY), FALSE;
    outgoing.append(static_cast<const char*>(buffer), size);
    *bytesWritten = size;
    return TRUE;
}

BOOL DisconnectNamedPipe(HANDLE) {
    return TRUE;
}

BOOL CloseHandle(HANDLE) {
    return TRUE;
}

BOOL IsWindow(HWND) {
    return TRUE;
}

void Sleep(DWORD) {
    CheckClientList();
}

/// The host answers with the command's own text, in a block for every other command.
LRESULT SendMessageW(HWND, UINT, WPARAM, LPARAM parameter) {
    Require(!refused, "a client that a reply could not be written to is served no further");
    HostCommand& command = *reinterpret_cast<HostCommand*>(parameter);
    Require(command.LongText != nullptr && command.LongText[command.LongTextLength] == 0, "a command's text ends");
    command.Success = 1;
    if (command.CommandId % 2 == 0) {
        const std::size_t bytes = command.LongTextLength * sizeof(OrvaneMcpChar);
        command.LongReply = static_cast<OrvaneMcpChar*>(CoTaskMemAlloc(bytes + 1));
        std::memcpy(command.LongReply, command.LongText, bytes);
        command.LongReplyLength = command.LongTextLength;
    } else {
        std::copy(std::begin(command.Text), std::end(command.Text), command.Reply);
    }
    return 1;
}

namespace {

/// How the reply to a request line begins, whole where its text is plain and short; empty for a line that gets none.
std::string ExpectedReply(std::string line) {
    while (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) return "";
    if (line.starts_with(Verb::ClientName)) return "OK\tClient name updated.";
    for (const HostVerb& verb : HostVerbs) {
        if (!verb.HasPayload() && line == verb.Literal) return "OK\tOK";
        if (!verb.HasPayload() || !line.starts_with(verb.Literal)) continue;
        const std::string text = line.substr(verb.Literal.size());
        const bool plain =
            std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= 'z' && c != '\\'; });
        return plain && text.size() - 1 < 999 && verb.TextPrefix.empty() ? "OK\t" + text + "\n" : "OK\t";
    }
    return "ERR\tUnknown Orvane MCP command.";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    incoming = {reinterpret_cast<const char*>(data), size};
    cut = data[0];
    refusing = size % 4 == 3;
    refused = false;
    outgoing.clear();
    const std::size_t greeting = std::min<std::size_t>(available = NextCut(), LongestHelloLine);
    const std::string requests(incoming.substr(greeting));

    ControlServerState& state = ServerState();
    state.Running = true;
    state.HostWindow = reinterpret_cast<HWND>(&state);
    state.NextClientId = 1;
    ClientSession session{std::make_shared<PipeInstance>(OwnedHandle(&state)), state.ServerRun};
    RunClientSession(session);
    Require(OrvaneMcp_GetClientCount() == 0, "a session that ends leaves no record");
    if (refused) return 0;

    std::string_view replies = outgoing;
    Require(replies.starts_with("OK\n"), "a greeting is answered");
    replies.remove_prefix(3);
    for (std::size_t start = 0, end = 0; (end = requests.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string expected = ExpectedReply(requests.substr(start, end - start));
        if (expected.empty()) continue;
        const std::size_t lineFeed = replies.find('\n');
        Require(lineFeed != std::string_view::npos, "every line is answered");
        Require(replies.starts_with(expected), "replies come in the order of their lines");
        replies.remove_prefix(lineFeed + 1);
    }
    Require(replies.empty(), "nothing is answered twice");
    return 0;
}
