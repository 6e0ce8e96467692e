/// A program that a test starts, with pipes for its standard input and output. Killed at the end if it still runs.
#pragma once

#include "raw_client.h"

struct ChildProcess {
    std::optional<OwnedHandle> Process, Input, Output;
    MarkedReader Reader;
    DWORD Id = 0;

    explicit ChildProcess(const WideString& program, const WideString& arguments = {});
    ~ChildProcess() { Kill(); }
    bool Send(std::string_view bytes) { return WriteBytes(Input->Get(), bytes); }
    std::string Read(std::string_view mark) { return Reader.Until(mark, Output->Get()); }
    DWORD WaitForExitCode();
    DWORD Kill(UINT exitCode = 1) { return TerminateProcess(Process->Get(), exitCode), WaitForExitCode(); }
};
