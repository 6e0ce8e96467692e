/// Connects to a control pipe many times, greets each time, prints the number, and stays silent until its input ends.
/// Arguments: the pipe's name and the number of connections.

#include "platform/owned.h"
#include "protocol/control_protocol.h"
#include "text/wide.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

/// Opens the pipe as soon as the server has a free instance.
OwnedHandle OpenPipe(const WideString& name) {
    constexpr DWORD pause = 5;
    for (;;) {
        HANDLE pipe = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (pipe != INVALID_HANDLE_VALUE) return OwnedHandle(pipe);
        Sleep(pause);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 1;
    const WideString name = Utf8ToWide(argv[1]);
    std::vector<OwnedHandle> pipes;
    const auto wanted = static_cast<std::size_t>(std::atoi(argv[2]));
    while (pipes.size() < wanted) {
        pipes.push_back(OpenPipe(name));
        const std::string hello = std::string(HelloPrefix) + "bench (bridge pid 1)\n";
        char reply[16];
        DWORD count = 0;
        if (WriteFile(pipes.back().Get(), hello.data(), static_cast<DWORD>(hello.size()), &count, nullptr) == 0 ||
            ReadFile(pipes.back().Get(), reply, sizeof reply, &count, nullptr) == 0) {
            return 1;
        }
    }
    std::printf("%zu clients\n", pipes.size());
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
