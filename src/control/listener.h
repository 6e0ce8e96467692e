/// The thread that accepts the control pipe's clients.
#pragma once

#include <cstdint>

/// Creates an instance of the pipe, waits for a client and gives it a session, again and again while the run
/// `serverRun` is served. Ends for good when no instance can be created, with the reason in LastErrorText; sessions
/// go on then. Nothing leaves it.
void RunPipeListener(std::uint64_t serverRun) noexcept;

/// Brings the listener out of its wait and returns when it can be joined. To be called once Running is false.
void WakeListener();
