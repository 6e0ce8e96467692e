#include "standin/processes.h"

#include "standin/descriptor.h"
#include "standin/directory.h"
#include "standin/handles.h"
#include "standin/streams.h"
#include "standin/text.h"
#include "standin/watcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <optional>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// Some C libraries forget to say that these are C.
extern "C" {
#include <sys/pidfd.h>
}

/// A process, the same for as long as the record lives: the descriptor never means a later one with the same id.
struct ProcessRecord {
    pid_t Id = 0;
    Descriptor Process;  // readable once the process has ended
    bool IsChild = false;

    std::mutex Mutex;         // guards the rest
    std::uint64_t Watch = 0;  // of a child that has not been reaped
    bool Reaped = false;
    DWORD ExitCode = 0;
    std::optional<DWORD> KilledWith;
};

struct ProcessObject {
    std::shared_ptr<ProcessRecord> Record;
    DWORD Access = 0;
};

struct ProcessSnapshot {
    std::mutex Mutex;
    std::vector<PROCESSENTRY32W> Entries;
    std::size_t Next = 0;
};

namespace {

constexpr DWORD AllAccess = 0x1FFFFF;

/// The processes that this one has a handle of, and children that still run, by id. Immortal.
struct KnownProcesses {
    std::mutex Mutex;
    std::map<pid_t, std::weak_ptr<ProcessRecord>> Records;
};

KnownProcesses& Known() {
    static KnownProcesses& known = *new KnownProcesses;
    return known;
}

/// Adds a record, and forgets those that nobody has any more. Under the mutex.
void Remember(const std::shared_ptr<ProcessRecord>& record) {
    std::erase_if(Known().Records, [](const auto& entry) { return entry.second.expired(); });
    Known().Records[record->Id] = record;
}

bool HasEnded(const ProcessRecord& record) {
    pollfd state = {record.Process.Get(), POLLIN, 0};
    return poll(&state, 1, 0) > 0;
}

/// Collects the exit code of a process that has ended. Only a child's is told; of others, and of a child that somebody
/// else has reaped, it is the code of TerminateProcess or 0.
void Reap(ProcessRecord& record) {
    const std::lock_guard guard(record.Mutex);
    if (record.Reaped) return;
    record.Reaped = true;
    EndWatch(record.Watch, record.Process.Get());
    siginfo_t end = {};
    const bool told = record.IsChild && waitid(P_PIDFD, static_cast<id_t>(record.Process.Get()), &end, WEXITED) == 0;
    if (told && end.si_code == CLD_EXITED) {
        record.ExitCode = static_cast<DWORD>(end.si_status);
    } else if (record.KilledWith) {
        record.ExitCode = *record.KilledWith;
    } else if (told) {
        constexpr DWORD endedBySignal = 128;
        record.ExitCode = endedBySignal + static_cast<DWORD>(end.si_status);
    }
}

/// The record of the process `id`: of the running one, else of one that has ended but has a handle left here. Null when
/// there is neither.
std::shared_ptr<ProcessRecord> RecordOf(pid_t id) {
    KnownProcesses& known = Known();
    const std::lock_guard guard(known.Mutex);
    const auto found = known.Records.find(id);
    const std::shared_ptr<ProcessRecord> earlier = found == known.Records.end() ? nullptr : found->second.lock();
    if (earlier && !HasEnded(*earlier)) return earlier;
    const auto record = std::make_shared<ProcessRecord>();
    record->Id = id;
    record->Process = Descriptor(pidfd_open(id, 0));
    if (!record->Process || HasEnded(*record)) return earlier;
    Remember(record);
    return record;
}

std::string ReadLink(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof(target));
    return length < 0 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

std::string ExecutablePath(pid_t id) {
    std::string path = ReadLink("/proc/" + std::to_string(id) + "/exe");
    constexpr std::string_view removed = " (deleted)";
    if (path.ends_with(removed)) path.resize(path.size() - removed.size());
    return path;
}

/// The entry of a process; nothing for one that has ended, or that is known to have no image, as the kernel's own
/// threads. The look at the image comes first: it costs little, and for root it leaves out most of the table.
std::optional<PROCESSENTRY32W> Describe(pid_t id) {
    std::string name = ExecutablePath(id);
    if (name.empty() && errno != EACCES) return std::nullopt;
    name.erase(0, name.rfind('/') + 1);
    const Descriptor file(open(("/proc/" + std::to_string(id) + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
    char text[1024];
    const ssize_t length = file ? read(file.Get(), text, sizeof(text) - 1) : 0;
    if (length <= 0) return std::nullopt;
    text[length] = '\0';
    // The command stands in parentheses and may hold any byte; the numbers follow the last of them.
    const char* const nameStart = std::strchr(text, '(');
    const char* const nameEnd = std::strrchr(text, ')');
    PROCESSENTRY32W entry = {};
    char state = 0;
    constexpr const char* fields =
        " %c %u %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %u";  // state, parent, ..., threads
    if (nameStart == nullptr || nameEnd == nullptr ||
        std::sscanf(nameEnd + 1, fields, &state, &entry.th32ParentProcessID, &entry.cntThreads) != 3 || state == 'Z') {
        return std::nullopt;
    }
    if (name.empty()) name.assign(nameStart + 1, nameEnd);
    entry.dwSize = sizeof(entry);
    entry.th32ProcessID = static_cast<DWORD>(id);
    CopyCut(Utf16From(name), entry.szExeFile, MAX_PATH);
    return entry;
}

std::vector<pid_t> AllProcesses() {
    std::vector<pid_t> ids;
    const Descriptor table(open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const std::string& name : ListFiles(table)) {
        if (name.find_first_not_of("0123456789") == std::string::npos) ids.push_back(std::stoi(name));
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

BOOL TakeEntry(HANDLE handle, PROCESSENTRY32W* entry, bool fromStart) {
    const std::shared_ptr<ProcessSnapshot> snapshot = FindHandle<ProcessSnapshot>(handle);
    if (!snapshot) return FALSE;
    const std::lock_guard guard(snapshot->Mutex);
    if (fromStart) snapshot->Next = 0;
    if (snapshot->Next == snapshot->Entries.size()) return Outcome(ERROR_NO_MORE_FILES);
    *entry = snapshot->Entries[snapshot->Next++];
    return TRUE;
}

/// A command line's words by the rules of Windows programs: 2n backslashes before a quote are n and the quote counts,
/// 2n+1 are n and a quote; two quotes inside quotes are one. The program's own name knows no backslash escapes.
std::vector<std::string> SplitCommandLine(std::u16string_view line) {
    std::vector<std::string> words;
    std::size_t at = 0;
    const auto is = [&](char16_t unit) { return at < line.size() && line[at] == unit; };
    const auto isBlank = [&] { return is(u' ') || is(u'\t'); };
    while (true) {
        while (isBlank()) ++at;
        if (at == line.size()) return words;
        std::u16string word;
        bool quoted = false;
        for (; at < line.size() && (quoted || !isBlank()); ++at) {
            std::size_t backslashes = 0;
            for (; !words.empty() && is(u'\\'); ++at) ++backslashes;
            if (is(u'"') && backslashes % 2 == 0) {
                word.append(backslashes / 2, u'\\');
                const bool doubled = !words.empty() && quoted && at + 1 < line.size() && line[at + 1] == u'"';
                if (doubled) word += line[++at];
                if (!doubled) quoted = !quoted;
            } else if (is(u'"')) {
                word.append(backslashes / 2, u'\\');
                word += u'"';
            } else {
                word.append(backslashes, u'\\');
                if (at == line.size() || (!quoted && isBlank())) break;
                word += line[at];
            }
        }
        words.push_back(Utf8From(word));
    }
}

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// What posix_spawn is told beside the program.
struct SpawnPlan {
    SpawnPlan() {
        posix_spawn_file_actions_init(&Actions);
        posix_spawnattr_init(&Attributes);
        sigset_t all;
        sigfillset(&all);
        posix_spawnattr_setsigdefault(&Attributes, &all);
        sigemptyset(&all);
        posix_spawnattr_setsigmask(&Attributes, &all);
        posix_spawnattr_setflags(&Attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~SpawnPlan() {
        posix_spawn_file_actions_destroy(&Actions);
        posix_spawnattr_destroy(&Attributes);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;
    posix_spawn_file_actions_t Actions;
    posix_spawnattr_t Attributes;
};

/// Starts the program; gives its id, or 0 with the last error set.
pid_t Spawn(const char* program, std::vector<std::string>& words, LPVOID environment, LPCWSTR directory,
            const STARTUPINFOW& startup) {
    SpawnPlan plan;
    std::array<std::shared_ptr<Stream>, 3> kept;
    std::array<Descriptor, 3> copies;
    const HANDLE given[] = {startup.hStdInput, startup.hStdOutput, startup.hStdError};
    if ((startup.dwFlags & STARTF_USESTDHANDLES) != 0) {
        for (int i = 0; i < 3; ++i) {
            const auto slot = static_cast<std::size_t>(i);
            const int file = StreamDescriptor(given[slot], kept[slot]);
            // Copies above the standard numbers, so that none is overwritten before its turn.
            constexpr int aboveStandard = 3;
            copies[slot] = Descriptor(file < 0 ? open("/dev/null", O_RDWR | O_CLOEXEC)
                                               : fcntl(file, F_DUPFD_CLOEXEC, aboveStandard));
            posix_spawn_file_actions_adddup2(&plan.Actions, copies[slot].Get(), i);
        }
    }
    posix_spawn_file_actions_addclosefrom_np(&plan.Actions, STDERR_FILENO + 1);
    if (directory != nullptr) {
        posix_spawn_file_actions_addchdir_np(&plan.Actions, Utf8From(std::u16string_view(directory)).c_str());
    }
    std::vector<std::string> variables;
    for (const char* next = static_cast<const char*>(environment); next != nullptr && *next != 0;) {
        variables.emplace_back(next);
        next += variables.back().size() + 1;
    }
    pid_t id = 0;
    const int failure = posix_spawnp(&id, program, &plan.Actions, &plan.Attributes, PointersTo(words).data(),
                                     environment == nullptr ? environ : PointersTo(variables).data());
    if (failure == 0) return id;
    SetLastError(failure == EACCES ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND);
    return 0;
}

bool Allows(const ProcessObject& process, DWORD access) {
    if ((process.Access & access) == access) return true;
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
}

}  // namespace

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD) {
    if (flags != TH32CS_SNAPPROCESS) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    const auto snapshot = std::make_shared<ProcessSnapshot>();
    for (const pid_t id : AllProcesses()) {
        if (const auto entry = Describe(id)) snapshot->Entries.push_back(*entry);
    }
    return AddHandle(snapshot);
}

BOOL Process32FirstW(HANDLE snapshot, PROCESSENTRY32W* entry) {
    return TakeEntry(snapshot, entry, true);
}

BOOL Process32NextW(HANDLE snapshot, PROCESSENTRY32W* entry) {
    return TakeEntry(snapshot, entry, false);
}

HANDLE OpenProcess(DWORD access, BOOL, DWORD processId) {
    const auto id = static_cast<pid_t>(processId);
    const std::shared_ptr<ProcessRecord> record = id > 0 ? RecordOf(id) : nullptr;
    if (!record) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if ((access & PROCESS_TERMINATE) != 0 && kill(id, 0) != 0 && errno == EPERM) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return AddHandle(std::make_shared<ProcessObject>(ProcessObject{record, access}));
}

std::shared_ptr<ProcessObject> FindProcess(HANDLE handle) {
    if (handle != GetCurrentProcess()) return FindHandle<ProcessObject>(handle);
    const std::shared_ptr<ProcessRecord> record = RecordOf(getpid());
    return record ? std::make_shared<ProcessObject>(ProcessObject{record, AllAccess}) : nullptr;
}

DWORD WaitForProcess(ProcessObject& process, DWORD milliseconds) {
    if (!Allows(process, SYNCHRONIZE)) return WAIT_FAILED;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        const auto limit = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX));
        pollfd waiting = {process.Record->Process.Get(), POLLIN, 0};
        if (poll(&waiting, 1, milliseconds == INFINITE ? -1 : limit) > 0) return WAIT_OBJECT_0;
        if (milliseconds != INFINITE && limit == 0) return WAIT_TIMEOUT;
    }
}

BOOL GetExitCodeProcess(HANDLE handle, LPDWORD exitCode) {
    const std::shared_ptr<ProcessObject> process = FindProcess(handle);
    if (!process || !Allows(*process, PROCESS_QUERY_LIMITED_INFORMATION)) return FALSE;
    ProcessRecord& record = *process->Record;
    const bool ended = HasEnded(record);
    if (ended) Reap(record);
    const std::lock_guard guard(record.Mutex);
    *exitCode = ended ? record.ExitCode : STILL_ACTIVE;
    return TRUE;
}

/// Gives the creation time alone, counted from the machine's start: it orders this machine's processes but is no date.
BOOL GetProcessTimes(HANDLE handle, FILETIME* creation, FILETIME*, FILETIME*, FILETIME*) {
    const std::shared_ptr<ProcessObject> process = FindProcess(handle);
    if (!process || !Allows(*process, PROCESS_QUERY_LIMITED_INFORMATION)) return FALSE;
    const Descriptor file(
        open(("/proc/" + std::to_string(process->Record->Id) + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
    char text[1024];
    const ssize_t length = file ? read(file.Get(), text, sizeof(text) - 1) : 0;
    text[std::max<ssize_t>(length, 0)] = '\0';
    const char* const nameEnd = std::strrchr(text, ')');
    unsigned long long start = 0;
    constexpr const char* fields =
        " %*c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %llu";  // state, ..., start
    if (nameEnd == nullptr || std::sscanf(nameEnd + 1, fields, &start) != 1 || HasEnded(*process->Record)) {
        return Outcome(ERROR_ACCESS_DENIED);
    }
    *creation = {static_cast<DWORD>(start), static_cast<DWORD>(start >> 32)};
    return TRUE;
}

BOOL QueryFullProcessImageNameW(HANDLE handle, DWORD, LPWSTR path, LPDWORD size) {
    const std::shared_ptr<ProcessObject> process = FindProcess(handle);
    if (!process || !Allows(*process, PROCESS_QUERY_LIMITED_INFORMATION)) return FALSE;
    const std::u16string image = Utf16From(ExecutablePath(process->Record->Id));
    // Asked only afterwards: until the process has ended, nobody else can have had its id.
    if (image.empty() || HasEnded(*process->Record)) return Outcome(ERROR_ACCESS_DENIED);
    if (*size <= image.size()) return Outcome(ERROR_INSUFFICIENT_BUFFER);
    CopyCut(image, path, *size);
    *size = static_cast<DWORD>(image.size());
    return TRUE;
}

DWORD GetCurrentProcessId() {
    return static_cast<DWORD>(getpid());
}

HANDLE GetCurrentProcess() {
    return INVALID_HANDLE_VALUE;
}

BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL, DWORD,
                    LPVOID environment, LPCWSTR directory, STARTUPINFOW* startup, PROCESS_INFORMATION* information) {
    std::vector<std::string> words = SplitCommandLine(commandLine == nullptr ? u"" : commandLine);
    const std::string program = application != nullptr ? Utf8From(std::u16string_view(application))
                                : words.empty()        ? ""
                                                       : words.front();
    if (program.empty()) return Outcome(ERROR_INVALID_PARAMETER);
    if (words.empty()) words.push_back(program);

    const auto record = std::make_shared<ProcessRecord>();
    {
        // Held from before the start, so that nobody opens the new process as a stranger.
        const std::lock_guard guard(Known().Mutex);
        record->Id = Spawn(program.c_str(), words, environment, directory, *startup);
        if (record->Id == 0) return FALSE;
        record->IsChild = true;
        record->Process = Descriptor(pidfd_open(record->Id, 0));
        if (!record->Process) {
            kill(record->Id, SIGKILL);
            waitpid(record->Id, nullptr, 0);
            return Outcome(ERROR_NOT_ENOUGH_MEMORY);
        }
        Remember(record);
    }
    {
        const std::lock_guard guard(record->Mutex);
        record->Watch = StartWatch(record->Process.Get(), EPOLLIN, [record] { Reap(*record); });
    }
    information->hProcess = AddHandle(std::make_shared<ProcessObject>(ProcessObject{record, AllAccess}));
    information->hThread = AddHandle(std::make_shared<ProcessObject>(ProcessObject{record, AllAccess}));
    information->dwProcessId = information->dwThreadId = static_cast<DWORD>(record->Id);
    return TRUE;
}

BOOL TerminateProcess(HANDLE handle, UINT exitCode) {
    const std::shared_ptr<ProcessObject> process = FindProcess(handle);
    if (!process || !Allows(*process, PROCESS_TERMINATE)) return FALSE;
    if (handle == GetCurrentProcess()) _exit(static_cast<int>(exitCode));
    ProcessRecord& record = *process->Record;
    const std::lock_guard guard(record.Mutex);
    if (record.Reaped || HasEnded(record)) return Outcome(ERROR_ACCESS_DENIED);
    if (pidfd_send_signal(record.Process.Get(), SIGKILL, nullptr, 0) != 0) return Outcome(ERROR_ACCESS_DENIED);
    record.KilledWith = exitCode;
    return TRUE;
}
