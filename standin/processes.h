/// When processes started.
#pragma once

#include <sys/types.h>

/// Clock ticks from the machine's start to the process's, which tell it from a later one with the same id. 0 when there
/// is no such process or it has ended.
unsigned long long ProcessStart(pid_t process);
