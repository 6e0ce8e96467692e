#include "child_process.h"

#include <gtest/gtest.h>

bool ChildProcess::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count = write(Input->File, bytes.data(), static_cast<unsigned>(bytes.size()));
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::string ChildProcess::Read(std::string_view mark) {
    return Reader.Until(mark, [this](char* buffer, unsigned size) {
        const auto count = read(Output->File, buffer, size);
        return count > 0 ? static_cast<std::size_t>(count) : 0;
    });
}

#if defined(_WIN32)

/// Ends its processes when its last handle goes, which is ours and goes with this process.
static HANDLE OwnJob() {
    static const HANDLE job = [] {
        const HANDLE created = CreateJobObjectW(nullptr, nullptr);
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(created, JobObjectExtendedLimitInformation, &limits, sizeof limits);
        return created;
    }();
    return job;
}

ChildProcess::ChildProcess(const WideString& program, const std::vector<std::string>& arguments) {
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

    WideString line = WideString(1, '"').append(program).append(1, '"');
    for (const std::string& argument : arguments) line += Utf8ToWide(" \"" + argument + "\"");
    PROCESS_INFORMATION started{};
    CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr, &startup,
                   &started);
    EXPECT_TRUE(process_.emplace(started.hProcess)) << GetLastError();
    EXPECT_TRUE(AssignProcessToJobObject(OwnJob(), started.hProcess)) << GetLastError();
    const OwnedHandle thread(started.hThread);
    ResumeThread(started.hThread);
    Input.emplace(_open_osfhandle(reinterpret_cast<std::intptr_t>(input), _O_BINARY));
    Output.emplace(_open_osfhandle(reinterpret_cast<std::intptr_t>(output), _O_BINARY));
    Id = started.dwProcessId;
}

DWORD ChildProcess::WaitForExitCode() {
    DWORD code = STILL_ACTIVE;
    WaitForSingleObject(process_->Get(), INFINITE);
    GetExitCodeProcess(process_->Get(), &code);
    return code;
}

DWORD ChildProcess::Kill(UINT exitCode) {
    TerminateProcess(process_->Get(), exitCode);
    return WaitForExitCode();
}

#else

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

ChildProcess::ChildProcess(const WideString& program, const std::vector<std::string>& arguments) {
    std::string file = WideToUtf8(program);
    std::vector<std::string> words = arguments;
    std::vector<char*> line = {file.data()};
    for (std::string& word : words) line.push_back(word.data());
    line.push_back(nullptr);
    int input[2], output[2];
    EXPECT_TRUE(pipe2(input, O_CLOEXEC) == 0 && pipe2(output, O_CLOEXEC) == 0);
    const pid_t parent = getpid(), child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);  // it has died already
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        execv(file.c_str(), line.data());
        _exit(127);
    }
    EXPECT_GT(child, 0);
    close(input[0]);
    close(output[1]);
    Input.emplace(input[1]);
    Output.emplace(output[0]);
    Id = static_cast<DWORD>(child);
}

DWORD ChildProcess::WaitForExitCode() {
    int status = 0;
    while (!exitCode_) {
        if (waitpid(static_cast<pid_t>(Id), &status, 0) < 0) continue;
        exitCode_ = static_cast<DWORD>(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    }
    return *exitCode_;
}

DWORD ChildProcess::Kill(UINT) {
    if (!exitCode_) kill(static_cast<pid_t>(Id), SIGKILL);
    return WaitForExitCode();
}

#endif
