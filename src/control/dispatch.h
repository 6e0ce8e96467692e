/// Turns one received line into a host command or a rename, and answers it.
#pragma once

#include "control/session.h"

#include <string_view>

/// Carries out one line of a session, line feed included or not, and writes its reply line. An empty line gets none.
/// Every failure is a reply; the connection stays. Session thread only; blocks while the host works.
void DispatchControlLine(const ClientSession& session, std::string_view line);
