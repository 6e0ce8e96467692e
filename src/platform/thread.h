/// Detached threads, and a thread to wait for.
#pragma once

#include "platform/owned.h"

#if !defined(_WIN32)
#include <future>
#endif

/// A thread's body: receives the argument it was started with. No exception may leave it; its result is ignored.
using ThreadBody = unsigned(WINAPI*)(void* argument);

/// Starts `body(argument)` on a detached thread, which then owns the argument. False if no thread can be started.
[[nodiscard]] bool StartDetachedThread(ThreadBody body, void* argument);

/// A thread to wait for. It must have ended when this is destroyed.
class JoinableThread {
  public:
    /// Starts `body(argument)`. False if no thread can be started.
    [[nodiscard]] bool Start(ThreadBody body, void* argument);

    /// Waits for at most `milliseconds`. True if the thread has ended or none was started. A thread that the system
    /// terminated at process exit has ended too.
    [[nodiscard]] bool EndsWithin(DWORD milliseconds);

  private:
#if defined(_WIN32)
    OwnedHandle thread_;
#else
    std::future<void> ended_;
#endif
};
