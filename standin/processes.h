/// The life of processes.
#pragma once

#include <sys/types.h>

/// Clock ticks from the machine's start to the process's, which tell it from a later one with the same id. 0 when there
/// is no such process or it has ended.
unsigned long long ProcessStart(pid_t process);

/// Whether this process is ending, so that its libraries are torn down with it. Known once any module has been pinned.
[[gnu::visibility("default")]] bool ProcessEnds();
