/// The launcher goes with its client, even while a viewer that hangs holds the bridge in a call.
#pragma once

/// Starts a thread that ends this process with 0 once its client is certainly gone: the process that started it has
/// ended, nobody is left who could write to its input, and for 5 seconds none of what was written has been read.
/// Does nothing when that process can't be opened.
void StartParentWatch();
