#include "child_process.h"

#include <gtest/gtest.h>

ChildProcess::ChildProcess(const WideString& program, const WideString& arguments) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    HANDLE input = nullptr, output = nullptr;
    CreatePipe(&startup.hStdInput, &input, &inherited, 0);
    CreatePipe(&output, &startup.hStdOutput, &inherited, 0);
    const OwnedHandle childInput(startup.hStdInput), childOutput(startup.hStdOutput);
    // Only the child's ends are inherited: its input would never end while it held our end of it.
    for (const HANDLE own : {input, output}) SetHandleInformation(own, HANDLE_FLAG_INHERIT, 0);

    WideString line = WideString(1, '"').append(program).append(TEXT("\" ")).append(arguments);
    PROCESS_INFORMATION started{};
    CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &started);
    EXPECT_TRUE(Process.emplace(started.hProcess)) << GetLastError();
    const OwnedHandle thread(started.hThread);
    Input.emplace(input);
    Output.emplace(output);
    Id = started.dwProcessId;
}

DWORD ChildProcess::WaitForExitCode() {
    DWORD code = STILL_ACTIVE;
    WaitForSingleObject(Process->Get(), INFINITE);
    GetExitCodeProcess(Process->Get(), &code);
    return code;
}
