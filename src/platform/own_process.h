/// This process: who started it, what is left of its input, and how to end it for certain.
#pragma once

#include "platform/owned.h"

#include <optional>

/// A handle to the process that started this one, to wait on. Empty if it can't be opened: it is gone, or belongs to
/// another user. Never a later process that has reused its id.
[[nodiscard]] OwnedHandle OpenParentProcess();

/// The number of unread bytes in standard input once its last writer is gone. Returns nothing while there is a writer,
/// or if the input is not a pipe. On Windows, blocks while another thread is reading that pipe. Any thread.
[[nodiscard]] std::optional<DWORD> UnreadInputAfterItsLastWriter();

/// Ends this process at once. Notifies no library and takes no lock, so nothing can hold it up. Whatever is still in
/// the buffers of standard streams is lost.
[[noreturn]] void EndOwnProcess(int exitCode);
