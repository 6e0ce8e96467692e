/// The name by which the bridge introduces its client to the viewer, derived from the bridge's parent process.
#pragma once

#include "text/wide.h"

#include <cstdint>
#include <string>

/// The client's label, this process's id and the parent's image name, such as
/// "Claude MCP client (bridge pid 716, parent Claude.exe)". Plain ASCII, rebuilt on each call. Never fails: leaves out
/// what it can't find. Any thread.
std::string BuildClientName();

/// The same for a bridge with this id and a parent of this image name, which may be empty.
std::string FormatClientName(DWORD processId, const WideString& parentName);

/// The largest image, in bytes, that this client accepts: 614400 if its name contains "claude". 0 means no known limit.
/// Takes ControlMutex for a moment.
std::uint32_t ClientImageByteLimit();
