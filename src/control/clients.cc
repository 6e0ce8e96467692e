#include "control/clients.h"

#include "api/exports.h"
#include "control/state.h"
#include "protocol/client_labels.h"
#include "protocol/control_protocol.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

namespace {

const WCHAR* const BridgeTransport = TEXT("stdio bridge");
const WCHAR* const BridgeIdWords = TEXT("bridge pid");

bool Holds(const WideString& text, const WCHAR* part) {
    return text.find(part) != WideString::npos;
}

WideString Trimmed(const WideString& name) {
    const auto isBlank = [](WCHAR unit) { return iswspace(static_cast<std::wint_t>(unit)) != 0; };
    const auto first = std::find_if_not(name.begin(), name.end(), isBlank);
    const auto last = std::find_if_not(name.rbegin(), std::make_reverse_iterator(first), isBlank).base();
    return WideString(first, last);
}

/// The standard name for a client with this lower-cased name; empty if it isn't a known one.
WideString StandardName(const WideString& lowerName) {
    for (const KnownClient& client : KnownClients) {
        if (client.GivenName.Holds(lowerName)) return Utf8ToWide(client.Label);
    }
    return {};
}

/// A UTC time as local time, "2026-01-31 08:15:00"; empty when it can't be converted.
template <std::size_t capacity>
void FormatLocalTime(const FILETIME& utc, WCHAR (&text)[capacity]) {
    FILETIME local{};
    SYSTEMTIME time{};
    text[0] = 0;
    if (FileTimeToLocalFileTime(&utc, &local) == 0 || FileTimeToSystemTime(&local, &time) == 0) return;
    swprintf_s(text, capacity, TEXT("%04u-%02u-%02u %02u:%02u:%02u"), static_cast<unsigned>(time.wYear),
               static_cast<unsigned>(time.wMonth), static_cast<unsigned>(time.wDay), static_cast<unsigned>(time.wHour),
               static_cast<unsigned>(time.wMinute), static_cast<unsigned>(time.wSecond));
}

}  // namespace

std::uint64_t RegisterClient(const WideString& name, std::shared_ptr<PipeInstance> pipe, std::uint64_t serverRun) {
    ControlServerState& state = ServerState();
    const std::lock_guard lock(state.ServerLock);
    if (!IsServing(serverRun)) return 0;
    ClientRecord record;
    record.Pipe = std::move(pipe);
    record.DisplayName = NormalizeClientName(name);
    record.Transport = BridgeTransport;
    GetSystemTimeAsFileTime(&record.ConnectedAt);
    record.Id = state.NextClientId++;
    state.Clients.push_back(std::move(record));
    return state.Clients.back().Id;
}

void RemoveClient(std::uint64_t clientId, std::uint64_t serverRun) {
    ControlServerState& state = ServerState();
    const std::lock_guard lock(state.ServerLock);
    if (state.ServerRun != serverRun) return;
    std::erase_if(state.Clients, [clientId](const ClientRecord& record) { return record.Id == clientId; });
}

void UpdateClientName(std::uint64_t clientId, std::uint64_t serverRun, const WideString& name) {
    ControlServerState& state = ServerState();
    const std::lock_guard lock(state.ServerLock);
    if (state.ServerRun != serverRun) return;
    WideString tidied = NormalizeClientName(name);
    const auto record = std::find_if(state.Clients.begin(), state.Clients.end(),
                                     [clientId](const ClientRecord& r) { return r.Id == clientId; });
    if (record == state.Clients.end()) return;
    if (!Holds(tidied, BridgeIdWords)) tidied += ExtractBridgeSuffix(record->DisplayName);
    record->DisplayName = std::move(tidied);
    record->Transport = BridgeTransport;
}

void ClearClients() {
    ServerState().Clients.clear();
}

WideString NormalizeClientName(const WideString& name) {
    WideString trimmed = Trimmed(name);
    if (trimmed.empty()) return Utf8ToWide(UnnamedClient);
    const WideString lowerName = ToLowerWide(trimmed);
    const WideString standard = StandardName(lowerName);
    return standard.empty() || Holds(lowerName, BridgeIdWords) ? trimmed : standard;
}

WideString ExtractBridgeSuffix(const WideString& name) {
    const std::size_t start = name.find(Utf8ToWide(BridgeSuffixStart));
    return start == WideString::npos ? WideString() : name.substr(start);
}

std::int32_t OrvaneMcp_GetClientCount() {
    const std::lock_guard lock(ServerState().ServerLock);
    return static_cast<std::int32_t>(ServerState().Clients.size());
}

std::int32_t OrvaneMcp_GetClientInfo(std::int32_t index, ClientInfo* info) {
    if (info == nullptr || info->Size < sizeof(ClientInfo)) return 0;
    const std::lock_guard lock(ServerState().ServerLock);
    const auto& clients = ServerState().Clients;
    if (index < 0 || static_cast<std::size_t>(index) >= clients.size()) return 0;
    const ClientRecord& client = clients[static_cast<std::size_t>(index)];
    wcsncpy_s(info->DisplayName, std::size(info->DisplayName), client.DisplayName.c_str(), _TRUNCATE);
    wcsncpy_s(info->Transport, std::size(info->Transport), client.Transport.c_str(), _TRUNCATE);
    FormatLocalTime(client.ConnectedAt, info->ConnectedAt);
    return 1;
}

std::int32_t OrvaneMcp_DisconnectClients() try {
    constexpr int looks = 20;
    constexpr DWORD pause = 50;
    ControlServerState& state = ServerState();
    // Copied, because the lock must not be held while connections are ended.
    std::vector<std::shared_ptr<PipeInstance>> pipes;
    {
        const std::lock_guard lock(state.ServerLock);
        for (const ClientRecord& client : state.Clients) {
            if (client.Pipe->Pipe) pipes.push_back(client.Pipe);
        }
    }
    EndConnections(pipes);
    const bool any = !pipes.empty();
    pipes.clear();
    for (int i = 0; i < looks; ++i) {
        if (OrvaneMcp_GetClientCount() == 0) return 1;
        Sleep(pause);
    }
    return any ? 1 : 0;
} catch (const std::bad_alloc&) {
    return 0;
}
