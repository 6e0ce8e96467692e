/// The one way from the library into the host: a HostCommand record, handed to the host's main window.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Hands a command and its text (UTF-8) to the host window and blocks until the host has answered. Gives the finished
/// reply line without its line feed. For a run of the server that is over there is no window, as there is none when
/// the host named none or has destroyed it. Session threads only; takes ServerLock for a moment.
std::string SendHostCommand(std::int32_t commandId, std::string_view text, std::uint64_t serverRun);
