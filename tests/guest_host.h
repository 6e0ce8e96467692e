/// A process that hosts the library as a viewer does: it loads the shared library and knows only its exports.
#pragma once

#include <string>

/// Plays one host until its input ends and gives the exit code; 0 when all went as it should. It says "serving" and
/// "command".
/// exit: a line ends the process without a stop. stop: stops inside the first command. free: gives the library back
/// while the server runs. stop-free: both inside the first command.
int RunGuestHost(const std::string& mode);
