/// Paths as text: nothing here touches the disk.
#pragma once

#include "text/wide.h"

/// The text before the last backslash or slash, without it; empty when there is none. "C:\x" becomes "C:".
WideString ParentDirectory(WideView path);

/// `fileName` in `directory`, with a backslash between them unless `directory` is empty or ends in a separator.
WideString JoinPath(WideString directory, WideView fileName);
