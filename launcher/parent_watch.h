/// Ends the launcher with its client, even while a hung viewer holds the bridge in a call.
#pragma once

/// Starts a thread that ends this process with exit code 0 once its client is certainly gone: the parent process has
/// ended, no one is left who could write to its input, and nothing has been read from that for 5 seconds. Does nothing
/// if the parent can't be opened.
void StartParentWatch();
