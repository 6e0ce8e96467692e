#include "bridge/scripted_link.h"

ScriptedLink Link;

bool EnsureControlConnection(DWORD timeoutMs) {
    if (Link.WrittenBeforeConnecting < 0) Link.WrittenBeforeConnecting = std::ftell(stdout);
    Link.Calls.push_back(std::to_string(timeoutMs));
    return Link.CanConnect;
}

std::optional<std::string> SendControlLine(std::string_view line) {
    Link.Calls.emplace_back(line);
    return Link.Answer(line);
}

std::string LastClientName() {
    return Link.ClientName;
}
