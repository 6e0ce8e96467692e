/// What the bridge and the control server say to each other, and how they find each other: the one header that both
/// halves of the library include.
///
/// On the pipe: a greeting, HELLO and the client's name in one write, answered by "OK"; then request lines, each
/// answered by one reply line. A line ends with one line feed. All text is UTF-8.
#pragma once

#include "text/wide.h"

#include <cstddef>
#include <string>
#include <string_view>

// ---- Finding the server ------------------------------------------------------------------------------------------

/// The viewer's image name.
inline constexpr const WCHAR* ViewerImageName = TEXT("Orvane.exe");

/// The control pipe's name for a process id.
WideString ControlPipeName(DWORD processId);

/// The announcement of a running control server, under HKEY_CURRENT_USER. One slot for the whole user.
namespace Announcement {
inline constexpr const WCHAR* Key = TEXT("Software\\Orvane\\MCP");
inline constexpr const WCHAR* ControlServerEnabled = TEXT("ControlServerEnabled");  // REG_DWORD, 0 or 1
inline constexpr const WCHAR* ProcessId = TEXT("ProcessId");                        // REG_DWORD
inline constexpr const WCHAR* PipeName = TEXT("PipeName");                          // REG_SZ
}  // namespace Announcement

// ---- The greeting -------------------------------------------------------------------------------------------------

inline constexpr char HelloPrefix[] = "HELLO ";

/// What stands in front of the bridge's process id in its client's name; a rename keeps the name from here on.
inline constexpr char BridgeSuffixStart[] = " (bridge pid ";

/// The server takes the greeting with one read of this many bytes; the line feed counts.
inline constexpr std::size_t LongestHelloLine = 255;

inline constexpr std::string_view HelloReply = "OK";

// ---- Replies ------------------------------------------------------------------------------------------------------

inline constexpr std::string_view OkReplyPrefix = "OK\t";
inline constexpr std::string_view ErrorReplyPrefix = "ERR\t";

/// The reply line for a text: the prefix, then the text, escaped.
std::string OkReply(std::string_view text);
std::string ErrorReply(std::string_view text);

/// Keeps a reply text on one line: line feeds, carriage returns and backslashes become a backslash and a letter or a
/// second backslash; every other byte stays.
std::string EscapeReplyText(std::string_view text);

/// Undoes EscapeReplyText in what stands behind the first `start` bytes, and gives that. A backslash before any other
/// byte, or at the end, stays as it is. Needs no memory beyond `text`.
std::string UnescapeControlText(std::string text, std::size_t start = 0);
