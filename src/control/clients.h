/// The connected clients, in the order of their greetings, and how their names are cleaned up.
#pragma once

#include "control/pipe_instance.h"
#include "text/wide.h"

#include <cstdint>
#include <memory>

/// One connected client.
struct ClientRecord {
    std::uint64_t Id = 0;  // starts again from 1 with each server run
    std::shared_ptr<PipeInstance> Pipe;
    WideString DisplayName;
    WideString Transport;
    FILETIME ConnectedAt{};  // UTC
};

/// Adds a client of `serverRun` to the end of the list and returns its id. Returns 0 and adds nothing if that run is
/// over. Takes ServerLock, as do the next two.
std::uint64_t RegisterClient(const WideString& name, std::shared_ptr<PipeInstance> pipe, std::uint64_t serverRun);

/// Removes the client. If the run is over, this and UpdateClientName do nothing: a newer client may have the same id.
void RemoveClient(std::uint64_t clientId, std::uint64_t serverRun);

/// Renames the client to `name`, normalized. Keeps the old name's suffix with the bridge's process id unless the new
/// name has its own.
void UpdateClientName(std::uint64_t clientId, std::uint64_t serverRun, const WideString& name);

/// Removes all clients. The caller holds ServerLock.
void ClearClients();

/// The name to show: trimmed, and replaced by the standard name when the client is recognised. A name that already has
/// a bridge's process id is only trimmed.
WideString NormalizeClientName(const WideString& name);

/// The part of `name` that starts with " (bridge pid "; empty when there is none.
WideString ExtractBridgeSuffix(const WideString& name);
