/// A process that hosts the library as a viewer does: it loads the shared library and knows only its exports.
#pragma once

#include <string>

/// Plays one host and gives the exit code; 0 when all went as it should. It says "serving" and "command", and waits for
/// lines of input. exit: ends without a stop when told to. stop: stops inside the first command. free: gives the
/// library back while the server runs. stop-free: both inside the first command. count: answers each line with what it
/// uses.
int RunGuestHost(const std::string& mode);
