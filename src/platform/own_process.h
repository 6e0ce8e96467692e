/// This process as the system sees it: who started it, what is left of its input, how it ends for certain.
#pragma once

#include "platform/owned.h"

#include <optional>

/// The process that started this one, to be waited for. Empty when it can't be opened: it has gone, or it belongs to
/// somebody else. A later process that was given its id is not taken for it.
[[nodiscard]] OwnedHandle OpenParentProcess();

/// The number of bytes that wait in standard input, once nobody is left who could write more. Nothing while somebody
/// is, and for an input that is not a pipe. On Windows it waits while another thread reads that pipe. Any thread.
[[nodiscard]] std::optional<DWORD> UnreadInputAfterItsLastWriter();

/// Ends this process at once. No library is told and no lock is taken, so nothing can hold it up; and what standard
/// streams still have in their buffers is lost.
[[noreturn]] void EndOwnProcess(int exitCode);
