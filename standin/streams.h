/// Anonymous pipes and the three standard streams: descriptors of the machine, read and written as they are. Each call
/// gives an error code, ERROR_SUCCESS included.
#pragma once

#include "platform/platform.h"

#include <memory>

struct Stream;

DWORD ReadStream(Stream& stream, LPVOID buffer, DWORD size, DWORD& count);
DWORD WriteStream(Stream& stream, LPCVOID buffer, DWORD size, DWORD& count);

/// Counts the bytes that wait; can't show them, so ERROR_NOT_SUPPORTED when `buffer` is not null.
DWORD PeekStream(Stream& stream, LPVOID buffer, DWORD& available);
DWORD CancelStreamCalls(Stream& stream);
void CloseStream(Stream& stream);

/// The descriptor of a stream's handle, which the stream keeps; -1 for anything else. Valid while `keep` holds it.
int StreamDescriptor(HANDLE handle, std::shared_ptr<Stream>& keep);
