/// Named pipes. Each call gives an error code, ERROR_SUCCESS included, and touches no last error.
#pragma once

#include "platform/platform.h"

#include <memory>

struct PipeEnd;

DWORD ReadPipe(const std::shared_ptr<PipeEnd>& pipe, LPVOID buffer, DWORD size, DWORD& count);
DWORD WritePipe(const std::shared_ptr<PipeEnd>& pipe, LPCVOID buffer, DWORD size, DWORD& count);
DWORD PeekPipe(const std::shared_ptr<PipeEnd>& pipe, LPVOID buffer, DWORD size, DWORD& read, DWORD& available);
DWORD CancelPipeCalls(PipeEnd& pipe);

/// Ends this end; calls blocked on it in other threads fail.
void ClosePipe(PipeEnd& pipe);
