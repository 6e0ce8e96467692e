/// Programs that a test starts.
#pragma once

#include "raw_client.h"

/// Makes a pipe of the C library's, with an end to read and one to write that no other program inherits.
bool MakePipe(int (&ends)[2]);

/// Starts a program on these standard files. Returns its process, a handle on Windows and an id elsewhere, or -1.
std::intptr_t Spawn(const WideString& program, const std::vector<std::string>& arguments, int input, int output,
                    bool isAgents = false);

/// A program with pipes for its standard input and for its output and errors. It dies with the test, and at the latest
/// with this record.
struct ChildProcess {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> Input{nullptr, std::fclose}, Output{nullptr, std::fclose};
    MarkedReader Reader;
    DWORD Id = 0;

    /// Call it on a thread that outlives the program: in the native lane that dies with its parent's thread.
    explicit ChildProcess(const WideString& program, const std::vector<std::string>& arguments = {});
    ~ChildProcess() { Kill(); }
    bool Send(std::string_view bytes) {
        return std::fwrite(bytes.data(), 1, bytes.size(), Input.get()) == bytes.size() && std::fflush(Input.get()) == 0;
    }
    std::string Read(std::string_view mark);
    DWORD WaitForExitCode();
    /// Ends it at once, with `exitCode` where the system lets us choose. Harmless when it has ended.
    DWORD Kill(UINT exitCode = 1);

  private:
    std::intptr_t process_;
    std::optional<DWORD> exitCode_;  // once it has ended and been waited for
};
