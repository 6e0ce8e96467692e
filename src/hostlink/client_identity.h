/// The name under which the bridge introduces its client to the viewer, worked out from the bridge's parent process.
#pragma once

#include "text/wide.h"

#include <cstdint>
#include <string>

/// The client's label, this process's id and the parent's image name, such as
/// "Claude MCP client (bridge pid 716, parent Claude.exe)". Plain ASCII, worked out afresh at each call. Never fails:
/// what can't be found makes the name poorer. Any thread.
std::string BuildClientName();

/// The same for a bridge with this id and a parent of this image name, which may be empty.
std::string FormatClientName(DWORD processId, const WideString& parentName);

/// The most bytes that this client takes for an image: 614400 for one whose name holds "claude", else 0, which stands
/// for no limit of the client's. Takes ControlMutex for a moment.
std::uint32_t ClientImageByteLimit();
