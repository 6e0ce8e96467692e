/// Processes as objects that a handle can stand for.
#pragma once

#include "platform/platform.h"

#include <memory>

struct ProcessObject;

/// The process behind `handle`, the pseudo handle of this one included; null with ERROR_INVALID_HANDLE for others.
std::shared_ptr<ProcessObject> FindProcess(HANDLE handle);

/// What WaitForSingleObject gives for it, the last error included.
DWORD WaitForProcess(ProcessObject& process, DWORD milliseconds);
