/// When processes start and end.
#pragma once

#include <sys/types.h>

/// When a process started, in clock ticks since boot, which tells it apart from a later one with the same id. 0 if
/// there is no such process or it has ended.
unsigned long long ProcessStart(pid_t process);

/// True if this process is ending and its libraries are torn down with it. Works once any module has been pinned.
[[gnu::visibility("default")]] bool ProcessEnds();
