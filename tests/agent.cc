#include "agent.h"

#include <cstdio>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <process.h>
#else
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>
#endif

namespace {

constexpr int StandardInput = 0;

#if defined(_WIN32)
bool MakePipe(int (&ends)[2]) {
    return _pipe(ends, 65536, _O_BINARY | _O_NOINHERIT) == 0;
}
bool StartLauncher() {
    return _spawnl(_P_NOWAIT, "orvane_mcp.exe", "orvane_mcp.exe", nullptr) != -1;
}
#else
bool MakePipe(int (&ends)[2]) {
    return pipe2(ends, O_CLOEXEC) == 0;
}
bool StartLauncher() {
    char name[] = "./orvane_mcp.exe";
    char* const words[] = {name, nullptr};
    pid_t id = 0;
    return posix_spawn(&id, name, nullptr, nullptr, words, environ) == 0;
}
#endif

}  // namespace

int RunAgent(const std::string& mode) {
    if (mode == "leave") return StartLauncher() ? 0 : 1;
    int input[2];
    const int own = dup(StandardInput);
    if (own < 0 || !MakePipe(input) || dup2(input[0], StandardInput) < 0) return 1;
    close(input[0]);
    if (!StartLauncher()) return 1;
    char piece[4096];
    for (long count; (count = read(own, piece, sizeof piece)) > 0;) {
        if (write(input[1], piece, static_cast<unsigned>(count)) != count) return 1;
    }
    return 0;
}
