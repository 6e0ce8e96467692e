/// An agent that starts the launcher as its child, so that a test can see what becomes of the one without the other.
#pragma once

#include <string>

/// Plays one agent and gives its exit code. leave: leaves its own input and output to a launcher and ends. Any other
/// mode: passes what it reads on to a launcher, whose output is its own, until it is killed.
int RunAgent(const std::string& mode);
