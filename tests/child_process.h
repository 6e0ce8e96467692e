/// A program that a test starts, with pipes for its standard input and output. It dies with the test, and at the
/// latest with this record.
#pragma once

#include "raw_client.h"

struct ChildProcess {
    /// Our end of a pipe, as a file of the C library's.
    struct PipeEnd {
        int File;
        explicit PipeEnd(int file) : File(file) {}
        PipeEnd& operator=(PipeEnd&&) = delete;
        ~PipeEnd() { close(File); }
    };
    std::optional<PipeEnd> Input, Output;
    MarkedReader Reader;
    DWORD Id = 0;

    /// Call it on a thread that outlives the program: in the native lane that dies with its parent's thread.
    explicit ChildProcess(const WideString& program, const std::vector<std::string>& arguments = {});
    ~ChildProcess() { Kill(); }
    bool Send(std::string_view bytes);
    std::string Read(std::string_view mark);
    DWORD WaitForExitCode();
    /// Ends it at once, with `exitCode` where the system lets us choose. Harmless when it has ended.
    DWORD Kill(UINT exitCode = 1);

  private:
#if defined(_WIN32)
    std::optional<OwnedHandle> process_;
#else
    std::optional<DWORD> exitCode_;  // once it has ended and been waited for
#endif
};
