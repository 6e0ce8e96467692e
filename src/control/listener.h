/// The thread that accepts the control pipe's clients.
#pragma once

#include "platform/platform.h"

/// The listener thread's body. Creates an instance of the pipe, waits for a client, starts its session, and repeats
/// until the current server run ends. Gives up if no instance can be created and leaves the reason in LastErrorText;
/// sessions keep running.
unsigned WINAPI RunPipeListener(void* unused) noexcept;

/// Wakes the listener and waits until it has ended. Call it once Running is false.
void EndListener();
