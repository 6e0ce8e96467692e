/// One thread for each process that watches descriptors, so that sockets are emptied and children are reaped while
/// nobody waits for them.
#pragma once

#include <cstdint>
#include <functional>

/// Calls `onReady` on the watcher's thread again and again for as long as `descriptor` is ready for `events` (EPOLLIN,
/// EPOLLOUT). Gives the watch's id, 0 on failure. `onReady` may still run once after the watch has ended, so it holds
/// what it works on weakly and checks it.
std::uint64_t StartWatch(int descriptor, std::uint32_t events, std::function<void()> onReady);
void ChangeWatch(std::uint64_t watch, int descriptor, std::uint32_t events);
void EndWatch(std::uint64_t watch, int descriptor);

/// Runs `body` on a thread that never ends and takes no signals, and keeps this library in the process for it.
void StartServiceThread(std::function<void()> body);
