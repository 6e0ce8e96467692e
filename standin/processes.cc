#include "standin/processes.h"

#include "standin/descriptor.h"
#include "standin/directory.h"
#include "standin/handles.h"
#include "standin/text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

// In some C libraries this header lacks its extern "C".
extern "C" {
#include <sys/pidfd.h>
}

namespace {

struct Process {
    pid_t Id;
    Descriptor Running;  // a pidfd, so never a later process with the same id; readable once this one has ended

    bool AwaitEnd(int milliseconds) const {
        pollfd state = {Running.Get(), POLLIN, 0};
        int ready = 0;
        while ((ready = poll(&state, 1, milliseconds)) < 0 && errno == EINTR) {
        }
        return ready > 0;
    }
};

struct ProcessSnapshot {
    std::vector<pid_t> Ids;
    std::size_t Next = 0;
};

/// What /proc says about a process that is still running.
struct ProcessStat {
    DWORD Parent = 0;
    unsigned long long Start = 0;
};

std::optional<ProcessStat> ReadStat(pid_t id) {
    const Descriptor file(open(("/proc/" + std::to_string(id) + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
    char text[1024];
    const ssize_t length = file ? read(file.Get(), text, sizeof(text) - 1) : 0;
    if (length <= 0) return std::nullopt;
    text[length] = '\0';
    // The name is in parentheses and may contain any byte; the other fields follow the last one.
    const char* const nameEnd = std::strrchr(text, ')');
    ProcessStat stat;
    char state = 0;
    constexpr const char* fields =  // state, parent, 17 others, start
        " %c %u %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %llu";
    const int read = nameEnd ? std::sscanf(nameEnd + 1, fields, &state, &stat.Parent, &stat.Start) : 0;
    return read == 3 && state != 'Z' && state != 'X' ? std::optional(stat) : std::nullopt;
}

std::string ExecutablePath(pid_t id) {
    char target[PATH_MAX];
    const ssize_t length = readlink(("/proc/" + std::to_string(id) + "/exe").c_str(), target, sizeof(target));
    std::string path(target, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    constexpr std::string_view removed = " (deleted)";
    if (path.ends_with(removed)) path.resize(path.size() - removed.size());
    return path;
}

/// The entry of a process; nothing for one that has ended, or whose image can't be seen: the kernel's own threads and
/// other users' processes. The image is checked first: that is cheap and rules out most of the table.
std::optional<PROCESSENTRY32W> Describe(pid_t id) {
    const std::string path = ExecutablePath(id);
    const std::optional<ProcessStat> stat = path.empty() ? std::nullopt : ReadStat(id);
    if (!stat) return std::nullopt;
    PROCESSENTRY32W entry = {sizeof(entry), static_cast<DWORD>(id), stat->Parent, {}};
    CopyCut(Utf16From(path.substr(path.rfind('/') + 1)), entry.szExeFile, std::size(entry.szExeFile));
    return entry;
}

}  // namespace

unsigned long long ProcessStart(pid_t id) {
    static const unsigned long long own = ReadStat(getpid()).value_or(ProcessStat()).Start;
    return id == getpid() ? own : ReadStat(id).value_or(ProcessStat()).Start;
}

HANDLE CreateToolhelp32Snapshot(DWORD, DWORD) {
    const auto snapshot = std::make_shared<ProcessSnapshot>();
    for (const std::string& name : ListFiles(Descriptor(open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC)))) {
        if (name.find_first_not_of("0123456789") == std::string::npos) snapshot->Ids.push_back(std::stoi(name));
    }
    return AddHandle(snapshot);
}

BOOL Process32FirstW(HANDLE handle, PROCESSENTRY32W* entry) {
    if (const auto snapshot = FindHandle<ProcessSnapshot>(handle)) snapshot->Next = 0;
    return Process32NextW(handle, entry);
}

BOOL Process32NextW(HANDLE handle, PROCESSENTRY32W* entry) {
    const std::shared_ptr<ProcessSnapshot> snapshot = FindHandle<ProcessSnapshot>(handle);
    if (!snapshot) return FALSE;
    while (snapshot->Next < snapshot->Ids.size()) {
        const std::optional<PROCESSENTRY32W> described = Describe(snapshot->Ids[snapshot->Next++]);
        if (!described) continue;
        *entry = *described;
        return TRUE;
    }
    return FALSE;
}

HANDLE OpenProcess(DWORD, BOOL, DWORD processId) {
    const auto process = std::make_shared<Process>();
    process->Id = static_cast<pid_t>(processId);
    process->Running = Descriptor(pidfd_open(process->Id, 0));
    if (process->Running) return AddHandle(process);
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
}

/// A real handle here, opened once, not a constant.
HANDLE GetCurrentProcess() {
    static const HANDLE handle = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, GetCurrentProcessId());
    return handle;
}

DWORD GetCurrentProcessId() {
    return static_cast<DWORD>(getpid());
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    const std::shared_ptr<Process> process = FindHandle<Process>(handle);
    if (!process) return WAIT_FAILED;
    const int limit = milliseconds == INFINITE ? -1 : static_cast<int>(std::min<DWORD>(milliseconds, INT_MAX));
    return process->AwaitEnd(limit) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

/// 0 for every process that has ended: only its parent can learn the real code.
BOOL GetExitCodeProcess(HANDLE handle, LPDWORD exitCode) {
    const std::shared_ptr<Process> process = FindHandle<Process>(handle);
    if (!process) return FALSE;
    *exitCode = process->AwaitEnd(0) ? 0 : STILL_ACTIVE;
    return TRUE;
}

/// Sets only the creation time, counted from boot: it puts processes in order and survives a change of the clock, but
/// it is not a date.
BOOL GetProcessTimes(HANDLE handle, FILETIME* creation, FILETIME*, FILETIME*, FILETIME*) {
    const std::shared_ptr<Process> process = FindHandle<Process>(handle);
    if (!process) return FALSE;
    const unsigned long long ticks =
        ProcessStart(process->Id) * 10'000'000ull / static_cast<unsigned long long>(sysconf(_SC_CLK_TCK));
    if (process->AwaitEnd(0)) return Outcome(ERROR_ACCESS_DENIED);
    *creation = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    return TRUE;
}

BOOL QueryFullProcessImageNameW(HANDLE handle, DWORD, LPWSTR path, LPDWORD size) {
    const std::shared_ptr<Process> process = FindHandle<Process>(handle);
    if (!process) return FALSE;
    const std::u16string image = Utf16From(ExecutablePath(process->Id));
    // Checked afterwards: until the process has ended, no other process can have its id.
    if (image.empty() || process->AwaitEnd(0)) return Outcome(ERROR_ACCESS_DENIED);
    if (!CopyCut(image, path, *size)) return Outcome(ERROR_INSUFFICIENT_BUFFER);
    *size = static_cast<DWORD>(image.size());
    return TRUE;
}
