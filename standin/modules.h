/// Modules: a module's handle is the address at which it is loaded.
#pragma once

#include "platform/platform.h"

/// Whether `module` has been pinned, and so is only torn down with the process.
bool StandinModuleIsPinned(HMODULE module);
