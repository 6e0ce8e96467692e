/// How the library reaches the host, and the only way: it sends a HostCommand record to the host's main window.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Sends a command and its text (UTF-8) to the host's window and blocks until the host has answered. Returns the
/// complete reply line without its line feed. Returns an error reply if there is no window: the host gave none or
/// destroyed it, or the server run is over. Session threads only; takes ServerLock for a moment.
std::string SendHostCommand(std::int32_t commandId, std::string_view text, std::uint64_t serverRun);
