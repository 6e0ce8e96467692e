/// What a Windows error means, in the system's words.
#pragma once

#include "platform/platform.h"

#include <string>

/// The system's text for `error` without its line end, in the user's language; empty when it has none.
std::basic_string<WCHAR> SystemErrorText(DWORD error);
