/// Start and stop of the control server: OrvaneMcp_StartControlServer and OrvaneMcp_StopControlServer.
#pragma once

#include "text/wide.h"

/// The launcher's file name.
inline constexpr const WCHAR* LauncherFileName = TEXT("orvane_mcp.exe");

/// The directory of the library's own file; empty on failure.
WideString ResolveModuleDirectory();
