/// The two kinds of threads that the library starts: those that nobody joins, and one that a stop waits for.
#pragma once

#include "platform/owned.h"

#if !defined(_WIN32)
#include <future>
#endif

/// A thread's body: gets the argument it was started with. Nothing may leave it; its result is not used.
using ThreadBody = unsigned(WINAPI*)(void* argument);

/// Starts `body(argument)` on a thread that nobody joins. False when no thread can be started. If it was, the argument
/// belongs to the body.
[[nodiscard]] bool StartDetachedThread(ThreadBody body, void* argument);

/// A thread that is waited for. It must have ended when this is destroyed.
class JoinableThread {
  public:
    /// Starts `body(argument)`. False when no thread can be started; nothing runs then.
    [[nodiscard]] bool Start(ThreadBody body, void* argument);

    /// Waits for at most `milliseconds`. True once the thread has ended, however it did, and when none was started. A
    /// thread that the system took away at the end of the process has ended too.
    [[nodiscard]] bool EndsWithin(DWORD milliseconds);

  private:
#if defined(_WIN32)
    OwnedHandle thread_;
#else
    std::future<void> ended_;
#endif
};
