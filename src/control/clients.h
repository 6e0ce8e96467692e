/// The clients that are connected right now, in the order in which they said HELLO, and the tidying of their names.
#pragma once

#include "control/pipe_instance.h"
#include "text/wide.h"

#include <cstdint>
#include <memory>

/// One connected client.
struct ClientRecord {
    std::uint64_t Id = 0;  // from 1 after every start of the server
    std::shared_ptr<PipeInstance> Pipe;
    WideString DisplayName;
    WideString Transport;
    FILETIME ConnectedAt{};  // UTC
};

/// Adds a client of the run `serverRun` at the end of the list and gives its id; 0, with nothing added, when that run
/// is over. Takes ServerLock, as the next two do.
std::uint64_t RegisterClient(const WideString& name, std::shared_ptr<PipeInstance> pipe, std::uint64_t serverRun);

/// Removes the client. Neither this nor a rename does anything for an id of a run that is over: a newer client may
/// have the same one.
void RemoveClient(std::uint64_t clientId, std::uint64_t serverRun);

/// Gives the client a new name, tidied, and keeps the tail that tells its bridge's process id unless the new name has
/// one of its own.
void UpdateClientName(std::uint64_t clientId, std::uint64_t serverRun, const WideString& name);

/// Removes all clients. The caller holds ServerLock.
void ClearClients();

/// The name to show: trimmed, with the standard name for a client that is recognised, unless the name tells a
/// bridge's process id and so is already as it should be.
WideString NormalizeClientName(const WideString& name);

/// The part of `name` from " (bridge pid " on; empty when it has none.
WideString ExtractBridgeSuffix(const WideString& name);
