/// The plain pair: the least that two programs can do to pass bytes through a named pipe. With PLAIN_SOCKET the pipe is
/// a socket with the same buffer size as the stand-in's pipes, without the stand-in's calls.
///
/// bench_pair write NAME          serves one reader: for each number that comes, prints "asked" and writes as many
/// bytes bench_pair read NAME PIECE     passes each number on, reads the bytes in pieces of PIECE, prints them in one
/// go

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#ifndef PLAIN_SOCKET
#include "platform/platform.h"
#include "text/wide.h"

using Pipe = HANDLE;

static WideString PathOf(const char* name) {
    return TEXT("\\\\.\\pipe\\") + Utf8ToWide(name);
}

static Pipe Listen(const char* name) {
    return CreateNamedPipeW(PathOf(name).c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT,
                            PIPE_UNLIMITED_INSTANCES, 512, 512, 0, nullptr);
}

static Pipe Accept(Pipe pipe) {
    ConnectNamedPipe(pipe, nullptr);
    return pipe;
}

static Pipe Connect(const char* name) {
    return CreateFileW(PathOf(name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
}

static std::size_t ReadSome(Pipe pipe, char* piece, std::size_t size) {
    DWORD count = 0;
    return ReadFile(pipe, piece, static_cast<DWORD>(size), &count, nullptr) != 0 ? count : 0;
}

static bool WriteAll(Pipe pipe, const std::string& bytes) {
    DWORD count = 0;
    return WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) != 0;
}
#else
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using Pipe = int;

static Pipe WithSmallBuffer(int socket) {
    const int size = 8192;
    setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    return socket;
}

/// A socket with an abstract name, which needs no file.
static Pipe SocketAt(const char* name, int (*attach)(int, const sockaddr*, socklen_t)) {
    const Pipe made = WithSmallBuffer(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path + 1, name, sizeof address.sun_path - 2);
    attach(made, reinterpret_cast<sockaddr*>(&address), sizeof address);
    return made;
}

static Pipe Listen(const char* name) {
    const Pipe pipe = SocketAt(name, bind);
    listen(pipe, 1);
    return pipe;
}

static Pipe Accept(Pipe pipe) {
    return WithSmallBuffer(accept(pipe, nullptr, nullptr));
}

static Pipe Connect(const char* name) {
    return SocketAt(name, connect);
}

static std::size_t ReadSome(Pipe pipe, char* piece, std::size_t size) {
    const ssize_t count = read(pipe, piece, size);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

static bool WriteAll(Pipe pipe, const std::string& bytes) {
    return write(pipe, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}
#endif

static void Say(const char* word) {
    std::puts(word);
    std::fflush(stdout);
}

static int RunWriter(const char* name) {
    const Pipe listener = Listen(name);
    Say("serving");
    const Pipe pipe = Accept(listener);
    char request[32] = {};
    while (ReadSome(pipe, request, sizeof request - 1) > 0) {
        const std::string reply = std::string(std::strtoul(request, nullptr, 10) - 1, 'A') + '\n';
        Say("asked");
        if (!WriteAll(pipe, reply)) break;
    }
    return 0;
}

static int RunReader(const char* name, std::size_t pieceSize) {
    const Pipe pipe = Connect(name);
    std::vector<char> piece(pieceSize);
    for (char request[32]; std::fgets(request, sizeof request, stdin) != nullptr;) {
        WriteAll(pipe, request);
        std::string reply;
        while (reply.empty() || reply.back() != '\n') {
            const std::size_t count = ReadSome(pipe, piece.data(), pieceSize);
            if (count == 0) return 1;
            reply.append(piece.data(), count);
        }
        std::fwrite(reply.data(), 1, reply.size(), stdout);
        std::fflush(stdout);
    }
    return 0;
}

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "write") == 0) return RunWriter(argv[2]);
    if (argc == 4 && std::strcmp(argv[1], "read") == 0) return RunReader(argv[2], std::strtoul(argv[3], nullptr, 10));
    return 2;
}
