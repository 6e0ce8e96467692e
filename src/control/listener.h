/// The thread that accepts the control pipe's clients.
#pragma once

#include "platform/platform.h"

/// The listener thread's body. Creates an instance of the pipe, waits for a client and starts its session, again and
/// again for as long as the run of the server lasts in which it was started. Ends for good when no instance can be
/// created, with the reason in LastErrorText; sessions go on then.
unsigned WINAPI RunPipeListener(void* unused) noexcept;

/// Wakes the listener and waits until it has ended. Call it once Running is false.
void EndListener();
