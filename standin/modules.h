/// The process's end, as its libraries see it.
#pragma once

/// Whether the process is ending, so that a library is torn down with it and not by itself. Known once any module has
/// been pinned.
[[gnu::visibility("default")]] bool ProcessEnds();
