#include "child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#if defined(_WIN32)
#include <process.h>
#else
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#endif

ChildProcess::ChildProcess(const WideString& program, const std::vector<std::string>& arguments) {
    int input[2], output[2];
    EXPECT_TRUE(MakePipe(input) && MakePipe(output));
    process_ = Spawn(program, arguments, input[0], output[1]);
    EXPECT_NE(process_, -1);
    close(input[0]);
    close(output[1]);
    Input.reset(fdopen(input[1], "wb"));
    Output.reset(fdopen(output[0], "rb"));
#if defined(_WIN32)
    Id = GetProcessId(reinterpret_cast<HANDLE>(process_));
#else
    Id = static_cast<DWORD>(process_);
#endif
}

std::string ChildProcess::Read(std::string_view mark) {
    return Reader.Until(mark, [this](char* buffer, unsigned size) {
        const auto count = read(_fileno(Output.get()), buffer, size);
        return count > 0 ? static_cast<std::size_t>(count) : 0;
    });
}

#if defined(_WIN32)

bool MakePipe(int (&ends)[2]) {
    return _pipe(ends, 65536, _O_BINARY | _O_NOINHERIT) == 0;
}

std::intptr_t Spawn(const WideString& program, const std::vector<std::string>& arguments, int input, int output, bool) {
    // Ends its processes when its last handle goes, which is ours and goes with this process.
    static const HANDLE job = [] {
        const HANDLE created = CreateJobObjectW(nullptr, nullptr);
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        SetInformationJobObject(created, JobObjectExtendedLimitInformation, &limits, sizeof limits);
        return created;
    }();
    WideString line = WideString(1, '"').append(program).append(1, '"');
    for (const std::string& argument : arguments) line += Utf8ToWide(" \"" + argument + "\"");
    // The program inherits this one's standard files.
    const int files[] = {input, output, output};
    int own[3];
    for (int i = 0; i < 3; ++i) own[i] = dup(i), dup2(files[i], i);
    const std::intptr_t process = _wspawnl(_P_NOWAIT, program.c_str(), line.c_str(), nullptr);
    for (int i = 0; i < 3; ++i) dup2(own[i], i), close(own[i]);
    if (process != -1) AssignProcessToJobObject(job, reinterpret_cast<HANDLE>(process));
    return process;
}

DWORD ChildProcess::WaitForExitCode() {
    const auto process = reinterpret_cast<HANDLE>(process_);
    WaitForSingleObject(process, INFINITE);
    return GetExitCodeProcess(process, &exitCode_.emplace()) ? *exitCode_ : STILL_ACTIVE;
}

DWORD ChildProcess::Kill(UINT exitCode) {
    TerminateProcess(reinterpret_cast<HANDLE>(process_), exitCode);
    return WaitForExitCode();
}

#else

bool MakePipe(int (&ends)[2]) {
    return pipe2(ends, O_CLOEXEC) == 0;
}

std::intptr_t Spawn(const WideString& program, const std::vector<std::string>& arguments, int input, int output,
                    bool isAgents) {
    std::vector<std::string> words = arguments;
    std::string file = WideToUtf8(program);
    std::vector<char*> line{file.data()};
    for (std::string& word : words) line.push_back(word.data());
    line.push_back(nullptr);
    const pid_t parent = getpid(), child = fork();
    if (child != 0) return child;
    if (!isAgents) prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent && !isAgents) _exit(1);  // it has died already
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execv(file.c_str(), line.data());
    _exit(127);
}

DWORD ChildProcess::WaitForExitCode() {
    int status = 0;
    while (!exitCode_) {
        if (waitpid(static_cast<pid_t>(process_), &status, 0) < 0) continue;
        exitCode_ = static_cast<DWORD>(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    }
    return *exitCode_;
}

DWORD ChildProcess::Kill(UINT) {
    if (!exitCode_) kill(static_cast<pid_t>(process_), SIGKILL);
    return WaitForExitCode();
}

#endif
