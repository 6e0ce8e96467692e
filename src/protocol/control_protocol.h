/// What the bridge and the control server say to each other, and how the bridge finds the server.
///
/// On the pipe: first a greeting, HELLO and the client's name in one write, answered with "OK". Then request lines,
/// each answered with one reply line. A line ends with a line feed. All text is UTF-8.
#pragma once

#include "text/wide.h"

#include <cstddef>
#include <string>
#include <string_view>

// ---- Finding the server ------------------------------------------------------------------------------------------

/// The viewer's image name.
inline constexpr const WCHAR* ViewerImageName = TEXT("Orvane.exe");

/// The name of the control pipe for a process id.
WideString ControlPipeName(DWORD processId);

/// The announcement of a running control server, under HKEY_CURRENT_USER. There is one slot per user.
namespace Announcement {
inline constexpr const WCHAR* Key = TEXT("Software\\Orvane\\MCP");
inline constexpr const WCHAR* ControlServerEnabled = TEXT("ControlServerEnabled");  // REG_DWORD, 0 or 1
inline constexpr const WCHAR* ProcessId = TEXT("ProcessId");                        // REG_DWORD
inline constexpr const WCHAR* PipeName = TEXT("PipeName");                          // REG_SZ
}  // namespace Announcement

// ---- The greeting -------------------------------------------------------------------------------------------------

inline constexpr char HelloPrefix[] = "HELLO ";

/// Precedes the bridge's process id in a client's name. A rename keeps the old name from here on.
inline constexpr char BridgeSuffixStart[] = " (bridge pid ";

/// The server reads the greeting with one read of this many bytes, line feed included.
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

/// Drops the first `start` bytes and undoes EscapeReplyText in the rest. A backslash before any other byte, or at the
/// end, is kept. Works in place: needs no memory beyond `text`.
std::string UnescapeControlText(std::string text, std::size_t start = 0);
