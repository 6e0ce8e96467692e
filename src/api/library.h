/// What the hooks for load and unload tell the control server. Implemented in control/server.cc.
#pragma once

#include "platform/platform.h"

/// Keeps the library's own module, for finding its file later.
void NoteLibraryLoaded(HMODULE module);

/// The process ends. Takes no lock and waits for nothing: the other threads are gone, and may have died holding one.
void NoteProcessEnds();
