/// Turns one received line into a host command or a rename, and replies.
#pragma once

#include "control/session.h"

#include <string_view>

/// Carries out one line, with or without its line feed, and writes the reply line. An empty line gets no reply. Every
/// failure is a reply, and the connection stays. Session thread only; blocks while the host works.
void DispatchControlLine(const ClientSession& session, std::string_view line);
