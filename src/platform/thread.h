/// Threads that nobody joins.
#pragma once

#include "platform/platform.h"

/// A thread's body: gets the argument it was started with and owns it. Nothing may leave it; its result is not used.
using ThreadBody = unsigned(WINAPI*)(void* argument);

/// Starts `body(argument)` on a thread that nobody joins. False when no thread can be started: the argument is still
/// the caller's then.
[[nodiscard]] bool StartDetachedThread(ThreadBody body, void* argument);
