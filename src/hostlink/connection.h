/// The bridge's one connection to a viewer's control pipe: opened when needed, kept up by a background watcher, closed
/// when it breaks. Two threads use it, the bridge's own and the watcher. One mutex guards the connection and every byte
/// on it, and is held for a whole exchange or a whole attempt to connect.
#pragma once

#include "platform/platform.h"

#include <optional>
#include <string>
#include <string_view>

/// How long the bridge's own thread looks for a viewer each time, in milliseconds.
inline constexpr DWORD MainThreadConnectTimeOut = 2000;

/// True when the bridge is connected on return, after one attempt (see ConnectControlPipe) if it wasn't before. A
/// connection that is open but dead counts as connected: nothing is sent to find out.
bool EnsureControlConnection(DWORD timeoutMs);

/// One attempt to find a viewer, open its pipe and say HELLO. `timeoutMs` bounds the search; 0 makes no attempt. The
/// viewer's answer to HELLO has GreetingTimeOut beyond that. Call it without ControlMutex.
bool ConnectControlPipe(DWORD timeoutMs);

/// How long a viewer may take to answer HELLO, in milliseconds. One that hangs must not hold up the agent.
inline constexpr DWORD GreetingTimeOut = 3000;

/// Sends one control line and waits for its reply line, both without the line feed. Holds ControlMutex for the whole
/// exchange, however long the viewer takes. Returns nothing when not connected or when the pipe broke. Throws
/// std::bad_alloc when the viewer has answered but the reply is larger than memory. Either failure closes the
/// connection.
[[nodiscard]] std::optional<std::string> SendControlLine(std::string_view line);

/// Reads one line from `pipe` without its line end, and drops what follows it in the same read. Returns nothing when
/// the pipe ended first. Throws std::bad_alloc for a line larger than memory. The pipe is of no use after either.
[[nodiscard]] std::optional<std::string> ReadControlLine(HANDLE pipe);

/// Closes the connection, if there is one.
void CloseControlConnection();

/// A copy of the client name sent in the last HELLO line; empty when no pipe has been opened yet.
std::string LastClientName();

/// Starts the watcher, once in the life of the process. Throws std::system_error when no thread can be started.
void StartControlWatcher();

/// The watcher's body; does not return. Once a second it connects when a viewer can be found, and disconnects when
/// none can.
void ControlWatcher();
