/// The one header that knows the system: it includes the Windows headers, or elsewhere the stand-in's declarations of
/// the same calls, types and codes.
#pragma once

#if defined(_WIN32)
// windows.h comes first: the others need its types.
// clang-format off
#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <objbase.h>
#include <tlhelp32.h>
#include <wchar.h>
// clang-format on
#else
#include "standin/windows.h"
#endif
