/// Turns one received line into a host command or a rename, and replies.
#pragma once

#include "control/session.h"

#include <string_view>

/// Carries out one line, with or without its line feed, and writes the reply line. An empty line gets no reply. A
/// command that fails gets an error reply, and the connection stays open. Throws std::bad_alloc. Session thread only;
/// blocks while the host works.
void DispatchControlLine(const ClientSession& session, std::string_view line);
