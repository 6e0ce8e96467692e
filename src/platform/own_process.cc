#include "platform/own_process.h"

#include <cstdint>
#include <cstdlib>

#if defined(_WIN32)
#include <winternl.h>
#else
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

/// When a process started, as a number that grows with time; nothing if the system won't say.
std::optional<std::uint64_t> StartOf(HANDLE process) {
    FILETIME creation{}, exit{}, kernel{}, user{};
    if (GetProcessTimes(process, &creation, &exit, &kernel, &user) == 0) return std::nullopt;
    return std::uint64_t{creation.dwHighDateTime} << 32 | creation.dwLowDateTime;
}

#if defined(_WIN32)

/// A function in ntdll, or null. Every Windows has it, but not every toolchain's import library.
template <typename Function>
Function FindInNtdll(const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll"), name)));
}

/// The id of the process that started this one; 0 if the system won't say. Asks about this process alone: walking the
/// process table takes longer the more processes there are.
DWORD ParentId() {
    struct BasicInformation {
        NTSTATUS ExitStatus;
        void* Environment;
        ULONG_PTR AffinityMask;
        LONG BasePriority;
        ULONG_PTR Id, ParentId;
    } information{};
    using Query = NTSTATUS(NTAPI*)(HANDLE, PROCESSINFOCLASS, void*, ULONG, ULONG*);
    const auto query = FindInNtdll<Query>("NtQueryInformationProcess");
    if (query == nullptr ||
        query(GetCurrentProcess(), ProcessBasicInformation, &information, sizeof information, nullptr) < 0) {
        return 0;
    }
    return static_cast<DWORD>(information.ParentId);
}

#else

DWORD ParentId() {
    return static_cast<DWORD>(getppid());
}

#endif

}  // namespace

OwnedHandle OpenParentProcess() {
    const DWORD id = ParentId();
    if (id == 0) return {};
    OwnedHandle parent(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    if (!parent) return {};
    const std::optional<std::uint64_t> start = StartOf(parent.Get()), ownStart = StartOf(GetCurrentProcess());
    if (!start || !ownStart || *start > *ownStart) return {};
    return parent;
}

#if defined(_WIN32)

std::optional<DWORD> UnreadInputAfterItsLastWriter() {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD unread = 0;
    if (PeekNamedPipe(input, nullptr, 0, nullptr, &unread, nullptr) == 0) {
        if (GetLastError() == ERROR_BROKEN_PIPE) return 0;
        return std::nullopt;
    }
    // While there is something left to read, the call above can't tell whether anyone still holds the other end.
    struct PipeState {
        ULONG Type, Configuration, MaximumInstances, CurrentInstances, InboundQuota, ReadDataAvailable, OutboundQuota,
            WriteQuotaAvailable, State, End;
    } state{};
    constexpr auto pipeLocalInformation = static_cast<FILE_INFORMATION_CLASS>(24);
    constexpr ULONG closing = 4;
    using Query = NTSTATUS(NTAPI*)(HANDLE, IO_STATUS_BLOCK*, void*, ULONG, FILE_INFORMATION_CLASS);
    static const auto query = FindInNtdll<Query>("NtQueryInformationFile");
    IO_STATUS_BLOCK outcome{};
    if (query == nullptr || query(input, &outcome, &state, sizeof state, pipeLocalInformation) < 0) return std::nullopt;
    if (state.State != closing) return std::nullopt;
    return state.ReadDataAvailable;
}

void EndOwnProcess(int exitCode) {
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
    std::_Exit(exitCode);
}

#else

std::optional<DWORD> UnreadInputAfterItsLastWriter() {
    struct stat status {};
    if (fstat(STDIN_FILENO, &status) != 0) return std::nullopt;
    if (!S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode)) return std::nullopt;
    pollfd state{STDIN_FILENO, 0, 0};
    poll(&state, 1, 0);
    int unread = 0;
    if ((state.revents & POLLHUP) == 0 || ioctl(STDIN_FILENO, FIONREAD, &unread) != 0) return std::nullopt;
    return static_cast<DWORD>(unread);
}

void EndOwnProcess(int exitCode) {
    std::_Exit(exitCode);
}

#endif
