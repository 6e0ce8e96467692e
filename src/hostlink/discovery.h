/// Which control pipes are worth trying, and in which order: first the one announced in the registry, then one for each
/// live viewer in the bridge's own directory. Nothing here touches a pipe or keeps state between calls. Errors aren't
/// reported; they only make the list shorter. Any thread.
#pragma once

#include "text/wide.h"

#include <vector>

/// The names to try, in order, without duplicates. Costs a few registry reads, one snapshot of the process table and a
/// few queries for each viewer in it.
std::vector<WideString> FindControlPipes();

/// True if the announcement is enabled and complete, and its process id belongs to a live process.
bool IsControlServerAnnounced();

/// The text of a REG_SZ or REG_EXPAND_SZ value up to its first NUL, unexpanded; empty on any failure and for a value
/// of more than 1024 bytes.
WideString ReadRegistryString(HKEY root, LPCWSTR subKey, LPCWSTR valueName);

/// True when a process with this id is running, whatever program it is.
bool IsProcessAlive(DWORD processId);

/// The full path of a process's image; empty on any failure.
WideString GetProcessImagePath(DWORD processId);

/// The directory of this process's main executable; empty on any failure.
WideString GetExecutableDirectory();
