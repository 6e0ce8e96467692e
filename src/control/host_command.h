/// The one way from the library into the host: a HostCommand record, handed to the host's main window.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Sends a command and its text (UTF-8) to the host's window and blocks until the host has answered. Returns the
/// complete reply line without its line feed: an error when there is no window, because the host named none, has
/// destroyed it, or the run of the server is over. Session threads only; takes ServerLock for a moment.
std::string SendHostCommand(std::int32_t commandId, std::string_view text, std::uint64_t serverRun);
