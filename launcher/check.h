/// What a technician runs when an agent can't reach Orvane.
#pragma once

/// Looks for an Orvane, connects to it and asks it for the state of its board, as the server does for an agent, and
/// reports each step on standard output. Returns the exit code: 0 if an agent's calls would work, else 1.
int RunCheck();
