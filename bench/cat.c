/* cat for Windows: copies its input to its output, in pieces as large as those of the system's cat elsewhere. */
#include <stdio.h>
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#else
#include <unistd.h>
#endif

int main(void) {
    static char piece[128 * 1024];
#ifdef _WIN32
    _setmode(0, _O_BINARY);
    _setmode(1, _O_BINARY);
#endif
    for (int count; (count = (int)read(0, piece, sizeof piece)) > 0;) {
        for (int written = 0, more; written < count; written += more) {
            more = (int)write(1, piece + written, (unsigned)(count - written));
            if (more <= 0) return 1;
        }
    }
    return 0;
}
