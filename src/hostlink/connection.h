/// The bridge's one connection to a viewer's control pipe: opened when needed, kept alive by a background watcher,
/// closed when it breaks. Two threads use it, the bridge's own and the watcher. One mutex guards the connection and
/// every byte on it; it is held for a whole exchange or a whole connection attempt.
#pragma once

#include "platform/platform.h"

#include <optional>
#include <string>
#include <string_view>

/// How long the bridge's own thread looks for a viewer each time, in milliseconds.
inline constexpr DWORD MainThreadConnectTimeOut = 2000;

/// Makes one connection attempt (see ConnectControlPipe) unless the bridge is connected. True if it is connected on
/// return. A connection that is open but dead counts: nothing is sent to find out.
bool EnsureControlConnection(DWORD timeoutMs);

/// One attempt to find a viewer, open its pipe and send HELLO; true if connected. `timeoutMs` limits the search; 0
/// makes no attempt. The viewer then has GreetingTimeOut to answer HELLO. The caller must not hold ControlMutex.
bool ConnectControlPipe(DWORD timeoutMs);

/// How long a viewer may take to answer HELLO, in milliseconds. One that hangs must not hold up the agent.
inline constexpr DWORD GreetingTimeOut = 3000;

/// Sends one control line and waits for its reply line, both without the line feed. Holds ControlMutex for the whole
/// exchange, however long the viewer takes. Returns nothing if not connected or if the pipe broke. Throws
/// std::bad_alloc if the viewer has answered but the reply is larger than memory. Either failure closes the connection.
[[nodiscard]] std::optional<std::string> SendControlLine(std::string_view line);

/// Reads one line from `pipe` without its line end, and drops what follows it in the same read. Returns nothing if the
/// pipe ends first. Throws std::bad_alloc for a line larger than memory. After either, the pipe can't be used any more.
[[nodiscard]] std::optional<std::string> ReadControlLine(HANDLE pipe);

/// Closes the connection, if there is one.
void CloseControlConnection();

/// A copy of the client name sent in the last HELLO line; empty when no pipe has been opened yet.
std::string LastClientName();

/// Starts the watcher, once per process. Throws std::system_error if no thread can be started.
void StartControlWatcher();

/// The watcher's body; does not return. Once a second it connects when a viewer can be found, and disconnects when
/// none can.
void ControlWatcher();
