/// The standard streams, where the C library's own calls are too slow or differ between systems.
#pragma once

#include <cstdio>

/// The next byte of `stream`, or EOF. Takes no lock, so only one thread may read the stream.
inline int ReadByteUnlocked(std::FILE* stream) {
#if defined(_WIN32)
    return _fgetc_nolock(stream);
#else
    return getc_unlocked(stream);  // NOLINT(concurrency-mt-unsafe): the caller is the one reader
#endif
}
